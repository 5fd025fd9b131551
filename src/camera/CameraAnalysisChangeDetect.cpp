// Change detection: how much of a rectangle changed since the previous frame,
// and by how much on average.
#include <cstdio>
#include <cstdlib>

#include "CameraRegion.h"
#include "kavri/CameraAnalysisColor.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kDebugAnalyses = 2;

CameraRect Inside(const CameraAnalysisChangeDetect& detect) {
  return CameraClipRect(detect.x, detect.y, detect.w, detect.h, detect.base.width, detect.base.height);
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
  int64_t count = 0, sum = 0;
  for (int32_t row = inside.top; row < inside.bottom; ++row) {
    int64_t start = (int64_t(row) * base.width + inside.left) * 2;
    const unsigned char* now = frame + start;
    const unsigned char* before = previousFrame + start;
    // Without branches, in 32 bits per row: the loop vectorises.
    uint32_t rowCount = 0, rowSum = 0;
    for (int32_t i = 0; i < inside.Width(); ++i) {
      int32_t difference = abs(int32_t(now[2 * i]) - int32_t(before[2 * i]));
      uint32_t counts = difference > threshold;
      rowCount += counts;
      rowSum += counts * uint32_t(difference);
    }
    count += rowCount;
    sum += rowSum;
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
