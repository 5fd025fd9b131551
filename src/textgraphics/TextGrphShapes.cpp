// Lines, rectangles, wedges and sliders of the text graphics.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "TextGrphPixels.h"
#include "kavri/TextGrph.h"

using namespace textgrph;

namespace {

constexpr uint8_t kSolid = 0xFF;
constexpr uint8_t kClear = 0x00;

// The shapes work out their corners and lengths in 64 bits: a program may
// pass any 32-bit position and size, and a sum past the 32-bit range is off
// the buffer, never wrapped back into it.

// Dots on the pixels whose parity is that of x.
uint8_t DotPattern(int64_t x) { return (x % 2 == 0) ? 0xAA : 0x55; }

bool HLineInBuffer(int64_t x, int64_t y, int64_t n) {
  return n > 0 && x >= 0 && y >= 0 && x + n <= TextGrph.Width && y < TextGrph.Height;
}

// Negative lengths draw nothing: they would reach outside the buffer.
bool VLineInBuffer(int64_t x, int64_t y, int64_t n) {
  return n > 0 && x >= 0 && y >= 0 && x < TextGrph.Width && y + n <= TextGrph.Height;
}

void WriteHLine(int64_t x, int64_t y, int64_t n, uint8_t pattern) {
  if (HLineInBuffer(x, y, n))
    WriteRowSpan(RowOf(static_cast<int32_t>(y)), static_cast<int32_t>(x), static_cast<int32_t>(n), pattern);
}

// Row i of the line is set where isSet(i) holds, cleared elsewhere.
template <typename IsSet>
void WriteVLine(int64_t x, int64_t y, int64_t n, IsSet isSet) {
  if (!VLineInBuffer(x, y, n)) return;
  for (int32_t i = 0; i < n; ++i) WritePixel(static_cast<int32_t>(x), static_cast<int32_t>(y) + i, isSet(i));
}

void HLine(int64_t x, int64_t y, int64_t n) { WriteHLine(x, y, n, kSolid); }
void VLine(int64_t x, int64_t y, int64_t n) {
  WriteVLine(x, y, n, [](int32_t) { return true; });
}
void HLineDotted(int64_t x, int64_t y, int64_t n) { WriteHLine(x, y, n, DotPattern(x)); }
void VLineDotted(int64_t x, int64_t y, int64_t n) {
  WriteVLine(x, y, n, [](int32_t i) { return i % 2 == 0; });
}

struct Corner {
  int64_t x, y;
};
Corner CursorCorner() { return {TextGrph.CursorX, TextGrph.CursorY}; }

bool FilledRectangleInBuffer(Corner c, int64_t w, int64_t h) {
  return w > 0 && h > 0 && InBuffer(c.x, c.y) && c.x + w < TextGrph.Width && c.y + h < TextGrph.Height;
}

// Columns x .. x + w of rows y .. y + h; one row fewer when the columns share
// one byte, as the filled rectangles have always done.
void FillRectangle(Corner c, int64_t w, int64_t h, uint8_t pattern) {
  if (!FilledRectangleInBuffer(c, w, h)) return;
  const auto x = static_cast<int32_t>(c.x), y = static_cast<int32_t>(c.y);
  const auto width = static_cast<int32_t>(w), height = static_cast<int32_t>(h);
  const int32_t rows = (x / 8 == (x + width) / 8) ? height : height + 1;
  for (int32_t r = 0; r < rows; ++r) WriteRowSpan(RowOf(y + r), x, width + 1, pattern);
}

void Rectangle(Corner c, int64_t w, int64_t h) {
  HLine(c.x, c.y, w + 1);
  VLine(c.x, c.y + 1, h - 1);
  VLine(c.x + w, c.y + 1, h - 1);
  HLine(c.x, c.y + h, w + 1);
}

void RectangleRounded(Corner c, int64_t w, int64_t h) {
  HLine(c.x + 1, c.y, w - 1);
  VLine(c.x, c.y + 1, h - 1);
  VLine(c.x + w, c.y + 1, h - 1);
  HLine(c.x + 1, c.y + h, w - 1);
}

// The right and bottom lines start one pixel later when their corner would
// break the dot pattern, so the dots run on round the corners.
void RectangleDotted(Corner c, int64_t w, int64_t h) {
  HLineDotted(c.x, c.y, w + 1);
  VLineDotted(c.x, c.y, h + 1);
  if (w % 2 != 0)
    VLineDotted(c.x + w, c.y + 1, h);
  else
    VLineDotted(c.x + w, c.y, h + 1);
  if (h % 2 != 0)
    HLineDotted(c.x + 1, c.y + h, w);
  else
    HLineDotted(c.x, c.y + h, w + 1);
}

void SetPixelIfInBuffer(int64_t x, int64_t y) {
  if (InBuffer(x, y)) WritePixel(static_cast<int32_t>(x), static_cast<int32_t>(y), true);
}

// True once a walk along an axis of `extent` pixels in direction `step` has
// passed the far side, from where it never comes back.
bool PastEdge(int64_t pos, int64_t step, int32_t extent) { return step > 0 ? pos >= extent : pos < 0; }

struct Slider {
  int32_t x, y, w, h, value, min, div1, div2, focus, id;
  bool vertical;
};

bool SliderDivisorsValid(const Slider& s) {
  if (s.div1 != 0 && s.div2 != 0) return true;
  fprintf(stderr, "ERROR TextGrph slider %d with a zero divisor\n", static_cast<int>(s.id));
  return false;
}

// The knob is about half the slider's thickness long; it travels the length
// less its own size.
int64_t KnobSize(const Slider& s) { return ((s.vertical ? int64_t(s.w) : s.h) + 1) / 2; }

// In 64 bits: value - min may not fit 32, and the lowest value over -1 would
// trap. False when even 64 bits cannot hold the product: the knob then lies
// far beyond the buffer.
bool KnobOffset(const Slider& s, int64_t& offset) {
  const int64_t travel = (s.vertical ? s.h : s.w) - KnobSize(s);
  const int64_t steps = (static_cast<int64_t>(s.value) - s.min) / s.div1;
  int64_t distance;
  if (__builtin_mul_overflow(travel, steps, &distance)) return false;
  offset = distance / s.div2;
  return true;
}

void DrawSliderKnob(const Slider& s) {
  const int64_t knob = KnobSize(s);
  int64_t offset;
  if (!KnobOffset(s, offset)) return;
  const Corner corner = s.vertical ? Corner{s.x, s.y + offset} : Corner{s.x + offset, s.y};
  const int64_t w = s.vertical ? s.w : knob;
  const int64_t h = s.vertical ? knob : s.h;
  FillRectangle(corner, w, h, kClear);
  if (s.focus == s.id)
    RectangleDotted(corner, w, h);
  else
    Rectangle(corner, w, h);
}

void DrawSliderFrameAndTrack(const Slider& s) {
  const int64_t knob = KnobSize(s);
  FillRectangle({s.x, s.y}, s.w, s.h, kClear);
  if (s.vertical)
    RectangleRounded({s.x + knob - 1, s.y + int64_t(1)}, 2, int64_t(s.h) - 2);
  else
    RectangleRounded({s.x + int64_t(1), s.y + knob - 1}, int64_t(s.w) - 2, 2);
}

void DrawSlider(const Slider& s) {
  if (!SliderDivisorsValid(s)) return;
  DrawSliderFrameAndTrack(s);
  DrawSliderKnob(s);
}

void DrawSliderFocus(const Slider& s) {
  if (SliderDivisorsValid(s)) DrawSliderKnob(s);
}

// How far one step moves the slider after it has been held for s (s >= 1):
// faster and faster the longer it is held.
int64_t SliderIncrement(int64_t s) {
  if (s < 1536) return s / 512 + 1;
  struct Band {
    int64_t divisor, base;
  };
  static constexpr Band kBands[] = {{512, 4},  {256, 8},  {128, 16}, {64, 32},  {32, 64},
                                    {16, 130}, {8, 258}, {4, 514},  {2, 1026}, {1, 2052}};
  const int64_t j = (s - 1536) / 2048;
  const int64_t r = (s - 1536) % 2048;
  if (j < 10) return r / kBands[j].divisor + kBands[j].base;
  if (j == 10) return 2 * r + 2098180;
  return 4 * s - 88060;
}

}  // namespace

extern "C" {

int16_t TextGrphSliderBase = 0;

void TextGrph_DrawHLine(int32_t x, int32_t y, int32_t n) { HLine(x, y, n); }

void TextGrph_DrawVLine(int32_t x, int32_t y, int32_t n) { VLine(x, y, n); }

void TextGrph_DrawHLineDotted(int32_t x, int32_t y, int32_t n) { HLineDotted(x, y, n); }

void TextGrph_DrawVLineDotted(int32_t x, int32_t y, int32_t n) { VLineDotted(x, y, n); }

void TextGrph_DrawRectangle(int32_t w, int32_t h) { Rectangle(CursorCorner(), w, h); }

void TextGrph_DrawRectangleRounded(int32_t w, int32_t h) { RectangleRounded(CursorCorner(), w, h); }

void TextGrph_DrawRectangleDotted(int32_t w, int32_t h) { RectangleDotted(CursorCorner(), w, h); }

void TextGrph_DrawRectangleBlack(int32_t w, int32_t h) { FillRectangle(CursorCorner(), w, h, kSolid); }

void TextGrph_DrawRectangleWhite(int32_t w, int32_t h) { FillRectangle(CursorCorner(), w, h, kClear); }

void TextGrph_DrawWedgeUpperRight(int32_t w, int32_t h) {
  const auto [x, y] = CursorCorner();
  HLine(x + 1, y, int64_t(w) - 1);
  VLine(x + w, y + 1, int64_t(h) - 1);
}

void TextGrph_DrawWedgeLowerLeft(int32_t w, int32_t h) {
  const auto [x, y] = CursorCorner();
  VLine(x, y + 1, int64_t(h) - 1);
  HLine(x + 1, y + h, int64_t(w) - 1);
}

void TextGrph_DrawWedgeUpperRightDotted(int32_t w, int32_t h) {
  const auto [x, y] = CursorCorner();
  HLineDotted(x, y, int64_t(w) + 1);
  VLineDotted(x + w, y + 1, int64_t(h) - 1);
}

void TextGrph_DrawWedgeLowerLeftDotted(int32_t w, int32_t h) {
  const auto [x, y] = CursorCorner();
  VLineDotted(x, y + 1, int64_t(h) - 1);
  HLineDotted(x, y + h, int64_t(w) + 1);
}

// Bresenham along the longer axis (the vertical one on a tie), both ends
// included. Points off the buffer are skipped rather than written past it;
// 64 bits and the stop at the far edge keep an end point anywhere harmless.
void TextGrph_DrawLine(int32_t x1, int32_t y1) {
  int64_t x = TextGrph.CursorX;
  int64_t y = TextGrph.CursorY;
  const int64_t dx = std::llabs(x1 - x);
  const int64_t dy = std::llabs(y1 - y);
  const int64_t sx = x < x1 ? 1 : -1;
  const int64_t sy = y < y1 ? 1 : -1;
  const bool alongX = dx > dy;
  int64_t& majorPos = alongX ? x : y;
  int64_t& minorPos = alongX ? y : x;
  const int64_t majorStep = alongX ? sx : sy;
  const int64_t minorStep = alongX ? sy : sx;
  const int64_t major = alongX ? dx : dy;
  const int64_t minor = alongX ? dy : dx;
  const int32_t majorExtent = alongX ? TextGrph.Width : TextGrph.Height;
  int64_t error = major / 2;
  for (int64_t i = 0; i <= major && !PastEdge(majorPos, majorStep, majorExtent); ++i) {
    SetPixelIfInBuffer(x, y);
    error -= minor;
    if (error < 0) {
      error += major;
      minorPos += minorStep;
    }
    majorPos += majorStep;
  }
}

void TextGrph_DrawSliderHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                            int32_t div1, int32_t div2, int32_t focus, int32_t id) {
  DrawSlider({x, y, w, h, value, min, div1, div2, focus, id, false});
}

void TextGrph_DrawSliderVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                             int32_t div1, int32_t div2, int32_t focus, int32_t id) {
  DrawSlider({x, y, w, h, value, min, div1, div2, focus, id, true});
}

void TextGrph_DrawSliderFocusHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                 int32_t div1, int32_t div2, int32_t focus, int32_t id) {
  DrawSliderFocus({x, y, w, h, value, min, div1, div2, focus, id, false});
}

void TextGrph_DrawSliderFocusVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                  int32_t div1, int32_t div2, int32_t focus, int32_t id) {
  DrawSliderFocus({x, y, w, h, value, min, div1, div2, focus, id, true});
}

int16_t TextGrph_HandleSlider(int16_t value, int16_t min, int16_t max, int16_t scale, int32_t step) {
  if (step == 0) return value;
  const int64_t s = std::llabs(static_cast<int64_t>(step));
  if (s == 1) TextGrphSliderBase = value;
  const int64_t move = SliderIncrement(s) * scale;
  if (step < 0) {
    const int64_t next = TextGrphSliderBase - move;
    return static_cast<int16_t>(next < min ? min : next);
  }
  const int64_t next = TextGrphSliderBase + move;
  return static_cast<int16_t>(next > max ? max : next);
}

}  // extern "C"
