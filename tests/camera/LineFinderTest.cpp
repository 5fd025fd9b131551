// The single-line finder on synthetic frames, figures worked out by hand. A
// neutral floor of luma 200 balances to a gain of exactly 1, so a dark
// line's line-ness is 765 - 3 x luma a sample, five times that after the box
// filter (floor 825, luma 50 gives 3075).

#include <climits>
#include <functional>
#include <tuple>

#include "YuyvCanvas.h"

namespace {

struct Found {
  int16_t position = 99, quality = 99, width = 99;
  bool operator==(const Found&) const = default;
};
using Tweak = std::function<void(CameraAnalysisMaxOnLine&)>;

// Dark lines on row 10 from x = 0 to 100 (100 samples), widths 5 to 15,
// peak 50 %, contrast 30 %; then the tweak.
CameraAnalysisMaxOnLine Finder(Found& found, const Tweak& tweak = {}) {
  CameraAnalysisMaxOnLine r{{CameraAnalysisTypeMaxOnLine}, 0, 10, 100, 10};
  r.widthMin = 5, r.widthMax = 15, r.peakThreshold = 50, r.contrastThreshold = 30;
  r.positionResult = &found.position, r.qualityResult = &found.quality, r.widthResult = &found.width;
  if (tweak) tweak(r);
  return r;
}

// One frame; its debug lines into debug.
Found RunFinder(const YuyvCanvas& frame, const Tweak& tweak = {}, std::string* debug = nullptr) {
  Found found;
  CameraAnalysisMaxOnLine r = Finder(found, tweak);
  std::string lines = DebugOutput(r.base, frame);
  if (debug) *debug = lines;
  return found;
}

class LineFinder : public testing::Test {
 protected:
  void SetUp() override { CameraFrameCount.store(7); }
  StripeFrame floor_{128, 32, Grey(200)};
  StripeFrame With(int x0, int x1, uint8_t luma) const { return StripeFrame(floor_).Columns(x0, x1, Grey(luma)); }
};

TEST_F(LineFinder, FindsWhatTheRulesSay) {
  const StripeFrame one = With(40, 50, 50);
  const std::tuple<const char*, StripeFrame, Tweak, Found> cases[] = {
      // Box sums 3075 over samples 40..45; of the equal eroded peaks k = 40
      // and 41 the later wins (bL 1275, bR 825). Edges 36 and 50: width 14,
      // middle 43, position 38 * 2000 / 81 - 1000, quality 1587 * 3821 / 1000.
      {"a dark stripe", one, {}, {-62, 6063, 14}},
      {"of two equal stripes the later wins", With(20, 30, 50).Columns(60, 70, Grey(50)), {}, {432, 6063, 14}},
      // A contrast of 110 % (1402) makes the quality's divisor negative; the
      // edges close in to 39 and 47.
      {"a negative quality reports 1", one, [](auto& r) { r.contrastThreshold = 110; }, {-62, 1, 8}},
      // Zero divisors divide to 0 as on the controller; edges 38 and 48.
      {"full-scale thresholds give 0", one, [](auto& r) { r.peakThreshold = r.contrastThreshold = 100; }, {-62, 0, 10}},
      // 30 samples: floor to 19, luma 50 to 24, luma 80 to 29. Without a
      // contrast to pass the right edge runs to the end mark at 26, the left
      // stops at 18: width 8, middle 22, quality 70 * 2129 / 1000.
      {"a line touching the end stops at N - 4", With(20, 25, 50).Columns(25, 40, Grey(80)),
       [](auto& r) { r.endX = 30, r.widthMax = 8, r.peakThreshold = r.contrastThreshold = 0; }, {1000, 149, 8}},
      {"a stripe wider than width max is none", With(40, 70, 50), {}, {0, 0, 0}},
      // 400 samples, places counted from h = 5 in runs of 256: the winning
      // k = x0 + 1 is the last place of the first run, then the first of the
      // second. Edges x0 - 4 and x0 + 10, 381 places: position (x0 - 2) x 2000
      // / 381 - 1000.
      {"a peak at the last place of a run", StripeFrame(400, 32, Grey(200)).Columns(259, 269, Grey(50)),
       [](auto& r) { r.endX = 400; }, {349, 6063, 14}},
      {"a peak at the first place of the next", StripeFrame(400, 32, Grey(200)).Columns(260, 270, Grey(50)),
       [](auto& r) { r.endX = 400; }, {354, 6063, 14}},
  };
  for (const auto& [name, frame, tweak, expected] : cases) EXPECT_EQ(RunFinder(frame, tweak), expected) << name;
  std::string debug;
  RunFinder(one, {}, &debug);
  EXPECT_EQ(debug, "MOL7-0 p=-62 q=6063 hA=241 wrgb=0/0/0/0 bL=100 bR=64 hRel=141, m=43, w=14\n");
  // A floor of luma 9 is too dark to balance on: gain 20, so a bright line
  // of luma 50 sums to 15000 after the box filter and the floor to 2700.
  RunFinder(StripeFrame(128, 32, Grey(9)).Columns(40, 50, Grey(50)), [](auto& r) { r.brightLine = 1; }, &debug);
  EXPECT_NE(debug.find(" hA=1176 "), std::string::npos) << debug;
  EXPECT_NE(debug.find(" bR=211 "), std::string::npos) << debug;
}

// The same samples from a scan line leaving a small frame on both sides and
// inside a large frame painted black where the small one ends; and from a
// scan line moved after start, which is sampled where it now lies.
TEST_F(LineFinder, SamplesWhereTheWalkGoesAndOutsideAsBlack) {
  StripeFrame small(64, 20, Grey(200)), large(200, 20, Grey(0));
  small.Columns(20, 30, Grey(50));
  large.Columns(30, 94, Grey(200)).Columns(50, 60, Grey(50));
  std::string outsideDebug, insideDebug;
  Found inside = RunFinder(large, {}, &insideDebug);
  EXPECT_EQ(RunFinder(small, [](auto& r) { r.startX = -30, r.endX = 70; }, &outsideDebug), inside);
  EXPECT_EQ(outsideDebug, insideDebug);
  EXPECT_GT(inside.width, 0) << "the stripe is found";

  StripeFrame lower = floor_;
  lower.Fill(40, 20, 10, 12, Grey(50));
  Found moved;
  CameraAnalysisMaxOnLine r = Finder(moved);
  CameraInitAnalysis(&r.base, lower.width(), lower.height());
  const Found below = RunFinder(lower, [](auto& r) { r.startY = r.endY = 25; });
  for (float row : {10.0f, 25.0f}) {
    r.yOrigin = row;
    CameraRunAnalysis(&r.base, lower.data(), lower.data(), nullptr, 0);
    EXPECT_EQ(moved, row < 20 ? (Found{0, 0, 0}) : below) << row;
  }
  CameraUninitAnalysis(&r.base);
}

// A floor of luma 100 balances to a gain of 2: the stripe (195, 126, 150)
// becomes (390, 252, 300), brightness 942 * 100 / 765 = 123 and shares of
// 300 124, 80, 95; or the plain averages without the brightness test.
TEST_F(LineFinder, ColourCheckWithAndWithoutBrightness) {
  const StripeFrame frame = StripeFrame(128, 32, Grey(100)).Columns(40, 52, {150, 128, 168});
  for (auto [low, high, redMin, redMax, found, colour] :
       {std::tuple{0, 200, 110, 140, true, "123/124/80/95"}, {0, 200, 130, 200, false, "123/124/80/95"},
        {0, 100, 110, 140, false, "123/124/80/95"}, {-5, -1, 380, 400, true, "-1/390/252/300"},
        {-5, -1, 110, 140, false, "-1/390/252/300"}}) {
    const int16_t shares = high >= 0;
    std::string debug;
    Found result = RunFinder(
        frame,
        [&](auto& r) {
          r.brightLine = r.colorCheck = 1, r.brightnessMin = int16_t(low), r.brightnessMax = int16_t(high);
          r.redMin = int16_t(redMin), r.redMax = int16_t(redMax), r.greenMin = 60 * shares, r.blueMin = 80 * shares;
          r.greenMax = shares ? 100 : 300, r.blueMax = shares ? 110 : 300;
        },
        &debug);
    EXPECT_EQ(result.width > 0 && result.quality > 0, found) << colour << " red from " << redMin;
    EXPECT_NE(debug.find(std::string("wrgb=") + colour + " "), std::string::npos) << debug;
  }
}

// Two stripes of equal luma, reddish on the left and bluish on the right:
// the taught line colour decides which one is the line.
TEST_F(LineFinder, ColourAxisFindsTheTaughtColour) {
  floor_.Columns(20, 32, {150, 128, 168}).Columns(60, 72, {150, 168, 128});
  for (auto [red, green, blue] : {std::tuple{195, 126, 150}, {150, 134, 231}}) {
    Found found = RunFinder(floor_, [&](auto& r) {
      r.colorAxis = 1, r.lineColorR = uint16_t(red), r.lineColorG = uint16_t(green), r.lineColorB = uint16_t(blue);
      r.backgroundColorR = r.backgroundColorG = r.backgroundColorB = 200;
    });
    EXPECT_GT(found.width, 0) << red;
    EXPECT_EQ(found.position < 0, red == 195) << red << " at " << found.position;
  }
}

// Unusable widths, and records Init refuses (with a message), write -1 and
// nothing else, and print no debug line.
TEST_F(LineFinder, UnusableRecordsAnswerMinusOne) {
  const std::pair<Tweak, const char*> unusable[] = {
      {[](auto& r) { r.widthMin = -3; }, ""},
      {[](auto& r) { r.widthMin = 0; }, ""},
      {[](auto& r) { r.widthMin = 5, r.widthMax = 6; }, ""},
      {[](auto& r) { r.widthMin = INT_MAX - 1, r.widthMax = INT_MAX; }, ""},
      {[](auto& r) { r.endX = 5; }, "scan line of 5 samples"},
      {[](auto& r) { r.startX = INT_MIN, r.endX = INT_MAX; }, "scan line of 4294967295 samples"},
      {[](auto& r) { r.colorAxis = 1, r.lineColorR = r.backgroundColorR = 30; }, "equal line and floor colours"},
  };
  for (auto& [tweak, message] : unusable) {
    std::string debug;
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunFinder(With(40, 50, 50), tweak, &debug), (Found{-1, 99, 99})) << message;
    EXPECT_NE(testing::internal::GetCapturedStderr().find(message), std::string::npos) << message;
    EXPECT_EQ(debug, "") << message;
  }
}

}  // namespace
