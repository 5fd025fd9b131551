// The multi-width line finder on synthetic frames. With the output range
// 0..N every result is in samples, and a stripe over pixels a .. a+w-1 of a
// scan line from x = 0 is centred on sample a + w/2 (sample j lies at x =
// j - 1). A line of darkness d over an exactly fitting width w responds d x w,
// a strength of d x w x (65536 / w) >> 16.
#include <gtest/gtest.h>

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

// Dark lines on row 10 from x = 0 to 100, widths 4 to 20 samples, threshold
// 20 % (51 per sample), refined, five slots.
CameraAnalysisMaxOnLine2 Finder(Slots& slots, bool colour) {
  CameraAnalysisMaxOnLine2 record{};
  record.base.type = CameraAnalysisTypeMaxOnLine2;
  record.startY = record.endY = 10;
  record.endX = 100;
  record.widthMin = 4;
  record.widthMax = 20;
  record.threshold = 20;
  record.lineCountMax = 5;
  record.color = colour;
  record.refine = 1;
  record.rangeMax = 100;
  for (int i = 0; i < 5; ++i) {
    record.positionResults[i] = &slots.position[i];
    record.strengthResults[i] = &slots.strength[i];
    record.widthResults[i] = &slots.width[i];
    record.redResults[i] = &slots.red[i];
    record.greenResults[i] = &slots.green[i];
    record.blueResults[i] = &slots.blue[i];
    record.brightnessResults[i] = &slots.brightness[i];
  }
  return record;
}

class LineFinder2 : public testing::Test {
 protected:
  void SetUp() override {
    DebugFlags = 0;
    CameraFrameCount.store(7);
  }
};

TEST_F(LineFinder2, ADarkLineOnLumaReportsItsMeanLumaAndDebugLine) {
  // Darkness 180 over 10 samples: strength 179, written 179 * 100 >> 8.
  StripeFrame frame(128, 32, {220});
  frame.Columns(40, 50, {40});
  Slots slots;
  CameraAnalysisMaxOnLine2 record = Finder(slots, false);
  std::string debug = CaptureDebugLines([&] { RunChainOnce(record, frame); });
  EXPECT_EQ(record.lineCount, 1);
  EXPECT_EQ(slots.position[0], 45);
  EXPECT_EQ(slots.width[0], 10);
  EXPECT_EQ(slots.strength[0], 69);
  EXPECT_EQ(slots.brightness[0], 40 * 100 / 256);
  EXPECT_EQ(debug, "MOL7-0-0 p=45 q=179 w=10 bw=40\n");
  for (int i = 1; i < 5; ++i) {
    EXPECT_EQ(slots.position[i] | slots.strength[i] | slots.width[i] | slots.brightness[i], 0) << "slot " << i;
    EXPECT_EQ(slots.red[i], 99) << "luma leaves the colour slots alone";
  }
}

TEST_F(LineFinder2, ScanLinesInAnyDirectionAndPartlyOutside) {
  struct Case {
    const char* name;
    StripeFrame frame;
    int startX, startY, endX, endY, centre;
  };
  StripeFrame wide(128, 32, {220}), tall(32, 128, {220}), square(128, 128, {220}), narrow(64, 32, {220});
  const Case cases[] = {
      {"horizontal", wide.Columns(40, 50, {40}), 0, 10, 100, 10, 45},
      {"backwards", wide, 100, 10, 0, 10, 56},  // pixel 100 - i is sample i + 1
      {"vertical", tall.Rows(40, 50, {40}), 10, 0, 10, 100, 45},
      {"diagonal", square.Columns(40, 50, {40}), 0, 0, 100, 100, 45},
      {"shallow", square, 0, 0, 100, 50, 45},
      {"partly outside", narrow.Columns(20, 30, {40}), -20, 10, 80, 10, 45},
  };
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    record.startX = c.startX, record.startY = c.startY, record.endX = c.endX, record.endY = c.endY;
    RunChainOnce(record, c.frame);
    EXPECT_EQ(record.lineCount, 1) << c.name;
    EXPECT_EQ(slots.position[0], c.centre) << c.name;
    EXPECT_EQ(slots.width[0], 10) << c.name;
    EXPECT_EQ(slots.brightness[0], 15) << c.name;
  }
}

// A line of 9 samples: the fine refine tries width 9 (strength 179 against
// 161 for 10), the coarse one only even widths. The brightness average then
// spans 8 samples divided by 9: 320 / 9 = 35.
TEST_F(LineFinder2, FineWidthStepGivesAnOddWidth) {
  StripeFrame frame(128, 32, {220});
  frame.Columns(40, 49, {40});
  for (bool fine : {true, false}) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    record.fineWidthStep = fine;
    RunChainOnce(record, frame);
    ASSERT_EQ(record.lineCount, 1) << fine;
    EXPECT_EQ(slots.width[0], fine ? 9 : 10);
    if (fine) {
      EXPECT_EQ(slots.position[0], 45);
      EXPECT_EQ(slots.strength[0], 179 * 100 >> 8);
      EXPECT_EQ(slots.brightness[0], 35 * 100 >> 8);
    }
  }
}

// Colour on a neutral floor: the channels are reported apart, a dark line
// comes out positive, and white balance doubles a floor of 100 to 200.
TEST_F(LineFinder2, ColourAveragesWithAndWithoutWhiteBalance) {
  struct Case {
    const char* name;
    uint8_t floor;
    Yuv stripe;
    bool bright, balance;
    int strength, red, green, blue, grey;
  };
  const Case cases[] = {
      {"bright line", 100, {200}, true, false, 99 * 100 >> 8, 78, 78, 78, 78},
      {"bright line balanced", 100, {200}, true, true, 199 * 100 >> 8, 156, 156, 156, 156},
      {"dark line", 200, {40}, false, false, 159 * 100 >> 8, 15, 15, 15, 15},
      {"dark line balanced at gain 1", 200, {40}, false, true, 159 * 100 >> 8, 15, 15, 15, 15},
      // (195, 126, 150), grey 149: green stands out most, darkness 74.
      {"reddish line", 200, {150, 128, 168}, false, false, 73 * 100 >> 8, 76, 49, 58, 58},
  };
  for (const Case& c : cases) {
    StripeFrame frame(128, 32, {c.floor});
    frame.Columns(40, 50, c.stripe);
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, true);
    record.bright = c.bright;
    record.whiteBalance = c.balance;
    RunChainOnce(record, frame);
    ASSERT_EQ(record.lineCount, 1) << c.name;
    EXPECT_EQ(slots.position[0], 45) << c.name;
    EXPECT_EQ(slots.width[0], 10) << c.name;
    EXPECT_EQ(slots.strength[0], c.strength) << c.name;
    EXPECT_EQ(slots.red[0], c.red) << c.name;
    EXPECT_EQ(slots.green[0], c.green) << c.name;
    EXPECT_EQ(slots.blue[0], c.blue) << c.name;
    EXPECT_EQ(slots.brightness[0], c.grey) << c.name;
  }
}

TEST_F(LineFinder2, NoLineFoundClearsTheProvidedSlotsOnly) {
  StripeFrame frame(128, 32, {150});
  Slots slots;
  CameraAnalysisMaxOnLine2 record = Finder(slots, true);
  record.lineCountMax = 3;
  record.lineCount = 4;
  std::string debug = CaptureDebugLines([&] { RunChainOnce(record, frame); });
  EXPECT_EQ(debug, "MOL7-0 NO LINE FOUND\n");
  EXPECT_EQ(record.lineCount, 0);
  for (int i = 0; i < 5; ++i)
    for (int16_t* slot : {slots.position, slots.strength, slots.width, slots.red, slots.green, slots.blue,
                          slots.brightness})
      EXPECT_EQ(slot[i], i < 3 ? 0 : 99) << "slot " << i;
}

// Seven stripes of 8 pixels, 30 apart, of different darkness: the five
// darkest are kept and reported left to right.
TEST_F(LineFinder2, OfMoreThanFiveLinesTheFiveStrongestAreReportedLeftToRight) {
  const uint8_t lumas[7] = {140, 40, 160, 80, 120, 60, 100};
  StripeFrame frame(256, 32, {220});
  for (int k = 0; k < 7; ++k) frame.Columns(15 + 30 * k, 23 + 30 * k, {lumas[k]});
  for (int32_t slotsAsked : {5, 7}) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    record.endX = record.rangeMax = 240;
    record.widthMax = 12;
    record.threshold = 10;
    record.lineCountMax = slotsAsked;
    testing::internal::CaptureStderr();
    RunChainOnce(record, frame);
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(record.lineCount, 5) << slotsAsked;
    const int positions[5] = {49, 109, 139, 169, 199}, brightness[5] = {15, 31, 46, 23, 39};
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(slots.position[i], positions[i]) << "line " << i;
      EXPECT_EQ(slots.width[i], 8) << "line " << i;
      EXPECT_EQ(slots.brightness[i], brightness[i]) << "line " << i;
    }
  }
}

// A line of 14 samples is found at width 12 (the maximum); refined it fits
// best at 14, outside the limits, and is removed.
TEST_F(LineFinder2, RefineRemovesALineWhoseBestWidthLeavesTheLimits) {
  StripeFrame frame(128, 32, {220});
  frame.Columns(30, 38, {40}).Columns(60, 74, {40});
  for (bool refine : {false, true}) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    record.widthMax = 12;
    record.refine = refine;
    RunChainOnce(record, frame);
    ASSERT_EQ(record.lineCount, refine ? 1 : 2) << refine;
    EXPECT_EQ(slots.position[0], 34) << refine;
    EXPECT_EQ(slots.width[0], 8) << refine;
    if (refine) {
      EXPECT_EQ(slots.position[1], 0) << "the freed slot is cleared";
    }
  }
}

TEST_F(LineFinder2, InitConvertsWidthsAndThresholdToSamples) {
  struct Case {
    int32_t endX, rangeMin, rangeMax, widthMin, widthMax, threshold;
    int32_t samplesMin, samplesMax, perSample;
  };
  const Case cases[] = {
      {100, 0, 1000, 100, 300, 20, 10, 30, 51},  // rounded to the nearest sample
      {100, -500, 500, 149, 151, 33, 15, 15, 84},
      {100, 0, 100, 1, 80, 0, 2, 50, 0},   // at least 2; at most N/2
      {102, 0, 102, 3, 60, 100, 3, 50, 256},  // N/2 = 51, rounded down to even
  };
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    record.endX = c.endX, record.rangeMin = c.rangeMin, record.rangeMax = c.rangeMax;
    record.widthMin = c.widthMin, record.widthMax = c.widthMax, record.threshold = c.threshold;
    CameraInitAnalysis(&record.base, 128, 32);
    EXPECT_EQ(record.widthMin, c.samplesMin) << c.widthMin;
    EXPECT_EQ(record.widthMax, c.samplesMax) << c.widthMax;
    EXPECT_EQ(record.threshold, c.perSample) << c.threshold;
    CameraUninitAnalysis(&record.base);
    EXPECT_EQ(record.valueBuffer, nullptr);
  }
}

// Records from downloaded code that Init cannot use, or that ask for more
// slots than there are: a message, nothing found, and no access outside the
// record's five slots, its buffers or the frame.
TEST_F(LineFinder2, UnsafeRecordsStayInsideTheirSlotsAndBuffers) {
  struct Case {
    const char* name;
    std::function<void(CameraAnalysisMaxOnLine2&)> setUp;
    const char* message;
    int slotsCleared;
    bool colourAfterInit = false;
  };
  const Case cases[] = {
      {"equal range ends", [](CameraAnalysisMaxOnLine2& r) { r.rangeMin = r.rangeMax = 40; },
       "range min equal to range max", 5},
      {"more slots than five", [](CameraAnalysisMaxOnLine2& r) { r.lineCountMax = 9; }, "asks for 9 lines, 5 taken",
       5},
      {"negative slots", [](CameraAnalysisMaxOnLine2& r) { r.lineCountMax = -2; }, "asks for -2 lines, 0 taken", 0},
      {"far too long", [](CameraAnalysisMaxOnLine2& r) { r.startX = INT_MIN, r.endX = INT_MAX; },
       "scan line of 4294967295 samples", 5},
      {"no samples", [](CameraAnalysisMaxOnLine2& r) { r.endX = 0; }, "", 5},
      {"colour switched on after Init", [](CameraAnalysisMaxOnLine2&) {}, "", 5, true},
      {"hostile widths and threshold",
       [](CameraAnalysisMaxOnLine2& r) {
         r.widthMin = INT_MIN;
         r.widthMax = INT_MAX;
         r.threshold = 1000000;
       },
       "", 5},
  };
  StripeFrame frame(128, 32, {150});
  for (const Case& c : cases) {
    Slots slots;
    CameraAnalysisMaxOnLine2 record = Finder(slots, false);
    c.setUp(record);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&record.base, frame.Width(), frame.Height());
    if (c.colourAfterInit) record.color = 1;
    CameraRunAnalysis(&record.base, frame.Data(), frame.Data(), nullptr, 0);
    CameraUninitAnalysis(&record.base);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find(c.message), std::string::npos) << c.name << ": " << errors;
    EXPECT_EQ(record.lineCount, 0) << c.name;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(slots.position[i], i < c.slotsCleared ? 0 : 99) << c.name << " " << i;
  }
}

// The working list, strongest first: (position, width, strength).
TEST(CameraLineListTest, MergesCandidatesByOverlapAndStrength) {
  struct Case {
    const char* name;
    CameraLine candidate;
    std::vector<int32_t> positionsAfter;  // in list order
  };
  // Three lines far apart, strengths 100, 50 and 30.
  const CameraLine start[3] = {{10, 8, 100}, {50, 8, 50}, {90, 8, 30}};
  const Case cases[] = {
      {"a stronger overlap takes the weaker's place", {52, 12, 70}, {10, 52, 90}},
      {"and moves in front of every weaker line", {52, 12, 120}, {52, 10, 90}},
      {"a weaker or equal overlap is dropped", {52, 12, 50}, {10, 50, 90}},
      {"a much wider candidate around a line is dropped", {50, 20, 500}, {10, 50, 90}},
      {"a new line is appended by strength", {130, 8, 40}, {10, 50, 130, 90}},
      {"an equal strength goes behind", {130, 8, 50}, {10, 50, 130, 90}},
  };
  for (const Case& c : cases) {
    CameraLineList list(5);
    for (const CameraLine& line : start) list.Merge(line);
    list.Merge(c.candidate);
    std::vector<int32_t> positions;
    for (int i = 0; i < list.Size(); ++i) positions.push_back(list[i].position);
    EXPECT_EQ(positions, c.positionsAfter) << c.name;
  }
}

TEST(CameraLineListTest, AFullListTradesItsWeakestOnlyForAStrongerLine) {
  for (int limit : {0, 3}) {
    CameraLineList list(limit);
    for (CameraLine line : {CameraLine{10, 8, 100}, {50, 8, 50}, {90, 8, 30}, {130, 8, 30}, {170, 8, 60}})
      list.Merge(line);
    std::vector<int32_t> positions;
    for (int i = 0; i < list.Size(); ++i) positions.push_back(list[i].position);
    EXPECT_EQ(positions, limit ? std::vector<int32_t>({10, 170, 50}) : std::vector<int32_t>()) << limit;
  }
}

}  // namespace
