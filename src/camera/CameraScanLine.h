// What the two line finders share: the scan line's geometry, the sampling
// walk along it, and 32-bit arithmetic that wraps as the controller's does.
#ifndef KAVRI_CAMERA_CAMERASCANLINE_H
#define KAVRI_CAMERA_CAMERASCANLINE_H

#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "CameraColor.h"

// Longest scan line a record may ask for. It bounds the work buffers, and
// keeps every prefix sum of 16-bit samples inside 32 bits.
constexpr int64_t kCameraScanMaxSamples = 16384;

// DebugFlags bit of the per-frame analysis lines.
constexpr int kCameraDebugAnalysis = 2;

// A finder's work on a frame is built twice on x86-64, as the FL48 entry
// points are: for any processor, and for those with 256-bit integer vectors
// (and their 32-bit multiplies, minimums and maximums), where the per-sample
// loops vectorise. Integer
// arithmetic and the uncontracted walk give the same bits either way. Not
// under ThreadSanitizer or clang, for the reasons given there.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define KAVRI_CAMERA_BUILT_TWICE __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define KAVRI_CAMERA_BUILT_TWICE
#endif
// The loops such a finder calls, inlined so that they are built twice too.
#define KAVRI_CAMERA_INLINE inline __attribute__((always_inline))
// The same for a lambda handed to such a loop.
#define KAVRI_CAMERA_LAMBDA __attribute__((always_inline))

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
  // Luma and chroma bytes of the pixel; (0, 128, 128), which converts to
  // black, outside. With an odd width (the decoder never delivers one) the
  // last column has no chroma pair and counts as outside.
  void Yuv(double x, double y, int32_t& luma, int32_t& u, int32_t& v) const {
    if (!(x >= 0 && x < (width & ~1) && y >= 0 && y < height)) {
      luma = 0, u = v = 128;
      return;
    }
    const int32_t column = int32_t(x);
    const unsigned char* pair = data + Offset(column & ~1, int32_t(y));
    luma = pair[(column & 1) * 2], u = pair[1], v = pair[3];
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

// A record's work memory: its buffers, zeroed, behind a header that holds
// what they were made for, and after them the scan line's pixels, worked out
// once for a frame size rather than walked again every frame. The record
// keeps only the first buffer; the header lies just in front of it.
class CameraScanWork {
 public:
  // buffers buffers of entries int32 each, for a scan line of count samples,
  // and extra int32 of scratch; the first buffer, or null without memory.
  static int32_t* Allocate(int32_t count, int buffers, int32_t entries, size_t extra = 0) {
    const size_t ints = size_t(buffers) * size_t(entries) + size_t(count) + extra;
    void* block = calloc(kHeaderInts + ints, sizeof(int32_t));
    if (!block) return nullptr;
    CameraScanWork* work = new (block) CameraScanWork;
    work->count_ = count;
    work->pixels_ = work->First() + size_t(buffers) * size_t(entries);
    work->extra_ = work->pixels_ + count;
    return work->First();
  }
  static void Free(int32_t* first) {
    if (first) free(&Of(first));
  }
  static CameraScanWork& Of(int32_t* first) { return *reinterpret_cast<CameraScanWork*>(first - kHeaderInts); }

  // The sample count the buffers were made for: a record whose count has
  // changed since must not use them.
  int32_t Count() const { return count_; }
  int32_t* Extra() { return extra_; }

  // Byte offset of the luma of each sample of the walk in a frame of this
  // size, or -1 outside; made again when the walk or the size differ from
  // the last frame's. Null for the frames no offset table describes (odd
  // widths, where the last column has luma but no chroma pair, and frames
  // beyond 1 GiB), which are walked instead.
  const int32_t* Pixels(float xOrigin, float xStep, float yOrigin, float yStep, int32_t width, int32_t height) {
    if ((width & 1) || int64_t(width) * height > (int64_t(1) << 29)) return nullptr;
    const float walk[4] = {xOrigin, xStep, yOrigin, yStep};
    // Bitwise, so that a changed step is seen even where it compares equal.
    if (!made_ || memcmp(walk, walk_, sizeof walk) != 0 || width != width_ || height != height_) {
      memcpy(walk_, walk, sizeof walk);
      width_ = width;
      height_ = height;
      allInside_ = true;
      CameraScanWalk(xOrigin, xStep, yOrigin, yStep, count_, [this, width, height](int32_t i, double x, double y) {
        const bool inside = x >= 0 && x < width && y >= 0 && y < height;
        pixels_[i] = inside ? (int32_t(y) * width + int32_t(x)) * 2 : -1;
        allInside_ = allInside_ && inside;
      });
      made_ = true;
    }
    return pixels_;
  }
  // Whether every sample of the table last made lies inside the frame.
  bool AllInside() const { return allInside_; }

 private:
  // The header's size in int32, a multiple of 4 so that the buffers keep
  // 16-byte alignment.
  static constexpr size_t kHeaderInts = 16;
  int32_t* First() { return reinterpret_cast<int32_t*>(this) + kHeaderInts; }

  int32_t count_ = 0;
  int32_t* pixels_ = nullptr;
  int32_t* extra_ = nullptr;
  float walk_[4] = {};
  int32_t width_ = 0, height_ = 0;
  bool made_ = false, allInside_ = false;
};
static_assert(sizeof(CameraScanWork) <= 16 * sizeof(int32_t));

// The samples of a record's scan line in this frame, in runs: visit(first,
// count, luma, u, v) gets the luma and the two chroma bytes of samples first
// .. first+count-1, outside ones as (0, 128, 128), which converts to black.
// Taken from the record's pixel table; frames it cannot describe are
// walked. Luma alone leaves u and v unset.
constexpr int kCameraScanRun = 256;

template <bool Chroma, typename Record, typename Visit>
KAVRI_CAMERA_INLINE void CameraScanSamples(Record& record, CameraScanWork& work, const unsigned char* frame, Visit visit) {
  const int32_t count = record.sampleCount, width = record.base.width, height = record.base.height;
  int32_t luma[kCameraScanRun], u[kCameraScanRun], v[kCameraScanRun];
  const int32_t* pixels = work.Pixels(record.xOrigin, record.xStep, record.yOrigin, record.yStep, width, height);
  // The table's runs, each sample read by read(i, its byte offset).
  auto runs = [&](auto read) KAVRI_CAMERA_LAMBDA {
    for (int32_t first = 0; first < count; first += kCameraScanRun) {
      const int n = int(std::min<int32_t>(kCameraScanRun, count - first));
      for (int i = 0; i < n; ++i) read(i, pixels[first + i]);
      visit(first, n, luma, u, v);
    }
  };
  if (pixels && work.AllInside()) {
    runs([&](int i, int32_t at) KAVRI_CAMERA_LAMBDA {
      if (!Chroma) {
        luma[i] = frame[at];
        return;
      }
      // A pixel's pair read as one word: its luma, the pair's two chroma.
      uint32_t pair;
      memcpy(&pair, frame + (at & ~3), sizeof pair);
      pair = CameraLittleEndianWord(pair);
      luma[i] = int32_t((pair >> ((at & 2) * 8)) & 255);
      u[i] = int32_t((pair >> 8) & 255), v[i] = int32_t(pair >> 24);
    });
    return;
  }
  if (pixels) {
    runs([&](int i, int32_t at) KAVRI_CAMERA_LAMBDA {
      if (at < 0) {
        luma[i] = 0, u[i] = v[i] = 128;
        return;
      }
      luma[i] = frame[at];
      // Even widths only: a pixel pair starts on a multiple of 4 bytes.
      if (Chroma) u[i] = frame[(at & ~3) + 1], v[i] = frame[(at & ~3) + 3];
    });
    return;
  }
  const CameraScanFrame image{frame, width, height};
  int32_t first = 0, n = 0;
  CameraScanWalk(record.xOrigin, record.xStep, record.yOrigin, record.yStep, count,
                 [&](int32_t i, double x, double y) {
                   if (Chroma)
                     image.Yuv(x, y, luma[n], u[n], v[n]);
                   else
                     luma[n] = image.Luma(x, y);
                   if (++n == kCameraScanRun || i == count - 1) {
                     visit(first, n, luma, u, v);
                     first += n;
                     n = 0;
                   }
                 });
}

// First histogram bin at which the running count reaches half the samples,
// 256 if none does, and the 8.8 gain that maps it to 200.
inline int32_t CameraMedianGain(const uint16_t (&histogram)[256], int32_t count) {
  int32_t half = count >> 1, sum = 0, median = 256;
  // Groups of 16 bins first, each summed in one go; then the bins of the
  // group where the running count reaches half.
  int first = 0;
  for (; first < 256; first += 16) {
    int32_t group = 0;
    for (int bin = first; bin < first + 16; ++bin) group += histogram[bin];
    if (sum + group >= half) break;
    sum += group;
  }
  for (int bin = first; bin < 256; ++bin) {
    sum += histogram[bin];
    if (sum >= half) {
      median = bin;
      break;
    }
  }
  return median > 9 ? 51200 / median : 5120;
}

#endif
