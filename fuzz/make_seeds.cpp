// Writes the decoder's seed inputs: frames of the simulated camera in the
// layout it sends and in the layouts the decoder must refuse, each behind the
// four-byte room field the fuzz target reads first.
//   make_seeds <folder>
#include <cstdio>
#include <string>
#include <vector>

#include "camera_devices/JpegFrames.h"
#include "camera_devices/SimCamera.h"

namespace {

using camera_devices::Bytes;

bool WriteSeed(const std::string& folder, const char* name, uint32_t room, const Bytes& frame) {
  std::string path = folder + "/" + name;
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) return false;
  bool written = fwrite(&room, sizeof room, 1, file) == 1 &&
                 (frame.empty() || fwrite(frame.data(), frame.size(), 1, file) == 1);
  return fclose(file) == 0 && written;
}

// A YUYV picture of a gradient, for the layouts the simulated camera does not make.
Bytes Gradient(int width, int height, camera_devices::JpegLayout layout) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (size_t i = 0; i < yuyv.size(); ++i) yuyv[i] = uint8_t(i * 7 + i / 64);
  return camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height, 50, layout);
}

uint32_t Room(int width, int height) { return uint32_t(width) * ((height + 7) / 8 * 8) * 2; }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: make_seeds <folder>\n");
    return 2;
  }
  std::string folder = argv[1];
  using camera_devices::JpegLayout;
  using camera_devices::SimCameraFrame;
  bool ok = WriteSeed(folder, "sim-32x16", Room(32, 16), SimCameraFrame(3, 32, 16)) &&
            WriteSeed(folder, "sim-64x44", Room(64, 44), SimCameraFrame(9, 64, 44)) &&
            WriteSeed(folder, "sim-160x120", Room(160, 120), SimCameraFrame(20, 160, 120)) &&
            WriteSeed(folder, "sim-too-small", Room(64, 48) - 2, SimCameraFrame(1, 64, 48)) &&
            WriteSeed(folder, "recoverable-64x48", Room(64, 48),
                      camera_devices::CorruptRecoverably(SimCameraFrame(5, 64, 48))) &&
            WriteSeed(folder, "yuv420-32x32", Room(32, 32), Gradient(32, 32, JpegLayout::Yuv420)) &&
            WriteSeed(folder, "grey-32x32", Room(32, 32), Gradient(32, 32, JpegLayout::Grey)) &&
            WriteSeed(folder, "undecodable", 4096, camera_devices::UndecodableFrame());
  if (!ok) perror("make_seeds");
  return ok ? 0 : 1;
}
