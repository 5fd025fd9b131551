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
  CameraAnalysisBase head{0, nullptr, kFrameWidth, kFrameHeight};
  CameraAnalysisDeliverFrame deliver{};
  deliver.base = head;
  deliver.base.type = CameraAnalysisTypeDeliverFrame;
  deliver.capacity = 4096;
  deliver.enabled = 1;
  CameraAnalysisMaxOnLine line{};
  line.base = head;
  line.base.type = CameraAnalysisTypeMaxOnLine;
  line.startX = 0;
  line.startY = 24;
  line.endX = 64;
  line.endY = 24;
  line.widthMin = 2;
  line.widthMax = 16;
  line.peakThreshold = 10;
  line.contrastThreshold = 5;
  CameraAnalysisMaxOnLine2 lines{};
  lines.base = head;
  lines.base.type = CameraAnalysisTypeMaxOnLine2;
  lines.startX = 0;
  lines.startY = 30;
  lines.endX = 63;
  lines.endY = 30;
  lines.widthMin = 20;
  lines.widthMax = 300;
  lines.threshold = 20;
  lines.lineCountMax = 5;
  lines.color = 1;
  lines.refine = 1;
  lines.rangeMin = -1000;
  lines.rangeMax = 1000;
  CameraAnalysisColorField field{};
  field.base = head;
  field.base.type = CameraAnalysisTypeColorField;
  field.x = 10;
  field.y = 10;
  field.w = 20;
  field.h = 16;
  CameraAnalysisChangeDetect change{};
  change.base = head;
  change.base.type = CameraAnalysisTypeChangeDetect;
  change.x = 3;
  change.y = 4;
  change.w = 40;
  change.h = 30;
  change.threshold = 10;
  change.minArea = 1;
  CameraAnalysisBallSingleBlock single{};
  single.base = head;
  single.base.type = CameraAnalysisTypeBallSingleBlock;
  single.blockWidth = kFrameWidth;
  single.blockHeight = kFrameHeight;
  single.radiusMin = 2;
  single.radiusMax = 20;
  single.threshold = 30;
  single.xRangeMax = 1000;
  single.yRangeMax = 1000;
  CameraAnalysisBallMultiBlock multi{};
  multi.base = head;
  multi.base.type = CameraAnalysisTypeBallMultiBlock;
  multi.blockWidth = kFrameWidth;
  multi.blockHeight = kFrameHeight;
  multi.sizeMin = 4;
  multi.sizeMax = 30;
  multi.cellSize = 8;
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
