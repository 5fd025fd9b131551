// Ball detection over square cells: small balls judged in every 2 x 2 group
// of cells against their own neighbourhood, large ones over the whole block.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "CameraBall.h"
#include "CameraRegion.h"
#include "kavri/KavriLib.h"

extern "C" {
uint8_t GammaMap[256];
}

namespace {

constexpr int kDebugAnalyses = 2;

// n and the four sums a ball is judged by, added over several cells.
struct Totals {
  uint32_t n = 0, sumX = 0, sumY = 0, sumXX = 0, sumYY = 0;

  void Add(const CameraBallMoments& m, int t) {
    n += m.count[t];
    sumX += m.sumX[t];
    sumY += m.sumY[t];
    sumXX += m.sumXX[t];
    sumYY += m.sumYY[t];
  }
};

// Takes the blob if it is rounder than the best so far.
void Judge(const Totals& blob, int t, CameraBall& best) {
  CameraBlob b = CameraBlobOf(blob.n, blob.sumX, blob.sumY, blob.sumXX, blob.sumYY);
  float spread = b.varX * b.varY;
  if (spread == 0) return;
  float q = float(blob.n) * float(blob.n) / spread;
  if (!(q > best.quality)) return;
  best = {q, CameraFloorToInt(double(b.meanX) + 0.5), CameraFloorToInt(double(b.meanY) + 0.5),
          CameraFloorToInt(std::sqrt(double(b.varX + b.varY)) + 0.5), t};
}

// Levels above the highest of the cells concerned are empty: no count reaches
// the upper limit there, and an empty blob is never rounder than another.
CameraBall SmallBall(const CameraBallMoments* tables, const uint8_t* tops, const CameraBallBlock& block,
                     int64_t fewest) {
  CameraBall best;
  int64_t most = CameraBallSquareShare(block.cellSize, 9);
  for (int32_t r = 1; r < block.cellsDown; ++r) {
    for (int32_t c = 1; c < block.cellsAcross; ++c) {
      const CameraBallMoments* below = tables + int64_t(r) * block.cellsAcross + c;
      const CameraBallMoments* above = below - block.cellsAcross;
      CameraBall group;
      const CameraBallMoments* cells[] = {above - 1, above, below - 1, below};
      int64_t first = int64_t(r) * block.cellsAcross + c;
      int top = std::max({tops[first - block.cellsAcross - 1], tops[first - block.cellsAcross], tops[first - 1],
                          tops[first]});
      for (int t = top; t >= 0; --t) {
        // Most levels are decided by the count alone.
        uint32_t n = cells[0]->count[t] + cells[1]->count[t] + cells[2]->count[t] + cells[3]->count[t];
        if (n < fewest) continue;
        if (n > most) break;
        Totals blob;
        for (const CameraBallMoments* cell : cells) blob.Add(*cell, t);
        Judge(blob, t, group);
      }
      if (group.quality > best.quality) best = group;
    }
  }
  return best;
}

// Totals run on from level to level, so a pixel counts once for every level
// it reaches: the more colourful, the heavier.
void LargeBall(const CameraBallMoments* tables, const uint8_t* tops, const CameraBallBlock& block, int64_t most,
               CameraBall& best) {
  int64_t fewest = CameraBallSquareShare(block.cellSize, 7);
  Totals running;
  for (int t = *std::max_element(tops, tops + block.Cells()); t >= 0; --t) {
    for (int32_t cell = 0; cell < block.Cells(); ++cell) running.Add(tables[cell], t);
    if (running.n < fewest) continue;
    if (running.n > most) break;
    Judge(running, t, best);
  }
}

void FillGammaMap() {
  for (int i = 0; i < 256; ++i) GammaMap[i] = uint8_t(std::floor(0.5 + std::pow(i / 255.0, 0.2) * 255));
}

}  // namespace

// Converts the exclusions in place: running it twice would convert twice.
void CameraAnalysisBallMultiBlock::Init() {
  map = nullptr;
  cellTables = nullptr;
  CameraBallBlock block = CameraBallPlaceBlock(base, blockX, blockY, blockWidth, blockHeight);
  CameraBallConvertExclusions(Exclusions(), exclusionCount, block);
  FillGammaMap();
  cellsAcross = cellsDown = 0;
  if (cellSize <= 0) {
    fprintf(stderr, "ERROR ball search cell size %d: no ball is reported\n", cellSize);
    return;
  }
  int64_t across = (int64_t(cellSize) + blockWidth - 1) / cellSize;
  int64_t down = (int64_t(cellSize) + blockHeight - 1) / cellSize;
  if (across * down > kCameraBallMaxCells) {
    fprintf(stderr,
            "ERROR ball search cell size %d makes more than %d cells: no ball "
            "is reported\n",
            cellSize, kCameraBallMaxCells);
    return;
  }
  cellsAcross = int32_t(across);
  cellsDown = int32_t(down);
  block.cellSize = cellSize;
  block.cellsAcross = cellsAcross;
  block.cellsDown = cellsDown;
  cellTables = CameraBallAllocate(block, &map);
}

void CameraAnalysisBallMultiBlock::Uninit() {
  CameraBallFree(cellTables);
  cellTables = nullptr;
  map = nullptr;
}

void CameraAnalysisBallMultiBlock::Analyze(int index, const unsigned char* frame, const unsigned char*,
                                           const unsigned char*, int) {
  CameraBall ball;
  int32_t cells = 0;
  double width = 1, height = 1;
  if (cellTables) {
    const CameraBallBlock& block = CameraBallBlockOf(cellTables);
    cells = block.Cells();
    width = block.width;
    height = block.height;
    CameraBallMeasure(frame, cellTables, Exclusions(), exclusionCount);
    if (block.cellsDown >= 2 && block.cellsAcross >= 2)
      ball = SmallBall(cellTables, CameraBallTopsOf(cellTables), block, CameraBallSquareShare(sizeMin, 7));
    LargeBall(cellTables, CameraBallTopsOf(cellTables), block, CameraBallSquareShare(sizeMax, 9), ball);
  }
  bool found = ball.quality > 0;
  CameraStoreResult(xResult, found ? CameraFloorToInt(ball.x * 2000.0 / width - 1000.0 + 0.5) : 0);
  CameraStoreResult(yResult, found ? CameraFloorToInt(ball.y * 2000.0 / height - 1000.0 + 0.5) : 0);
  CameraStoreResult(radiusResult, found ? ball.radius : 0);
  CameraStoreResult(qualityResult, found ? CameraBallQualityResult(ball.quality) : 0);
  CameraStoreResult(levelResult, found ? ball.level : 0);
  if (!(DebugFlags & kDebugAnalyses)) return;
  fprintf(DebugFile, "BA%d n=%d\n", index, cells);
  auto readBack = [](int16_t* result) {
    return result ? int(std::atomic_ref<int16_t>(*result).load(std::memory_order_relaxed)) : 0;
  };
  if (found)
    fprintf(DebugFile, "BA%d x=%d, y=%d, r=%d, q=%.3f, xo=%d, yo=%d, ro=%d, qo=%d\n", index, ball.x, ball.y,
            ball.radius, double(ball.quality), readBack(xResult), readBack(yResult), readBack(radiusResult),
            readBack(qualityResult));
}
