// Rectangles of a frame and the results the region analyses write back.
// Records come from downloaded code, so every edge is worked out in 64 bits
// and clipped to the frame before a byte is read.
#ifndef KAVRI_CAMERA_CAMERAREGION_H
#define KAVRI_CAMERA_CAMERAREGION_H

#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>

// Columns [left, right) and rows [top, bottom) of a frame.
struct CameraRect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;

  int32_t Width() const { return right - left; }
  int32_t Height() const { return bottom - top; }
  bool Empty() const { return right <= left || bottom <= top; }
};

inline int32_t CameraSaturate(int64_t value) { return int32_t(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX)); }

// Rounds toward minus infinity, so that negative edges move left as well.
inline int64_t CameraFloorEven(int64_t value) { return value & ~int64_t(1); }

// The part of the rectangle x, y, w, h inside columns 0..width-1 and rows
// 0..height-1; empty when nothing is inside or a size is not positive.
inline CameraRect CameraClipRect(int64_t x, int64_t y, int64_t w, int64_t h, int32_t width, int32_t height) {
  int64_t right = std::clamp<int64_t>(x + std::max<int64_t>(w, 0), 0, std::max(width, 0));
  int64_t bottom = std::clamp<int64_t>(y + std::max<int64_t>(h, 0), 0, std::max(height, 0));
  int64_t left = std::clamp<int64_t>(x, 0, right);
  int64_t top = std::clamp<int64_t>(y, 0, bottom);
  return {int32_t(left), int32_t(top), int32_t(right), int32_t(bottom)};
}

inline bool CameraRectCovers(const CameraRect& clipped, int64_t x, int64_t y, int64_t w, int64_t h) {
  return clipped.left == x && clipped.top == y && clipped.Width() == w && clipped.Height() == h;
}

// Says once, at start, what a rectangle that does not fit the frame leads to.
inline void CameraReportRect(const char* what, const CameraRect& inside, int32_t x, int32_t y, int32_t w, int32_t h,
                             const char* whenEmpty, const char* whenClipped) {
  if (inside.Empty())
    fprintf(stderr, "ERROR %s %d,%d %dx%d has no pixels in the frame: %s\n", what, x, y, w, h, whenEmpty);
  else if (!CameraRectCovers(inside, x, y, w, h))
    fprintf(stderr, "ERROR %s %d,%d %dx%d reaches outside the frame: %s\n", what, x, y, w, h, whenClipped);
}

// One 16-bit store that the program thread may read at the same time; the
// value is cut to its low 16 bits, as a halfword store would.
inline void CameraStoreResult(int16_t* variable, int64_t value) {
  if (variable) std::atomic_ref<int16_t>(*variable).store(int16_t(value), std::memory_order_relaxed);
}

// floor(value) as an integer; values that no result can hold (NaN, beyond
// 32 bits) give 0 instead of an undefined conversion.
inline int32_t CameraFloorToInt(double value) {
  double floored = std::floor(value);
  return floored >= double(INT32_MIN) && floored <= double(INT32_MAX) ? int32_t(floored) : 0;
}

#endif
