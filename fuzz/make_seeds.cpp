// Writes seed inputs that are easier made from the library's own types than
// by hand:
//   make_seeds jpeg <folder>      frames of the simulated camera in the layout
//                                 it sends and in layouts the decoder refuses,
//                                 each behind the four-byte room field
//   make_seeds analysis <folder>  one working record of each analysis kind
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "camera_devices/JpegFrames.h"
#include "camera_devices/SimCamera.h"
#include "kavri/CameraAnalysis.h"

namespace {

using camera_devices::Bytes;

bool WriteFile(const std::string& folder, const char* name, const Bytes& head, const void* body, size_t size) {
  std::string path = folder + "/" + name;
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) return false;
  bool written = (head.empty() || fwrite(head.data(), head.size(), 1, file) == 1) &&
                 (size == 0 || fwrite(body, size, 1, file) == 1);
  return fclose(file) == 0 && written;
}

bool WriteSeed(const std::string& folder, const char* name, uint32_t room, const Bytes& frame) {
  Bytes head(sizeof room);
  memcpy(head.data(), &room, sizeof room);
  return WriteFile(folder, name, head, frame.data(), frame.size());
}

// Kind, debug bits, change flag, null mask, then for ball records the
// exclusion count, then the record; the fuzz target reads them in this order.
template <class Record>
bool WriteRecord(const std::string& folder, const char* name, const Record& record, int32_t exclusions = -1) {
  Bytes head = {uint8_t(record.base.type - 1), 0, 1, 0, 0, 0, 0};
  if (exclusions >= 0)
    for (int i = 0; i < 4; ++i) head.push_back(uint8_t(exclusions >> (8 * i)));
  return WriteFile(folder, name, head, &record, sizeof record);
}

constexpr int kFrameWidth = 64;
constexpr int kFrameHeight = 48;

bool WriteAnalysisSeeds(const std::string& folder) {
  auto head = [](int32_t type) { return CameraAnalysisBase{type, nullptr, kFrameWidth, kFrameHeight}; };
  CameraAnalysisDeliverFrame deliver{.base = head(CameraAnalysisTypeDeliverFrame), .capacity = 4096, .enabled = 1};
  CameraAnalysisMaxOnLine line{.base = head(CameraAnalysisTypeMaxOnLine),
                               .startY = 24,
                               .endX = 64,
                               .endY = 24,
                               .widthMin = 2,
                               .widthMax = 16,
                               .peakThreshold = 10,
                               .contrastThreshold = 5};
  CameraAnalysisMaxOnLine2 lines{.base = head(CameraAnalysisTypeMaxOnLine2),
                                 .startY = 30,
                                 .endX = 63,
                                 .endY = 30,
                                 .widthMin = 20,
                                 .widthMax = 300,
                                 .threshold = 20,
                                 .lineCountMax = 5,
                                 .color = 1,
                                 .refine = 1,
                                 .rangeMin = -1000,
                                 .rangeMax = 1000};
  CameraAnalysisColorField field{.base = head(CameraAnalysisTypeColorField), .x = 10, .y = 10, .w = 20, .h = 16};
  CameraAnalysisChangeDetect change{
      .base = head(CameraAnalysisTypeChangeDetect), .x = 3, .y = 4, .w = 40, .h = 30, .threshold = 10, .minArea = 1};
  CameraAnalysisBallSingleBlock single{.base = head(CameraAnalysisTypeBallSingleBlock),
                                       .blockWidth = kFrameWidth,
                                       .blockHeight = kFrameHeight,
                                       .radiusMin = 2,
                                       .radiusMax = 20,
                                       .threshold = 30,
                                       .xRangeMax = 1000,
                                       .yRangeMax = 1000};
  CameraAnalysisBallMultiBlock multi{.base = head(CameraAnalysisTypeBallMultiBlock),
                                     .blockWidth = kFrameWidth,
                                     .blockHeight = kFrameHeight,
                                     .sizeMin = 4,
                                     .sizeMax = 30,
                                     .cellSize = 8};
  return WriteRecord(folder, "deliver", deliver) && WriteRecord(folder, "line", line) &&
         WriteRecord(folder, "lines-colour", lines) && WriteRecord(folder, "colour-field", field) &&
         WriteRecord(folder, "change", change) && WriteRecord(folder, "ball-single", single, 0) &&
         WriteRecord(folder, "ball-multi", multi, 0);
}

// A YUYV picture of a gradient, for the layouts the simulated camera does not make.
Bytes Gradient(int width, int height, camera_devices::JpegLayout layout) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (size_t i = 0; i < yuyv.size(); ++i) yuyv[i] = uint8_t(i * 7 + i / 64);
  return camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height, 50, layout);
}

uint32_t Room(int width, int height) { return uint32_t(width) * ((height + 7) / 8 * 8) * 2; }

bool WriteJpegSeeds(const std::string& folder) {
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
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  std::string kind = argc == 3 ? argv[1] : "";
  if (kind != "jpeg" && kind != "analysis") {
    fprintf(stderr, "usage: make_seeds jpeg|analysis <folder>\n");
    return 2;
  }
  bool ok = kind == "jpeg" ? WriteJpegSeeds(argv[2]) : WriteAnalysisSeeds(argv[2]);
  if (!ok) perror("make_seeds");
  return ok ? 0 : 1;
}
