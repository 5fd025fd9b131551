// Packed 4:2:2 frames with stripes of known place, brightness and colour,
// and a chain run of one line record on them, for the line finder suites.
#ifndef KAVRI_TESTS_CAMERA_LINETESTFRAMES_H
#define KAVRI_TESTS_CAMERA_LINETESTFRAMES_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

struct Yuv {
  uint8_t y, u = 128, v = 128;  // neutral chroma: R = G = B = y
};

class StripeFrame {
 public:
  StripeFrame(int width, int height, Yuv floor)
      : width_(width), height_(height), data_(size_t(width) * size_t(height) * 2) {
    Fill(0, 0, width, height, floor);
  }

  // Paints [x0, x1) x [y0, y1). Chroma belongs to pixel pairs, so coloured
  // edges go on even columns.
  StripeFrame& Fill(int x0, int y0, int x1, int y1, Yuv colour) {
    for (int y = y0; y < y1; ++y)
      for (int x = x0; x < x1; ++x) {
        uint8_t* pair = &data_[(size_t(y) * width_ + (x & ~1)) * 2];
        pair[(x & 1) * 2] = colour.y;
        pair[1] = colour.u;
        pair[3] = colour.v;
      }
    return *this;
  }
  StripeFrame& Columns(int x0, int x1, Yuv colour) { return Fill(x0, 0, x1, height_, colour); }
  StripeFrame& Rows(int y0, int y1, Yuv colour) { return Fill(0, y0, width_, y1, colour); }

  const uint8_t* Data() const { return data_.data(); }
  int Width() const { return width_; }
  int Height() const { return height_; }

 private:
  int width_, height_;
  std::vector<uint8_t> data_;
};

// Init, one frame and Uninit of a one-record chain, as the capture thread
// would run them.
template <typename Record>
void RunChainOnce(Record& record, const StripeFrame& frame) {
  CameraInitAnalysis(&record.base, frame.Width(), frame.Height());
  CameraRunAnalysis(&record.base, frame.Data(), frame.Data(), nullptr, 0);
  CameraUninitAnalysis(&record.base);
}

// What the analyses print under debug bit 2 while run() goes on.
inline std::string CaptureDebugLines(const std::function<void()>& run) {
  FILE* saved = DebugFile;
  int savedFlags = DebugFlags;
  DebugFile = tmpfile();
  DebugFlags = 2;
  run();
  std::string text;
  rewind(DebugFile);
  for (int c; (c = fgetc(DebugFile)) != EOF;) text.push_back(char(c));
  fclose(DebugFile);
  DebugFile = saved;
  DebugFlags = savedFlags;
  return text;
}

#endif
