// The two ball finders: shapes whose results are worked out by hand, careless
// records, and the map and moment tables of random frames against a plain
// per-pixel reference.

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

#include "CameraBall.h"
#include "YuyvCanvas.h"

namespace {

using Exclusion = CameraAnalysisBallSingleBlock::Exclusion;

constexpr int kWidth = 160, kHeight = 120;
constexpr YuyvColour kOrange{110, 80, 200};  // colourfulness 48 + 72 = 120 inside
constexpr YuyvColour kVivid{110, 0, 255};    // 128 + 127 = 255 inside

std::vector<int> Edges(const Exclusion* list, int count) {
  std::vector<int> edges;
  for (int i = 0; i < count; ++i) edges.insert(edges.end(), {list[i].left, list[i].top, list[i].right, list[i].bottom});
  return edges;
}

// An 11 x 11 blob at level 100 (the square's last odd column rates 50 and
// joins only lower): mean 25, 15; variances (11^2 - 1) / 12 = 10 each.
TEST(BallAnalysisTest, SquareGivesTheHandWorkedResults) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Fill(20, 10, 12, 11, {110, 28, 128});  // u -100, v 0
  // r = floor(0.5 + 2.8 x sqrt 20) = 13; quality 100 x 100 >> 7 = 78; y
  // result 120 + (120 - 15) x -120 / 120.
  Results single;
  std::string line = DebugOutput(SingleBlock({}, single).record.base, frame);
  EXPECT_EQ(line.rfind("BA0 x=25, y=15, r=13, q=146.4", 0), 0u) << line;  // 121^2 / 100, in single precision
  EXPECT_NE(line.find(", xo=25, yo=15, ro=13, qo=78\n"), std::string::npos) << line;
  // The whole block weighs level 100 - t + 1: n = 121 x 11 at level 90, and
  // 121 x 12 > 0.9 x 40 x 40 stops the search at 89. q = 1331^2 / 100, its
  // fourth root 11.5; r = floor(sqrt 20 + 0.5) = 4; x = floor(25 x 2000 / 64
  // - 1000 + 0.5), y likewise from 15 (downwards).
  // A null result is skipped, also in the debug line; n is the 4 x 4 cells.
  Results multi;
  auto ball = MultiBlock({.sizeMax = 40}, multi);
  ball.record.yResult = nullptr;
  line = DebugOutput(ball.record.base, frame);
  EXPECT_EQ(line.rfind("BA0 n=16\nBA0 x=25, y=15, r=4, q=17715.", 0), 0u) << line;
  EXPECT_NE(line.find(", xo=-219, yo=0, ro=4, qo=11\n"), std::string::npos) << line;
  EXPECT_EQ(std::vector<int>({multi.b, multi.e}), std::vector<int>({kUntouched, 90}));
  EXPECT_EQ(DebugOutput(MultiBlock({.blockWidth = 60, .blockHeight = 40}, multi).record.base, YuyvCanvas(kWidth, kHeight)),
            "BA0 n=12\n");  // 4 x 3 cells, the last ones partial; no ball
  // floor(0.5 + (i / 255)^0.2 x 255), worked out with a calculator.
  EXPECT_EQ(std::vector<int>({GammaMap[0], GammaMap[1], GammaMap[2], GammaMap[128], GammaMap[255]}),
            std::vector<int>({0, 84, 97, 222, 255}));
}

TEST(BallSingleBlockTest, JudgesBlobsByRoundnessSizeAndLevel) {
  // Radius of a disc at 40, 40; 0: a 40 x 40 square at the corner; -1: a stripe of one row.
  const struct { const char* name; int radius; YuyvColour colour; SingleSetup s; bool found; } cases[] = {
      {"a uniform block within the radius limit", 0, kOrange, {0, 0, 40, 40, 2, 100, 10, 0, 40}, true},
      {"a uniform block above 0.9 x radius max squared", 0, kOrange, {0, 0, 40, 40, 2, 30, 10, 0, 40}, false},
      {"a one-pixel stripe has no height", -1, kOrange, {}, false},
      {"a ball below radius min", 4, kOrange, {.radiusMin = 20}, false},
      {"threshold 100 % searches the top level", 8, kVivid, {.threshold = 100}, true},
      {"threshold 200 % searches nothing", 8, kVivid, {.threshold = 200}, false},
      {"levels below the threshold", 8, kOrange, {.threshold = 150}, false},
  };
  for (const auto& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    if (c.radius > 0) frame.Disc(40, 40, c.radius, c.colour);
    else frame.Fill(0, 0, 40, c.radius ? 1 : 40, c.colour);
    Results out;
    RunOneFrame(SingleBlock(c.s, out).record.base, frame);
    EXPECT_EQ(!out.None(), c.found) << c.name << ": x " << out.a << " r " << out.c;
  }
}

TEST(BallSingleBlockTest, NormalizeAndCompareSortExclusions) {
  Exclusion list[] = {{30, 8, 10, 2}, {-5, 0, 4, 4}, {12, 1, 20, 3}, {7, 9, 7, 1}};
  for (Exclusion& e : list) e.Normalize();
  qsort(list, 4, sizeof(Exclusion), Exclusion::Compare);
  EXPECT_EQ(Edges(list, 4), std::vector<int>({-5, 0, 4, 4, 7, 1, 7, 9, 10, 2, 30, 8, 12, 1, 20, 3}));
}

// A block reaching outside is clipped to the frame, once, at Init.
TEST(BallSingleBlockTest, CarelessRecordsReportNoBallAndTouchNothing) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(60, 50, 8, kOrange);
  // The block as placed: x, y, width, height.
  const struct { SingleSetup s; int exclusionCount; std::vector<int> block; bool found; const char* error; } cases[] = {
      {{.xMin = 5, .xMax = 5}, 0, {0, 0, 160, 120}, false, "ERROR ball search with equal x range ends 5"},
      {{}, -1, {0, 0, 160, 120}, true, "ERROR ball search exclusion count -1"},
      {{}, 1 << 30, {0, 0, 160, 120}, true, "ERROR ball search exclusion count 1073741824"},
      {{-6, -2, 200, 100, 2, 100, 10, -6, 194}, 0, {0, 0, 160, 98}, true, "ERROR ball search block -6,-2 200x100"},
      {{200, 0, 10, 10}, 0, {160, 0, 0, 10}, false, "ERROR ball search block 200,0 10x10 has no pixels"},
      {{.blockWidth = 0, .blockHeight = 0}, 0, {0, 0, 0, 0}, false, "ERROR ball search block"},
  };
  for (const auto& c : cases) {
    Results out;
    auto ball = SingleBlock(c.s, out);
    ball.record.exclusionCount = c.exclusionCount;
    ball.exclusions[0] = {1000, 1000, -1000, -1000};
    testing::internal::CaptureStderr();
    RunOneFrame(ball.record.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    const CameraAnalysisBallSingleBlock& b = ball.record;
    EXPECT_EQ(std::vector<int>({b.blockX, b.blockY, b.blockWidth, b.blockHeight}), c.block) << c.error;
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
  const struct { const char* name; MultiSetup s; int centreX, centreY, radius; bool found; } cases[] = {
      {"across a column border", {}, 32, 20, 5, true},
      {"across a row border", {}, 40, 16, 5, true},
      {"one row of cells has no groups", {.blockHeight = 16}, 32, 8, 5, false},
      {"one column of cells has no groups", {.blockWidth = 16}, 8, 32, 5, false},
      {"large, groups too small", {.sizeMin = 100, .sizeMax = 200, .cellSize = 8}, 40, 16, 12, true},
      {"large, one row of cells", {.blockHeight = 32, .sizeMax = 200, .cellSize = 32}, 40, 16, 12, true},
      // One cell, and the whole block then needs 0.7 x 1000 x 1000.
      {"a cell larger than the block", {.sizeMax = 200, .cellSize = 1000}, 40, 16, 12, false},
      {"cell size 0 (warned)", {.sizeMax = 200, .cellSize = 0}, 40, 16, 12, false},
      {"cell size -16 (warned)", {.sizeMax = 200, .cellSize = -16}, 40, 16, 12, false},
      {"cell size 1: too many cells (warned)", {0, 0, kWidth, kHeight, 4, 200, 1}, 40, 16, 12, false},
  };
  for (const auto& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(c.centreX, c.centreY, c.radius, kOrange);
    Results out;
    testing::internal::CaptureStderr();
    RunOneFrame(MultiBlock(c.s, out).record.base, frame);
    bool warned = testing::internal::GetCapturedStderr().find("ERROR ball search cell size") != std::string::npos;
    EXPECT_EQ(warned, strstr(c.name, "warned") != nullptr) << c.name;
    EXPECT_EQ(out.d > 0, c.found) << c.name;
    if (!c.found) {
      EXPECT_TRUE(out.None() && out.e == 0) << c.name;
      continue;
    }
    // -1000..1000 across the block, y downwards.
    EXPECT_NEAR(out.a, c.centreX * 2000 / c.s.blockWidth - 1000, 2000 / c.s.blockWidth) << c.name;
    EXPECT_NEAR(out.b, c.centreY * 2000 / c.s.blockHeight - 1000, 2000 / c.s.blockHeight) << c.name;
    EXPECT_NEAR(out.c, c.radius / std::sqrt(2.0), 1.5) << c.name;  // sqrt(var x + var y)
    EXPECT_TRUE(out.e >= 24 && out.e <= 120) << c.name << ": level " << out.e;  // the smeared edge rates 24 up
  }
}

TEST(BallMultiBlockTest, QualityIsTheFourthRootCappedAt10000) {
  std::pair<float, int> cases[] = {{16, 2}, {158, 3}, {9.9e15f, 9974}, {1e16f, 10000}, {3e38f, 10000}};
  for (auto [quality, result] : cases) EXPECT_EQ(CameraBallQualityResult(quality), result) << quality;
}

// The map, the exclusions and every cell's table after two frames (the second
// must not keep anything of the first), worked out pixel by pixel as
// documented. Chroma runs over its whole range, so sums of 256 wrap.
TEST(BallAnalysisTest, MapAndTablesMatchAPlainReference) {
  const struct { int frameWidth, x, y, w, h, cellSize; } cases[] = {  // cell size 0: the single block
      {160, 20, 10, 100, 70, 24}, {160, 0, 0, 160, 120, 40}, {600, 3, 1, 590, 9, 0}, {600, 0, 0, 600, 8, 7}};
  std::mt19937 random(3);
  for (const auto& c : cases) {
    WithExclusions<CameraAnalysisBallMultiBlock> multi{{{CameraAnalysisTypeBallMultiBlock}, c.x, c.y, c.w, c.h}};
    WithExclusions<CameraAnalysisBallSingleBlock> single{
        {{CameraAnalysisTypeBallSingleBlock}, c.x, c.y, c.w, c.h, 1, 100, 0, 0, 100, 0, 100}};
    multi.record.cellSize = c.cellSize;
    multi.record.exclusionCount = single.record.exclusionCount = 2;
    int x = c.x & ~1, w = ((c.x + c.w) & ~1) - x, cell = c.cellSize ? c.cellSize : std::max(w, c.h);
    int across = (w + cell - 1) / cell, down = (c.h + cell - 1) / cell;
    Exclusion given[2] = {{x - 5, c.y + 2, x + 9, c.y + 5}, {x + 30, 0, x + 20, 500}};  // outside; right < left
    Exclusion* exclusions = c.cellSize ? multi.exclusions : single.exclusions;
    memcpy(exclusions, given, sizeof given);
    CameraAnalysisBase* record = c.cellSize ? &multi.record.base : &single.record.base;
    CameraInitAnalysis(record, c.frameWidth, c.y + c.h);
    EXPECT_EQ(Edges(exclusions, 2), std::vector<int>({0, 2, 9, 5, 30, 0, 30, c.h}));
    for (int frameNumber = 0; frameNumber < 2; ++frameNumber) {
      YuyvCanvas frame(c.frameWidth, c.y + c.h);
      for (int py = 0; py < frame.height(); ++py)
        for (int px = 0; px < c.frameWidth; px += 2)  // colourful stripes in a field of noise
          for (int b : {1, 3}) frame.At(px, py, b) = uint8_t(px % 97 < 40 ? random() % 256 : 124 + random() % 9);
      CameraRunAnalysis(record, frame.data(), frame.data(), nullptr, 0);
      std::vector<uint8_t> map(size_t(w) * c.h);
      std::vector<CameraBallMoments> tables(size_t(across) * down);
      memset(static_cast<void*>(tables.data()), 0, tables.size() * sizeof(CameraBallMoments));
      for (int row = 0; row < c.h; ++row)
        for (int col = 0; col < w; ++col) {
          auto chroma = [&](int pair, int b) { return frame.At(x + 2 * pair, c.y + row, b) - 128; };
          int pair = col / 2, own = col % 2 ? 3 : 1, other = 4 - own, next = col % 2 ? pair + 1 : pair - 1;
          bool end = next < 0 || next >= w / 2;
          uint8_t level = uint8_t(abs(chroma(pair, own)) + (end ? abs(chroma(pair, other))
                                                                : abs(chroma(pair, other) + chroma(next, other)) >> 1));
          if (col < 9 && row >= 2 && row < 5) level = 0;  // the first exclusion, clipped
          map[size_t(row) * w + col] = level;
          CameraBallMoments& t = tables[size_t(row / cell) * across + col / cell];
          t.count[level] += 1, t.sumX[level] += col, t.sumY[level] += row;
          t.sumXX[level] += col * col, t.sumXY[level] += col * row, t.sumYY[level] += row * row;
        }
      for (CameraBallMoments& t : tables)
        for (uint32_t* sums : {t.count, t.sumX, t.sumY, t.sumXX, t.sumXY, t.sumYY})
          for (int level = 254; level >= 0; --level) sums[level] += sums[level + 1];
      EXPECT_TRUE(std::equal(map.begin(), map.end(), c.cellSize ? multi.record.map : single.record.map));
      EXPECT_EQ(memcmp(tables.data(), c.cellSize ? static_cast<void*>(multi.record.cellTables) : single.record.moments,
                       tables.size() * sizeof(CameraBallMoments)),
                0)
          << c.frameWidth << " " << c.cellSize << " frame " << frameNumber;
    }
    CameraUninitAnalysis(record);
  }
}

}  // namespace
