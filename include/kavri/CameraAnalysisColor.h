// The two region analyses of the chain: the average colour of a rectangle and
// how much of it changed since the previous frame. Both write percentages
// through 16-bit pointers into the program's variables; any pointer may be
// null. Offsets in the comments are those of the 32-bit controller.
#ifndef KAVRI_CAMERAANALYSISCOLOR_H
#define KAVRI_CAMERAANALYSISCOLOR_H

#include "kavri/CameraAnalysis.h"

extern "C" {

// Type 4: mean brightness, red, green and blue of a rectangle, 0..99 each.
// Init rounds x down to even and moves the right edge down to even, so the
// rectangle covers whole pixel pairs.
struct CameraAnalysisColorField {
  CameraAnalysisBase base;  // 0
  int32_t x;                // 16  left column
  int32_t y;                // 20  top row
  int32_t w;                // 24  columns
  int32_t h;                // 28  rows
  int16_t* brightnessVar;   // 32
  int16_t* redVar;          // 36
  int16_t* greenVar;        // 40
  int16_t* blueVar;         // 44

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

// Type 5: the share of a rectangle whose luminance changed by more than the
// threshold since the previous frame, and the mean size of those changes.
struct CameraAnalysisChangeDetect {
  CameraAnalysisBase base;  // 0
  int32_t x;                // 16  not aligned to pixel pairs
  int32_t y;                // 20
  int32_t w;                // 24
  int32_t h;                // 28
  int32_t threshold;        // 32  percent; Init turns it into 0..255 units in place
  int32_t minArea;          // 36  percent of the rectangle below which no strength is
                            // reported
  int16_t* strengthVar;     // 40  mean change of the changed pixels, percent
  int16_t* areaVar;         // 44  changed pixels, percent of the rectangle

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(CameraAnalysisColorField, x) == 16, "x offset");
static_assert(offsetof(CameraAnalysisColorField, y) == 20, "y offset");
static_assert(offsetof(CameraAnalysisColorField, w) == 24, "w offset");
static_assert(offsetof(CameraAnalysisColorField, h) == 28, "h offset");
static_assert(offsetof(CameraAnalysisColorField, brightnessVar) == 32, "brightnessVar offset");
static_assert(offsetof(CameraAnalysisColorField, redVar) == 36, "redVar offset");
static_assert(offsetof(CameraAnalysisColorField, greenVar) == 40, "greenVar offset");
static_assert(offsetof(CameraAnalysisColorField, blueVar) == 44, "blueVar offset");
static_assert(sizeof(CameraAnalysisColorField) == 48, "colour field record size");

static_assert(offsetof(CameraAnalysisChangeDetect, x) == 16, "x offset");
static_assert(offsetof(CameraAnalysisChangeDetect, y) == 20, "y offset");
static_assert(offsetof(CameraAnalysisChangeDetect, w) == 24, "w offset");
static_assert(offsetof(CameraAnalysisChangeDetect, h) == 28, "h offset");
static_assert(offsetof(CameraAnalysisChangeDetect, threshold) == 32, "threshold offset");
static_assert(offsetof(CameraAnalysisChangeDetect, minArea) == 36, "minArea offset");
static_assert(offsetof(CameraAnalysisChangeDetect, strengthVar) == 40, "strengthVar offset");
static_assert(offsetof(CameraAnalysisChangeDetect, areaVar) == 44, "areaVar offset");
static_assert(sizeof(CameraAnalysisChangeDetect) == 48, "change detect record size");
#endif

}  // extern "C"

#endif
