// Colour conversions shared by the analyses: YUV to RGB in 16.16 fixed point
// with chroma centred on 128, and the grey value of an RGB triple. Shifts are
// arithmetic on negative products, as on the controller.
#ifndef KAVRI_CAMERA_CAMERACOLOR_H
#define KAVRI_CAMERA_CAMERACOLOR_H

#include <stdint.h>

struct CameraRgb {
  int32_t red;
  int32_t green;
  int32_t blue;
};

inline int32_t CameraClampByte(int32_t value) { return value < 0 ? 0 : value > 255 ? 255 : value; }

// u and v are chroma with 128 already taken off (averages may be centred
// before they are converted).
inline CameraRgb CameraYuvToRgbCentred(int32_t y, int32_t u, int32_t v) {
  return {CameraClampByte(y + ((74700 * v) >> 16)), CameraClampByte(y + ((-38050 * v - 25864 * u) >> 16)),
          CameraClampByte(y + ((133176 * u) >> 16))};
}

// u and v are the blue and red chroma bytes as stored in the frame (0..255).
inline CameraRgb CameraYuvToRgb(int32_t y, int32_t u, int32_t v) { return CameraYuvToRgbCentred(y, u - 128, v - 128); }

inline int32_t CameraGrey(int32_t red, int32_t green, int32_t blue) {
  return (19595 * red + 38470 * green + 7471 * blue) >> 16;
}

// Four frame bytes read as one word hold the first byte in the low bits on
// both targets; elsewhere they are put there.
inline uint32_t CameraLittleEndianWord(uint32_t word) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  return __builtin_bswap32(word);
#else
  return word;
#endif
}

#endif
