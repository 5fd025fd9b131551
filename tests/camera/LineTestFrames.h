// Packed 4:2:2 frames with stripes of known place, brightness and colour,
// and one chain run of a line record on them.
#ifndef KAVRI_TESTS_CAMERA_LINETESTFRAMES_H
#define KAVRI_TESTS_CAMERA_LINETESTFRAMES_H

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

struct Yuv {
  uint8_t y, u = 128, v = 128;  // neutral chroma: R = G = B = y
};

struct StripeFrame {
  int width, height;
  std::vector<uint8_t> data = std::vector<uint8_t>(size_t(width) * size_t(height) * 2);

  StripeFrame(int w, int h, Yuv floor) : width(w), height(h) { Fill(0, 0, w, h, floor); }
  // Chroma belongs to pixel pairs: coloured edges go on even columns.
  StripeFrame& Fill(int x0, int y0, int x1, int y1, Yuv colour) {
    for (int y = y0; y < y1; ++y)
      for (int x = x0; x < x1; ++x) {
        uint8_t* pair = &data[(size_t(y) * width + (x & ~1)) * 2];
        pair[(x & 1) * 2] = colour.y;
        pair[1] = colour.u;
        pair[3] = colour.v;
      }
    return *this;
  }
  StripeFrame& Columns(int x0, int x1, Yuv colour) { return Fill(x0, 0, x1, height, colour); }
};

// Init, one frame and Uninit, as the capture thread runs a chain.
template <typename Record>
void RunChainOnce(Record& record, const StripeFrame& frame) {
  CameraInitAnalysis(&record.base, frame.width, frame.height);
  CameraRunAnalysis(&record.base, frame.data.data(), frame.data.data(), nullptr, 0);
  CameraUninitAnalysis(&record.base);
}

// What the analyses print under debug bit 2 while run() goes on.
inline std::string CaptureDebugLines(const std::function<void()>& run) {
  FILE *saved = DebugFile, *file = tmpfile();
  DebugFile = file;
  DebugFlags = 2;
  run();
  DebugFlags = 0;
  DebugFile = saved;
  std::string text;
  rewind(file);
  for (int c; (c = fgetc(file)) != EOF;) text.push_back(char(c));
  fclose(file);
  return text;
}

#endif
