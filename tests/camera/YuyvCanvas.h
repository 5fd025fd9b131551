// Packed YUYV frames painted pixel by pixel, and a one-record chain run over
// them, for the region analyses' suites.
#ifndef KAVRI_TESTS_CAMERA_YUYVCANVAS_H
#define KAVRI_TESTS_CAMERA_YUYVCANVAS_H

#include <cstdint>
#include <vector>

#include "kavri/CameraAnalysis.h"

struct YuyvColour {
  uint8_t y, cb, cr;
};
constexpr YuyvColour kNeutralGrey{128, 128, 128};

class YuyvCanvas {
 public:
  YuyvCanvas(int width, int height, YuyvColour colour = kNeutralGrey) : width_(width), height_(height) {
    bytes_.resize(size_t(width) * height * 2);
    Fill(0, 0, width, height, colour);
  }

  uint8_t& Y(int x, int y) { return bytes_[(size_t(y) * width_ + x) * 2]; }
  // The chroma bytes are shared by the pixel pair that holds x.
  uint8_t& Cb(int x, int y) { return bytes_[(size_t(y) * width_ + (x & ~1)) * 2 + 1]; }
  uint8_t& Cr(int x, int y) { return bytes_[(size_t(y) * width_ + (x & ~1)) * 2 + 3]; }

  int CbAt(int x, int y) const { return bytes_[(size_t(y) * width_ + (x & ~1)) * 2 + 1]; }
  int CrAt(int x, int y) const { return bytes_[(size_t(y) * width_ + (x & ~1)) * 2 + 3]; }

  void Paint(int x, int y, YuyvColour colour) {
    Y(x, y) = colour.y;
    Cb(x, y) = colour.cb;
    Cr(x, y) = colour.cr;
  }
  void Fill(int left, int top, int width, int height, YuyvColour colour) {
    for (int y = top; y < top + height; ++y)
      for (int x = left; x < left + width; ++x) Paint(x, y, colour);
  }
  // Every pixel within radius of the centre (pixel centres at whole numbers).
  void Disc(int centreX, int centreY, int radius, YuyvColour colour) {
    for (int y = centreY - radius; y <= centreY + radius; ++y)
      for (int x = centreX - radius; x <= centreX + radius; ++x)
        if ((x - centreX) * (x - centreX) + (y - centreY) * (y - centreY) <= radius * radius) Paint(x, y, colour);
  }

  const uint8_t* data() const { return bytes_.data(); }
  int width() const { return width_; }
  int height() const { return height_; }

 private:
  int width_, height_;
  std::vector<uint8_t> bytes_;
};

// Capture start, one frame and capture stop, as the capture thread would run
// them for a chain of this one record.
inline void RunOneFrame(CameraAnalysisBase& record, const YuyvCanvas& frame, const YuyvCanvas* previous = nullptr) {
  record.next = nullptr;
  CameraInitAnalysis(&record, frame.width(), frame.height());
  CameraRunAnalysis(&record, frame.data(), previous ? previous->data() : frame.data(), nullptr, 0);
  CameraUninitAnalysis(&record);
}

#endif
