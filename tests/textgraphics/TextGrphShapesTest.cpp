// Lines, rectangles and wedges: exact pixels and the bounds of each operation.
#include <cmath>
#include <cstdlib>

#include "TextGrphFixture.h"

namespace {

using Shapes = TextGraphics;

TEST_F(Shapes, StraightLinesDrawOnlyWhenWhollyInside) {
  using Line = void (*)(int32_t, int32_t, int32_t);
  const Line h = TextGrph_DrawHLine, v = TextGrph_DrawVLine;
  const Line hd = TextGrph_DrawHLineDotted, vd = TextGrph_DrawVLineDotted;
  const struct { Line draw; int x, y, n, pixels; } cases[] = {
      {h, 0, 0, 128, 128}, {h, 1, 0, 128, 0},   {h, -1, 0, 5, 0},  {h, 0, 63, 5, 5},  {h, 0, 64, 5, 0},
      {h, 0, -1, 5, 0},    {h, 3, 3, 0, 0},     {h, 10, 3, -4, 0}, {v, 127, 0, 64, 64}, {v, 0, 1, 64, 0},
      {v, 128, 0, 5, 0},   {v, -1, 0, 5, 0},    {v, 0, -1, 5, 0},  {v, 3, 3, 0, 0},   {v, 3, 10, -4, 0},
      {hd, 1, 0, 128, 0},  {hd, 0, 5, 128, 64}, {vd, 0, 1, 64, 0}, {vd, 0, 0, 64, 32},
  };
  for (const auto& c : cases) {
    Fill(0);
    c.draw(c.x, c.y, c.n);
    EXPECT_EQ(CountSet(), c.pixels) << "line " << (&c - cases) << " at " << c.x << "," << c.y << " of " << c.n;
  }
  // Solid lines set their pixels; dotted ones write both phases over a set background.
  Fill(0);
  TextGrph_DrawHLine(3, 1, 14);
  TextGrph_DrawVLine(1, 0, 3);
  TextGrph_DrawHLine(9, 3, 2);
  EXPECT_EQ(Region(0, 0, 20, 4),
            ".#..................\n.#.##############...\n.#..................\n.........##.........\n");
  EXPECT_EQ(CountSet(), 19);
  Fill(0xFF);
  TextGrph_DrawHLineDotted(3, 0, 9);
  TextGrph_DrawHLineDotted(4, 1, 9);
  TextGrph_DrawVLineDotted(1, 2, 4);
  EXPECT_EQ(Region(0, 0, 14, 6),
            "####.#.#.#.###\n#####.#.#.#.##\n##############\n#.############\n##############\n#.############\n");
}

// Each shape from a cursor at (10 + 8 i, 20), side by side; the picture
// starts one pixel above and left of the first.
TEST_F(Shapes, RectanglesAndWedgesAtTheCursor) {
  const struct { void (*draw)(int32_t, int32_t); int w, h; } shapes[] = {
      {TextGrph_DrawRectangle, 5, 3},         {TextGrph_DrawRectangle, 0, 0},
      {TextGrph_DrawRectangleRounded, 5, 3},  {TextGrph_DrawRectangleDotted, 4, 4},
      {TextGrph_DrawRectangleDotted, 5, 3},   {TextGrph_DrawRectangleDotted, 3, 4},
      {TextGrph_DrawRectangleDotted, 4, 3},   {TextGrph_DrawWedgeUpperRight, 5, 3},
      {TextGrph_DrawWedgeLowerLeft, 5, 3},    {TextGrph_DrawWedgeUpperRightDotted, 5, 4},
      {TextGrph_DrawWedgeLowerLeftDotted, 5, 4},
  };
  for (int i = 0; i < 11; ++i) {
    PlaceCursor(10 + 8 * i, 20);
    shapes[i].draw(shapes[i].w, shapes[i].h);
    EXPECT_EQ(TextGrph.CursorX, 10 + 8 * i) << "shape " << i << " moved the cursor";
  }
  EXPECT_EQ(Region(9, 19, 88, 6),
            "........................................................................................\n"
            ".######..#........####...#.#.#...#.#.#...#.#.....#.#.#....####...........#.#.#..........\n"
            ".#....#..........#....#...............#.....#.................#..#............#..#......\n"
            ".#....#..........#....#..#...#...#.......#.......#...#........#..#......................\n"
            ".######...........####............#.#.#.....#.....#.#.............####........#..#......\n"
            ".........................#.#.#...........#.#.....................................#.#.#..\n");
  EXPECT_EQ(CountSet(), CountSetIn(9, 19, 88, 6));
}

// Columns x .. x + w of h + 1 rows, one row fewer within one byte.
TEST_F(Shapes, FilledRectanglesFillOneRowFewerWithinOneByte) {
  const struct { int x, y, w, h, rows; } cases[] = {  // rows 0: nothing drawn
      {4, 1, 9, 2, 3},     {9, 1, 3, 2, 2},     {5, 1, 3, 2, 3},      {16, 5, 1, 4, 4},  {100, 50, 27, 13, 14},
      {100, 50, 28, 5, 0}, {100, 50, 5, 14, 0}, {10, 10, 0, 5, 0},    {10, 10, 5, 0, 0}, {10, 10, -3, 5, 0},
      {-1, 10, 5, 5, 0},   {10, 64, 5, 5, 0},
  };
  for (const auto& c : cases) {
    const int filled = c.rows * (c.w + 1);
    SCOPED_TRACE(::testing::Message() << c.w << " x " << c.h << " at " << c.x << "," << c.y);
    Fill(0);
    PlaceCursor(c.x, c.y);
    TextGrph_DrawRectangleBlack(c.w, c.h);
    EXPECT_EQ(CountSet(), filled);
    if (c.rows > 0) {
      EXPECT_EQ(CountSetIn(c.x, c.y, c.w + 1, c.rows), filled);
    }
    Fill(0xFF);
    TextGrph_DrawRectangleWhite(c.w, c.h);
    EXPECT_EQ(128 * 64 - CountSet(), filled) << "white";
  }
}

// Bresenham: one pixel per step of the longer axis, both ends included, each
// within half a pixel of the true line; the part inside the buffer is drawn
// however far off the end lies.
TEST_F(Shapes, LinesRunFromTheCursorToTheEndPoint) {
  const struct { int x0, y0, x1, y1; } cases[] = {
      {0, 0, 127, 63},  {127, 0, 0, 63},  {10, 10, 10, 40}, {5, 5, 105, 5}, {20, 20, 30, 30},
      {50, 10, 40, 60}, {90, 50, 3, 47},  {64, 32, 64, 32}, {0, 63, 63, 0},
  };
  for (const auto& c : cases) {
    Fill(0);
    PlaceCursor(c.x0, c.y0);
    TextGrph_DrawLine(c.x1, c.y1);
    const int dx = std::abs(c.x1 - c.x0), dy = std::abs(c.y1 - c.y0);
    SCOPED_TRACE(::testing::Message() << "(" << c.x0 << "," << c.y0 << ") to (" << c.x1 << "," << c.y1 << ")");
    EXPECT_TRUE(Pixel(c.x0, c.y0) && Pixel(c.x1, c.y1));
    EXPECT_EQ(CountSet(), std::max(dx, dy) + 1);
    EXPECT_EQ(TextGrph.CursorX, c.x0);
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 128; ++x) {
        if (!Pixel(x, y)) continue;
        const double t = dx > dy ? double(x - c.x0) / (c.x1 - c.x0) : dy ? double(y - c.y0) / (c.y1 - c.y0) : 0;
        const double off = dx > dy ? y - (c.y0 + t * (c.y1 - c.y0)) : x - (c.x0 + t * (c.x1 - c.x0));
        EXPECT_LE(std::fabs(off), 0.5) << "pixel " << x << "," << y;
      }
  }
  const struct { int x0, y0, x1, y1, lastX, lastY, pixels; } offBuffer[] = {  // last: the last pixel inside
      {120, 60, 140, 70, 127, 63, 8}, {0, 10, INT32_MAX, 12, 127, 10, 128}, {5, 10, INT32_MIN, 10, 0, 10, 6},
      {3, 0, 3, INT32_MAX, 3, 63, 64}, {3, 7, 4, INT32_MIN, 3, 0, 8},
  };
  for (const auto& c : offBuffer) {
    Fill(0);
    PlaceCursor(c.x0, c.y0);
    TextGrph_DrawLine(c.x1, c.y1);
    EXPECT_EQ(CountSet(), c.pixels) << "to " << c.x1 << "," << c.y1;
    EXPECT_TRUE(Pixel(c.x0, c.y0) && Pixel(c.lastX, c.lastY)) << "to " << c.x1 << "," << c.y1;
  }
}

// Positions and sizes anywhere in the 32-bit range draw what the same shape
// draws with values just past the buffer (of the same parity, as the dotted
// shapes depend on it): no sum wraps round into the buffer, and the sanitizer
// build checks that none overflows on the way.
TEST_F(Shapes, FarArgumentsDrawAsArgumentsJustPastTheBuffer) {
  using Draw = void (*)(int32_t x, int32_t y, int32_t w, int32_t h);
  static const struct { const char* name; Draw draw; } shapes[] = {
#define KAVRI_AT_CURSOR(f) {#f, [](int32_t x, int32_t y, int32_t w, int32_t h) { PlaceCursor(x, y), f(w, h); }}
      KAVRI_AT_CURSOR(TextGrph_DrawRectangle),           KAVRI_AT_CURSOR(TextGrph_DrawRectangleRounded),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleDotted),     KAVRI_AT_CURSOR(TextGrph_DrawRectangleBlack),
      KAVRI_AT_CURSOR(TextGrph_DrawRectangleWhite),      KAVRI_AT_CURSOR(TextGrph_DrawWedgeUpperRight),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeLowerLeft),      KAVRI_AT_CURSOR(TextGrph_DrawWedgeUpperRightDotted),
      KAVRI_AT_CURSOR(TextGrph_DrawWedgeLowerLeftDotted),
#undef KAVRI_AT_CURSOR
      {"TextGrph_DrawHLine", [](int32_t x, int32_t y, int32_t w, int32_t) { TextGrph_DrawHLine(x, y, w); }},
      {"TextGrph_DrawVLineDotted", [](int32_t x, int32_t y, int32_t, int32_t h) { TextGrph_DrawVLineDotted(x, y, h); }},
      {"TextGrph_DrawSliderHor",
       [](int32_t x, int32_t y, int32_t w, int32_t h) { TextGrph_DrawSliderHor(x, y, w, h, 0, 0, 1, 1, 0, 0); }},
      {"TextGrph_DrawSliderFocusVert",
       [](int32_t x, int32_t y, int32_t w, int32_t h) { TextGrph_DrawSliderFocusVert(x, y, w, h, 0, 0, 1, 1, 0, 1); }},
  };
  static const struct { int32_t value, nearby; } fars[] = {
      {INT32_MAX, 1001}, {INT32_MAX - 1, 1000}, {INT32_MIN, -1000}, {INT32_MIN + 1, -1001}};
  auto drawn = [this](Draw draw, const int32_t (&v)[4]) {
    Fill(0);
    draw(v[0], v[1], v[2], v[3]);
    return Region(0, 0, KAVRI_DISPLAY_WIDTH, KAVRI_DISPLAY_HEIGHT);
  };
  for (const auto& shape : shapes) {
    for (int farArgument = 0; farArgument < 4; ++farArgument) {
      for (const auto& far : fars) {
        for (int32_t other : {-1, 0, 5, 127}) {
          int32_t extreme[4] = {other, other / 2, other, other / 2}, nearby[4] = {other, other / 2, other, other / 2};
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
