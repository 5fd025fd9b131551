// Change detection: how much of a rectangle changed since the previous frame,
// and by how much on average.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CameraColor.h"
#include "CameraRegion.h"
#include "kavri/CameraAnalysisColor.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kDebugAnalyses = 2;

CameraRect Inside(const CameraAnalysisChangeDetect& detect) {
  return CameraClipRect(detect.x, detect.y, detect.w, detect.h, detect.base.width, detect.base.height);
}

// Two pixels at once: the word Y0 C Y1 C from any pixel holds both luma
// samples in two 16-bit lanes. Per lane, 256 + a - b cannot borrow from its
// neighbour; bit 8 says which way the difference goes, and d + bias reaches
// bit 8 exactly when d > threshold. Plain integer steps, so the loop
// vectorises where there are vectors.
constexpr int32_t kPixelsPerLaneSum = 512;  // 256 words x 255 still fits a lane
constexpr uint32_t kLanes = 0x00FF00FF, kLaneCarry = 0x01000100, kLaneBit = 0x00010001;

struct LaneSums {
  uint32_t count;  // two 16-bit lanes
  uint32_t sum;
};

uint32_t LumaLanes(const unsigned char* pixel) {
  uint32_t word;
  memcpy(&word, pixel, sizeof word);
  return CameraLittleEndianWord(word) & kLanes;
}

LaneSums CompareLuma(const unsigned char* now, const unsigned char* before, int32_t pixels, uint32_t bias) {
  uint32_t biases = bias * kLaneBit, count = 0, sum = 0;
  auto add = [&](uint32_t a, uint32_t b) {
    uint32_t up = (a | kLaneCarry) - b, down = (b | kLaneCarry) - a;
    uint32_t rising = ((up >> 8) & kLaneBit) * 0xFF;
    uint32_t d = (up & rising) | (down & ~rising & kLanes);
    uint32_t counts = ((d + biases) >> 8) & kLaneBit;
    count += counts;
    sum += d & (counts * 0xFF);
  };
  int32_t i = 0;
  for (; i + 2 <= pixels; i += 2) add(LumaLanes(now + 2 * i), LumaLanes(before + 2 * i));
  if (i < pixels) {  // an odd width's last pixel
    uint32_t d = uint32_t(abs(int32_t(now[2 * i]) - int32_t(before[2 * i])));
    uint32_t counts = d + bias >= 256;
    count += counts;
    sum += counts * d;
  }
  return {count, sum};
}

}  // namespace

// In place, so it must run once per capture start; the chain walk sees to
// that.
void CameraAnalysisChangeDetect::Init() {
  threshold = CameraSaturate(int64_t(threshold) * 256 / 100);
  CameraReportRect("change detection", Inside(*this), x, y, w, h, "it reports no change",
                   "only the part inside is watched");
}

void CameraAnalysisChangeDetect::Uninit() {}

void CameraAnalysisChangeDetect::Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
                                         const unsigned char*, int) {
  CameraRect inside = Inside(*this);
  // Every d lies in 0..255: a threshold below 0 lets every pixel count, one
  // of 255 or more none, exactly as the comparison would.
  uint32_t bias = uint32_t(255 - std::clamp(threshold, -1, 255));
  int64_t count = 0, sum = 0;
  for (int32_t row = inside.top; row < inside.bottom; ++row) {
    int64_t start = (int64_t(row) * base.width + inside.left) * 2;
    for (int32_t done = 0; done < inside.Width(); done += kPixelsPerLaneSum) {
      int32_t pixels = std::min(kPixelsPerLaneSum, inside.Width() - done);
      LaneSums lanes = CompareLuma(frame + start + 2 * done, previousFrame + start + 2 * done, pixels, bias);
      count += (lanes.count & 0xFFFF) + (lanes.count >> 16);
      sum += (lanes.sum & 0xFFFF) + (lanes.sum >> 16);
    }
  }
  int32_t strength = 0, area = 0;
  if (count > 0) {
    strength = int32_t(100 * (sum / count)) >> 8;
    area = int32_t(100 * count / (int64_t(inside.Width()) * inside.Height()));
  }
  if (area < minArea) strength = 0;
  CameraStoreResult(strengthVar, strength);
  CameraStoreResult(areaVar, area);
  if (DebugFlags & kDebugAnalyses) fprintf(DebugFile, "CD%d q=%d a=%d\n", index, strength, area);
}
