// The two ball finders on painted frames: shapes whose results are worked
// out by hand, and discs found where they were painted.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "CameraBall.h"
#include "YuyvCanvas.h"

namespace {

using Exclusion = CameraAnalysisBallSingleBlock::Exclusion;

constexpr int kWidth = 160, kHeight = 120;
constexpr YuyvColour kOrange{110, 80, 200};  // colourfulness 48 + 72 = 120 inside
constexpr YuyvColour kVivid{110, 0, 255};    // 128 + 127 = 255 inside

// Each pixel takes its own chroma sample and the mean of the neighbouring
// samples of the other kind; worked out by hand for one row of five pairs.
TEST(BallSingleBlockTest, MapRatesColourfulnessAgainstTheNeighbouringChroma) {
  YuyvCanvas frame(kWidth, kHeight);
  int chroma[5][2] = {{10, -20}, {30, 40}, {-50, 60}, {70, -80}, {-128, -128}};  // u, v of each pair
  for (int pair = 0; pair < 5; ++pair)
    frame.At(2 * pair, 0, 1) = uint8_t(128 + chroma[pair][0]),
                          frame.At(2 * pair, 0, 3) = uint8_t(128 + chroma[pair][1]);
  Results out;
  auto ball = SingleBlock({0, 0, 10, 1}, out);
  CameraInitAnalysis(&ball.record.base, kWidth, kHeight);
  ball.record.Analyze(0, frame.data(), frame.data(), nullptr, 0);
  // Ends take their own pair's other sample; |-128| + |-128| wraps to 0.
  std::vector<int> expected = {30, 40, 40, 50, 100, 70, 80, 109, 232, 0};
  EXPECT_EQ(std::vector<int>(ball.record.map, ball.record.map + 10), expected);
  CameraUninitAnalysis(&ball.record.base);
}

// An 11 x 11 blob at level 100 (the square's last odd column rates 50 and
// joins only lower): mean 25, 15; variances (11^2 - 1) / 12 = 10 each.
TEST(BallAnalysisTest, SquareGivesTheHandWorkedResults) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Fill(20, 10, 12, 11, {110, 28, 128});  // u -100, v 0
  // r = floor(0.5 + 2.8 x sqrt 20) = 13; quality 100 x 100 >> 7 = 78.
  Results single;
  std::string line = DebugOutput(SingleBlock({}, single).record.base, frame);
  EXPECT_EQ(line.rfind("BA0 x=25, y=15, r=13, q=146.4", 0), 0u) << line;  // 121^2 / 100
  EXPECT_NE(line.find(", xo=25, yo=15, ro=13, qo=78\n"), std::string::npos) << line;
  // The whole block weighs level 100 - t + 1: n = 121 x 11 at level 90, and
  // 121 x 12 > 0.9 x 40 x 40 stops the search at 89. q = 1331^2 / 100, its
  // fourth root 11.5; r = floor(sqrt 20 + 0.5) = 4; x = floor(25 x 2000 / 64
  // - 1000 + 0.5), y likewise from 15.
  Results multi;
  line = DebugOutput(MultiBlock({.sizeMax = 40}, multi).record.base, frame);
  EXPECT_EQ(line.rfind("BA0 n=16\nBA0 x=25, y=15, r=4, q=17715.", 0), 0u) << line;
  EXPECT_NE(line.find(", xo=-219, yo=-531, ro=4, qo=11\n"), std::string::npos) << line;
  EXPECT_EQ(multi.e, 90);
}

TEST(BallSingleBlockTest, FindsAPaintedDiscWhereItIs) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(80, 50, 9, kOrange);
  Results out;
  // Block 40..119 x 20..79 onto -1000..1000, y upwards: x = -1000 + 2000 x
  // 40 / 80, y = -1000 + (60 - 30) x 2000 / 60; 25 and 33 units a pixel.
  RunOneFrame(SingleBlock({40, 20, 80, 60, 2, 1000, 10, -1000, 1000, -1000, 1000}, out).record.base, frame);
  EXPECT_NEAR(out.a, 0, 25);
  EXPECT_NEAR(out.b, 0, 33);
  EXPECT_NEAR(out.c * 80 / 2000.0, 1.98 * 9, 2.5);  // 2.8 x the spread of a disc
}

TEST(BallSingleBlockTest, JudgesBlobsByRoundnessSizeAndLevel) {
  struct Case {
    const char* name;
    void (*paint)(YuyvCanvas&);
    SingleSetup s;
    bool found;
  } cases[] = {
      {"a uniform block within the radius limit",
       [](YuyvCanvas& f) { f.Fill(0, 0, 40, 40, kOrange); },
       {0, 0, 40, 40, 2, 100, 10, 0, 40},
       true},
      {"a uniform block above 0.9 x radius max squared",
       [](YuyvCanvas& f) { f.Fill(0, 0, 40, 40, kOrange); },
       {0, 0, 40, 40, 2, 30, 10, 0, 40},
       false},
      {"a one-pixel stripe has no height", [](YuyvCanvas& f) { f.Fill(10, 0, 40, 1, kOrange); }, {}, false},
      {"a ball below radius min", [](YuyvCanvas& f) { f.Disc(40, 40, 4, kOrange); }, {.radiusMin = 20}, false},
      {"threshold 100 % searches the top level",
       [](YuyvCanvas& f) { f.Disc(40, 40, 8, kVivid); },
       {.threshold = 100},
       true},
      {"threshold 200 % searches nothing", [](YuyvCanvas& f) { f.Disc(40, 40, 8, kVivid); }, {.threshold = 200}, false},
      {"levels below the threshold", [](YuyvCanvas& f) { f.Disc(40, 40, 8, kOrange); }, {.threshold = 150}, false},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    c.paint(frame);
    Results out;
    auto ball = SingleBlock(c.s, out);
    RunOneFrame(ball.record.base, frame);
    EXPECT_EQ(!out.None(), c.found) << c.name << ": x " << out.a << " r " << out.c;
  }
}

TEST(BallSingleBlockTest, BlockEdgesAreEvenAndInsideTheFrame) {
  struct Case {
    int x, y, w, h, x2, y2, w2, h2;
    bool warned;
  } cases[] = {
      {3, 5, 10, 8, 2, 5, 10, 8, false},           // right edge 13 -> 12
      {4, 0, 7, 8, 4, 0, 6, 8, false},             // right edge 11 -> 10
      {-6, -2, 20, 10, 0, 0, 14, 8, true},         // clipped at the left and top
      {150, 110, 20, 20, 150, 110, 10, 10, true},  // at the right and bottom
      {200, 0, 10, 10, 160, 0, 0, 10, true},       // nothing inside
      {0, 0, 0, 0, 0, 0, 0, 0, true},
  };
  for (const Case& c : cases) {
    Results out;
    auto ball = SingleBlock({c.x, c.y, c.w, c.h}, out);
    testing::internal::CaptureStderr();
    RunOneFrame(ball.record.base, YuyvCanvas(kWidth, kHeight));
    std::string errors = testing::internal::GetCapturedStderr();
    const CameraAnalysisBallSingleBlock& b = ball.record;
    EXPECT_EQ(std::vector<int>({b.blockX, b.blockY, b.blockWidth, b.blockHeight}),
              std::vector<int>({c.x2, c.y2, c.w2, c.h2}));
    EXPECT_EQ(errors.find("ERROR ball search block") != std::string::npos, c.warned) << errors;
  }
}

TEST(BallSingleBlockTest, ExclusionsBecomeBlockCoordinatesAndBlankTheMap) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(60, 50, 8, kOrange);
  Results out;
  auto ball = SingleBlock({20, 10, 100, 80}, out);
  ball.record.exclusionCount = 4;
  ball.exclusions[0] = {0, 0, 30, 200};       // reaches outside
  ball.exclusions[1] = {100, 20, 90, 30};     // right < left: empty
  ball.exclusions[2] = {140, 100, 150, 110};  // beyond the block
  ball.exclusions[3] = {50, 40, 60, 60};      // the ball's left half
  RunOneFrame(ball.record.base, frame);
  int expected[4][4] = {{0, 0, 10, 80}, {80, 10, 80, 20}, {100, 80, 100, 80}, {30, 30, 40, 50}};
  for (int i = 0; i < 4; ++i) {
    const Exclusion& e = ball.exclusions[i];
    EXPECT_EQ(std::vector<int>({e.left, e.top, e.right, e.bottom}), std::vector<int>(expected[i], expected[i] + 4));
  }
  EXPECT_NEAR(out.a, 160 * (64 - 20) / 100, 3) << "the right half, x range 0..160 over 100 columns";
}

TEST(BallSingleBlockTest, NormalizeAndCompareSortExclusions) {
  Exclusion list[] = {{30, 8, 10, 2}, {-5, 0, 4, 4}, {12, 1, 20, 3}, {7, 9, 7, 1}};
  for (Exclusion& e : list) e.Normalize();
  qsort(list, 4, sizeof(Exclusion), Exclusion::Compare);
  int expected[4][4] = {{-5, 0, 4, 4}, {7, 1, 7, 9}, {10, 2, 30, 8}, {12, 1, 20, 3}};
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(std::vector<int>({list[i].left, list[i].top, list[i].right, list[i].bottom}),
              std::vector<int>(expected[i], expected[i] + 4));
}

TEST(BallSingleBlockTest, CarelessRecordsReportNoBallAndTouchNothing) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(60, 50, 8, kOrange);
  struct Case {
    SingleSetup s;
    int exclusionCount;
    bool found;
    const char* error;
  } cases[] = {
      {{.xMin = 5, .xMax = 5}, 0, false, "ERROR ball search with equal x range ends 5"},
      {{}, -1, true, "ERROR ball search exclusion count -1"},
      {{}, 1 << 30, true, "ERROR ball search exclusion count 1073741824"},
      {{.blockWidth = 0, .blockHeight = 0}, 0, false, "ERROR ball search block"},
  };
  for (const Case& c : cases) {
    Results out;
    auto ball = SingleBlock(c.s, out);
    ball.record.exclusionCount = c.exclusionCount;
    ball.exclusions[0] = {1000, 1000, -1000, -1000};
    testing::internal::CaptureStderr();
    RunOneFrame(ball.record.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(!out.None(), c.found) << c.error;
    EXPECT_NE(errors.find(c.error), std::string::npos) << errors;
    EXPECT_EQ(ball.exclusions[0].left, 1000) << c.error << ": exclusions left as they were";
  }
}

// Radius 5 discs. With sizeMax 10 the whole-block pass gives up at once (its
// weighted count passes 90 before it reaches 0.7 x 16 x 16), so only a 2 x 2
// group of cells can find them; with sizeMin 100 no group can, and the whole
// block finds a radius 12 disc.
TEST(BallMultiBlockTest, FindsSmallBallsInGroupsOfCellsAndLargeOnesInTheBlock) {
  struct Case {
    const char* name;
    MultiSetup s;
    int centreX, centreY, radius;
    bool found;
  } cases[] = {
      {"across a column border", {}, 32, 20, 5, true},
      {"across a row border", {}, 40, 16, 5, true},
      {"one row of cells has no groups", {.blockHeight = 16}, 32, 8, 5, false},
      {"one column of cells has no groups", {.blockWidth = 16}, 8, 32, 5, false},
      {"large, groups too small", {.sizeMin = 100, .sizeMax = 200, .cellSize = 8}, 40, 16, 12, true},
      {"large, one row of cells", {.blockHeight = 32, .sizeMax = 200, .cellSize = 32}, 40, 16, 12, true},
      // One cell, and the whole block then needs 0.7 x 1000 x 1000.
      {"a cell larger than the block", {.sizeMax = 200, .cellSize = 1000}, 40, 16, 12, false},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(c.centreX, c.centreY, c.radius, kOrange);
    Results out;
    auto ball = MultiBlock(c.s, out);
    RunOneFrame(ball.record.base, frame);
    EXPECT_EQ(out.d > 0, c.found) << c.name;
    if (!c.found) {
      EXPECT_TRUE(out.None() && out.e == 0) << c.name;
      continue;
    }
    // -1000..1000 across the block, y downwards.
    EXPECT_NEAR(out.a, c.centreX * 2000 / c.s.blockWidth - 1000, 2000 / c.s.blockWidth) << c.name;
    EXPECT_NEAR(out.b, c.centreY * 2000 / c.s.blockHeight - 1000, 2000 / c.s.blockHeight) << c.name;
    EXPECT_NEAR(out.c, c.radius / std::sqrt(2.0), 1.5) << c.name;  // sqrt(var x + var y)
    // The neutral pixels next to the ball's chroma rate 24 and up.
    EXPECT_TRUE(out.e >= 24 && out.e <= 120) << c.name << ": level " << out.e;
  }
}

TEST(BallMultiBlockTest, QualityIsTheFourthRootCappedAt10000) {
  std::pair<float, int> cases[] = {{16, 2}, {158, 3}, {9.9e15f, 9974}, {1e16f, 10000}, {3e38f, 10000}};
  for (auto [quality, result] : cases) EXPECT_EQ(CameraBallQualityResult(quality), result) << quality;
}

TEST(BallMultiBlockTest, DebugLinesNameTheCellsAndSkipNullResults) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(32, 20, 5, kOrange);
  Results out;
  auto ball = MultiBlock({.blockWidth = 60, .blockHeight = 40}, out);  // 4 x 3 cells of 16
  ball.record.yResult = nullptr;
  std::string lines = DebugOutput(ball.record.base, frame);
  EXPECT_EQ(lines.rfind("BA0 n=12\nBA0 x=", 0), 0u) << lines;
  EXPECT_NE(lines.find(", yo=0, ro="), std::string::npos) << lines;
  EXPECT_EQ(DebugOutput(MultiBlock({}, out).record.base, YuyvCanvas(kWidth, kHeight)), "BA0 n=16\n");
}

TEST(BallMultiBlockTest, CarelessCellSizesReportNoBall) {
  for (int cellSize : {0, -16, 1}) {  // 1: 160 x 120 cells, beyond the limit
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(40, 40, 12, kOrange);
    Results out;
    auto ball = MultiBlock({.blockWidth = kWidth, .blockHeight = kHeight, .sizeMax = 200, .cellSize = cellSize}, out);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&ball.record.base, kWidth, kHeight);
    EXPECT_EQ(ball.record.cellTables, nullptr) << cellSize;
    CameraRunAnalysis(&ball.record.base, frame.data(), frame.data(), nullptr, 0);
    CameraUninitAnalysis(&ball.record.base);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(out.None()) << cellSize;
    EXPECT_NE(errors.find("ERROR ball search cell size " + std::to_string(cellSize)), std::string::npos) << errors;
  }
}

TEST(BallMultiBlockTest, InitFillsTheGammaMap) {
  Results out;
  RunOneFrame(MultiBlock({}, out).record.base, YuyvCanvas(kWidth, kHeight));
  // floor(0.5 + (i / 255)^0.2 x 255), worked out with a calculator.
  EXPECT_EQ(std::vector<int>({GammaMap[0], GammaMap[1], GammaMap[2], GammaMap[128], GammaMap[255]}),
            std::vector<int>({0, 84, 97, 222, 255}));
}

}  // namespace
