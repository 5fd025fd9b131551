// Colour field and change detection on painted frames; expected values are
// worked out by hand.
#include <gtest/gtest.h>

#include "YuyvCanvas.h"
#include "kavri/CameraAnalysisColor.h"

namespace {

constexpr int kWidth = 32, kHeight = 16;
constexpr YuyvColour kBlack{0, 128, 128}, kWhite{255, 128, 128};

CameraAnalysisColorField ColourField(int x, int y, int w, int h, Results& out) {
  return {{CameraAnalysisTypeColorField, nullptr, 0, 0}, x, y, w, h, &out.a, &out.b, &out.c, &out.d};
}

CameraAnalysisChangeDetect ChangeDetect(int x, int y, int w, int h, int threshold, int minArea, Results& out) {
  return {{CameraAnalysisTypeChangeDetect, nullptr, kWidth, kHeight}, x, y, w, h, threshold, minArea, &out.a, &out.b};
}

// A patch in columns 2..5 of a black frame; the rectangle
// varies. Untouched results: nothing to measure.
TEST(ColourFieldTest, MeasuresTheAlignedRectangleInsideTheFrame) {
  struct Case {
    const char* name;
    YuyvColour patch;
    int x, y, w, h;
    int alignedX, alignedW;
    int grey, red, green, blue;
    bool warned;
  } cases[] = {
      {"neutral grey: 128 x 100 >> 8", kNeutralGrey, 2, 0, 4, 8, 2, 4, 50, 50, 50, 50, false},
      {"white stops at 99", kWhite, 2, 0, 4, 8, 2, 4, 99, 99, 99, 99, false},
      // U -38, V 112: red 81 + 127, green 81 - 51, blue 81 - 78.
      {"saturated red", {81, 90, 240}, 2, 0, 4, 8, 2, 4, 31, 81, 11, 1, false},
      {"x 3, w 4 is x 2, w 4", kWhite, 3, 0, 4, 8, 2, 4, 99, 99, 99, 99, false},
      // Columns 0..5 inside: Y = 4 x 255 / 6 = 170, 170 x 100 >> 8 = 66.
      {"clipped on the left", kWhite, -2, 0, 8, 8, -2, 8, 66, 66, 66, 66, true},
      {"clipped at the bottom", kWhite, 2, 4, 4, 20, 2, 4, 99, 99, 99, 99, true},
      {"wholly outside", kWhite, 40, 0, 4, 8, 40, 4, kUntouched, kUntouched, kUntouched, kUntouched, true},
      {"empty", kWhite, 2, 0, 0, 8, 2, 0, kUntouched, kUntouched, kUntouched, kUntouched, true},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight, kBlack);
    frame.Fill(2, 0, 4, kHeight, c.patch);
    Results out;
    CameraAnalysisColorField field = ColourField(c.x, c.y, c.w, c.h, out);
    testing::internal::CaptureStderr();
    RunOneFrame(field.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(field.x, c.alignedX) << c.name;
    EXPECT_EQ(field.w, c.alignedW) << c.name;
    EXPECT_EQ(std::vector<int>({out.a, out.b, out.c, out.d}), std::vector<int>({c.grey, c.red, c.green, c.blue}))
        << c.name;
    EXPECT_EQ(errors.find("ERROR colour field") != std::string::npos, c.warned) << c.name << ": " << errors;
  }
}

TEST(ColourFieldTest, SkipsNullPointersAndPrintsTheDebugLine) {
  Results out;
  CameraAnalysisColorField field = ColourField(0, 0, 8, 8, out);
  field.brightnessVar = field.greenVar = field.blueVar = nullptr;
  EXPECT_EQ(DebugOutput(field.base, YuyvCanvas(kWidth, kHeight)), "CF0 bw=50 rgb=50/50/50 yuv=128/0/0\n");
  EXPECT_EQ(out.b, 50);
}

TEST(ChangeDetectTest, ThresholdBecomes256ths) {
  std::pair<int, int> cases[] = {{10, 25}, {50, 128}, {100, 256}, {-10, -25}, {2000000000, 2147483647}};
  for (auto [percent, units] : cases) {
    Results out;
    CameraAnalysisChangeDetect detect = ChangeDetect(0, 0, 2, 2, percent, 0, out);
    detect.Init();
    EXPECT_EQ(detect.threshold, units) << percent << "%";
  }
}

TEST(ChangeDetectTest, CountsStrictlyLargerChangesInsideTheFrame) {
  struct Case {
    const char* name;
    int x, y, w, h;  // the rectangle; its first `changed` pixels, row by row, change
    int changed;
    uint8_t from, to;  // luminance before and now
    int minArea;
    int strength, area;
  } cases[] = {
      {"exactly the threshold (10 % = 25) does not count", 4, 2, 10, 10, 40, 100, 125, 0, 0, 0},
      {"one above counts: 100 x 26 >> 8", 4, 2, 10, 10, 40, 100, 126, 0, 10, 40},
      {"darker counts as well", 4, 2, 10, 10, 40, 100, 0, 0, 39, 40},
      {"below minArea: no strength, true area", 4, 2, 10, 10, 5, 0, 100, 10, 0, 5},
      {"at minArea", 4, 2, 10, 10, 10, 0, 100, 10, 39, 10},
      {"half outside on the right: area of the part inside", 28, 0, 8, 2, 100, 0, 255, 0, 99, 100},
      {"wholly outside", 0, kHeight, 4, 4, 16, 0, 255, 0, 0, 0},
  };
  for (const Case& c : cases) {
    YuyvCanvas before(kWidth, kHeight, {c.from, 128, 128}), now(kWidth, kHeight, {c.from, 128, 128});
    for (int i = 0; i < c.changed; ++i)
      if (c.x + i % c.w < kWidth && c.y + i / c.w < kHeight) now.Y(c.x + i % c.w, c.y + i / c.w) = c.to;
    Results out;
    CameraAnalysisChangeDetect detect = ChangeDetect(c.x, c.y, c.w, c.h, 10, c.minArea, out);
    testing::internal::CaptureStderr();
    RunOneFrame(detect.base, now, &before);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(out.a, c.strength) << c.name;
    EXPECT_EQ(out.b, c.area) << c.name;
  }
}

// Every second byte from pixel x's own first byte, which holds luminance for
// an odd x too: x is not moved to a pixel pair.
TEST(ChangeDetectTest, OddXComparesTheBytesFromPixelX) {
  YuyvCanvas before(kWidth, kHeight), luminance(kWidth, kHeight), chroma(kWidth, kHeight);
  luminance.Y(3, 0) = luminance.Y(2, 0) = luminance.Y(5, 0) = 255;  // 2 and 5 lie outside
  chroma.At(3, 0, 1) = chroma.At(3, 0, 3) = chroma.At(4, 0, 1) = 255;
  Results out;
  CameraAnalysisChangeDetect detect = ChangeDetect(3, 0, 2, 1, 10, 0, out);
  EXPECT_EQ(DebugOutput(detect.base, luminance, &before), "CD0 q=49 a=50\n");  // 127 x 100 >> 8
  detect = ChangeDetect(3, 0, 2, 1, 10, 0, out);
  RunOneFrame(detect.base, chroma, &before);
  EXPECT_EQ(out.b, 0);
}

}  // namespace
