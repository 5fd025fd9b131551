#include "CameraBall.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "CameraRegion.h"

namespace {

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

// A row is added in segments of at most 256 pixels, each into a scratch table
// of packed 64-bit entries per level: count (bits 48..63), the sum of x and
// the sum of x*x (24 bits each), x counted from the segment's start. One
// read-modify-write per pixel instead of six; no field can overflow into the
// next (256 pixels, x < 256). Consecutive pixels go to four copies of the
// table, so that a run of one level does not wait on its own stores, and
// eight equal pixels (floor, ball) are added at once.
constexpr int32_t kSegment = 256;
constexpr int kCopies = 4;
constexpr int32_t kGroup = 8;

struct PackedRow {
  uint64_t level[kCopies][256];
  uint64_t pixel[kSegment];  // what pixel x of a segment adds
  uint64_t group[kSegment];  // what pixels x..x+7 add together

  PackedRow() : level{} {
    for (uint64_t x = 0; x < kSegment; ++x) pixel[x] = (uint64_t(1) << 48) | (x << 24) | (x * x);
    for (int32_t x = 0; x + kGroup <= kSegment; ++x) {
      group[x] = 0;
      for (int32_t k = 0; k < kGroup; ++k) group[x] += pixel[x + k];
    }
  }
};

// In front of the tables, sized to keep them 8-byte aligned. Behind them: the
// scratch row, the map and each cell's highest level of the last frame.
struct alignas(8) StorageHeader {
  CameraBallBlock block;
  PackedRow* row;
  uint8_t* map;
  uint8_t* tops;
};

StorageHeader& StorageOf(const CameraBallMoments* tables) {
  return *reinterpret_cast<StorageHeader*>(
      const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(tables)) - sizeof(StorageHeader));
}

// The segment's levels into the scratch table; returns its lowest and highest
// level, which bound the entries the fold has to look at.
void PackSegment(const uint8_t* levels, int32_t n, PackedRow& row, int32_t& low, int32_t& high) {
  uint8_t least = 255, most = 0;
  for (int32_t x = 0; x < n; ++x) {
    least = std::min(least, levels[x]);
    most = std::max(most, levels[x]);
  }
  low = least;
  high = most;
  int32_t x = 0;
  for (int copy = 0; x + kGroup <= n; x += kGroup, copy = (copy + 1) % kCopies) {
    uint64_t eight;
    memcpy(&eight, levels + x, sizeof eight);
    if (eight == levels[x] * 0x0101010101010101u) {
      row.level[copy][levels[x]] += row.group[x];
      continue;
    }
    for (int32_t k = 0; k < kGroup; k += kCopies) {
      row.level[0][levels[x + k]] += row.pixel[x + k];
      row.level[1][levels[x + k + 1]] += row.pixel[x + k + 1];
      row.level[2][levels[x + k + 2]] += row.pixel[x + k + 2];
      row.level[3][levels[x + k + 3]] += row.pixel[x + k + 3];
    }
  }
  for (; x < n; ++x) row.level[0][levels[x]] += row.pixel[x];
}

// Moves level c of the segment into the cell's table at block column left,
// row y, and clears it for the next segment. Worked out in 64 bits and cut to
// 32, which is the wrapped sum the tables hold.
void FoldLevel(PackedRow& row, int32_t c, uint64_t left, uint64_t y, CameraBallMoments& table) {
  uint64_t packed = row.level[0][c] + row.level[1][c] + row.level[2][c] + row.level[3][c];
  if (packed == 0) return;
  for (auto& copy : row.level) copy[c] = 0;
  uint64_t n = packed >> 48, sumX = (packed >> 24) & 0xFFFFFF, sumXX = packed & 0xFFFFFF;
  uint64_t x = sumX + n * left;
  table.count[c] += uint32_t(n);
  table.sumX[c] += uint32_t(x);
  table.sumY[c] += uint32_t(y * n);
  table.sumXX[c] += uint32_t(sumXX + 2 * left * sumX + n * left * left);
  table.sumXY[c] += uint32_t(y * x);
  table.sumYY[c] += uint32_t(y * y * n);
}

// Every level between the segment's lowest and highest, or, when that range
// is wider than the segment (a ball's edge on the floor), the levels its
// pixels hold: either way each filled entry is moved once.
void FoldSegment(PackedRow& row, const uint8_t* levels, int32_t n, int32_t low, int32_t high, uint64_t left,
                 uint64_t y, CameraBallMoments& table) {
  if (high - low < n) {
    for (int32_t c = low; c <= high; ++c) FoldLevel(row, c, left, y, table);
  } else {
    for (int32_t x = 0; x < n; ++x) FoldLevel(row, levels[x], left, y, table);
  }
}

// Sums from the top, levels top..0 only: above a cell's highest level every
// entry is 0 both before and after. Six independent running sums instead of
// one chain of dependent additions.
void SumFromTop(CameraBallMoments& t, int32_t top) {
  for (int c = top - 1; c >= 0; --c) {
    t.count[c] += t.count[c + 1];
    t.sumX[c] += t.sumX[c + 1];
    t.sumY[c] += t.sumY[c + 1];
    t.sumXX[c] += t.sumXX[c + 1];
    t.sumXY[c] += t.sumXY[c + 1];
    t.sumYY[c] += t.sumYY[c + 1];
  }
}

// Only the entries the last frame filled are cleared: the rest are still 0.
void ClearTable(CameraBallMoments& t, int32_t top) {
  size_t bytes = sizeof(uint32_t) * size_t(top + 1);
  for (uint32_t* entries : {t.count, t.sumX, t.sumY, t.sumXX, t.sumXY, t.sumYY}) memset(entries, 0, bytes);
}

void AccumulateCells(const uint8_t* map, const CameraBallBlock& block, CameraBallMoments* tables, uint8_t* tops,
                     PackedRow& row) {
  for (int32_t cell = 0; cell < block.Cells(); ++cell) ClearTable(tables[cell], tops[cell]);
  memset(tops, 0, size_t(block.Cells()));
  for (int32_t y = 0; y < block.height; ++y) {
    const uint8_t* levels = map + int64_t(y) * block.width;
    int32_t firstCell = (y / block.cellSize) * block.cellsAcross;
    for (int32_t cell = 0; cell < block.cellsAcross; ++cell) {
      int32_t cellLeft = cell * block.cellSize;
      int32_t cellRight = std::min(cellLeft + block.cellSize, block.width);
      for (int32_t left = cellLeft; left < cellRight; left += kSegment) {
        int32_t n = std::min(kSegment, cellRight - left), low, high;
        PackSegment(levels + left, n, row, low, high);
        FoldSegment(row, levels + left, n, low, high, uint64_t(left), uint64_t(y), tables[firstCell + cell]);
        tops[firstCell + cell] = uint8_t(std::max<int32_t>(tops[firstCell + cell], high));
      }
    }
  }
  for (int32_t cell = 0; cell < block.Cells(); ++cell) SumFromTop(tables[cell], tops[cell]);
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
  unsigned char* storage = new (std::nothrow)
      unsigned char[sizeof(StorageHeader) + tableBytes + sizeof(PackedRow) + mapBytes + size_t(block.Cells())];
  if (!storage) {
    fprintf(stderr, "ERROR ball search: no memory for a %dx%d block\n", block.width, block.height);
    return nullptr;
  }
  auto* tables = reinterpret_cast<CameraBallMoments*>(storage + sizeof(StorageHeader));
  // Zero once: each frame clears only what the last one filled.
  memset(static_cast<void*>(tables), 0, tableBytes);
  auto* row = new (tables + block.Cells()) PackedRow;
  *map = reinterpret_cast<uint8_t*>(row + 1);
  uint8_t* tops = *map + mapBytes;
  memset(tops, 0, size_t(block.Cells()));
  new (storage) StorageHeader{block, row, *map, tops};
  return tables;
}

const CameraBallBlock& CameraBallBlockOf(const CameraBallMoments* tables) { return StorageOf(tables).block; }

const uint8_t* CameraBallTopsOf(const CameraBallMoments* tables) { return StorageOf(tables).tops; }

void CameraBallFree(CameraBallMoments* tables) {
  if (tables) delete[] reinterpret_cast<unsigned char*>(&StorageOf(tables));
}

void CameraBallMeasure(const unsigned char* frame, CameraBallMoments* tables, const CameraBallExclusion* exclusions,
                       int32_t exclusionCount) {
  StorageHeader& storage = StorageOf(tables);
  BuildMap(frame, storage.block, storage.map);
  BlankExclusions(storage.map, storage.block, exclusions, exclusionCount);
  AccumulateCells(storage.map, storage.block, tables, storage.tops, *storage.row);
}

CameraBlob CameraBlobOf(uint32_t count, uint32_t sumX, uint32_t sumY, uint32_t sumXX, uint32_t sumYY) {
  float f = 1.0f / float(count);
  float meanX = float(sumX) * f, meanY = float(sumY) * f;
  return {meanX, meanY, float(sumXX) * f - meanX * meanX, float(sumYY) * f - meanY * meanY};
}

int32_t CameraBallQualityResult(float quality) {
  return CameraFloorToInt(std::min(std::sqrt(std::sqrt(double(quality))), 10000.0));
}
