// A display bound through the I/O library stand-in's transfer area, and ways
// to look at its pixels.
#ifndef KAVRI_TESTS_TEXTGRPH_FIXTURE_H
#define KAVRI_TESTS_TEXTGRPH_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "DisplayPixels.h"
#include "kavri/MotorIOLib.h"
#include "kavri/TextGrph.h"
#include "motoriolib/MotorIOLibSim.h"

class TextGraphics : public ::testing::Test {
 protected:
  void SetUp() override {
    area = MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX);
    TakeFrame();  // nothing pending from an earlier test
    TextGrph_Intl(area);
    buffer = KavriDisplayBufferOf(area);
  }
  bool TakeFrame() { return MotorIOLibSim_TakeDisplayFrame(frame) == 1; }
  bool Pixel(int x, int y) const { return DisplayPixel(buffer, x, y); }

  // The pixels of a region, one text line per row: '#' set, '.' clear.
  std::string Region(int x0, int y0, int w, int h) const {
    std::string picture;
    for (int y = y0; y < y0 + h; ++y) {
      for (int x = x0; x < x0 + w; ++x) picture += Pixel(x, y) ? '#' : '.';
      picture += '\n';
    }
    return picture;
  }
  int CountSetIn(int x0, int y0, int w, int h) const {
    int count = 0;
    for (char c : Region(x0, y0, w, h)) count += c == '#';
    return count;
  }
  int CountSet() const { return CountSetIn(0, 0, KAVRI_DISPLAY_WIDTH, KAVRI_DISPLAY_HEIGHT); }
  void Fill(uint8_t value) { memset(buffer, value, KAVRI_DISPLAY_BUFFER_SIZE); }
  static void PlaceCursor(int32_t x, int32_t y) { TextGrph.CursorX = x, TextGrph.CursorY = y; }

  shm_if_s* area = nullptr;
  uint8_t* buffer = nullptr;
  uint8_t frame[KAVRI_DISPLAY_BUFFER_SIZE] = {};
};

#endif
