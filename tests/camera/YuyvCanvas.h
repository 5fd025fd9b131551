// Packed YUYV frames painted pixel by pixel, the region analyses' records as
// a program fills them, a chain of one record run over a frame, and the
// capture thread's start and stop, shared by the camera suites.
#ifndef KAVRI_TESTS_CAMERA_YUYVCANVAS_H
#define KAVRI_TESTS_CAMERA_YUYVCANVAS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "DebugFlagBits.h"
#include "WaitFor.h"
#include "camera_devices/CounterRecord.h"
#include "camera_devices/FakeCamera.h"
#include "kavri/Camera.h"
#include "kavri/CameraAnalysisBall.h"
#include "kavri/KavriLib.h"

// A smooth YUYV picture (gradients in all three components), so that a
// lossy round trip stays close to its source.
inline std::vector<uint8_t> GradientYuyv(int width, int height) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; x += 2) {
      uint8_t* pair = &yuyv[(size_t(y) * width + x) * 2];
      pair[0] = uint8_t(30 + 160 * x / width + 40 * y / height);
      pair[1] = uint8_t(80 + 90 * y / height);
      pair[2] = uint8_t(30 + 160 * (x + 1) / width + 40 * y / height);
      pair[3] = uint8_t(200 - 100 * x / width);
    }
  }
  return yuyv;
}

// Starts capture on `chain` with the thread's output captured.
inline void StartCapture(CameraAnalysisBase* chain) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  CameraSetup(chain);
}

struct CaptureOutput {
  bool ended;  // the thread ended within the bound
  std::string out, err;
};
// Waits for the capture thread to end, after a stop request if asked for
// (a frame pushed to `wake` ends a starved wait), and ends output capture.
inline CaptureOutput StopCapture(bool requestStop, camera_devices::FakeCamera* wake = nullptr) {
  if (requestStop) {
    CameraThreadTerminate.store(true);
    if (wake) wake->PushFrame(camera_devices::UndecodableFrame());
  }
  bool ended = WaitFor([] { return !CameraThreadRunning.load(); });
  std::string out = testing::internal::GetCapturedStdout();
  return {ended, out, testing::internal::GetCapturedStderr()};
}

struct YuyvColour {
  uint8_t y, cb, cr;
};
constexpr YuyvColour kNeutralGrey{128, 128, 128};

class YuyvCanvas {
 public:
  YuyvCanvas(int width, int height, YuyvColour colour = kNeutralGrey)
      : width_(width), height_(height), bytes_(size_t(width) * height * 2) {
    Fill(0, 0, width, height, colour);
  }
  // Chroma bytes belong to the pixel pair that holds x: coloured edges go
  // on even columns.
  uint8_t& At(int x, int y, int byte) { return bytes_[(size_t(y) * width_ + (x & ~1)) * 2 + byte]; }
  uint8_t& Y(int x, int y) { return bytes_[(size_t(y) * width_ + x) * 2]; }

  void Paint(int x, int y, YuyvColour c) { Y(x, y) = c.y, At(x, y, 1) = c.cb, At(x, y, 3) = c.cr; }
  void Fill(int left, int top, int width, int height, YuyvColour colour) {
    for (int y = top; y < top + height; ++y)
      for (int x = left; x < left + width; ++x) Paint(x, y, colour);
  }
  void Disc(int centreX, int centreY, int radius, YuyvColour colour) {
    for (int y = centreY - radius; y <= centreY + radius; ++y)
      for (int x = centreX - radius; x <= centreX + radius; ++x)
        if ((x - centreX) * (x - centreX) + (y - centreY) * (y - centreY) <= radius * radius) Paint(x, y, colour);
  }
  // A vertical stripe of known place, brightness and colour for the line finders.
  YuyvCanvas& Columns(int x0, int x1, YuyvColour colour) {
    Fill(x0, 0, x1 - x0, height_, colour);
    return *this;
  }
  const uint8_t* data() const { return bytes_.data(); }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  int width_, height_;
  std::vector<uint8_t> bytes_;
};

// Capture start, one frame and capture stop, as the capture thread runs them;
// records built in the call are fine.
template <class Base>
void RunOneFrame(Base&& record, const YuyvCanvas& frame, const YuyvCanvas* previous = nullptr) {
  CameraInitAnalysis(&record, frame.width(), frame.height());
  CameraRunAnalysis(&record, frame.data(), previous ? previous->data() : frame.data(), nullptr, 0);
  CameraUninitAnalysis(&record);
}

// What a run with the analyses' debug lines on writes to DebugFile.
template <class Base>
std::string DebugOutput(Base&& record, const YuyvCanvas& frame, const YuyvCanvas* previous = nullptr) {
  FILE* file = tmpfile();
  FILE* savedFile = DebugFile;
  DebugFile = file;
  DebugFlags = debugflag::kAnalyses;
  RunOneFrame(record, frame, previous);
  DebugFile = savedFile;
  DebugFlags = 0;
  std::string text(size_t(ftell(file)), '\0');
  rewind(file);
  text.resize(fread(text.data(), 1, text.size(), file));
  fclose(file);
  return text;
}

constexpr int16_t kUntouched = -7;

// Results of any analysis; None() is what "no ball" writes.
struct Results {
  int16_t a = kUntouched, b = kUntouched, c = kUntouched, d = kUntouched, e = kUntouched;
  bool None() const { return a == 0 && b == 0 && c == 0 && d == 0; }
};

// The ball records with room for exclusions behind them, as a program lays
// them out.
template <typename Record>
struct WithExclusions {
  Record record;
  CameraAnalysisBallSingleBlock::Exclusion exclusions[4];
};

struct SingleSetup {
  int blockX = 0, blockY = 0, blockWidth = 160, blockHeight = 120;
  int radiusMin = 2, radiusMax = 100, threshold = 10;
  int xMin = 0, xMax = 160, yMin = 120, yMax = 0;  // outputs in pixels of a 160 x 120 frame, y downwards
};

// clang-format off
inline WithExclusions<CameraAnalysisBallSingleBlock> SingleBlock(const SingleSetup& s, Results& out) {
  return {{{CameraAnalysisTypeBallSingleBlock, nullptr, 0, 0}, s.blockX, s.blockY, s.blockWidth, s.blockHeight,
           s.radiusMin, s.radiusMax, s.threshold, s.xMin, s.xMax, s.yMin, s.yMax, &out.a, &out.b, &out.c, &out.d}};
}
// clang-format on

struct MultiSetup {
  int blockX = 0, blockY = 0, blockWidth = 64, blockHeight = 64;
  int sizeMin = 4, sizeMax = 10, cellSize = 16;
};

// clang-format off
inline WithExclusions<CameraAnalysisBallMultiBlock> MultiBlock(const MultiSetup& s, Results& out) {
  return {{{CameraAnalysisTypeBallMultiBlock, nullptr, 0, 0}, s.blockX, s.blockY, s.blockWidth, s.blockHeight,
           &out.a, &out.b, &out.c, &out.d, &out.e, {}, s.sizeMin, s.sizeMax, s.cellSize}};
}
// clang-format on

// Neutral chroma: R = G = B = y.
constexpr YuyvColour Grey(uint8_t y) { return {y, 128, 128}; }
using StripeFrame = YuyvCanvas;

#endif
