// The two ball finders on painted frames. Positions are checked against
// where the ball was painted; the single-block search is also checked to the
// bit against a reference that follows the documented steps pixel by pixel.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "CameraBall.h"
#include "YuyvCanvas.h"
#include "kavri/CameraAnalysisBall.h"
#include "kavri/KavriLib.h"

namespace {

using Exclusion = CameraAnalysisBallSingleBlock::Exclusion;

constexpr int kWidth = 160, kHeight = 120;
constexpr YuyvColour kOrange{110, 80, 200};  // colourfulness 48 + 72 = 120 inside
constexpr YuyvColour kVivid{110, 0, 255};    // 128 + 127 = 255 inside
constexpr int16_t kUntouched = -7;

struct Results {
  int16_t x = kUntouched, y = kUntouched, radius = kUntouched, quality = kUntouched, level = kUntouched;
  bool None() const { return x == 0 && y == 0 && radius == 0 && quality == 0; }
};

// A record with room for its exclusions behind it, as a program lays it out.
template <typename Record>
struct WithExclusions {
  Record record;
  Exclusion exclusions[4];
};

struct SingleSetup {
  int blockX = 0, blockY = 0, blockWidth = kWidth, blockHeight = kHeight;
  int radiusMin = 2, radiusMax = 100, threshold = 10;
  int xMin = 0, xMax = kWidth, yMin = kHeight, yMax = 0;  // outputs in pixels, y downwards
};

WithExclusions<CameraAnalysisBallSingleBlock> Single(const SingleSetup& s, Results& out) {
  WithExclusions<CameraAnalysisBallSingleBlock> r{};
  CameraAnalysisBallSingleBlock& b = r.record;
  b.base.type = CameraAnalysisTypeBallSingleBlock;
  b.blockX = s.blockX;
  b.blockY = s.blockY;
  b.blockWidth = s.blockWidth;
  b.blockHeight = s.blockHeight;
  b.radiusMin = s.radiusMin;
  b.radiusMax = s.radiusMax;
  b.threshold = s.threshold;
  b.xRangeMin = s.xMin;
  b.xRangeMax = s.xMax;
  b.yRangeMin = s.yMin;
  b.yRangeMax = s.yMax;
  b.xResult = &out.x;
  b.yResult = &out.y;
  b.radiusResult = &out.radius;
  b.qualityResult = &out.quality;
  return r;
}

// The documented steps, written out pixel by pixel and level by level.
struct ReferenceBall {
  int x = 0, y = 0, radius = 0, level = 0;
  float quality = 0;
};

int Colourfulness(const YuyvCanvas& f, int blockX, int blockWidth, int row, int col) {
  int pair = col / 2, last = blockWidth / 2 - 1;
  auto u = [&](int p) { return f.CbAt(blockX + 2 * p, row) - 128; };
  auto v = [&](int p) { return f.CrAt(blockX + 2 * p, row) - 128; };
  int value;
  if (col % 2 == 0)
    value = pair == 0 ? abs(u(pair)) + abs(v(pair)) : abs(u(pair)) + (abs(v(pair - 1) + v(pair)) >> 1);
  else
    value = pair == last ? abs(u(pair)) + abs(v(pair)) : abs(v(pair)) + (abs(u(pair) + u(pair + 1)) >> 1);
  return value % 256;
}

ReferenceBall ReferenceSingle(const YuyvCanvas& f, int bx, int by, int bw, int bh, int radiusMin, int radiusMax,
                              int threshold, const Exclusion* exclusions = nullptr, int exclusionCount = 0) {
  ReferenceBall best;
  for (int t = 255; t >= threshold; --t) {
    uint32_t n = 0, sx = 0, sy = 0, sxx = 0, syy = 0;
    for (int y = 0; y < bh; ++y)
      for (int x = 0; x < bw; ++x) {
        bool excluded = false;
        for (int e = 0; e < exclusionCount; ++e)
          excluded |=
              x >= exclusions[e].left && x < exclusions[e].right && y >= exclusions[e].top && y < exclusions[e].bottom;
        if (excluded || Colourfulness(f, bx, bw, by + y, x) < t) continue;
        n += 1, sx += x, sy += y, sxx += x * x, syy += y * y;
      }
    if (!(n > uint32_t(radiusMin * radiusMin * 7 / 10))) continue;
    if (n > uint32_t(radiusMax * radiusMax * 9 / 10)) break;
    float f1 = 1.0f / float(n), mx = float(sx) * f1, my = float(sy) * f1;
    float vx = float(sxx) * f1 - mx * mx, vy = float(syy) * f1 - my * my;
    if (vx * vy == 0) continue;
    float q = float(n) * float(n) / (vx * vy);
    int r = int(std::floor(0.5 + 2.8 * std::sqrt(double(vx + vy))));
    if (!(q > best.quality) || r < radiusMin || r > radiusMax) continue;
    best = {int(std::floor(0.5 + mx)), int(std::floor(0.5 + my)), r, t, q};
  }
  return best;
}

TEST(BallSingleBlockTest, FindsAPaintedDiscWhereItIs) {
  struct Case {
    const char* name;
    int centreX, centreY, radius;
    SingleSetup setup;
    int x, y;  // expected results, from the painted centre and the output scale
  } cases[] = {
      {"whole frame in pixels", 70, 50, 10, {}, 70, 50},
      {"near the corner", 20, 100, 8, {}, 20, 100},
      // Block 40..119 x 20..79 onto -1000..1000; y grows upwards:
      // x = -1000 + 2000 x 40 / 80, y = -1000 + (60 - 30) x 2000 / 60.
      {"block scaled", 80, 50, 9, {40, 20, 80, 60, 2, 1000, 10, -1000, 1000, -1000, 1000}, 0, 0},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(c.centreX, c.centreY, c.radius, kOrange);
    Results out;
    auto ball = Single(c.setup, out);
    RunOneFrame(ball.record.base, frame);
    // One pixel of slack: chroma is shared by pixel pairs.
    const SingleSetup& s = c.setup;
    int slackX = std::max(1, abs(s.xMax - s.xMin) / s.blockWidth);
    int slackY = std::max(1, abs(s.yMax - s.yMin) / s.blockHeight);
    EXPECT_NEAR(out.x, c.x, slackX) << c.name;
    EXPECT_NEAR(out.y, c.y, slackY) << c.name;
    // The blob's spread x 2.8 is about twice the painted radius.
    double radiusPixels = out.radius * double(c.setup.blockWidth) / (c.setup.xMax - c.setup.xMin);
    EXPECT_NEAR(radiusPixels, 1.98 * c.radius, 2.5) << c.name;

    int span = s.xMax - s.xMin;
    ReferenceBall expected =
        ReferenceSingle(frame, s.blockX, s.blockY, s.blockWidth, s.blockHeight, s.radiusMin * s.blockWidth / span,
                        s.radiusMax * s.blockWidth / span, s.threshold * 128 / 100);
    EXPECT_EQ(out.x, s.xMin + span * expected.x / s.blockWidth) << c.name;
    EXPECT_EQ(out.y, s.yMin + (s.blockHeight - expected.y) * (s.yMax - s.yMin) / s.blockHeight) << c.name;
    EXPECT_EQ(out.radius, expected.radius * span / s.blockWidth) << c.name;
    EXPECT_EQ(out.quality, (100 * expected.level) >> 7) << c.name;
  }
}

TEST(BallSingleBlockTest, JudgesBlobsByRoundnessSizeAndLevel) {
  struct Case {
    const char* name;
    void (*paint)(YuyvCanvas&);
    SingleSetup setup;
    bool found;
  } cases[] = {
      {"a uniform block within the radius limit is one big blob",
       [](YuyvCanvas& f) { f.Fill(0, 0, kWidth, kHeight, kOrange); },
       {0, 0, 40, 40, 2, 100, 10, 0, 40},
       true},
      {"a uniform block beyond 0.9 x radius max squared stops the search",
       [](YuyvCanvas& f) { f.Fill(0, 0, kWidth, kHeight, kOrange); },
       {0, 0, 40, 40, 2, 30, 10, 0, 40},
       false},
      {"a one-pixel stripe has no height",
       [](YuyvCanvas& f) { f.Fill(10, 0, 40, 1, kOrange); },
       {0, 0, 80, 40, 2, 100},
       false},
      {"a ball smaller than radius min", [](YuyvCanvas& f) { f.Disc(40, 40, 4, kOrange); }, {.radiusMin = 20}, false},
      {"threshold 100 % still searches the top level",
       [](YuyvCanvas& f) { f.Disc(40, 40, 8, kVivid); },
       {.threshold = 100},
       true},
      {"threshold 200 % searches nothing", [](YuyvCanvas& f) { f.Disc(40, 40, 8, kVivid); }, {.threshold = 200}, false},
      {"a level above the threshold is not searched",
       [](YuyvCanvas& f) { f.Disc(40, 40, 8, kOrange); },
       {.threshold = 150},
       false},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    c.paint(frame);
    Results out;
    auto ball = Single(c.setup, out);
    RunOneFrame(ball.record.base, frame);
    EXPECT_EQ(!out.None(), c.found) << c.name << ": x " << out.x << " r " << out.radius;
    EXPECT_NE(out.x, kUntouched) << c.name << ": no ball writes zeros";
  }
}

TEST(BallSingleBlockTest, BlockEdgesAreEvenAndInsideTheFrame) {
  struct Case {
    int x, y, w, h;
    int x2, y2, w2, h2;
    bool warned;
  } cases[] = {
      {3, 5, 10, 8, 2, 5, 10, 8, false},           // right edge 13 -> 12
      {4, 0, 7, 8, 4, 0, 6, 8, false},             // right edge 11 -> 10
      {-6, -2, 20, 10, 0, 0, 14, 8, true},         // clipped at the left and top
      {150, 110, 20, 20, 150, 110, 10, 10, true},  // clipped at the right and bottom
      {200, 0, 10, 10, 160, 0, 0, 10, true},       // nothing inside
      {0, 0, 0, 0, 0, 0, 0, 0, true},              // empty
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    Results out;
    auto ball = Single({c.x, c.y, c.w, c.h}, out);
    testing::internal::CaptureStderr();
    RunOneFrame(ball.record.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    const CameraAnalysisBallSingleBlock& b = ball.record;
    EXPECT_EQ(b.blockX, c.x2) << c.x << "," << c.y << " " << c.w << "x" << c.h;
    EXPECT_EQ(b.blockY, c.y2) << c.x << "," << c.y << " " << c.w << "x" << c.h;
    EXPECT_EQ(b.blockWidth, c.w2) << c.x << "," << c.y << " " << c.w << "x" << c.h;
    EXPECT_EQ(b.blockHeight, c.h2) << c.x << "," << c.y << " " << c.w << "x" << c.h;
    EXPECT_EQ(errors.find("ERROR ball search block") != std::string::npos, c.warned) << errors;
    EXPECT_TRUE(out.None());
  }
}

TEST(BallSingleBlockTest, ExclusionsBecomeBlockCoordinatesAndBlankTheMap) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(60, 50, 8, kOrange);
  Results out;
  auto ball = Single({20, 10, 100, 80}, out);
  ball.record.exclusionCount = 4;
  ball.exclusions[0] = {0, 0, 30, 200};       // reaches outside: 0..10 x 0..80
  ball.exclusions[1] = {100, 20, 90, 30};     // right < left: empty
  ball.exclusions[2] = {140, 100, 150, 110};  // beyond the block: empty at its corner
  ball.exclusions[3] = {50, 40, 60, 60};      // over the ball's left half
  RunOneFrame(ball.record.base, frame);
  struct {
    int left, top, right, bottom;
  } expected[] = {{0, 0, 10, 80}, {80, 10, 80, 20}, {100, 80, 100, 80}, {30, 30, 40, 50}};
  for (int i = 0; i < 4; ++i) {
    const Exclusion& e = ball.exclusions[i];
    EXPECT_EQ(e.left, expected[i].left) << i;
    EXPECT_EQ(e.top, expected[i].top) << i;
    EXPECT_EQ(e.right, expected[i].right) << i;
    EXPECT_EQ(e.bottom, expected[i].bottom) << i;
  }
  // The right half is what remains; x in 160ths of the block width.
  ReferenceBall reference = ReferenceSingle(frame, 20, 10, 100, 80, 1, 62, 12, ball.exclusions, 4);
  ASSERT_GT(reference.quality, 0);
  EXPECT_EQ(out.x, 160 * reference.x / 100);
  EXPECT_GT(reference.x, 40) << "right of the painted centre";
  EXPECT_EQ(out.radius, reference.radius * 160 / 100);

  Results open;
  auto unblocked = Single({20, 10, 100, 80}, open);
  unblocked.record.exclusionCount = 2;
  unblocked.exclusions[0] = {0, 0, 30, 200};
  unblocked.exclusions[1] = {100, 20, 90, 30};
  RunOneFrame(unblocked.record.base, frame);
  EXPECT_NEAR(open.x, 160 * 40 / 100, 2) << "the ball outside the exclusions is found";
}

TEST(BallSingleBlockTest, NormalizeAndCompareSortExclusions) {
  Exclusion list[] = {{30, 8, 10, 2}, {-5, 0, 4, 4}, {12, 1, 20, 3}, {7, 9, 7, 1}};
  for (Exclusion& e : list) e.Normalize();
  qsort(list, 4, sizeof(Exclusion), Exclusion::Compare);
  int lefts[] = {-5, 7, 10, 12};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(list[i].left, lefts[i]) << i;
  EXPECT_EQ(list[2].right, 30);
  EXPECT_EQ(list[2].top, 2);
  EXPECT_EQ(list[2].bottom, 8);
  EXPECT_EQ(list[1].top, 1);
  EXPECT_EQ(list[1].bottom, 9);
}

TEST(BallSingleBlockTest, CarelessRecordsReportNoBallAndTouchNothing) {
  YuyvCanvas frame(kWidth, kHeight);
  frame.Disc(60, 50, 8, kOrange);
  struct Case {
    const char* name;
    SingleSetup setup;
    int exclusionCount;
    bool found;
    const char* error;
  } cases[] = {
      {"equal x range ends", {.xMin = 5, .xMax = 5}, 0, false, "ERROR ball search with equal x range ends 5"},
      {"negative exclusion count", {}, -1, true, "ERROR ball search exclusion count -1"},
      {"huge exclusion count", {}, 1 << 30, true, "ERROR ball search exclusion count 1073741824"},
      {"zero-size block", {.blockWidth = 0, .blockHeight = 0}, 0, false, "ERROR ball search block"},
  };
  for (const Case& c : cases) {
    Results out;
    auto ball = Single(c.setup, out);
    ball.record.exclusionCount = c.exclusionCount;
    ball.exclusions[0] = {1000, 1000, -1000, -1000};
    testing::internal::CaptureStderr();
    RunOneFrame(ball.record.base, frame);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(!out.None(), c.found) << c.name;
    EXPECT_NE(errors.find(c.error), std::string::npos) << c.name << ": " << errors;
    EXPECT_EQ(ball.exclusions[0].left, 1000) << c.name << ": exclusions left as they were";
    EXPECT_EQ(ball.record.map, nullptr) << c.name << ": freed at Uninit";
  }
}

// Reads what a debug run writes to DebugFile.
std::string DebugOutput(CameraAnalysisBase& record, const YuyvCanvas& frame) {
  FILE* file = tmpfile();
  FILE* savedFile = DebugFile;
  int savedFlags = DebugFlags;
  DebugFile = file;
  DebugFlags = 2;
  RunOneFrame(record, frame);
  DebugFile = savedFile;
  DebugFlags = savedFlags;
  rewind(file);
  std::string text;
  for (int c; (c = fgetc(file)) != EOF;) text += char(c);
  fclose(file);
  return text;
}

TEST(BallSingleBlockTest, DebugLineOnlyForABall) {
  YuyvCanvas frame(kWidth, kHeight);
  Results out;
  auto ball = Single({}, out);
  EXPECT_EQ(DebugOutput(ball.record.base, frame), "");
  frame.Disc(60, 50, 8, kOrange);
  std::string line = DebugOutput(ball.record.base, frame);
  char expected[200];
  // Output in pixels here, so the block position is the result.
  snprintf(expected, sizeof expected, "BA0 x=%d, y=%d, r=", out.x, out.y);
  EXPECT_EQ(line.rfind(expected, 0), 0u) << line;
  snprintf(expected, sizeof expected, ", xo=%d, yo=%d, ro=%d, qo=%d\n", out.x, out.y, out.radius, out.quality);
  EXPECT_NE(line.find(expected), std::string::npos) << line;
}

struct MultiSetup {
  int blockX = 0, blockY = 0, blockWidth = 64, blockHeight = 64;
  int sizeMin = 4, sizeMax = 10, cellSize = 16;
};

WithExclusions<CameraAnalysisBallMultiBlock> Multi(const MultiSetup& s, Results& out) {
  WithExclusions<CameraAnalysisBallMultiBlock> r{};
  CameraAnalysisBallMultiBlock& b = r.record;
  b.base.type = CameraAnalysisTypeBallMultiBlock;
  b.blockX = s.blockX;
  b.blockY = s.blockY;
  b.blockWidth = s.blockWidth;
  b.blockHeight = s.blockHeight;
  b.sizeMin = s.sizeMin;
  b.sizeMax = s.sizeMax;
  b.cellSize = s.cellSize;
  b.xResult = &out.x;
  b.yResult = &out.y;
  b.radiusResult = &out.radius;
  b.qualityResult = &out.quality;
  b.levelResult = &out.level;
  return r;
}

// A small ball of radius 5 across the border of two cells. The whole-block
// pass gives up at once (sizeMax 10: its weighted count passes 90 before it
// reaches 0.7 x 16 x 16), so only a 2 x 2 group can find it.
TEST(BallMultiBlockTest, SmallBallsAreFoundByTheirGroupOfCells) {
  struct Case {
    const char* name;
    MultiSetup setup;
    int centreX, centreY;
    bool found;
  } cases[] = {
      {"across a column border", {}, 32, 20, true},
      {"across a row border", {}, 40, 16, true},
      {"one row of cells has no groups", {.blockHeight = 16}, 32, 8, false},
      {"one column of cells has no groups", {.blockWidth = 16}, 8, 32, false},
      {"one cell", {.cellSize = 64}, 32, 20, false},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(c.centreX, c.centreY, 5, kOrange);
    Results out;
    auto ball = Multi(c.setup, out);
    RunOneFrame(ball.record.base, frame);
    ASSERT_EQ(out.quality > 0, c.found) << c.name;
    if (!c.found) {
      EXPECT_TRUE(out.None() && out.level == 0) << c.name;
      continue;
    }
    // -1000..1000 across 64 pixels: 31.25 a pixel; y grows downwards.
    EXPECT_NEAR(out.x, c.centreX * 2000 / 64 - 1000, 32) << c.name;
    EXPECT_NEAR(out.y, c.centreY * 2000 / 64 - 1000, 32) << c.name;
    EXPECT_NEAR(out.radius, 5 / std::sqrt(2.0), 1.5) << c.name;  // sqrt(var x + var y) of a disc
    // The halo of neutral pixels next to the ball's chroma rates 24 and up.
    EXPECT_TRUE(out.level >= 24 && out.level <= 120) << c.name << ": level " << out.level;
  }
}

TEST(BallMultiBlockTest, LargeBallsAreFoundOverTheWholeBlock) {
  struct Case {
    const char* name;
    MultiSetup setup;
  } cases[] = {
      // sizeMin 100: no group of 8 x 8 cells reaches 0.7 x 100 x 100 pixels.
      {"groups never hold enough", {.sizeMin = 100, .sizeMax = 200, .cellSize = 8}},
      {"one row of cells goes straight to the whole block", {.blockHeight = 32, .sizeMax = 200, .cellSize = 32}},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(40, 16, 12, kOrange);
    Results out;
    auto ball = Multi(c.setup, out);
    RunOneFrame(ball.record.base, frame);
    // y grows downwards: the upper part of the block is below 0.
    EXPECT_NEAR(out.x, 40 * 2000 / c.setup.blockWidth - 1000, 32) << c.name;
    EXPECT_NEAR(out.y, 16 * 2000 / c.setup.blockHeight - 1000, 63) << c.name;
    EXPECT_NEAR(out.radius, 12 / std::sqrt(2.0), 2) << c.name;
  }
}

TEST(BallMultiBlockTest, QualityIsTheFourthRootCappedAt10000) {
  struct Case {
    float quality;
    int result;
  } cases[] = {{16, 2}, {81, 3}, {158, 3}, {9.9e15f, 9974}, {1e16f, 10000}, {3e38f, 10000}};
  for (const Case& c : cases) EXPECT_EQ(CameraBallQualityResult(c.quality), c.result) << c.quality;
}

TEST(BallMultiBlockTest, DebugLinesNameTheCells) {
  YuyvCanvas frame(kWidth, kHeight);
  Results out;
  auto ball = Multi({.blockWidth = 60, .blockHeight = 40, .cellSize = 16}, out);  // 4 x 3 cells
  EXPECT_EQ(DebugOutput(ball.record.base, frame), "BA0 n=12\n");
  frame.Disc(32, 20, 5, kOrange);
  ball.record.yResult = nullptr;
  std::string lines = DebugOutput(ball.record.base, frame);
  char expected[200];
  snprintf(expected, sizeof expected, ", xo=%d, yo=0, ro=%d, qo=%d\n", out.x, out.radius, out.quality);
  EXPECT_EQ(lines.rfind("BA0 n=12\nBA0 x=", 0), 0u) << lines;
  EXPECT_NE(lines.find(expected), std::string::npos) << lines;
}

// A cell larger than the block is one cell, and the whole-block pass then
// wants 0.7 x its size squared: no error, but no ball of this size.
TEST(BallMultiBlockTest, CarelessCellSizesReportNoBall) {
  struct Case {
    const char* name;
    int cellSize;
    int cells;
    const char* error;
  } cases[] = {
      {"zero", 0, 0, "ERROR ball search cell size 0"},
      {"negative", -16, 0, "ERROR ball search cell size -16"},
      {"too many cells", 1, 0, "ERROR ball search cell size 1 makes more than 4096 cells"},
      {"larger than the block", 1000, 1, ""},
  };
  for (const Case& c : cases) {
    YuyvCanvas frame(kWidth, kHeight);
    frame.Disc(40, 40, 12, kOrange);
    Results out;
    auto ball = Multi({.blockWidth = kWidth, .blockHeight = kHeight, .sizeMax = 200, .cellSize = c.cellSize}, out);
    testing::internal::CaptureStderr();
    CameraInitAnalysis(&ball.record.base, kWidth, kHeight);
    EXPECT_EQ(ball.record.cellsAcross * ball.record.cellsDown, c.cells) << c.name;
    EXPECT_EQ(ball.record.cellTables != nullptr, c.cells > 0) << c.name;
    CameraRunAnalysis(&ball.record.base, frame.data(), frame.data(), nullptr, 0);
    CameraUninitAnalysis(&ball.record.base);
    std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(out.None()) << c.name;
    EXPECT_NE(errors.find(c.error), std::string::npos) << c.name << ": " << errors;
    if (!*c.error) {
      EXPECT_EQ(errors, "") << c.name;
    }
  }
}

TEST(BallMultiBlockTest, InitFillsTheGammaMap) {
  Results out;
  auto ball = Multi({}, out);
  RunOneFrame(ball.record.base, YuyvCanvas(kWidth, kHeight));
  // floor(0.5 + (i / 255)^0.2 x 255), worked out with a calculator.
  EXPECT_EQ(GammaMap[0], 0);
  EXPECT_EQ(GammaMap[1], 84);
  EXPECT_EQ(GammaMap[2], 97);
  EXPECT_EQ(GammaMap[128], 222);
  EXPECT_EQ(GammaMap[255], 255);
}

}  // namespace
