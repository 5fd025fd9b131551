// What the two line finders share: the scan line's geometry, the sampling
// walk along it, and 32-bit arithmetic that wraps as the controller's does.
#ifndef KAVRI_CAMERA_CAMERASCANLINE_H
#define KAVRI_CAMERA_CAMERASCANLINE_H

#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>

#include "CameraColor.h"

// Longest scan line a record may ask for. It bounds the work buffers, and
// keeps every prefix sum of 16-bit samples inside 32 bits.
constexpr int64_t kCameraScanMaxSamples = 16384;

// DebugFlags bit of the per-frame analysis lines.
constexpr int kCameraDebugAnalysis = 2;

// Products and sums that only hostile records push past 32 bits wrap, as the
// controller's multiply does, instead of being undefined.
inline int32_t CameraMul32(int32_t a, int32_t b) { return int32_t(uint32_t(a) * uint32_t(b)); }
inline int32_t CameraAdd32(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }
inline int32_t CameraSub32(int32_t a, int32_t b) { return int32_t(uint32_t(a) - uint32_t(b)); }
// Division as the controller's divide instruction does it: by zero gives 0,
// and the one quotient that does not fit wraps.
inline int32_t CameraDiv32(int32_t a, int32_t b) {
  if (b == 0) return 0;
  if (b == -1) return CameraSub32(0, a);
  return a / b;
}

// Results go straight into the program's variables, which its own thread
// reads meanwhile; a null pointer is skipped.
inline void CameraStoreResult(int16_t* target, int32_t value) {
  if (target) std::atomic_ref<int16_t>(*target).store(int16_t(value), std::memory_order_relaxed);
}

// The walk from the start point towards the end point: N samples, the
// coordinates accumulated in single precision and rounded in double.
struct CameraScanLine {
  int64_t count;  // N; may exceed kCameraScanMaxSamples, the caller decides
  float xOrigin, xStep, yOrigin, yStep;
};

inline CameraScanLine CameraScanLineBetween(int32_t startX, int32_t startY, int32_t endX, int32_t endY) {
  int64_t dx = int64_t(endX) - startX, dy = int64_t(endY) - startY;
  CameraScanLine line{std::max(std::llabs(dx), std::llabs(dy)), float(startX), 0.0f, float(startY), 0.0f};
  if (line.count != 0) {
    line.xStep = float(dx) / float(line.count);
    line.yStep = float(dy) / float(line.count);
  }
  return line;
}

// Sets a record's sample count, origins and steps for its scan line, and
// returns the true count: a line longer than kCameraScanMaxSamples is
// recorded with 0 samples.
template <typename Record>
int64_t CameraScanLineInit(Record& record) {
  CameraScanLine line = CameraScanLineBetween(record.startX, record.startY, record.endX, record.endY);
  record.sampleCount = line.count <= kCameraScanMaxSamples ? int32_t(line.count) : 0;
  record.xOrigin = line.xOrigin;
  record.xStep = line.xStep;
  record.yOrigin = line.yOrigin;
  record.yStep = line.yStep;
  return line.count;
}

// A decoded packed 4:2:2 frame as the finders read it.
struct CameraScanFrame {
  const unsigned char* data;
  int32_t width, height;

  // Luma of the pixel at (floor x, floor y), or 0 outside the frame (also
  // for coordinates far beyond int range, which are compared before they are
  // converted).
  int32_t Luma(double x, double y) const {
    if (!(x >= 0 && x < width && y >= 0 && y < height)) return 0;
    return data[Offset(int32_t(x), int32_t(y))];
  }
  // Colour of the pixel; black outside. With an odd width (the decoder
  // never delivers one) the last column has no chroma pair and counts as
  // outside.
  CameraRgb Rgb(double x, double y) const {
    if (!(x >= 0 && x < (width & ~1) && y >= 0 && y < height)) return {0, 0, 0};
    const int32_t column = int32_t(x);
    const unsigned char* pair = data + Offset(column & ~1, int32_t(y));
    return CameraYuvToRgb(pair[(column & 1) * 2], pair[1], pair[3]);
  }

 private:
  // Byte offset of the luma of an inside pixel. The coordinates are known
  // to lie in 0 .. width or height, so truncation is the floor, and a
  // conversion to int is a single instruction where one to size_t is not.
  size_t Offset(int32_t column, int32_t row) const { return (size_t(row) * size_t(width) + size_t(column)) * 2; }
};

// Calls visit(i, x, y) for i = 0 .. count-1, where the floors of x and y
// are the pixel of sample i (coordinates rounded half up). The floor itself
// is left to the frame's accessors: for a pixel inside the frame it is a
// plain conversion, and the frame test needs none (a library call on both
// targets).
template <typename Visit>
void CameraScanWalk(float xOrigin, float xStep, float yOrigin, float yStep, int32_t count, Visit visit) {
  float xf = xOrigin, yf = yOrigin;
  for (int32_t i = 0; i < count; ++i) {
    visit(i, double(xf) + 0.5, double(yf) + 0.5);
    xf += xStep;
    yf += yStep;
  }
}

// First histogram bin at which the running count reaches half the samples,
// 256 if none does, and the 8.8 gain that maps it to 200.
inline int32_t CameraMedianGain(const uint16_t (&histogram)[256], int32_t count) {
  int32_t half = count >> 1, sum = 0, median = 256;
  for (int bin = 0; bin < 256; ++bin) {
    sum += histogram[bin];
    if (sum >= half) {
      median = bin;
      break;
    }
  }
  return median > 9 ? 51200 / median : 5120;
}

#endif
