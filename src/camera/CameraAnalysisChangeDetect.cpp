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
  CameraRect inside = Inside(*this);
  if (inside.Empty())
    fprintf(stderr,
            "ERROR change detection %d,%d %dx%d has no pixels in the frame: it "
            "reports no change\n",
            x, y, w, h);
  else if (!CameraRectCovers(inside, x, y, w, h))
    fprintf(stderr,
            "ERROR change detection %d,%d %dx%d reaches outside the frame: "
            "only the part inside is watched\n",
            x, y, w, h);
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
    for (int32_t i = 0; i < 2 * inside.Width(); i += 2) {
      int32_t difference = abs(int32_t(now[i]) - int32_t(before[i]));
      if (difference > threshold) {
        ++count;
        sum += difference;
      }
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
