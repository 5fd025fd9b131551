#include "CameraBall.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "CameraRegion.h"

namespace {

// Sized to keep the tables behind it 8-byte aligned.
struct alignas(8) StorageHeader {
  CameraBallBlock block;
};

unsigned char* StorageOf(const CameraBallMoments* tables) {
  return const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(tables)) - sizeof(StorageHeader);
}

int32_t ClampTo(int64_t value, int32_t high) { return int32_t(std::clamp<int64_t>(value, 0, high)); }

// Each pixel pairs its own chroma sample with the mean of the two
// neighbouring samples of the other kind; a row's end pixels have only their
// own pair's. Stored as a byte: a sum of 256 wraps to 0.
void MapRow(const unsigned char* pairs, int32_t pairCount, uint8_t* out) {
  auto u = [pairs](int32_t k) { return int32_t(pairs[4 * k + 1]) - 128; };
  auto v = [pairs](int32_t k) { return int32_t(pairs[4 * k + 3]) - 128; };
  // The middle without conditions, so that it vectorises; the ends below.
  for (int32_t k = 1; k + 1 < pairCount; ++k) {
    out[2 * k] = uint8_t(abs(u(k)) + (abs(v(k - 1) + v(k)) >> 1));
    out[2 * k + 1] = uint8_t(abs(v(k)) + (abs(u(k) + u(k + 1)) >> 1));
  }
  int32_t last = pairCount - 1;
  if (last < 0) return;
  out[0] = uint8_t(abs(u(0)) + abs(v(0)));
  out[2 * last + 1] = uint8_t(abs(u(last)) + abs(v(last)));
  if (last == 0) return;
  out[1] = uint8_t(abs(v(0)) + (abs(u(0) + u(1)) >> 1));
  out[2 * last] = uint8_t(abs(u(last)) + (abs(v(last - 1) + v(last)) >> 1));
}

void BuildMap(const unsigned char* frame, const CameraBallBlock& block, uint8_t* map) {
  for (int32_t row = 0; row < block.height; ++row) {
    const unsigned char* pairs = frame + (int64_t(block.y + row) * block.frameWidth + block.x) * 2;
    MapRow(pairs, block.width / 2, map + int64_t(row) * block.width);
  }
}

// Clamped again here: the program may have changed them since Init.
void BlankExclusions(uint8_t* map, const CameraBallBlock& block, const CameraBallExclusion* exclusions, int32_t count) {
  for (int32_t i = 0; i < CameraBallExclusionsInUse(count); ++i) {
    const CameraBallExclusion& e = exclusions[i];
    int32_t left = ClampTo(e.left, block.width), right = ClampTo(e.right, block.width);
    int32_t top = ClampTo(e.top, block.height), bottom = ClampTo(e.bottom, block.height);
    if (right <= left) continue;
    for (int32_t row = top; row < bottom; ++row) memset(map + int64_t(row) * block.width + left, 0, right - left);
  }
}

// Pixels left..right-1 of row y, all at one level, added at once: runs are
// common (floor, ball), and per-pixel updates of one entry wait on each
// other. Worked out in 64 bits and cut to 32, which is the wrapped sum.
void AddRun(CameraBallMoments& table, uint32_t level, uint64_t left, uint64_t right, uint64_t y) {
  uint64_t n = right - left;
  uint64_t sumX = (left + right - 1) * n / 2;
  auto squares = [](uint64_t k) { return k == 0 ? 0 : (k - 1) * k * (2 * k - 1) / 6; };  // 0^2 + .. + (k-1)^2
  table.count[level] += uint32_t(n);
  table.sumX[level] += uint32_t(sumX);
  table.sumY[level] += uint32_t(y * n);
  table.sumXX[level] += uint32_t(squares(right) - squares(left));
  table.sumXY[level] += uint32_t(y * sumX);
  table.sumYY[level] += uint32_t(y * y * n);
}

// All six rows in one pass: six independent running sums instead of one
// chain of dependent additions.
void SumFromTop(CameraBallMoments& t) {
  for (int c = 254; c >= 0; --c) {
    t.count[c] += t.count[c + 1];
    t.sumX[c] += t.sumX[c + 1];
    t.sumY[c] += t.sumY[c + 1];
    t.sumXX[c] += t.sumXX[c + 1];
    t.sumXY[c] += t.sumXY[c + 1];
    t.sumYY[c] += t.sumYY[c + 1];
  }
}

void AccumulateCells(const uint8_t* map, const CameraBallBlock& block, CameraBallMoments* tables) {
  memset(static_cast<void*>(tables), 0, sizeof(CameraBallMoments) * size_t(block.Cells()));
  for (int32_t y = 0; y < block.height; ++y) {
    const uint8_t* row = map + int64_t(y) * block.width;
    CameraBallMoments* cellRow = tables + int64_t(y / block.cellSize) * block.cellsAcross;
    for (int32_t cell = 0; cell < block.cellsAcross; ++cell) {
      int32_t left = cell * block.cellSize;
      int32_t right = std::min(left + block.cellSize, block.width);
      for (int32_t x = left, end; x < right; x = end) {
        for (end = x + 1; end < right && row[end] == row[x]; ++end) {
        }
        AddRun(cellRow[cell], row[x], uint64_t(x), uint64_t(end), uint64_t(y));
      }
    }
  }
  for (int32_t cell = 0; cell < block.Cells(); ++cell) SumFromTop(tables[cell]);
}

}  // namespace

CameraBallBlock CameraBallPlaceBlock(const CameraAnalysisBase& base, int32_t& x, int32_t& y, int32_t& width,
                                     int32_t& height) {
  int64_t left = CameraFloorEven(x), right = CameraFloorEven(int64_t(x) + width);
  CameraRect inside = CameraClipRect(left, y, right - left, height, int32_t(CameraFloorEven(base.width)), base.height);
  CameraReportRect("ball search block", inside, CameraSaturate(left), y, CameraSaturate(right - left), height,
                   "no ball is reported", "only the part inside is searched");
  x = inside.left;
  y = inside.top;
  width = inside.Width();
  height = inside.Height();
  return {base.width, x, y, width, height, 0, 0, 0};
}

int32_t CameraBallExclusionsInUse(int32_t count) { return count >= 0 && count <= kCameraBallMaxExclusions ? count : 0; }

void CameraBallConvertExclusions(CameraBallExclusion* exclusions, int32_t count, const CameraBallBlock& block) {
  if (count != CameraBallExclusionsInUse(count))
    fprintf(stderr,
            "ERROR ball search exclusion count %d is not 0..%d: no exclusion "
            "is used\n",
            count, kCameraBallMaxExclusions);
  for (int32_t i = 0; i < CameraBallExclusionsInUse(count); ++i) {
    CameraBallExclusion& e = exclusions[i];
    e.left = ClampTo(int64_t(e.left) - block.x, block.width);
    e.right = ClampTo(int64_t(e.right) - block.x, block.width);
    e.top = ClampTo(int64_t(e.top) - block.y, block.height);
    e.bottom = ClampTo(int64_t(e.bottom) - block.y, block.height);
    if (e.right < e.left) e.right = e.left;
    if (e.bottom < e.top) e.bottom = e.top;
  }
}

CameraBallMoments* CameraBallAllocate(const CameraBallBlock& block, uint8_t** map) {
  *map = nullptr;
  if (block.Empty() || block.Cells() <= 0) return nullptr;
  size_t tableBytes = sizeof(CameraBallMoments) * size_t(block.Cells());
  size_t mapBytes = size_t(block.width) * size_t(block.height);
  unsigned char* storage = new (std::nothrow) unsigned char[sizeof(StorageHeader) + tableBytes + mapBytes];
  if (!storage) {
    fprintf(stderr, "ERROR ball search: no memory for a %dx%d block\n", block.width, block.height);
    return nullptr;
  }
  new (storage) StorageHeader{block};
  auto* tables = reinterpret_cast<CameraBallMoments*>(storage + sizeof(StorageHeader));
  *map = reinterpret_cast<uint8_t*>(tables + block.Cells());
  return tables;
}

const CameraBallBlock& CameraBallBlockOf(const CameraBallMoments* tables) {
  return reinterpret_cast<const StorageHeader*>(StorageOf(tables))->block;
}

void CameraBallFree(CameraBallMoments* tables) {
  if (tables) delete[] StorageOf(tables);
}

void CameraBallMeasure(const unsigned char* frame, CameraBallMoments* tables, const CameraBallExclusion* exclusions,
                       int32_t exclusionCount) {
  const CameraBallBlock& block = CameraBallBlockOf(tables);
  uint8_t* map = reinterpret_cast<uint8_t*>(tables + block.Cells());
  BuildMap(frame, block, map);
  BlankExclusions(map, block, exclusions, exclusionCount);
  AccumulateCells(map, block, tables);
}

CameraBlob CameraBlobOf(uint32_t count, uint32_t sumX, uint32_t sumY, uint32_t sumXX, uint32_t sumYY) {
  float f = 1.0f / float(count);
  float meanX = float(sumX) * f, meanY = float(sumY) * f;
  return {meanX, meanY, float(sumXX) * f - meanX * meanX, float(sumYY) * f - meanY * meanY};
}

int32_t CameraBallQualityResult(float quality) {
  return CameraFloorToInt(std::min(std::sqrt(std::sqrt(double(quality))), 10000.0));
}
