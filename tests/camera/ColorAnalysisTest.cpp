// Colour field and change detection on painted frames; expected values are
// worked out by hand in the comments.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "YuyvCanvas.h"
#include "kavri/CameraAnalysisColor.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kWidth = 32, kHeight = 16;
constexpr int16_t kUntouched = -7;

struct Percentages {
  int16_t grey = kUntouched, red = kUntouched, green = kUntouched, blue = kUntouched;
};

CameraAnalysisColorField ColourField(int x, int y, int w, int h, Percentages& out) {
  CameraAnalysisColorField field{};
  field.base.type = CameraAnalysisTypeColorField;
  field.x = x;
  field.y = y;
  field.w = w;
  field.h = h;
  field.brightnessVar = &out.grey;
  field.redVar = &out.red;
  field.greenVar = &out.green;
  field.blueVar = &out.blue;
  return field;
}

// Reads what a debug run writes to DebugFile.
class DebugCapture {
 public:
  DebugCapture() : file_(tmpfile()), savedFile_(DebugFile), savedFlags_(DebugFlags) {
    DebugFile = file_;
    DebugFlags = 2;
  }
  ~DebugCapture() {
    DebugFile = savedFile_;
    DebugFlags = savedFlags_;
    fclose(file_);
  }
  std::string Text() {
    fflush(file_);
    rewind(file_);
    std::string text;
    for (int c; (c = fgetc(file_)) != EOF;) text += char(c);
    return text;
  }

 private:
  FILE* file_;
  FILE* savedFile_;
  int savedFlags_;
};

TEST(ColourFieldTest, AveragesTheRectangleIntoPercent) {
  struct Case {
    const char* name;
    YuyvColour inside;
    int grey, red, green, blue;
  } cases[] = {
      {"neutral grey: 128 x 100 / 256", {128, 128, 128}, 50, 50, 50, 50},
      {"white stops at 99", {255, 128, 128}, 99, 99, 99, 99},
      {"black", {0, 128, 128}, 0, 0, 0, 0},
      // U -38, V 112: red 81 + 127, green 81 - 51, blue 81 - 78.
      {"saturated red", {81, 90, 240}, 31, 81, 11, 1},
  };
  for (const Case& c : cases) {
    // The patch is exactly the rectangle; a frame of another colour around
    // it shows that no pixel outside is read.
    YuyvCanvas frame(kWidth, kHeight, {20, 200, 40});
    frame.Fill(6, 3, 10, 5, c.inside);
    Percentages out;
    CameraAnalysisColorField field = ColourField(6, 3, 10, 5, out);
    RunOneFrame(field.base, frame);
    EXPECT_EQ(out.grey, c.grey) << c.name;
    EXPECT_EQ(out.red, c.red) << c.name;
    EXPECT_EQ(out.green, c.green) << c.name;
    EXPECT_EQ(out.blue, c.blue) << c.name;
  }
}

TEST(ColourFieldTest, MeanTruncatesOverAllPixels) {
  YuyvCanvas frame(kWidth, kHeight, {0, 128, 128});
  frame.Fill(0, 0, 4, 1, {255, 128, 128});  // 4 of 8 pixels: Y = 1020 / 8 = 127
  Percentages out;
  CameraAnalysisColorField field = ColourField(0, 0, 4, 2, out);
  RunOneFrame(field.base, frame);
  EXPECT_EQ(out.red, 127 * 100 >> 8);
}

TEST(ColourFieldTest, OddEdgesAreAlignedToPixelPairs) {
  // x 3, w 4 covers columns 2..5: white there, black in columns 1 and 6.
  YuyvCanvas frame(kWidth, kHeight, {0, 128, 128});
  frame.Fill(2, 0, 4, kHeight, {255, 128, 128});
  Percentages out;
  CameraAnalysisColorField field = ColourField(3, 0, 4, kHeight, out);
  RunOneFrame(field.base, frame);
  EXPECT_EQ(field.x, 2);
  EXPECT_EQ(field.w, 4);
  EXPECT_EQ(out.red, 99);
}

TEST(ColourFieldTest, NullPointersAreSkipped) {
  YuyvCanvas frame(kWidth, kHeight);
  int16_t red = kUntouched;
  CameraAnalysisColorField field{};
  field.base.type = CameraAnalysisTypeColorField;
  field.w = 8;
  field.h = 8;
  field.redVar = &red;
  RunOneFrame(field.base, frame);
  EXPECT_EQ(red, 50);
}

TEST(ColourFieldTest, DebugLineNamesTheChainIndex) {
  YuyvCanvas frame(kWidth, kHeight);
  Percentages out;
  CameraAnalysisColorField field = ColourField(0, 0, 8, 8, out);
  CameraAnalysisBase unknown{9, &field.base, 0, 0};  // passed over, but counted
  DebugCapture debug;
  CameraInitAnalysis(&unknown, kWidth, kHeight);
  CameraRunAnalysis(&unknown, frame.data(), frame.data(), nullptr, 0);
  CameraUninitAnalysis(&unknown);
  EXPECT_EQ(debug.Text(), "CF1 bw=50 rgb=50/50/50 yuv=128/0/0\n");
}

// Rectangles that do not fit: only the part inside the frame is measured,
// and with nothing inside the results keep their values.
TEST(ColourFieldTest, RectanglesOutsideTheFrameAreClipped) {
  struct Case {
    const char* name;
    int x, y, w, h;
    int red;  // kUntouched: not written
    bool warned;
  } cases[] = {
      {"left of the frame", -4, 0, 8, 4, 99, true},
      {"below the frame", 0, kHeight - 2, 4, 10, 99, true},
      {"right of the frame", kWidth - 4, 0, 8, 4, 0, true},
      {"wholly outside", kWidth, 0, 8, 4, kUntouched, true},
      {"empty", 0, 0, 0, 4, kUntouched, true},
      {"negative height", 0, 4, 4, -4, kUntouched, true},
      {"fits", 0, 0, 4, 4, 99, false},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight, {0, 128, 128});
    frame.Fill(0, 0, 4, kHeight, {255, 128, 128});
    Percentages out;
    CameraAnalysisColorField field = ColourField(c.x, c.y, c.w, c.h, out);
    testing::internal::CaptureStderr();
    RunOneFrame(field.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out.red, c.red) << c.name;
    EXPECT_EQ(errors.find("ERROR colour field") != std::string::npos, c.warned) << c.name << ": " << errors;
  }
}

struct ChangeResults {
  int16_t strength = kUntouched, area = kUntouched;
};

CameraAnalysisChangeDetect ChangeDetect(int x, int y, int w, int h, int threshold, int minArea, ChangeResults& out) {
  CameraAnalysisChangeDetect detect{};
  detect.base.type = CameraAnalysisTypeChangeDetect;
  detect.x = x;
  detect.y = y;
  detect.w = w;
  detect.h = h;
  detect.threshold = threshold;
  detect.minArea = minArea;
  detect.strengthVar = &out.strength;
  detect.areaVar = &out.area;
  return detect;
}

TEST(ChangeDetectTest, ThresholdBecomes256ths) {
  struct Case {
    int percent, units;
  } cases[] = {{10, 25}, {50, 128}, {0, 0}, {100, 256}, {-10, -25}, {2000000000, 2147483647}};
  for (const Case& c : cases) {
    ChangeResults out;
    CameraAnalysisChangeDetect detect = ChangeDetect(0, 0, 2, 2, c.percent, 0, out);
    detect.base.width = kWidth;
    detect.base.height = kHeight;
    detect.Init();
    EXPECT_EQ(detect.threshold, c.units) << c.percent << "%";
  }
}

TEST(ChangeDetectTest, CountsStrictlyLargerChangesOfTheChangedPixels) {
  struct Case {
    const char* name;
    int changedPixels;  // of the 10 x 10 rectangle, row by row
    uint8_t from, to;   // their luminance in the previous and the current frame
    int minArea;
    int strength, area;
  } cases[] = {
      {"exactly the threshold (10 % = 25) does not count", 40, 100, 125, 0, 0, 0},
      {"one above counts: 100 x 26 >> 8", 40, 100, 126, 0, 10, 40},
      {"darker counts as well", 40, 100, 0, 0, 39, 40},
      {"below minArea: no strength, true area", 5, 0, 100, 10, 0, 5},
      {"at minArea", 10, 0, 100, 10, 39, 10},
      {"all changed", 100, 0, 255, 0, 99, 100},
  };
  for (const Case& c : cases) {
    YuyvCanvas before(kWidth, kHeight, {c.from, 128, 128}), now(kWidth, kHeight, {c.from, 128, 128});
    for (int i = 0; i < c.changedPixels; ++i) now.Y(4 + i % 10, 2 + i / 10) = c.to;
    ChangeResults out;
    CameraAnalysisChangeDetect detect = ChangeDetect(4, 2, 10, 10, 10, c.minArea, out);
    RunOneFrame(detect.base, now, &before);
    EXPECT_EQ(out.strength, c.strength) << c.name;
    EXPECT_EQ(out.area, c.area) << c.name;
  }
}

TEST(ChangeDetectTest, StrengthIsTheMeanOfTheChangedPixelsOnly) {
  YuyvCanvas before(kWidth, kHeight, {0, 128, 128}), now(kWidth, kHeight, {0, 128, 128});
  now.Y(0, 0) = 100;
  now.Y(1, 0) = 200;
  ChangeResults out;
  CameraAnalysisChangeDetect detect = ChangeDetect(0, 0, 10, 10, 0, 0, out);
  RunOneFrame(detect.base, now, &before);
  EXPECT_EQ(out.strength, 100 * 150 >> 8);
  EXPECT_EQ(out.area, 2);
}

// The walk reads every second byte from pixel x's own first byte, which is a
// luminance byte whether x is odd or even: x is not moved to a pair.
TEST(ChangeDetectTest, OddXComparesTheBytesFromPixelX) {
  YuyvCanvas before(kWidth, kHeight), lumaChanged(kWidth, kHeight), chromaChanged(kWidth, kHeight);
  lumaChanged.Y(3, 0) = 255;  // inside: columns 3 and 4
  lumaChanged.Y(2, 0) = 255;  // outside: a walk moved to the pair would see it
  lumaChanged.Y(5, 0) = 255;
  chromaChanged.Cb(3, 0) = 255;
  chromaChanged.Cr(3, 0) = 255;
  chromaChanged.Cb(4, 0) = 255;
  struct Case {
    const char* name;
    const YuyvCanvas& now;
    int area;
  } cases[] = {{"luminance of pixel 3", lumaChanged, 50}, {"chroma around it", chromaChanged, 0}};
  for (const Case& c : cases) {
    ChangeResults out;
    CameraAnalysisChangeDetect detect = ChangeDetect(3, 0, 2, 1, 10, 0, out);
    RunOneFrame(detect.base, c.now, &before);
    EXPECT_EQ(out.area, c.area) << c.name;
  }
}

TEST(ChangeDetectTest, RectanglesOutsideTheFrameWatchOnlyThePartInside) {
  struct Case {
    const char* name;
    int x, y, w, h;
    int area;
  } cases[] = {
      {"half outside on the right: 8 of 8 changed pixels inside", kWidth - 4, 0, 8, 2, 100},
      {"above the frame", 0, -2, 4, 4, 100},
      {"wholly outside: nothing changed", 0, kHeight, 4, 4, 0},
      {"empty", 0, 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    YuyvCanvas before(kWidth, kHeight), now(kWidth, kHeight, {255, 128, 128});
    ChangeResults out;
    CameraAnalysisChangeDetect detect = ChangeDetect(c.x, c.y, c.w, c.h, 10, 0, out);
    testing::internal::CaptureStderr();
    RunOneFrame(detect.base, now, &before);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out.area, c.area) << c.name;
    EXPECT_NE(errors.find("ERROR change detection"), std::string::npos) << c.name;
  }
}

TEST(ChangeDetectTest, DebugLine) {
  YuyvCanvas before(kWidth, kHeight), now(kWidth, kHeight, {255, 128, 128});
  ChangeResults out;
  CameraAnalysisChangeDetect detect = ChangeDetect(0, 0, 4, 4, 10, 0, out);
  DebugCapture debug;
  RunOneFrame(detect.base, now, &before);
  EXPECT_EQ(debug.Text(), "CD0 q=49 a=100\n");  // step 127: 100 x 127 >> 8
}

}  // namespace
