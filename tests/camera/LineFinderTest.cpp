// The single-line finder on synthetic frames, figures worked out by hand. A
// neutral floor of luma 200 balances to a gain of exactly 1, so a dark
// line's line-ness is 765 - 3 x luma a sample, five times that after the box
// filter (floor 825, luma 50 gives 3075).
#include <gtest/gtest.h>

#include <climits>
#include <tuple>

#include "LineTestFrames.h"

namespace {

struct Results {
  int16_t position = 99, quality = 99, width = 99;
  bool operator==(const Results&) const = default;
};

// Dark lines on row 10 from x = 0 to 100 (100 samples), widths 5 to 15,
// peak 50 %, contrast 30 %.
CameraAnalysisMaxOnLine Finder(Results& results) {
  CameraAnalysisMaxOnLine record{};
  record.base.type = CameraAnalysisTypeMaxOnLine;
  record.startY = record.endY = 10;
  record.endX = 100;
  record.widthMin = 5;
  record.widthMax = 15;
  record.peakThreshold = 50;
  record.contrastThreshold = 30;
  record.positionResult = &results.position;
  record.qualityResult = &results.quality;
  record.widthResult = &results.width;
  return record;
}

using Tweak = std::function<void(CameraAnalysisMaxOnLine&)>;

Results RunFinder(const StripeFrame& frame, const Tweak& tweak = {}, std::string* debug = nullptr) {
  Results results;
  CameraAnalysisMaxOnLine record = Finder(results);
  if (tweak) tweak(record);
  std::string lines = CaptureDebugLines([&] { RunChainOnce(record, frame); });
  if (debug) *debug = lines;
  return results;
}

class LineFinder : public testing::Test {
 protected:
  void SetUp() override { CameraFrameCount.store(7); }
  StripeFrame floor_{128, 32, {200}};
};

TEST_F(LineFinder, FindsWhatTheRulesSay) {
  struct Case {
    const char* name;
    StripeFrame frame;
    Tweak tweak;
    Results expected;
  };
  StripeFrame one = floor_, two = floor_, end = floor_, wide = floor_;
  one.Columns(40, 50, {50});
  const Case cases[] = {
      // Box sums 3075 over samples 40..45; of the equal eroded peaks k = 40
      // and 41 the later wins (bL 1275, bR 825). Edges 36 and 50: width 14,
      // middle 43, position 38 * 2000 / 81 - 1000, quality 1587 * 3821 / 1000.
      {"a dark stripe", one, {}, {-62, 6063, 14}},
      {"of two equal stripes the later wins", two.Columns(20, 30, {50}).Columns(60, 70, {50}), {}, {432, 6063, 14}},
      // A contrast of 110 % (1402) makes the quality's divisor negative; the
      // edges close in to 39 and 47.
      {"a negative quality reports 1", one, [](auto& r) { r.contrastThreshold = 110; }, {-62, 1, 8}},
      // Zero divisors divide to 0 as on the controller; edges 38 and 48.
      {"full-scale thresholds give quality 0",
       one,
       [](auto& r) { r.peakThreshold = r.contrastThreshold = 100; },
       {-62, 0, 10}},
      // 30 samples: floor to 19, luma 50 to 24, luma 80 to 29. Without a
      // contrast to pass the right edge runs to the end mark at 26, the left
      // stops at 18: width 8, middle 22, quality 70 * 2129 / 1000.
      {"a line touching the end stops at N - 4",
       end.Columns(20, 25, {50}).Columns(25, 40, {80}),
       [](auto& r) { r.endX = 30, r.widthMax = 8, r.peakThreshold = r.contrastThreshold = 0; },
       {1000, 149, 8}},
      {"a stripe wider than width max is none", wide.Columns(40, 70, {50}), {}, {0, 0, 0}},
      {"a plain floor has none", floor_, {}, {0, 0, 0}},
  };
  for (const Case& c : cases) EXPECT_EQ(RunFinder(c.frame, c.tweak), c.expected) << c.name;

  std::string debug;
  RunFinder(one, {}, &debug);
  EXPECT_EQ(debug, "MOL7-0 p=-62 q=6063 hA=241 wrgb=0/0/0/0 bL=100 bR=64 hRel=141, m=43, w=14\n");
}

// The same samples from a scan line leaving a small frame on both sides and
// inside a large frame painted black where the small one ends.
TEST_F(LineFinder, SamplesOutsideTheFrameCountAsBlack) {
  StripeFrame small(64, 20, {200}), large(200, 20, {0});
  small.Columns(20, 30, {50});
  large.Columns(30, 94, {200}).Columns(50, 60, {50});
  std::string outsideDebug, insideDebug;
  Results outside = RunFinder(
      small, [](auto& r) { r.startX = -30, r.endX = 70; }, &outsideDebug);
  Results inside = RunFinder(large, {}, &insideDebug);
  EXPECT_GT(inside.width, 0) << "the stripe is found";
  EXPECT_EQ(outside, inside);
  EXPECT_EQ(outsideDebug, insideDebug);
}

// A floor of luma 100 balances to a gain of 2: the stripe (195, 126, 150)
// becomes (390, 252, 300), brightness 942 * 100 / 765 = 123 and shares of
// 300 124, 80, 95; or the plain averages without the brightness test.
TEST_F(LineFinder, ColourCheckWithAndWithoutBrightness) {
  struct Case {
    int16_t brightnessMin, brightnessMax, redMin, redMax;
    bool found;
    const char* colour;
  };
  StripeFrame frame(128, 32, {100});
  frame.Columns(40, 52, {150, 128, 168});
  for (const Case& c : {Case{0, 200, 110, 140, true, "123/124/80/95"},
                        {0, 200, 130, 200, false, "123/124/80/95"},
                        {0, 100, 110, 140, false, "123/124/80/95"},
                        {-5, -1, 380, 400, true, "-1/390/252/300"},
                        {-5, -1, 110, 140, false, "-1/390/252/300"}}) {
    bool shares = c.brightnessMax >= 0;
    std::string debug;
    Results results = RunFinder(
        frame,
        [&](auto& r) {
          r.brightLine = r.colorCheck = 1;
          r.brightnessMin = c.brightnessMin, r.brightnessMax = c.brightnessMax;
          r.redMin = c.redMin, r.redMax = c.redMax;
          r.greenMin = shares ? 60 : 0, r.greenMax = shares ? 100 : 300;
          r.blueMin = shares ? 80 : 0, r.blueMax = shares ? 110 : 300;
        },
        &debug);
    EXPECT_EQ(results.width > 0 && results.quality > 0, c.found) << c.colour << " red from " << c.redMin;
    EXPECT_NE(debug.find(std::string("wrgb=") + c.colour + " "), std::string::npos) << debug;
  }
}

// Two stripes of equal luma, reddish on the left and bluish on the right:
// the taught line colour decides which one is the line.
TEST_F(LineFinder, ColourAxisFindsTheTaughtColour) {
  floor_.Columns(20, 32, {150, 128, 168}).Columns(60, 72, {150, 168, 128});
  for (auto [red, green, blue] : {std::tuple{195, 126, 150}, {150, 134, 231}}) {
    Results results = RunFinder(floor_, [&](auto& r) {
      r.colorAxis = 1;
      r.lineColorR = uint16_t(red), r.lineColorG = uint16_t(green), r.lineColorB = uint16_t(blue);
      r.backgroundColorR = r.backgroundColorG = r.backgroundColorB = 200;
    });
    EXPECT_GT(results.width, 0) << red;
    EXPECT_EQ(results.position < 0, red == 195) << red << " at " << results.position;
  }
}

// Unusable widths, and records Init refuses (with a message), write -1 and
// nothing else, and print no debug line; hostile ones stay in bounds.
TEST_F(LineFinder, UnusableRecordsAnswerMinusOneAndHostileOnesStayInBounds) {
  floor_.Columns(40, 50, {50});
  const std::pair<Tweak, const char*> unusable[] = {
      {[](auto& r) { r.widthMin = 0; }, ""},
      {[](auto& r) { r.widthMin = -3; }, ""},
      {[](auto& r) { r.widthMin = 5, r.widthMax = 6; }, ""},
      {[](auto& r) { r.widthMin = 9, r.widthMax = 4; }, ""},
      {[](auto& r) { r.widthMin = INT_MAX - 1, r.widthMax = INT_MAX; }, ""},
      {[](auto& r) { r.endX = 5; }, "scan line of 5 samples"},
      {[](auto& r) { r.startX = INT_MIN, r.endX = INT_MAX; }, "scan line of 4294967295 samples"},
      {[](auto& r) { r.colorAxis = 1, r.lineColorR = r.backgroundColorR = 30; }, "equal line and floor colours"},
  };
  for (auto& [tweak, message] : unusable) {
    std::string debug;
    testing::internal::CaptureStderr();
    Results results = RunFinder(floor_, tweak, &debug);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find(message), std::string::npos) << errors;
    EXPECT_EQ(results, (Results{-1, 99, 99})) << message;
    EXPECT_EQ(debug, "") << message;
  }
  for (auto [low, high] : {std::pair{1, INT_MAX}, {90, 100}, {200, 300}})
    for (int32_t threshold : {INT_MIN, 1000000, INT_MAX})
      RunFinder(floor_, [=](auto& r) {
        r.widthMin = low, r.widthMax = high, r.peakThreshold = r.contrastThreshold = threshold;
      });
}

}  // namespace
