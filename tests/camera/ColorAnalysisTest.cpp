// Colour field and change detection on painted frames, worked out by hand,
// and on wide random frames against a plain per-pixel reference.

#include <cstdlib>
#include <cstring>
#include <random>

#include "YuyvCanvas.h"
#include "kavri/CameraAnalysisColor.h"

namespace {

constexpr int kWidth = 32, kHeight = 16;
constexpr YuyvColour kBlack{0, 128, 128}, kWhite{255, 128, 128};

CameraAnalysisColorField ColourField(int x, int y, int w, int h, Results& out) {
  return {{CameraAnalysisTypeColorField}, x, y, w, h, &out.a, &out.b, &out.c, &out.d};
}

CameraAnalysisChangeDetect ChangeDetect(int x, int y, int w, int h, int threshold, int minArea, Results& out) {
  return {{CameraAnalysisTypeChangeDetect}, x, y, w, h, threshold, minArea, &out.a, &out.b};
}

// A patch in columns 2..5 of a black frame; untouched results: nothing to
// measure.
TEST(ColourFieldTest, MeasuresTheAlignedRectangleInsideTheFrame) {
  // Results: grey, red, green, blue.
  const struct { const char* name; YuyvColour patch; int x, w, alignedX, alignedW; std::vector<int> results; }
  cases[] = {
      {"neutral grey: 128 x 100 >> 8", kNeutralGrey, 2, 4, 2, 4, {50, 50, 50, 50}},
      {"white stops at 99", kWhite, 2, 4, 2, 4, {99, 99, 99, 99}},
      // U -38, V 112: red 81 + 127, green 81 - 51, blue 81 - 78.
      {"saturated red", {81, 90, 240}, 2, 4, 2, 4, {31, 81, 11, 1}},
      {"x 3, w 4 is x 2, w 4", kWhite, 3, 4, 2, 4, {99, 99, 99, 99}},
      // A program may move x to an odd column after Init: the walk still starts at a pair.
      {"x moved to 3 after Init", {81, 90, 240}, 2, 4, 3, 4, {31, 81, 11, 1}},
      // Columns 0..5 inside: Y = 4 x 255 / 6 = 170, 170 x 100 >> 8 = 66.
      {"clipped on the left (warned)", kWhite, -2, 8, -2, 8, {66, 66, 66, 66}},
      {"wholly outside (warned)", kWhite, 40, 4, 40, 4, std::vector<int>(4, kUntouched)},
      {"empty (warned)", kWhite, 2, 0, 2, 0, std::vector<int>(4, kUntouched)},
  };
  for (const auto& c : cases) {
    YuyvCanvas frame(kWidth, kHeight, kBlack);
    frame.Fill(2, 0, 4, kHeight, c.patch);
    Results out;
    CameraAnalysisColorField field = ColourField(c.x, 0, c.w, 8, out);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&field.base, kWidth, kHeight);
    if (strstr(c.name, "after Init")) field.x = 3;
    CameraRunAnalysis(&field.base, frame.data(), frame.data(), nullptr, 0);
    CameraUninitAnalysis(&field.base);
    bool warned = testing::internal::GetCapturedStderr().find("ERROR colour field") != std::string::npos;
    EXPECT_EQ(std::vector<int>({field.x, field.w}), std::vector<int>({c.alignedX, c.alignedW})) << c.name;
    EXPECT_EQ(std::vector<int>({out.a, out.b, out.c, out.d}), c.results) << c.name;
    EXPECT_EQ(warned, strstr(c.name, "warned") != nullptr) << c.name;
  }
}

// Pixel x starts at byte 2x, luminance for an odd x too: a change of pixel
// 3's chroma does not count.
TEST(RegionAnalysisTest, DebugLinesSkipNullPointers) {
  Results out;
  CameraAnalysisColorField field = ColourField(0, 0, 8, 8, out);
  field.brightnessVar = field.greenVar = field.blueVar = nullptr;
  EXPECT_EQ(DebugOutput(field.base, YuyvCanvas(kWidth, kHeight)), "CF0 bw=50 rgb=50/50/50 yuv=128/0/0\n");
  EXPECT_EQ(out.b, 50);
  YuyvCanvas before(kWidth, kHeight), now(kWidth, kHeight);
  now.Y(3, 0) = now.Y(2, 0) = now.Y(5, 0) = now.At(3, 0, 3) = now.At(4, 0, 1) = 255;  // 2 and 5 lie outside
  Results change;
  CameraAnalysisChangeDetect detect = ChangeDetect(3, 0, 2, 1, 10, 0, change);
  detect.strengthVar = nullptr;
  EXPECT_EQ(DebugOutput(detect.base, now, &before), "CD0 q=49 a=50\n");  // 127 x 100 >> 8
  EXPECT_EQ(std::vector<int>({change.a, change.b}), std::vector<int>({kUntouched, 50}));
}

TEST(ChangeDetectTest, CountsStrictlyLargerChangesInsideTheFrame) {
  // The rectangle's first `changed` pixels, row by row, change.
  const struct { const char* name; int x, y, w, h, changed; uint8_t from, to; int minArea, strength, area; } cases[] = {
      {"exactly the threshold (10 % = 25) does not count", 4, 2, 10, 10, 40, 100, 125, 0, 0, 0},
      {"one above counts: 100 x 26 >> 8", 4, 2, 10, 10, 40, 100, 126, 0, 10, 40},
      {"below minArea: no strength, true area", 4, 2, 10, 10, 5, 0, 100, 10, 0, 5},
      {"at minArea", 4, 2, 10, 10, 10, 0, 100, 10, 39, 10},
      {"half outside on the right: area of the part inside", 28, 0, 8, 2, 100, 0, 255, 0, 99, 100},
      {"wholly outside", 0, kHeight, 4, 4, 16, 0, 255, 0, 0, 0},
  };
  for (const auto& c : cases) {
    YuyvCanvas before(kWidth, kHeight, {c.from, 128, 128}), now(kWidth, kHeight, {c.from, 128, 128});
    for (int i = 0; i < c.changed; ++i)
      if (c.x + i % c.w < kWidth && c.y + i / c.w < kHeight) now.Y(c.x + i % c.w, c.y + i / c.w) = c.to;
    Results out;
    CameraAnalysisChangeDetect detect = ChangeDetect(c.x, c.y, c.w, c.h, 10, c.minArea, out);
    testing::internal::CaptureStderr();
    RunOneFrame(detect.base, now, &before);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::vector<int>({out.a, out.b}), std::vector<int>({c.strength, c.area})) << c.name;
  }
}

// Rows wider than any partial sum the analyses keep, bright enough to
// overflow one that ran too long; the reference follows the documented steps
// pixel by pixel.
TEST(RegionAnalysisTest, WideRandomFramesMatchAPlainReference) {
  constexpr int kWide = 1200, kRows = 3;
  std::mt19937 random(7);
  YuyvCanvas now(kWide, kRows), before(kWide, kRows);
  for (int i = 0; i < kWide * kRows * 2; ++i) {
    now.At(i / 2 % kWide, i / 2 / kWide, i % 4) = uint8_t(random() | 0x80);
    before.At(i / 2 % kWide, i / 2 / kWide, i % 4) = uint8_t(random() & 0x7F);
  }
  auto byte = [&](const YuyvCanvas& f, int x, int y, int b) { return int(f.data()[(y * kWide + x) * 2 + b]); };
  int64_t sy = 0, su = 0, sv = 0;
  for (int y = 0; y < kRows; ++y)
    for (int x = 0; x < kWide; x += 2)
      sy += byte(now, x, y, 0) + byte(now, x, y, 2), su += 2 * byte(now, x, y, 1), sv += 2 * byte(now, x, y, 3);
  int64_t n = kWide * kRows, yy = sy / n, u = su / n - 128, v = sv / n - 128;
  auto percent = [](int64_t c) { return int(std::clamp<int64_t>(c, 0, 255) * 100 >> 8); };
  int red = percent(yy + (74700 * v >> 16)), green = percent(yy + ((-38050 * v - 25864 * u) >> 16)),
      blue = percent(yy + (133176 * u >> 16));
  Results colour;
  RunOneFrame(ColourField(0, 0, kWide, kRows, colour).base, now);
  EXPECT_EQ(std::vector<int>({colour.a, colour.b, colour.c, colour.d}),
            std::vector<int>({(red + green + blue) / 3, red, green, blue}));
  // Thresholds in 256ths, truncated toward zero and saturated.
  for (int percentThreshold : {-3, 0, 10, 40, 60, 99, 100, 2000000000}) {
    int threshold = int(std::min<int64_t>(int64_t(percentThreshold) * 256 / 100, INT32_MAX)), count = 0, sum = 0;
    for (int y = 0; y < kRows; ++y)
      for (int x = 1; x < kWide; ++x) {  // odd x and odd width; the chroma bytes change too
        int d = abs(byte(now, x, y, 0) - byte(before, x, y, 0));
        if (d > threshold) ++count, sum += d;
      }
    Results change;
    CameraAnalysisChangeDetect detect = ChangeDetect(1, 0, kWide - 1, kRows, percentThreshold, 0, change);
    RunOneFrame(detect.base, now, &before);
    EXPECT_EQ(std::vector<int>({detect.threshold, change.a, change.b}),
              std::vector<int>({threshold, count ? 100 * (sum / count) >> 8 : 0, int(100 * count / (n - kRows))}));
  }
}

}  // namespace
