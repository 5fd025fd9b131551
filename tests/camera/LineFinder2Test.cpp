// The multi-width line finder on synthetic frames. With the output range
// 0..N results are in samples; a stripe over pixels a .. a+w-1 of a scan
// line from x = 0 is centred on sample a + w/2 (sample j lies at x = j - 1).
// A line of darkness d that a width w fits exactly responds d x w, strength
// d x w x (65536 / w) >> 16, written x 100 >> 8.

#include <array>
#include <climits>
#include <functional>

#include "CameraLineList.h"
#include "YuyvCanvas.h"

namespace {

struct Slots {
  int16_t all[7][5];
  int16_t *position = all[0], *strength = all[1], *width = all[2], *red = all[3], *green = all[4], *blue = all[5],
          *brightness = all[6];
  Slots() { std::fill(&all[0][0], &all[0][0] + 35, 99); }
};

using Tweak = std::function<void(CameraAnalysisMaxOnLine2&)>;

// Dark lines on row 10 from x = 0 to 100, widths 4 to 20 samples, threshold
// 20 % (51 a sample), refined, five slots; then the tweak.
CameraAnalysisMaxOnLine2 Finder(Slots& s, const Tweak& tweak = {}) {
  CameraAnalysisMaxOnLine2 r{{CameraAnalysisTypeMaxOnLine2}, 0, 10, 100, 10, 4, 20, 20, 5};
  r.refine = 1;
  r.rangeMax = 100;
  for (int i = 0; i < 5; ++i) {
    r.positionResults[i] = &s.position[i], r.strengthResults[i] = &s.strength[i], r.widthResults[i] = &s.width[i];
    r.redResults[i] = &s.red[i], r.greenResults[i] = &s.green[i], r.blueResults[i] = &s.blue[i];
    r.brightnessResults[i] = &s.brightness[i];
  }
  if (tweak) tweak(r);
  return r;
}

StripeFrame Striped(int width, int height, uint8_t floor, int x0, int x1, YuyvColour stripe) {
  return StripeFrame(width, height, Grey(floor)).Columns(x0, x1, stripe);
}

struct LineFinder2 : testing::Test {
  void SetUp() override { CameraFrameCount.store(7); }
};

TEST_F(LineFinder2, ReportsTheFirstLineAsTheRulesSay) {
  struct Case { const char* name; StripeFrame frame; Tweak tweak; int count, position, width, strength, brightness,
                red = 99, green = 99, blue = 99; };
  // On a floor of 220, pixels x0 .. x1 - 1 of luma 40: darkness 180,
  // strength 179.
  auto dark = [](int x0, int x1, int w = 128, int h = 32) { return Striped(w, h, 220, x0, x1, Grey(40)); };
  StripeFrame tall(32, 128, Grey(220));
  tall.Fill(0, 40, 32, 10, Grey(40));
  const Case cases[] = {
      {"luma", dark(40, 50), {}, 1, 45, 10, 69, 40 * 100 >> 8},
      {"vertical", tall, [](auto& r) { r.startX = r.endX = 10, r.startY = 0, r.endY = 100; }, 1, 45, 10, 69, 15},
      {"diagonal", dark(40, 50, 128, 128), [](auto& r) { r.startY = 0, r.endY = 100; }, 1, 45, 10, 69, 15},
      // Half a pixel a sample: pixels 20..24 are rounded from samples 40..49.
      {"steep", dark(20, 25, 128, 128), [](auto& r) { r.startY = 0, r.endX = 50, r.endY = 100; }, 1, 44, 10, 69, 15},
      {"partly outside", dark(20, 30, 64), [](auto& r) { r.startX = -20, r.endX = 80; }, 1, 45, 10, 69, 15},
      // Darkness 51 is the threshold itself: the line is found, just, where
      // a centre falls on its middle.
      {"contrast at the threshold", Striped(128, 32, 220, 39, 49, Grey(169)), [](auto& r) { r.refine = 0; }, 1, 44,
       10, 50 * 100 >> 8, 169 * 100 >> 8},
      // Nine pixels: the fine refine fits width 9 (strength 179 against 161
      // for 10); the average then spans 8 samples over 9: 320 / 9 = 35.
      {"fine width step", dark(40, 49), [](auto& r) { r.fineWidthStep = 1; }, 1, 45, 9, 69, 35 * 100 >> 8},
      {"coarse width step", dark(40, 49), {}, 1, 44, 10, 161 * 100 >> 8, 58 * 100 >> 8},
      // Fourteen pixels are found at width 12, the maximum; refined they fit
      // 14 and are removed. The 8-pixel line stays (65536 / 8 is exact).
      {"refine removes a line", dark(60, 74).Columns(30, 38, Grey(40)), [](auto& r) { r.widthMax = 12; }, 1, 34, 8,
       180 * 100 >> 8, 15},
      {"unrefined both stay", dark(60, 74).Columns(30, 38, Grey(40)), [](auto& r) { r.widthMax = 12, r.refine = 0; },
       2, 34, 8, 180 * 100 >> 8, 15},
      // Colour: the grey of (y, y, y) is y; balancing a floor of 100 doubles.
      {"bright colour balanced", Striped(128, 32, 100, 40, 50, Grey(200)),
       [](auto& r) { r.color = r.bright = r.whiteBalance = 1; }, 1, 45, 10, 199 * 100 >> 8, 156, 156, 156, 156},
      {"dark colour comes out positive", Striped(128, 32, 200, 40, 50, Grey(40)), [](auto& r) { r.color = 1; }, 1, 45,
       10, 159 * 100 >> 8, 15, 15, 15, 15},
      // 24 samples, width 10 only: centres 10 and 12 are measured as a pair,
      // 14 alone. Only 14 fits the line (1800); 12 gives 1080, below 50 %
      // (128 x 10).
      {"a lone last centre", dark(9, 19),
       [](auto& r) {
         r.color = 1, r.refine = 0, r.endX = r.rangeMax = 24, r.widthMin = r.widthMax = 10, r.threshold = 50;
       },
       1, 14, 10, 69, 15, 15, 15, 15},
      // (195, 126, 150), grey 149: green stands out most, by 74.
      {"reddish", Striped(128, 32, 200, 40, 50, {150, 128, 168}), [](auto& r) { r.color = 1; }, 1, 45, 10,
       73 * 100 >> 8, 58, 76, 49, 58},
  };
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, c.tweak);
    RunOneFrame(record.base, c.frame);
    EXPECT_EQ(record.lineCount, c.count) << c.name;
    EXPECT_EQ((std::array<int, 7>{slots.position[0], slots.width[0], slots.strength[0], slots.brightness[0],
                                  slots.red[0], slots.green[0], slots.blue[0]}),
              (std::array{c.position, c.width, c.strength, c.brightness, c.red, c.green, c.blue}))
        << c.name;
    EXPECT_EQ(slots.position[c.count], 0) << c.name << ": the next slot is cleared";
  }
}

TEST_F(LineFinder2, DebugLinesAndClearingOfTheProvidedSlots) {
  Slots found, none;
  CameraAnalysisMaxOnLine2 luma = Finder(found), colour = Finder(none, [](auto& r) { r.color = 1, r.lineCountMax = 3; });
  EXPECT_EQ(DebugOutput(luma.base, Striped(128, 32, 220, 40, 50, Grey(40))), "MOL7-0-0 p=45 q=179 w=10 bw=40\n");
  EXPECT_EQ(DebugOutput(colour.base, StripeFrame(128, 32, Grey(150))), "MOL7-0 NO LINE FOUND\n");
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(found.red[i], 99) << "luma leaves the colour slots alone";
    for (int16_t* slot : {none.position, none.strength, none.width, none.red, none.green, none.blue, none.brightness})
      EXPECT_EQ(slot[i], i < 3 ? 0 : 99) << "slot " << i;
  }
}

// Seven stripes of 8 pixels, 30 apart and of different darkness: the five
// darkest are kept and reported left to right.
TEST_F(LineFinder2, OfMoreThanFiveLinesTheFiveStrongestAreReportedLeftToRight) {
  const uint8_t lumas[7] = {140, 40, 160, 80, 120, 60, 100};
  StripeFrame frame(256, 32, Grey(220));
  for (int k = 0; k < 7; ++k) frame.Columns(15 + 30 * k, 23 + 30 * k, Grey(lumas[k]));
  for (int32_t asked : {5, 7}) {
    Slots s;
    CameraAnalysisMaxOnLine2 record = Finder(
        s, [=](auto& r) { r.endX = r.rangeMax = 240, r.widthMax = 12, r.threshold = 10, r.lineCountMax = asked; });
    testing::internal::CaptureStderr();
    RunOneFrame(record.base, frame);
    EXPECT_EQ(testing::internal::GetCapturedStderr() != "", asked > 5);
    EXPECT_EQ(record.lineCount, 5) << asked;
    EXPECT_EQ(std::vector<int16_t>(s.position, s.position + 5), std::vector<int16_t>({49, 109, 139, 169, 199}));
    EXPECT_EQ(std::vector<int16_t>(s.brightness, s.brightness + 5), std::vector<int16_t>({15, 31, 46, 23, 39}));
  }
}

// {end x, range min, range max, width min, width max, threshold} become
// {width min, width max, threshold} in samples.
TEST_F(LineFinder2, InitConvertsWidthsAndThresholdToSamples) {
  for (auto [in, out] : {std::pair{std::array{100, 0, 1000, 100, 300, 20}, std::array{10, 30, 51}},  // nearest
                         {{100, -500, 500, 149, 151, 33}, {15, 15, 84}},
                         {{100, 0, 100, 1, 80, 0}, {2, 50, 0}},         // at least 2, at most N/2
                         {{102, 0, 102, 3, 60, 100}, {3, 50, 256}}}) {  // N/2 = 51, rounded down to even
    Slots s;
    CameraAnalysisMaxOnLine2 r = Finder(s, [in](auto& r) {
      r.endX = in[0], r.rangeMin = in[1], r.rangeMax = in[2], r.widthMin = in[3], r.widthMax = in[4], r.threshold = in[5];
    });
    r.Init();
    EXPECT_EQ((std::array{r.widthMin, r.widthMax, r.threshold}), out) << in[3] << " " << in[4];
    r.Uninit();
  }
}

// Records from downloaded code that Init cannot use, that ask for more slots
// than there are, or that change after start: a message where Init sees it,
// nothing found, and nothing touched outside the five slots, the buffers or
// the frame.
TEST_F(LineFinder2, UnsafeRecordsStayInsideTheirSlotsAndBuffers) {
  // Lines found (the stripe at 45), slots written.
  const struct { Tweak tweak; const char* message; int found, written; Tweak afterInit; } cases[] = {
      {[](auto& r) { r.rangeMin = r.rangeMax = 40; }, "range min equal to range max", 0, 5, {}},
      {[](auto& r) { r.lineCountMax = 9; }, "asks for 9 lines, 5 taken", 1, 5, {}},
      {[](auto& r) { r.lineCountMax = -2; }, "asks for -2 lines, 0 taken", 0, 0, {}},
      {[](auto& r) { r.startX = INT_MIN, r.endX = INT_MAX; }, "scan line of 4294967295 samples", 0, 5, {}},
      {[](auto& r) { r.endX = 0; }, "", 0, 5, {}},
      {[](auto& r) { r.widthMin = INT_MIN, r.widthMax = INT_MAX, r.threshold = 1000000; }, "", 0, 5, {}},
      {{}, "", 0, 5, [](auto& r) { r.color = 1; }},
      {{}, "", 0, 5, [](auto& r) { r.sampleCount = 5000; }},
  };
  const StripeFrame frame = Striped(128, 32, 150, 40, 50, Grey(40));
  for (const auto& [tweak, message, found, written, afterInit] : cases) {
    Slots s;
    CameraAnalysisMaxOnLine2 record = Finder(s, tweak);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&record.base, frame.width(), frame.height());
    if (afterInit) afterInit(record);
    CameraRunAnalysis(&record.base, frame.data(), frame.data(), nullptr, 0);
    CameraUninitAnalysis(&record.base);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find(message), std::string::npos) << message << ": " << errors;
    EXPECT_EQ(record.lineCount, found) << message;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(s.position[i], i < found ? 45 : i < written ? 0 : 99) << message << " " << i;
  }
}

// The working list, strongest first, after lines at 10, 50 and 90 of
// strengths 100, 50 and 30 and one more candidate.
TEST(CameraLineListTest, MergesCandidatesByOverlapAndStrength) {
  const std::tuple<const char*, int, CameraLine, std::vector<int32_t>> cases[] = {
      {"a stronger overlap takes the weaker's place", 5, {52, 12, 70}, {10, 52, 90}},
      {"and moves in front of every weaker line", 5, {52, 12, 120}, {52, 10, 90}},
      {"a weaker or equal overlap is dropped", 5, {52, 12, 50}, {10, 50, 90}},
      {"a much wider candidate around a line is dropped", 5, {50, 20, 500}, {10, 50, 90}},
      {"a new line goes behind equal strengths", 5, {130, 8, 50}, {10, 50, 130, 90}},
      {"a full list trades its weakest for a stronger", 3, {130, 8, 60}, {10, 130, 50}},
      {"but not for an equal one", 3, {130, 8, 30}, {10, 50, 90}},
      {"a limit of 0 keeps nothing", 0, {130, 8, 60}, {}},
  };
  for (const auto& [name, limit, candidate, expected] : cases) {
    CameraLineList list(limit);
    for (CameraLine line : {CameraLine{10, 8, 100}, {50, 8, 50}, {90, 8, 30}, candidate}) list.Merge(line);
    std::vector<int32_t> positions(size_t(list.Size()));
    for (int i = 0; i < list.Size(); ++i) positions[size_t(i)] = list[i].position;
    EXPECT_EQ(positions, expected) << name;
  }
}

}  // namespace
