// The two ball finders of the analysis chain. Both rate every pixel of a
// block by how colourful it is, sum the rated pixels into moment tables per
// colourfulness level and judge the blob at each level by its size and
// roundness. Offsets in the comments are those of the 32-bit controller.
#ifndef KAVRI_CAMERAANALYSISBALL_H
#define KAVRI_CAMERAANALYSISBALL_H

#include "kavri/CameraAnalysis.h"

extern "C" {

// First and second moments of the pixels at each colourfulness level; after
// a frame's sums from the top, entry t covers every pixel of level >= t.
struct CameraBallMoments {
  uint32_t count[256];
  uint32_t sumX[256];
  uint32_t sumY[256];
  uint32_t sumXX[256];
  uint32_t sumXY[256];
  uint32_t sumYY[256];
};

// Type 6: one ball in one block, searched from the most colourful level down
// to a threshold, its radius within limits.
struct CameraAnalysisBallSingleBlock {
  // A rectangle blanked out of the search, right and bottom exclusive. The
  // program gives it in frame coordinates; Init rewrites it in place as block
  // coordinates clamped to the block.
  struct Exclusion {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;

    // Puts the smaller edge first in each direction.
    void Normalize();
    // Orders exclusions by their left edge, for qsort.
    static int Compare(const void* a, const void* b);
  };

  CameraAnalysisBase base;     // 0
  int32_t blockX;              // 16  Init rounds it down to even
  int32_t blockY;              // 20
  int32_t blockWidth;          // 24  Init moves the right edge down to even
  int32_t blockHeight;         // 28
  int32_t radiusMin;           // 32  x output units; Init turns both into pixels
  int32_t radiusMax;           // 36
  int32_t threshold;           // 40  percent; Init turns it into 1/128 units
  int32_t xRangeMin;           // 44  output of block column 0
  int32_t xRangeMax;           // 48  output of column blockWidth
  int32_t yRangeMin;           // 52  output of the bottom row (y grows upwards)
  int32_t yRangeMax;           // 56  output of the top row
  int16_t* xResult;            // 60
  int16_t* yResult;            // 64
  int16_t* radiusResult;       // 68
  int16_t* qualityResult;      // 72  percent of the top level
  uint8_t* map;                // 76  colourfulness, blockWidth x blockHeight; the library's
  CameraBallMoments* moments;  // 80  the library's
  int32_t exclusionCount;      // 84  exclusions that follow the record

  Exclusion* Exclusions() { return reinterpret_cast<Exclusion*>(this + 1); }

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

// Type 7: one ball in a block divided into square cells; small balls are
// judged in every 2 x 2 group of cells, large ones over the whole block.
struct CameraAnalysisBallMultiBlock {
  using Exclusion = CameraAnalysisBallSingleBlock::Exclusion;

  CameraAnalysisBase base;        // 0
  int32_t blockX;                 // 16  Init rounds it down to even
  int32_t blockY;                 // 20
  int32_t blockWidth;             // 24  Init moves the right edge down to even
  int32_t blockHeight;            // 28
  int16_t* xResult;               // 32  -1000..1000 across the block
  int16_t* yResult;               // 36  -1000..1000, growing downwards
  int16_t* radiusResult;          // 40  pixels
  int16_t* qualityResult;         // 44  at most 10000
  int16_t* levelResult;           // 48  colourfulness level of the ball
  int32_t unused[3];              // 52
  int32_t sizeMin;                // 64  pixels: a small ball covers at least 0.7 x sizeMin^2
  int32_t sizeMax;                // 68  pixels: a large ball covers at most 0.9 x sizeMax^2
  int32_t cellSize;               // 72  edge of a cell, pixels
  int32_t cellsAcross;            // 76  set by Init
  int32_t cellsDown;              // 80  set by Init
  uint8_t* map;                   // 84  colourfulness, blockWidth x blockHeight; the library's
  CameraBallMoments* cellTables;  // 88  one per cell, row by row; the library's
  int32_t exclusionCount;         // 92  exclusions that follow the record

  Exclusion* Exclusions() { return reinterpret_cast<Exclusion*>(this + 1); }

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

// (i / 255)^0.2 scaled to 0..255; filled by the multi-block Init.
extern uint8_t GammaMap[256];

static_assert(sizeof(CameraBallMoments) == 6144, "moment table size");
static_assert(sizeof(CameraAnalysisBallSingleBlock::Exclusion) == 16, "exclusion size");

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(CameraAnalysisBallSingleBlock, blockX) == 16, "blockX offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, blockY) == 20, "blockY offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, blockWidth) == 24, "blockWidth offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, blockHeight) == 28, "blockHeight offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, radiusMin) == 32, "radiusMin offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, radiusMax) == 36, "radiusMax offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, threshold) == 40, "threshold offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, xRangeMin) == 44, "xRangeMin offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, xRangeMax) == 48, "xRangeMax offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, yRangeMin) == 52, "yRangeMin offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, yRangeMax) == 56, "yRangeMax offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, xResult) == 60, "xResult offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, yResult) == 64, "yResult offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, radiusResult) == 68, "radiusResult offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, qualityResult) == 72, "qualityResult offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, map) == 76, "map offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, moments) == 80, "moments offset");
static_assert(offsetof(CameraAnalysisBallSingleBlock, exclusionCount) == 84, "exclusionCount offset");
static_assert(sizeof(CameraAnalysisBallSingleBlock) == 88, "exclusions start at 88");

static_assert(offsetof(CameraAnalysisBallMultiBlock, blockX) == 16, "blockX offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, blockY) == 20, "blockY offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, blockWidth) == 24, "blockWidth offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, blockHeight) == 28, "blockHeight offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, xResult) == 32, "xResult offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, yResult) == 36, "yResult offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, radiusResult) == 40, "radiusResult offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, qualityResult) == 44, "qualityResult offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, levelResult) == 48, "levelResult offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, unused) == 52, "unused offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, sizeMin) == 64, "sizeMin offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, sizeMax) == 68, "sizeMax offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, cellSize) == 72, "cellSize offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, cellsAcross) == 76, "cellsAcross offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, cellsDown) == 80, "cellsDown offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, map) == 84, "map offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, cellTables) == 88, "cellTables offset");
static_assert(offsetof(CameraAnalysisBallMultiBlock, exclusionCount) == 92, "exclusionCount offset");
static_assert(sizeof(CameraAnalysisBallMultiBlock) == 96, "exclusions start at 96");
#endif

}  // extern "C"

#endif
