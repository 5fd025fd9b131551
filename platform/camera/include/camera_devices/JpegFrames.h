// Motion-JPEG frames made with libjpeg from packed YUYV images, and frames
// damaged in the ways a camera's can be.
#ifndef CAMERA_DEVICES_JPEGFRAMES_H
#define CAMERA_DEVICES_JPEGFRAMES_H

#include <cstdint>
#include <vector>

namespace camera_devices {

using Bytes = std::vector<uint8_t>;

enum class JpegLayout {
  Yuv422,  // what cameras send: luminance sampled 2 x 1 against chroma
  Yuv420,
  Grey,
};

// Compresses a packed YUYV image (Y0 Cb Y1 Cr per pixel pair) of an even
// width; the chroma is used as it is, without colour conversion.
Bytes EncodeYuyvJpeg(const uint8_t* yuyv, int width, int height, int quality = 90,
                     JpegLayout layout = JpegLayout::Yuv422);

// The same picture with a stray marker in its entropy-coded data: libjpeg
// decodes it to the end but warns.
Bytes CorruptRecoverably(const Bytes& jpeg);

// Bytes that are not a JPEG picture at all.
Bytes UndecodableFrame();

}  // namespace camera_devices

#endif
