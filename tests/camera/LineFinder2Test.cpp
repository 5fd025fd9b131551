// The multi-width line finder on synthetic frames. With the output range
// 0..N results are in samples; a stripe over pixels a .. a+w-1 of a scan
// line from x = 0 is centred on sample a + w/2 (sample j lies at x = j - 1).
// A line of darkness d that a width w fits exactly responds d x w, strength
// d x w x (65536 / w) >> 16, written x 100 >> 8.
#include <gtest/gtest.h>

#include <array>
#include <climits>

#include "CameraLineList.h"
#include "LineTestFrames.h"

namespace {

struct Slots {
  int16_t position[5], strength[5], width[5], red[5], green[5], blue[5], brightness[5];
  Slots() {
    for (int16_t* slot : {position, strength, width, red, green, blue, brightness}) std::fill(slot, slot + 5, 99);
  }
};

using Tweak = std::function<void(CameraAnalysisMaxOnLine2&)>;

// Dark lines on row 10 from x = 0 to 100, widths 4 to 20 samples, threshold
// 20 % (51 a sample), refined, five slots; then the tweak.
CameraAnalysisMaxOnLine2 Finder(Slots& slots, const Tweak& tweak = {}) {
  CameraAnalysisMaxOnLine2 record{};
  record.base.type = CameraAnalysisTypeMaxOnLine2;
  record.startY = record.endY = 10;
  record.endX = record.rangeMax = 100;
  record.widthMin = 4;
  record.widthMax = 20;
  record.threshold = 20;
  record.lineCountMax = 5;
  record.refine = 1;
  for (int i = 0; i < 5; ++i) {
    record.positionResults[i] = &slots.position[i], record.strengthResults[i] = &slots.strength[i];
    record.widthResults[i] = &slots.width[i], record.brightnessResults[i] = &slots.brightness[i];
    record.redResults[i] = &slots.red[i], record.greenResults[i] = &slots.green[i];
    record.blueResults[i] = &slots.blue[i];
  }
  if (tweak) tweak(record);
  return record;
}

class LineFinder2 : public testing::Test {
 protected:
  void SetUp() override { CameraFrameCount.store(7); }
};

StripeFrame Striped(int width, int height, uint8_t floor, int x0, int x1, Yuv stripe) {
  return StripeFrame(width, height, {floor}).Columns(x0, x1, stripe);
}

TEST_F(LineFinder2, ReportsTheFirstLineAsTheRulesSay) {
  struct Case {
    const char* name;
    StripeFrame frame;
    Tweak tweak;
    int count, position, width, strength, brightness, red = 99, green = 99, blue = 99;
  };
  const StripeFrame line = Striped(128, 32, 220, 40, 50, {40});  // darkness 180: strength 179
  StripeFrame tall(32, 128, {220});
  tall.Fill(0, 40, 32, 50, {40});
  const Case cases[] = {
      {"luma", line, {}, 1, 45, 10, 69, 40 * 100 >> 8},
      {"backwards", line, [](auto& r) { r.startX = 100, r.endX = 0; }, 1, 56, 10, 69, 15},  // pixel 100 - i
      {"vertical", tall, [](auto& r) { r.startX = r.endX = 10, r.startY = 0, r.endY = 100; }, 1, 45, 10, 69, 15},
      {"diagonal", Striped(128, 128, 220, 40, 50, {40}), [](auto& r) { r.startY = 0, r.endY = 100; }, 1, 45, 10, 69,
       15},
      // Half a pixel a sample: pixels 20..24 are rounded from samples 40..49.
      {"steep", Striped(128, 128, 220, 20, 25, {40}), [](auto& r) { r.startY = 0, r.endX = 50, r.endY = 100; }, 1, 44,
       10, 69, 15},
      {"partly outside", Striped(64, 32, 220, 20, 30, {40}), [](auto& r) { r.startX = -20, r.endX = 80; }, 1, 45, 10,
       69, 15},
      // Nine pixels: the fine refine fits width 9 (strength 179 against 161
      // for 10); the average then spans 8 samples over 9: 320 / 9 = 35.
      {"fine width step", Striped(128, 32, 220, 40, 49, {40}), [](auto& r) { r.fineWidthStep = 1; }, 1, 45, 9, 69,
       35 * 100 >> 8},
      {"coarse width step", Striped(128, 32, 220, 40, 49, {40}), {}, 1, 44, 10, 161 * 100 >> 8, 58 * 100 >> 8},
      // Fourteen pixels are found at width 12, the maximum; refined they fit
      // 14 and are removed. The 8-pixel line stays.
      {"refine removes a line", Striped(128, 32, 220, 60, 74, {40}).Columns(30, 38, {40}),
       [](auto& r) { r.widthMax = 12; }, 1, 34, 8, 180 * 100 >> 8, 15},  // 65536 / 8 is exact
      {"unrefined both stay", Striped(128, 32, 220, 60, 74, {40}).Columns(30, 38, {40}),
       [](auto& r) { r.widthMax = 12, r.refine = 0; }, 2, 34, 8, 180 * 100 >> 8, 15},
      // Colour: the grey of (y, y, y) is y; balancing a floor of 100 doubles.
      {"bright colour", Striped(128, 32, 100, 40, 50, {200}), [](auto& r) { r.color = r.bright = 1; }, 1, 45, 10,
       99 * 100 >> 8, 78, 78, 78, 78},
      {"bright colour balanced", Striped(128, 32, 100, 40, 50, {200}),
       [](auto& r) { r.color = r.bright = r.whiteBalance = 1; }, 1, 45, 10, 199 * 100 >> 8, 156, 156, 156, 156},
      {"dark colour comes out positive", Striped(128, 32, 200, 40, 50, {40}), [](auto& r) { r.color = 1; }, 1, 45, 10,
       159 * 100 >> 8, 15, 15, 15, 15},
      // (195, 126, 150), grey 149: green stands out most, by 74.
      {"reddish", Striped(128, 32, 200, 40, 50, {150, 128, 168}), [](auto& r) { r.color = 1; }, 1, 45, 10,
       73 * 100 >> 8, 58, 76, 49, 58},
  };
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, c.tweak);
    RunChainOnce(record, c.frame);
    EXPECT_EQ(record.lineCount, c.count) << c.name;
    const int got[] = {slots.position[0], slots.width[0], slots.strength[0], slots.brightness[0],
                       slots.red[0],      slots.green[0], slots.blue[0]};
    const int expected[] = {c.position, c.width, c.strength, c.brightness, c.red, c.green, c.blue};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(got[i], expected[i]) << c.name << ", result " << i;
    EXPECT_EQ(slots.position[c.count], 0) << c.name << ": the next slot is cleared";
  }
}

TEST_F(LineFinder2, DebugLinesAndClearingOfTheProvidedSlots) {
  Slots found, none;
  CameraAnalysisMaxOnLine2 luma = Finder(found), colour = Finder(none, [](auto&r) { r.color = 1, r.lineCountMax = 3; });
  EXPECT_EQ(CaptureDebugLines([&] { RunChainOnce(luma, Striped(128, 32, 220, 40, 50, {40})); }),
            "MOL7-0-0 p=45 q=179 w=10 bw=40\n");
  EXPECT_EQ(CaptureDebugLines([&] { RunChainOnce(colour, StripeFrame(128, 32, {150})); }), "MOL7-0 NO LINE FOUND\n");
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
  StripeFrame frame(256, 32, {220});
  for (int k = 0; k < 7; ++k) frame.Columns(15 + 30 * k, 23 + 30 * k, {lumas[k]});
  for (int32_t asked : {5, 7}) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(
        slots, [=](auto& r) { r.endX = r.rangeMax = 240, r.widthMax = 12, r.threshold = 10, r.lineCountMax = asked; });
    testing::internal::CaptureStderr();
    RunChainOnce(record, frame);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(record.lineCount, 5) << asked;
    EXPECT_EQ(std::vector<int16_t>(slots.position, slots.position + 5), std::vector<int16_t>({49, 109, 139, 169, 199}));
    EXPECT_EQ(std::vector<int16_t>(slots.brightness, slots.brightness + 5), std::vector<int16_t>({15, 31, 46, 23, 39}));
  }
}

// {end x, range min, range max, width min, width max, threshold} become
// {width min, width max, threshold} in samples.
TEST_F(LineFinder2, InitConvertsWidthsAndThresholdToSamples) {
  for (auto [in, out] : {std::pair{std::array{100, 0, 1000, 100, 300, 20}, std::array{10, 30, 51}},  // nearest
                         {{100, -500, 500, 149, 151, 33}, {15, 15, 84}},
                         {{100, 0, 100, 1, 80, 0}, {2, 50, 0}},         // at least 2, at most N/2
                         {{102, 0, 102, 3, 60, 100}, {3, 50, 256}}}) {  // N/2 = 51, rounded down to even
    Slots slots;
    CameraAnalysisMaxOnLine2 r = Finder(slots, [in](auto& r) {
      r.endX = in[0], r.rangeMin = in[1], r.rangeMax = in[2], r.widthMin = in[3], r.widthMax = in[4];
      r.threshold = in[5];
    });
    r.Init();
    EXPECT_EQ((std::array{r.widthMin, r.widthMax, r.threshold}), out) << in[3] << " " << in[4];
    r.Uninit();
  }
}

// Records from downloaded code that Init cannot use, or that ask for more
// slots than there are: a message, nothing found, and nothing touched outside
// the five slots, the buffers or the frame.
TEST_F(LineFinder2, UnsafeRecordsStayInsideTheirSlotsAndBuffers) {
  struct Case {
    Tweak tweak;
    const char* message;
    int slotsCleared;
    bool colourAfterInit = false;
  };
  const Case cases[] = {
      {[](auto& r) { r.rangeMin = r.rangeMax = 40; }, "range min equal to range max", 5},
      {[](auto& r) { r.lineCountMax = 9; }, "asks for 9 lines, 5 taken", 5},
      {[](auto& r) { r.lineCountMax = -2; }, "asks for -2 lines, 0 taken", 0},
      {[](auto& r) { r.startX = INT_MIN, r.endX = INT_MAX; }, "scan line of 4294967295 samples", 5},
      {[](auto& r) { r.endX = 0; }, "", 5},
      {{}, "", 5, true},
      {[](auto& r) { r.widthMin = INT_MIN, r.widthMax = INT_MAX, r.threshold = 1000000; }, "", 5},
  };
  StripeFrame frame(128, 32, {150});
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, c.tweak);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&record.base, frame.width, frame.height);
    record.color = c.colourAfterInit;
    CameraRunAnalysis(&record.base, frame.data.data(), frame.data.data(), nullptr, 0);
    CameraUninitAnalysis(&record.base);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find(c.message), std::string::npos) << c.message << ": " << errors;
    EXPECT_EQ(record.lineCount, 0) << c.message;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(slots.position[i], i < c.slotsCleared ? 0 : 99) << c.message << " " << i;
  }
}

// The working list, strongest first, after lines at 10, 50 and 90 of
// strengths 100, 50 and 30 and one more candidate.
TEST(CameraLineListTest, MergesCandidatesByOverlapAndStrength) {
  struct Case {
    const char* name;
    int limit;
    CameraLine candidate;
    std::vector<int32_t> positions;
  };
  const Case cases[] = {
      {"a stronger overlap takes the weaker's place", 5, {52, 12, 70}, {10, 52, 90}},
      {"and moves in front of every weaker line", 5, {52, 12, 120}, {52, 10, 90}},
      {"a weaker or equal overlap is dropped", 5, {52, 12, 50}, {10, 50, 90}},
      {"a much wider candidate around a line is dropped", 5, {50, 20, 500}, {10, 50, 90}},
      {"a new line goes behind equal strengths", 5, {130, 8, 50}, {10, 50, 130, 90}},
      {"a full list trades its weakest for a stronger", 3, {130, 8, 60}, {10, 130, 50}},
      {"but not for an equal one", 3, {130, 8, 30}, {10, 50, 90}},
      {"a limit of 0 keeps nothing", 0, {130, 8, 60}, {}},
  };
  for (const Case& c : cases) {
    CameraLineList list(c.limit);
    for (CameraLine line : {CameraLine{10, 8, 100}, {50, 8, 50}, {90, 8, 30}, c.candidate}) list.Merge(line);
    std::vector<int32_t> positions;
    for (int i = 0; i < list.Size(); ++i) positions.push_back(list[i].position);
    EXPECT_EQ(positions, c.positions) << c.name;
  }
}

}  // namespace
