// Lines, rectangles and wedges: exact pixels and the bounds of each operation.
#include <cmath>
#include <cstdlib>

#include "TextGrphFixture.h"

namespace {

using Shapes = TextGraphics;

TEST_F(Shapes, LinesDrawOnlyWhenWhollyInside) {
  struct Case {
    const char* what;
    void (*draw)(int32_t, int32_t, int32_t);
    int x, y, n;
    int expectedPixels;
  } cases[] = {
      {"full row", TextGrph_DrawHLine, 0, 0, 128, 128},
      {"row one past the right", TextGrph_DrawHLine, 1, 0, 128, 0},
      {"row left of the buffer", TextGrph_DrawHLine, -1, 0, 5, 0},
      {"last row", TextGrph_DrawHLine, 0, 63, 5, 5},
      {"row below the buffer", TextGrph_DrawHLine, 0, 64, 5, 0},
      {"row above the buffer", TextGrph_DrawHLine, 0, -1, 5, 0},
      {"empty row", TextGrph_DrawHLine, 3, 3, 0, 0},
      {"negative row", TextGrph_DrawHLine, 10, 3, -4, 0},
      {"full column", TextGrph_DrawVLine, 127, 0, 64, 64},
      {"column one past the bottom", TextGrph_DrawVLine, 0, 1, 64, 0},
      {"column right of the buffer", TextGrph_DrawVLine, 128, 0, 5, 0},
      {"column left of the buffer", TextGrph_DrawVLine, -1, 0, 5, 0},
      {"column above the buffer", TextGrph_DrawVLine, 0, -1, 5, 0},
      {"empty column", TextGrph_DrawVLine, 3, 3, 0, 0},
      {"negative column", TextGrph_DrawVLine, 3, 10, -4, 0},
      {"dotted row one past the right", TextGrph_DrawHLineDotted, 1, 0, 128, 0},
      {"dotted full row", TextGrph_DrawHLineDotted, 0, 5, 128, 64},
      {"dotted column one past the bottom", TextGrph_DrawVLineDotted, 0, 1, 64, 0},
      {"dotted full column", TextGrph_DrawVLineDotted, 0, 0, 64, 32},
  };
  for (const Case& c : cases) {
    Fill(0);
    c.draw(c.x, c.y, c.n);
    EXPECT_EQ(CountSet(), c.expectedPixels) << c.what;
  }
}

TEST_F(Shapes, LinesSetExactlyTheirPixels) {
  TextGrph_DrawHLine(3, 1, 14);
  TextGrph_DrawVLine(1, 0, 3);
  TextGrph_DrawHLine(9, 3, 2);
  EXPECT_EQ(Region(0, 0, 20, 4),
            ".#..................\n"
            ".#.##############...\n"
            ".#..................\n"
            ".........##.........\n");
  EXPECT_EQ(CountSet(), 19);
}

TEST_F(Shapes, DottedLinesWriteBothPhases) {
  Fill(0xFF);
  TextGrph_DrawHLineDotted(3, 0, 9);
  TextGrph_DrawHLineDotted(4, 1, 9);
  TextGrph_DrawVLineDotted(1, 2, 4);
  EXPECT_EQ(Region(0, 0, 14, 6),
            "####.#.#.#.###\n"
            "#####.#.#.#.##\n"
            "##############\n"
            "#.############\n"
            "##############\n"
            "#.############\n");
}

TEST_F(Shapes, RectanglesAndWedgesAtTheCursor) {
  struct Case {
    const char* what;
    void (*draw)(int32_t, int32_t);
    int w, h;
    const char* picture;  // 8 x 6 from one pixel above and left of the cursor
  } cases[] = {
      {"rectangle", TextGrph_DrawRectangle, 5, 3,
       "........\n"
       ".######.\n"
       ".#....#.\n"
       ".#....#.\n"
       ".######.\n"
       "........\n"},
      {"single pixel rectangle", TextGrph_DrawRectangle, 0, 0,
       "........\n"
       ".#......\n"
       "........\n"
       "........\n"
       "........\n"
       "........\n"},
      {"rounded rectangle", TextGrph_DrawRectangleRounded, 5, 3,
       "........\n"
       "..####..\n"
       ".#....#.\n"
       ".#....#.\n"
       "..####..\n"
       "........\n"},
      {"dotted rectangle, even sides", TextGrph_DrawRectangleDotted, 4, 4,
       "........\n"
       ".#.#.#..\n"
       "........\n"
       ".#...#..\n"
       "........\n"
       ".#.#.#..\n"},
      {"dotted rectangle, odd sides", TextGrph_DrawRectangleDotted, 5, 3,
       "........\n"
       ".#.#.#..\n"
       "......#.\n"
       ".#......\n"
       "..#.#.#.\n"
       "........\n"},
      {"dotted rectangle, odd width", TextGrph_DrawRectangleDotted, 3, 4,
       "........\n"
       ".#.#....\n"
       "....#...\n"
       ".#......\n"
       "....#...\n"
       ".#.#....\n"},
      {"dotted rectangle, odd height", TextGrph_DrawRectangleDotted, 4, 3,
       "........\n"
       ".#.#.#..\n"
       "........\n"
       ".#...#..\n"
       "..#.#...\n"
       "........\n"},
      {"upper right wedge", TextGrph_DrawWedgeUpperRight, 5, 3,
       "........\n"
       "..####..\n"
       "......#.\n"
       "......#.\n"
       "........\n"
       "........\n"},
      {"lower left wedge", TextGrph_DrawWedgeLowerLeft, 5, 3,
       "........\n"
       "........\n"
       ".#......\n"
       ".#......\n"
       "..####..\n"
       "........\n"},
      {"dotted upper right wedge", TextGrph_DrawWedgeUpperRightDotted, 5, 4,
       "........\n"
       ".#.#.#..\n"
       "......#.\n"
       "........\n"
       "......#.\n"
       "........\n"},
      {"dotted lower left wedge", TextGrph_DrawWedgeLowerLeftDotted, 5, 4,
       "........\n"
       "........\n"
       ".#......\n"
       "........\n"
       ".#......\n"
       ".#.#.#..\n"},
  };
  for (const Case& c : cases) {
    Fill(0);
    PlaceCursor(10, 20);
    c.draw(c.w, c.h);
    EXPECT_EQ(Region(9, 19, 8, 6), c.picture) << c.what;
    EXPECT_EQ(CountSet(), CountSetIn(9, 19, 8, 6)) << c.what;
    EXPECT_EQ(TextGrph.CursorX, 10) << c.what;
  }
}

TEST_F(Shapes, FilledRectanglesFillOneRowFewerWithinOneByte) {
  struct Case {
    const char* what;
    int x, y, w, h;
    int rows;  // 0: nothing drawn
  } cases[] = {
      {"across bytes", 4, 1, 9, 2, 3},
      {"within one byte", 9, 1, 3, 2, 2},
      {"within one byte, one column", 16, 5, 1, 4, 4},
      {"to the last column and row", 100, 50, 27, 13, 14},
      {"past the last column", 100, 50, 28, 5, 0},
      {"past the last row", 100, 50, 5, 14, 0},
      {"zero width", 10, 10, 0, 5, 0},
      {"zero height", 10, 10, 5, 0, 0},
      {"negative width", 10, 10, -3, 5, 0},
      {"cursor left of the buffer", -1, 10, 5, 5, 0},
      {"cursor below the buffer", 10, 64, 5, 5, 0},
  };
  for (const Case& c : cases) {
    Fill(0);
    PlaceCursor(c.x, c.y);
    TextGrph_DrawRectangleBlack(c.w, c.h);
    const int filled = c.rows > 0 ? c.rows * (c.w + 1) : 0;
    EXPECT_EQ(CountSet(), filled) << c.what;
    if (c.rows > 0) {
      EXPECT_EQ(CountSetIn(c.x, c.y, c.w + 1, c.rows), filled) << c.what;
    }
    Fill(0xFF);
    TextGrph_DrawRectangleWhite(c.w, c.h);
    EXPECT_EQ(128 * 64 - CountSet(), filled) << c.what << " (white)";
  }
}

// Bresenham: one pixel per step of the longer axis, both ends included, each
// within half a pixel of the true line.
TEST_F(Shapes, LinesRunFromTheCursorToTheEndPoint) {
  struct Case {
    int x0, y0, x1, y1;
  } cases[] = {
      {0, 0, 127, 63}, {127, 0, 0, 63}, {10, 10, 10, 40}, {5, 5, 105, 5}, {20, 20, 30, 30},
      {50, 10, 40, 60}, {90, 50, 3, 47}, {64, 32, 64, 32}, {0, 63, 63, 0},
  };
  for (const Case& c : cases) {
    Fill(0);
    PlaceCursor(c.x0, c.y0);
    TextGrph_DrawLine(c.x1, c.y1);
    const int dx = std::abs(c.x1 - c.x0), dy = std::abs(c.y1 - c.y0);
    const bool alongX = dx > dy;
    SCOPED_TRACE(::testing::Message() << "(" << c.x0 << "," << c.y0 << ") to (" << c.x1 << "," << c.y1 << ")");
    EXPECT_TRUE(Pixel(c.x0, c.y0));
    EXPECT_TRUE(Pixel(c.x1, c.y1));
    EXPECT_EQ(CountSet(), std::max(dx, dy) + 1);
    EXPECT_EQ(TextGrph.CursorX, c.x0);
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 128; ++x) {
        if (!Pixel(x, y)) continue;
        const double t = alongX ? double(x - c.x0) / (c.x1 - c.x0) : dy ? double(y - c.y0) / (c.y1 - c.y0) : 0;
        const double off = alongX ? y - (c.y0 + t * (c.y1 - c.y0)) : x - (c.x0 + t * (c.x1 - c.x0));
        EXPECT_LE(std::fabs(off), 0.5) << "pixel " << x << "," << y;
      }
  }
}

// The part inside the buffer is drawn, one pixel per step, however far off
// the end lies.
TEST_F(Shapes, LinePointsOffTheBufferAreSkipped) {
  struct Case {
    const char* what;
    int x0, y0, x1, y1;
    int lastX, lastY;  // the last pixel inside the buffer
    int pixels;
  } cases[] = {
      {"off the corner", 120, 60, 140, 70, 127, 63, 8},
      {"end far to the right", 0, 10, INT32_MAX, 12, 127, 10, 128},
      {"end far to the left", 5, 10, INT32_MIN, 10, 0, 10, 6},
      {"end far below", 3, 0, 3, INT32_MAX, 3, 63, 64},
      {"end far above", 3, 7, 4, INT32_MIN, 3, 0, 8},
  };
  for (const Case& c : cases) {
    Fill(0);
    PlaceCursor(c.x0, c.y0);
    TextGrph_DrawLine(c.x1, c.y1);
    EXPECT_EQ(CountSet(), c.pixels) << c.what;
    EXPECT_TRUE(Pixel(c.x0, c.y0)) << c.what;
    EXPECT_TRUE(Pixel(c.lastX, c.lastY)) << c.what;
  }
}

// Positions and sizes anywhere in the 32-bit range draw what the same shape
// draws with values just past the buffer (of the same parity, as the dotted
// shapes depend on it): no sum wraps round into the buffer, and the sanitizer
// build checks that none overflows on the way.
TEST_F(Shapes, FarArgumentsDrawAsArgumentsJustPastTheBuffer) {
  using Draw = void (*)(int32_t x, int32_t y, int32_t w, int32_t h);
  struct Shape {
    const char* name;
    Draw draw;
  };
  static const Shape shapes[] = {
#define KAVRI_AT_CURSOR(f) {#f, [](int32_t x, int32_t y, int32_t w, int32_t h) { PlaceCursor(x, y), f(w, h); }}
      KAVRI_AT_CURSOR(TextGrph_DrawRectangle),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleRounded),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleDotted),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleBlack),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleWhite),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeUpperRight),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeLowerLeft),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeUpperRightDotted),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeLowerLeftDotted),
#undef KAVRI_AT_CURSOR
      {"TextGrph_DrawHLine", [](int32_t x, int32_t y, int32_t w, int32_t) { TextGrph_DrawHLine(x, y, w); }},
      {"TextGrph_DrawVLineDotted", [](int32_t x, int32_t y, int32_t, int32_t h) { TextGrph_DrawVLineDotted(x, y, h); }},
      {"TextGrph_DrawSliderHor",
       [](int32_t x, int32_t y, int32_t w, int32_t h) { TextGrph_DrawSliderHor(x, y, w, h, 0, 0, 1, 1, 0, 0); }},
      {"TextGrph_DrawSliderFocusVert",
       [](int32_t x, int32_t y, int32_t w, int32_t h) { TextGrph_DrawSliderFocusVert(x, y, w, h, 0, 0, 1, 1, 0, 1); }},
  };
  struct Far {
    int32_t value, nearby;
  };
  static const Far fars[] = {{INT32_MAX, 1001}, {INT32_MAX - 1, 1000}, {INT32_MIN, -1000}, {INT32_MIN + 1, -1001}};
  static const int32_t inside[] = {-1, 0, 5, 127};
  auto drawn = [this](Draw draw, const int32_t (&v)[4]) {
    Fill(0);
    draw(v[0], v[1], v[2], v[3]);
    return Region(0, 0, KAVRI_DISPLAY_WIDTH, KAVRI_DISPLAY_HEIGHT);
  };
  for (const Shape& shape : shapes) {
    for (int farArgument = 0; farArgument < 4; ++farArgument) {
      for (const Far& far : fars) {
        for (int32_t other : inside) {
          int32_t extreme[4] = {other, other / 2, other, other / 2};
          int32_t nearby[4] = {other, other / 2, other, other / 2};
          extreme[farArgument] = far.value;
          nearby[farArgument] = far.nearby;
          EXPECT_EQ(drawn(shape.draw, extreme), drawn(shape.draw, nearby))
              << shape.name << " with argument " << farArgument << " = " << far.value << ", others " << other;
        }
      }
    }
  }
}

}  // namespace
