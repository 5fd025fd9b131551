// What the two ball finders share: the block they search, the colourfulness
// map, the exclusions and the moment tables per colourfulness level.
#ifndef KAVRI_CAMERA_CAMERABALL_H
#define KAVRI_CAMERA_CAMERABALL_H

#include <stdint.h>

#include "kavri/CameraAnalysisBall.h"

using CameraBallExclusion = CameraAnalysisBallSingleBlock::Exclusion;

// More exclusions than a program could sensibly place; a count beyond it is
// taken for garbage, so none is read or rewritten.
constexpr int32_t kCameraBallMaxExclusions = 256;
// 24 MiB of moment tables; finer cells would allocate without bound.
constexpr int32_t kCameraBallMaxCells = 4096;

// Where a search looks, fixed at Init and kept with the tables, so that a
// program changing its record later cannot lead a frame outside them.
struct CameraBallBlock {
  int32_t frameWidth;  // pixels a frame row holds
  int32_t x;           // even; the block lies inside the frame
  int32_t y;
  int32_t width;  // even
  int32_t height;
  int32_t cellSize;
  int32_t cellsAcross;
  int32_t cellsDown;

  int32_t Cells() const { return cellsAcross * cellsDown; }
  bool Empty() const { return width <= 0 || height <= 0; }
};

// Rounds x and the right edge down to even, clips the block to the frame and
// writes the result back into the record's fields.
CameraBallBlock CameraBallPlaceBlock(const CameraAnalysisBase& base, int32_t& x, int32_t& y, int32_t& width,
                                     int32_t& height);

// The count, or 0 when it is negative or beyond the limit.
int32_t CameraBallExclusionsInUse(int32_t count);
// Frame to block coordinates, clamped to the block, in place.
void CameraBallConvertExclusions(CameraBallExclusion* exclusions, int32_t count, const CameraBallBlock& block);

// One allocation for the block's description, its cell tables, its map and
// the scratch a frame needs; null when there is nothing to search or no
// memory.
CameraBallMoments* CameraBallAllocate(const CameraBallBlock& block, uint8_t** map);
const CameraBallBlock& CameraBallBlockOf(const CameraBallMoments* tables);
// Each cell's highest level in the last frame measured: every table entry
// above it is 0, so a search may start there.
const uint8_t* CameraBallTopsOf(const CameraBallMoments* tables);
void CameraBallFree(CameraBallMoments* tables);

// One frame: the colourfulness map (behind the tables) with the exclusions
// blanked, and every cell's moments summed from the top level down.
void CameraBallMeasure(const unsigned char* frame, CameraBallMoments* tables, const CameraBallExclusion* exclusions,
                       int32_t exclusionCount);

// size x size x tenths / 10, the pixel counts the searches compare with. A
// size beyond 2^20 pixels is taken as 2^20: no frame holds that many pixels
// either way, and the product stays inside 64 bits.
inline int64_t CameraBallSquareShare(int32_t size, int tenths) {
  int64_t edge = size < 0 ? -int64_t(size) : size;
  if (edge > (int64_t(1) << 20)) edge = int64_t(1) << 20;
  return edge * edge * tenths / 10;
}

// The roundest blob so far, in block pixels; quality 0: none found.
struct CameraBall {
  float quality = 0;
  int32_t x = 0, y = 0, radius = 0, level = 0;
};

// Means and variances of a blob, in single precision.
struct CameraBlob {
  float meanX;
  float meanY;
  float varX;
  float varY;
};
CameraBlob CameraBlobOf(uint32_t count, uint32_t sumX, uint32_t sumY, uint32_t sumXX, uint32_t sumYY);

// The multi-block quality result: the fourth root of the roundness, at most
// 10000.
int32_t CameraBallQualityResult(float quality);

#endif
