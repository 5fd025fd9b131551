// Ball detection in one block: the roundest blob of colourful pixels whose
// radius lies within the limits.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "CameraBall.h"
#include "CameraRegion.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kDebugAnalyses = 2;

// From the most colourful level down to the threshold, each level's blob is
// everything at or above it; it only grows as the level falls. Levels above
// the frame's highest are empty and skipped whatever the limits.
CameraBall Search(const CameraBallMoments& m, int32_t top, int32_t threshold, int32_t radiusMin,
                  int32_t radiusMax) {
  CameraBall ball;
  if (threshold > 255) return ball;
  int64_t fewest = CameraBallSquareShare(radiusMin, 7);
  int64_t most = CameraBallSquareShare(radiusMax, 9);
  for (int32_t t = top; t >= std::max(threshold, 0); --t) {
    uint32_t n = m.count[t];
    if (!(n > fewest)) continue;
    if (n > most) break;
    CameraBlob blob = CameraBlobOf(n, m.sumX[t], m.sumY[t], m.sumXX[t], m.sumYY[t]);
    float spread = blob.varX * blob.varY;
    if (spread == 0) continue;  // a straight stripe is no ball
    float q = float(n) * float(n) / spread;
    if (!(q > ball.quality)) continue;
    double radius = std::floor(0.5 + 2.8 * std::sqrt(double(blob.varX + blob.varY)));
    if (!(radius >= radiusMin && radius <= radiusMax)) continue;
    ball = {q, CameraFloorToInt(0.5 + blob.meanX), CameraFloorToInt(0.5 + blob.meanY), int32_t(radius), t};
  }
  return ball;
}

}  // namespace

void CameraAnalysisBallSingleBlock::Exclusion::Normalize() {
  if (left > right) std::swap(left, right);
  if (top > bottom) std::swap(top, bottom);
}

// Subtracted in 32 bits as documented; edges far apart wrap.
int CameraAnalysisBallSingleBlock::Exclusion::Compare(const void* a, const void* b) {
  uint32_t difference =
      uint32_t(static_cast<const Exclusion*>(a)->left) - uint32_t(static_cast<const Exclusion*>(b)->left);
  return int32_t(difference);
}

// Converts in place: running it twice on one record would convert twice.
void CameraAnalysisBallSingleBlock::Init() {
  map = nullptr;
  moments = nullptr;
  CameraBallBlock block = CameraBallPlaceBlock(base, blockX, blockY, blockWidth, blockHeight);
  block.cellSize = std::max(block.width, block.height);
  block.cellsAcross = block.cellsDown = 1;
  CameraBallConvertExclusions(Exclusions(), exclusionCount, block);
  int64_t range = int64_t(xRangeMax) - xRangeMin;
  if (range == 0) {
    fprintf(stderr, "ERROR ball search with equal x range ends %d: no ball is reported\n", xRangeMin);
    return;
  }
  radiusMin = CameraSaturate(int64_t(radiusMin) * blockWidth / range);
  radiusMax = CameraSaturate(int64_t(radiusMax) * blockWidth / range);
  threshold = CameraSaturate(int64_t(threshold) * 128 / 100);
  moments = CameraBallAllocate(block, &map);
}

void CameraAnalysisBallSingleBlock::Uninit() {
  CameraBallFree(moments);
  moments = nullptr;
  map = nullptr;
}

void CameraAnalysisBallSingleBlock::Analyze(int index, const unsigned char* frame, const unsigned char*,
                                            const unsigned char*, int) {
  CameraBall ball;
  int64_t width = 1, height = 1;
  if (moments) {
    const CameraBallBlock& block = CameraBallBlockOf(moments);
    width = block.width;
    height = block.height;
    CameraBallMeasure(frame, moments, Exclusions(), exclusionCount);
    ball = Search(*moments, CameraBallTopsOf(moments)[0], threshold, radiusMin, radiusMax);
  }
  bool found = ball.quality > 0;
  int64_t xSpan = int64_t(xRangeMax) - xRangeMin, ySpan = int64_t(yRangeMax) - yRangeMin;
  int16_t x = found ? int16_t(xRangeMin + xSpan * ball.x / width) : 0;
  int16_t y = found ? int16_t(yRangeMin + (height - ball.y) * ySpan / height) : 0;
  int16_t radius = found ? int16_t(ball.radius * xSpan / width) : 0;
  int16_t quality = int16_t((100 * ball.level) >> 7);
  CameraStoreResult(xResult, x);
  CameraStoreResult(yResult, y);
  CameraStoreResult(radiusResult, radius);
  CameraStoreResult(qualityResult, quality);
  if (found && (DebugFlags & kDebugAnalyses))
    fprintf(DebugFile, "BA%d x=%d, y=%d, r=%d, q=%.3f, xo=%d, yo=%d, ro=%d, qo=%d\n", index, ball.x, ball.y,
            ball.radius, double(ball.quality), x, y, radius, quality);
}
