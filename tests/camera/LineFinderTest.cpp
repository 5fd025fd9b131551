// The single-line finder on synthetic frames. Expected figures are worked
// out by hand from the frames: a neutral floor of luma 200 balances to a gain
// of exactly 1, so a dark line's line-ness is 765 - 3 x luma per sample and
// five times that after the box filter (floor 825, luma 50 gives 3075).
#include <gtest/gtest.h>

#include <climits>

#include "LineTestFrames.h"

namespace {

struct Results {
  int16_t position = 99, quality = 99, width = 99;
};

// A dark line finder on row 10 from x = 0 to x = 100 (100 samples), widths
// 5 to 15, peak 50 %, contrast 30 %.
CameraAnalysisMaxOnLine DarkLineFinder(Results& results) {
  CameraAnalysisMaxOnLine record{};
  record.base.type = CameraAnalysisTypeMaxOnLine;
  record.startX = 0;
  record.startY = 10;
  record.endX = 100;
  record.endY = 10;
  record.widthMin = 5;
  record.widthMax = 15;
  record.peakThreshold = 50;
  record.contrastThreshold = 30;
  record.positionResult = &results.position;
  record.qualityResult = &results.quality;
  record.widthResult = &results.width;
  return record;
}

class LineFinder : public testing::Test {
 protected:
  void SetUp() override {
    DebugFlags = 0;
    CameraFrameCount.store(7);
  }
  StripeFrame floor_{128, 32, {200}};
};

TEST_F(LineFinder, FindsADarkStripeAndPrintsItsDebugLine) {
  // Stripe at samples 40..49: box sums peak at 3075 from 40 to 45; the later
  // of the two equal eroded peaks (k = 41) wins with bL = 1275, bR = 825.
  // Edges 36 and 50 give width 14, middle 43, position 38 * 2000 / 81 - 1000,
  // quality 1587 * 3821 / 1000.
  floor_.Columns(40, 50, {50});
  Results results;
  CameraAnalysisMaxOnLine record = DarkLineFinder(results);
  CameraInitAnalysis(&record.base, floor_.Width(), floor_.Height());
  std::string debug = CaptureDebugLines([&] { record.Analyze(3, floor_.Data(), nullptr, nullptr, 0); });
  record.Uninit();
  EXPECT_EQ(results.position, -62);
  EXPECT_EQ(results.quality, 6063);
  EXPECT_EQ(results.width, 14);
  EXPECT_EQ(debug, "MOL7-3 p=-62 q=6063 hA=241 wrgb=0/0/0/0 bL=100 bR=64 hRel=141, m=43, w=14\n");
}

TEST_F(LineFinder, FindsWhatTheRulesSayInSpecialSituations) {
  struct Case {
    const char* name;
    std::function<void(StripeFrame&, CameraAnalysisMaxOnLine&)> setUp;
    Results expected;
  };
  const Case cases[] = {
      // Both stripes peak at 3075 with the same backgrounds; the second is
      // found: middle 63, position 58 * 2000 / 81 - 1000.
      {"of two equal peaks the later wins",
       [](StripeFrame& frame, CameraAnalysisMaxOnLine&) { frame.Columns(20, 30, {50}).Columns(60, 70, {50}); },
       {432, 6063, 14}},
      // A contrast of 110 % (1402) above full scale makes the quality's
      // divisor negative; the edges close in to 39 and 47.
      {"a negative quality reports 1",
       [](StripeFrame& frame, CameraAnalysisMaxOnLine& record) {
         frame.Columns(40, 50, {50});
         record.contrastThreshold = 110;
       },
       {-62, 1, 8}},
      // 30 samples: floor to 19, luma 50 to 24, luma 80 to 29. With no
      // contrast asked the right edge runs on to the end mark at 26; the left
      // stops at 18. Width 8, middle 22 (position clamped), quality 70 * 2129
      // / 1000.
      {"a line touching the end stops at N - 4",
       [](StripeFrame& frame, CameraAnalysisMaxOnLine& record) {
         frame.Columns(20, 25, {50}).Columns(25, 40, {80});
         record.endX = 30;
         record.widthMax = 8;
         record.peakThreshold = 0;
         record.contrastThreshold = 0;
       },
       {1000, 149, 8}},
      // Thresholds of 100 % make both quality divisors zero, which divide to
      // 0 as on the controller; edges at 38 and 48.
      {"full-scale thresholds give quality 0",
       [](StripeFrame& frame, CameraAnalysisMaxOnLine& record) {
         frame.Columns(40, 50, {50});
         record.peakThreshold = 100;
         record.contrastThreshold = 100;
       },
       {-62, 0, 10}},
      {"a stripe wider than width max is no line",
       [](StripeFrame& frame, CameraAnalysisMaxOnLine&) { frame.Columns(40, 70, {50}); }, {0, 0, 0}},
      {"a plain floor has no line", [](StripeFrame&, CameraAnalysisMaxOnLine&) {}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    StripeFrame frame = floor_;
    Results results;
    CameraAnalysisMaxOnLine record = DarkLineFinder(results);
    c.setUp(frame, record);
    RunChainOnce(record, frame);
    EXPECT_EQ(results.position, c.expected.position) << c.name;
    EXPECT_EQ(results.quality, c.expected.quality) << c.name;
    EXPECT_EQ(results.width, c.expected.width) << c.name;
  }
}

TEST_F(LineFinder, UnusableWidthsWritePositionMinusOneAndNothingElse) {
  const std::pair<int32_t, int32_t> widths[] = {{0, 15}, {-3, 15}, {5, 6}, {5, 5}, {9, 4}, {INT_MAX - 1, INT_MAX}};
  floor_.Columns(40, 50, {50});
  for (auto [low, high] : widths) {
    Results results;
    CameraAnalysisMaxOnLine record = DarkLineFinder(results);
    record.widthMin = low;
    record.widthMax = high;
    std::string debug = CaptureDebugLines([&] { RunChainOnce(record, floor_); });
    EXPECT_EQ(results.position, -1) << low << ".." << high;
    EXPECT_EQ(results.quality, 99) << low << ".." << high;
    EXPECT_EQ(results.width, 99) << low << ".." << high;
    EXPECT_EQ(debug, "") << low << ".." << high;
  }
}

// The same samples once from a scan line that leaves a small frame on both
// sides and once inside a larger frame painted black where the small one
// ends: the results and debug lines agree.
TEST_F(LineFinder, SamplesOutsideTheFrameCountAsBlack) {
  StripeFrame small(64, 20, {200});
  small.Columns(20, 30, {50});
  StripeFrame large(200, 20, {0});
  large.Columns(30, 94, {200}).Columns(50, 60, {50});
  Results outside, inside;
  CameraAnalysisMaxOnLine leaving = DarkLineFinder(outside), within = DarkLineFinder(inside);
  leaving.startX = -30;
  leaving.endX = 70;
  std::string leavingDebug = CaptureDebugLines([&] { RunChainOnce(leaving, small); });
  std::string withinDebug = CaptureDebugLines([&] { RunChainOnce(within, large); });
  EXPECT_GT(inside.width, 0) << "the stripe is found";
  EXPECT_EQ(outside.position, inside.position);
  EXPECT_EQ(outside.quality, inside.quality);
  EXPECT_EQ(outside.width, inside.width);
  EXPECT_EQ(leavingDebug, withinDebug);
}

// A floor of luma 100 balances to a gain of 2; the stripe (195, 126, 150)
// becomes (390, 252, 300): brightness 942 * 100 / 765 = 123, shares 124, 80,
// 95 of 300, or the plain averages without the brightness test.
TEST_F(LineFinder, ColourCheckWithAndWithoutBrightness) {
  struct Case {
    int16_t brightnessMin, brightnessMax, redMin, redMax;
    bool found;
    const char* colour;
  };
  const Case cases[] = {
      {0, 200, 110, 140, true, "123/124/80/95"},   {0, 200, 130, 200, false, "123/124/80/95"},
      {0, 100, 110, 140, false, "123/124/80/95"},  {-5, -1, 380, 400, true, "-1/390/252/300"},
      {-5, -1, 110, 140, false, "-1/390/252/300"},
  };
  StripeFrame frame(128, 32, {100});
  frame.Columns(40, 52, {150, 128, 168});
  for (const Case& c : cases) {
    Results results;
    CameraAnalysisMaxOnLine record = DarkLineFinder(results);
    record.brightLine = 1;
    record.colorCheck = 1;
    record.brightnessMin = c.brightnessMin;
    record.brightnessMax = c.brightnessMax;
    record.redMin = c.redMin;
    record.redMax = c.redMax;
    record.greenMin = c.brightnessMax < 0 ? 0 : 60;
    record.greenMax = c.brightnessMax < 0 ? 300 : 100;
    record.blueMin = c.brightnessMax < 0 ? 0 : 80;
    record.blueMax = c.brightnessMax < 0 ? 300 : 110;
    std::string debug = CaptureDebugLines([&] { RunChainOnce(record, frame); });
    std::string label = std::to_string(c.brightnessMax) + " red " + std::to_string(c.redMin);
    EXPECT_EQ(results.width > 0, c.found) << label;
    EXPECT_EQ(results.quality > 0, c.found) << label;
    EXPECT_NE(debug.find(std::string("wrgb=") + c.colour + " "), std::string::npos) << label << ": " << debug;
  }
}

// Two stripes of equal luma, one reddish and one bluish: the taught colour
// decides which is the line.
TEST_F(LineFinder, ColourAxisFindsTheTaughtColour) {
  StripeFrame frame = floor_;
  frame.Columns(20, 32, {150, 128, 168}).Columns(60, 72, {150, 168, 128});
  struct Case {
    uint16_t r, g, b;
    bool onTheLeft;
  };
  for (const Case& c : {Case{195, 126, 150, true}, Case{150, 134, 231, false}}) {
    Results results;
    CameraAnalysisMaxOnLine record = DarkLineFinder(results);
    record.colorAxis = 1;
    record.lineColorR = c.r;
    record.lineColorG = c.g;
    record.lineColorB = c.b;
    record.backgroundColorR = record.backgroundColorG = record.backgroundColorB = 200;
    RunChainOnce(record, frame);
    EXPECT_GT(results.width, 0) << c.r;
    EXPECT_EQ(results.position < 0, c.onTheLeft) << c.r << " at " << results.position;
  }
}

// Records Init cannot use are refused with a message and answer -1; none of
// them reads or writes outside its buffers or the frame.
TEST_F(LineFinder, RefusedRecordsSayWhyAndAnswerMinusOne) {
  struct Case {
    const char* name;
    std::function<void(CameraAnalysisMaxOnLine&)> setUp;
    const char* message;
  };
  const Case cases[] = {
      {"5 samples", [](CameraAnalysisMaxOnLine& r) { r.endX = 5; }, "scan line of 5 samples"},
      {"no samples", [](CameraAnalysisMaxOnLine& r) { r.endX = 0; }, "scan line of 0 samples"},
      {"far too long", [](CameraAnalysisMaxOnLine& r) { r.startX = INT_MIN, r.endX = INT_MAX; },
       "scan line of 4294967295 samples"},
      {"equal colours",
       [](CameraAnalysisMaxOnLine& r) {
         r.colorAxis = 1;
         r.lineColorR = r.backgroundColorR = 30;
       },
       "equal line and floor colours"},
  };
  floor_.Columns(40, 50, {50});
  for (const Case& c : cases) {
    Results results;
    CameraAnalysisMaxOnLine record = DarkLineFinder(results);
    c.setUp(record);
    testing::internal::CaptureStderr();
    RunChainOnce(record, floor_);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find(c.message), std::string::npos) << c.name << ": " << errors;
    EXPECT_EQ(results.position, -1) << c.name;
    EXPECT_EQ(results.quality, 99) << c.name;
    EXPECT_EQ(record.valueBuffer, nullptr) << c.name;
  }
}

TEST_F(LineFinder, HostileParametersStayInsideTheBuffers) {
  floor_.Columns(40, 50, {50});
  const std::pair<int32_t, int32_t> widths[] = {{1, INT_MAX}, {1, 3}, {90, 100}, {200, 300}};
  for (auto [low, high] : widths) {
    for (int32_t threshold : {INT_MIN, -100, 1000000, INT_MAX}) {
      Results results;
      CameraAnalysisMaxOnLine record = DarkLineFinder(results);
      record.widthMin = low;
      record.widthMax = high;
      record.peakThreshold = record.contrastThreshold = threshold;
      record.qualityResult = nullptr;  // null results are skipped
      RunChainOnce(record, floor_);
      EXPECT_GE(results.width, 0) << low << ".." << high << " at " << threshold;
    }
  }
}

}  // namespace
