// Camera capture: the capture thread, its settings and counters, and the
// Motion-JPEG decoder that turns each frame into packed YUYV.
#ifndef KAVRI_CAMERA_H
#define KAVRI_CAMERA_H

#include <linux/videodev2.h>
#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include "kavri/CameraAnalysis.h"
#include "kavri/CameraDevice.h"

struct jpeg_common_struct;

extern "C" {

// One entry per driver buffer, in driver index order.
typedef struct CameraBuffer {
  void* mapped;             // the driver buffer holding the compressed frame
  unsigned char* decoded;   // the decoded YUYV image (see CameraDecodedAllocation)
  uint32_t mappedLength;    // as the driver reports it
  uint32_t decodedLength;   // width x height x 2
} CameraBuffer;

// Capture settings: read when the capture thread starts.
extern int32_t CameraFrameWidth;     // 320
extern int32_t CameraFrameHeight;    // 240
extern int32_t CameraFrameRate;      // 15 frames per second
extern int32_t CameraPowerlineFreq;  // 50 Hz

// State of the capture thread; only the thread itself touches the device and
// the buffers.
extern int32_t CameraDeviceHandle;  // -1 while closed
extern CameraBuffer* CameraBuffers;
extern uint32_t CameraBufferCount;
extern bool CameraHasPreviousBuffer;
extern struct v4l2_buffer CameraPreviousBuffer;

extern std::atomic<uint32_t> CameraFrameCount;  // frames analysed since streaming started
// Reset once a second by the rates line.
extern std::atomic<int32_t> CameraFrameCountSecond;
extern std::atomic<int32_t> CameraFrameRequestCountSecond;

extern pthread_t CameraThread;
extern std::atomic<bool> CameraThreadRunning;
extern std::atomic<bool> CameraThreadTerminate;

// The capture thread's body (started by CameraSetup) and its device
// configuration step; CameraInit returns 1 on success, 0 on failure.
void* CameraThreadFunc(void* unused);
int CameraInit(void);

// Bytes the capture thread allocates for one decoded image of width x height:
// the decoder writes whole 8-row bands, so the height is rounded up to 8.
// 0 for a size that is not positive or needs more than INT32_MAX bytes.
size_t CameraDecodedAllocation(int32_t width, int32_t height);

// Decodes one Motion-JPEG picture into packed YUYV (Y0 Cb Y1 Cr per pixel
// pair, rows of width x 2 bytes). Returns 1 for a clean decode, 0 for a
// fatal error or any libjpeg warning.
//
// Only pictures of three YCbCr components sampled 4:2:2 (luminance 2 x 1)
// with an even width are accepted. A picture writes width x ceil(height / 8)
// x 8 x 2 bytes (whole 8-row bands, so up to 7 rows past a height that is not
// a multiple of 8), in order from the start of output; outputSize is the room
// at output, and a picture that needs more, or any other layout, returns 0
// before a byte is written.
int xoProJpegDec(unsigned char* compressed, int compressedSize, unsigned char* output, int outputSize);
// libjpeg's error_exit for xoProJpegDec: jumps back into the decoder.
void xoProJpegDecErrHandler(struct jpeg_common_struct* info);

}  // extern "C"

#endif
