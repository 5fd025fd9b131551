// Frames of the simulated scene for the camera benchmarks, and the clock
// they are timed with. The scene as rendered is flat, which flatters the
// decoder; the second frame kind adds the grain and shading of a real camera.
#ifndef KAVRI_BENCH_CAMERA_SCENEFRAMES_H
#define KAVRI_BENCH_CAMERA_SCENEFRAMES_H

#include <stdint.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include "camera_devices/JpegFrames.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"

namespace scene_frames {

constexpr int kWidth = 320, kHeight = 240;

// Processor time of this thread: other builds share the machine.
inline double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

inline std::vector<unsigned char> DecodedImage(const std::vector<uint8_t>& jpeg, int width = kWidth,
                                               int height = kHeight) {
  std::vector<unsigned char> image(CameraDecodedAllocation(width, height));
  xoProJpegDec(const_cast<uint8_t*>(jpeg.data()), int(jpeg.size()), image.data(), int(image.size()));
  return image;
}

// Sensor grain (luma +-8, chroma +-4, the same for every frame number so that
// change detection sees the scene move, not the noise) and a brightness fall
// towards the corners, re-encoded as the camera would.
inline std::vector<uint8_t> CameraLike(const std::vector<uint8_t>& jpeg, int width = kWidth,
                                       int height = kHeight) {
  std::vector<unsigned char> image = DecodedImage(jpeg, width, height);
  uint32_t state = 12345;
  auto grain = [&state](int spread) {
    state = state * 1103515245u + 12345u;
    return int((state >> 16) % uint32_t(2 * spread + 1)) - spread;
  };
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      unsigned char* pixel = &image[(size_t(row) * width + column) * 2];
      int dx = column - width / 2, dy = row - height / 2;
      int shade = (dx * dx + dy * dy) * 30 / (width * width / 4 + height * height / 4);
      pixel[0] = uint8_t(std::clamp(pixel[0] - shade + grain(8), 0, 255));
      pixel[1] = uint8_t(std::clamp(pixel[1] + grain(4), 0, 255));
    }
  }
  return camera_devices::EncodeYuyvJpeg(image.data(), width, height, 85);
}

// kind 0: the scene as rendered; 1: as a camera would see it. jpeg receives
// the compressed frame.
inline std::vector<unsigned char> Decoded(uint32_t frameNumber, int kind, std::vector<uint8_t>& jpeg) {
  jpeg = camera_devices::SimCameraFrame(frameNumber, kWidth, kHeight);
  if (kind == 1) jpeg = CameraLike(jpeg);
  return DecodedImage(jpeg);
}

}  // namespace scene_frames

#endif
