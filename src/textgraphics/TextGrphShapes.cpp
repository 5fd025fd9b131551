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

// Dots on the pixels whose parity is that of x.
uint8_t DotPattern(int32_t x) { return (x % 2 == 0) ? 0xAA : 0x55; }

// The far ends are compared as room left after the start, as x + n could overflow.
bool HLineInBuffer(int32_t x, int32_t y, int32_t n) {
  return n > 0 && x >= 0 && y >= 0 && n <= TextGrph.Width - x && y < TextGrph.Height;
}

// Negative lengths draw nothing: they would reach outside the buffer.
bool VLineInBuffer(int32_t x, int32_t y, int32_t n) {
  return n > 0 && x >= 0 && y >= 0 && x < TextGrph.Width && n <= TextGrph.Height - y;
}

void WriteHLine(int32_t x, int32_t y, int32_t n, uint8_t pattern) {
  if (HLineInBuffer(x, y, n)) WriteRowSpan(RowOf(y), x, n, pattern);
}

// Row i of the line is set where isSet(i) holds, cleared elsewhere.
template <typename IsSet>
void WriteVLine(int32_t x, int32_t y, int32_t n, IsSet isSet) {
  if (!VLineInBuffer(x, y, n)) return;
  for (int32_t i = 0; i < n; ++i) WritePixel(x, y + i, isSet(i));
}

bool FilledRectangleInBuffer(int32_t x, int32_t y, int32_t w, int32_t h) {
  return w > 0 && h > 0 && InBuffer(x, y) && w < TextGrph.Width - x && h < TextGrph.Height - y;
}

// Columns x .. x + w of rows y .. y + h; one row fewer when the columns share
// one byte, as the filled rectangles have always done.
void FillRectangleAtCursor(int32_t w, int32_t h, uint8_t pattern) {
  const int32_t x = TextGrph.CursorX;
  const int32_t y = TextGrph.CursorY;
  if (!FilledRectangleInBuffer(x, y, w, h)) return;
  const int32_t rows = (x / 8 == (x + w) / 8) ? h : h + 1;
  for (int32_t r = 0; r < rows; ++r) WriteRowSpan(RowOf(y + r), x, w + 1, pattern);
}

void SetPixelIfInBuffer(int64_t x, int64_t y) {
  if (InBuffer(x, y)) WritePixel(static_cast<int32_t>(x), static_cast<int32_t>(y), true);
}

// True once a walk along an axis of `extent` pixels in direction `step` has
// passed the far side, from where it never comes back.
bool PastEdge(int64_t pos, int64_t step, int32_t extent) { return step > 0 ? pos >= extent : pos < 0; }

// Shapes that draw at the cursor are placed by moving it there for the call;
// the text cursor is back where it was afterwards.
class CursorPlacement {
 public:
  CursorPlacement() : savedX_(TextGrph.CursorX), savedY_(TextGrph.CursorY) {}
  ~CursorPlacement() {
    TextGrph.CursorX = savedX_;
    TextGrph.CursorY = savedY_;
  }
  CursorPlacement(const CursorPlacement&) = delete;
  CursorPlacement& operator=(const CursorPlacement&) = delete;

  void DrawAt(int32_t x, int32_t y, void (*draw)(int32_t, int32_t), int32_t w, int32_t h) {
    TextGrph.CursorX = x;
    TextGrph.CursorY = y;
    draw(w, h);
  }

 private:
  int32_t savedX_;
  int32_t savedY_;
};

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
int32_t KnobSize(const Slider& s) { return ((s.vertical ? s.w : s.h) + 1) / 2; }

// In 64 bits: value - min may not fit 32, and the lowest value over -1 would trap.
int32_t KnobOffset(const Slider& s) {
  const int64_t travel = (s.vertical ? s.h : s.w) - KnobSize(s);
  const int64_t steps = (static_cast<int64_t>(s.value) - s.min) / s.div1;
  return static_cast<int32_t>((travel * steps) / s.div2);
}

void DrawSliderKnob(const Slider& s) {
  CursorPlacement cursor;
  const int32_t knob = KnobSize(s);
  const int32_t offset = KnobOffset(s);
  const int32_t x = s.vertical ? s.x : s.x + offset;
  const int32_t y = s.vertical ? s.y + offset : s.y;
  const int32_t w = s.vertical ? s.w : knob;
  const int32_t h = s.vertical ? knob : s.h;
  cursor.DrawAt(x, y, TextGrph_DrawRectangleWhite, w, h);
  cursor.DrawAt(x, y, s.focus == s.id ? TextGrph_DrawRectangleDotted : TextGrph_DrawRectangle, w, h);
}

void DrawSliderFrameAndTrack(const Slider& s) {
  CursorPlacement cursor;
  const int32_t knob = KnobSize(s);
  cursor.DrawAt(s.x, s.y, TextGrph_DrawRectangleWhite, s.w, s.h);
  if (s.vertical)
    cursor.DrawAt(s.x + knob - 1, s.y + 1, TextGrph_DrawRectangleRounded, 2, s.h - 2);
  else
    cursor.DrawAt(s.x + 1, s.y + knob - 1, TextGrph_DrawRectangleRounded, s.w - 2, 2);
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

void TextGrph_DrawHLine(int32_t x, int32_t y, int32_t n) { WriteHLine(x, y, n, kSolid); }

void TextGrph_DrawVLine(int32_t x, int32_t y, int32_t n) {
  WriteVLine(x, y, n, [](int32_t) { return true; });
}

void TextGrph_DrawHLineDotted(int32_t x, int32_t y, int32_t n) { WriteHLine(x, y, n, DotPattern(x)); }

void TextGrph_DrawVLineDotted(int32_t x, int32_t y, int32_t n) {
  WriteVLine(x, y, n, [](int32_t i) { return i % 2 == 0; });
}

void TextGrph_DrawRectangle(int32_t w, int32_t h) {
  const int32_t x = TextGrph.CursorX;
  const int32_t y = TextGrph.CursorY;
  TextGrph_DrawHLine(x, y, w + 1);
  TextGrph_DrawVLine(x, y + 1, h - 1);
  TextGrph_DrawVLine(x + w, y + 1, h - 1);
  TextGrph_DrawHLine(x, y + h, w + 1);
}

void TextGrph_DrawRectangleRounded(int32_t w, int32_t h) {
  const int32_t x = TextGrph.CursorX;
  const int32_t y = TextGrph.CursorY;
  TextGrph_DrawHLine(x + 1, y, w - 1);
  TextGrph_DrawVLine(x, y + 1, h - 1);
  TextGrph_DrawVLine(x + w, y + 1, h - 1);
  TextGrph_DrawHLine(x + 1, y + h, w - 1);
}

// The right and bottom lines start one pixel later when their corner would
// break the dot pattern, so the dots run on round the corners.
void TextGrph_DrawRectangleDotted(int32_t w, int32_t h) {
  const int32_t x = TextGrph.CursorX;
  const int32_t y = TextGrph.CursorY;
  TextGrph_DrawHLineDotted(x, y, w + 1);
  TextGrph_DrawVLineDotted(x, y, h + 1);
  if (w % 2 != 0)
    TextGrph_DrawVLineDotted(x + w, y + 1, h);
  else
    TextGrph_DrawVLineDotted(x + w, y, h + 1);
  if (h % 2 != 0)
    TextGrph_DrawHLineDotted(x + 1, y + h, w);
  else
    TextGrph_DrawHLineDotted(x, y + h, w + 1);
}

void TextGrph_DrawRectangleBlack(int32_t w, int32_t h) { FillRectangleAtCursor(w, h, kSolid); }

void TextGrph_DrawRectangleWhite(int32_t w, int32_t h) { FillRectangleAtCursor(w, h, kClear); }

void TextGrph_DrawWedgeUpperRight(int32_t w, int32_t h) {
  TextGrph_DrawHLine(TextGrph.CursorX + 1, TextGrph.CursorY, w - 1);
  TextGrph_DrawVLine(TextGrph.CursorX + w, TextGrph.CursorY + 1, h - 1);
}

void TextGrph_DrawWedgeLowerLeft(int32_t w, int32_t h) {
  TextGrph_DrawVLine(TextGrph.CursorX, TextGrph.CursorY + 1, h - 1);
  TextGrph_DrawHLine(TextGrph.CursorX + 1, TextGrph.CursorY + h, w - 1);
}

void TextGrph_DrawWedgeUpperRightDotted(int32_t w, int32_t h) {
  TextGrph_DrawHLineDotted(TextGrph.CursorX, TextGrph.CursorY, w + 1);
  TextGrph_DrawVLineDotted(TextGrph.CursorX + w, TextGrph.CursorY + 1, h - 1);
}

void TextGrph_DrawWedgeLowerLeftDotted(int32_t w, int32_t h) {
  TextGrph_DrawVLineDotted(TextGrph.CursorX, TextGrph.CursorY + 1, h - 1);
  TextGrph_DrawHLineDotted(TextGrph.CursorX, TextGrph.CursorY + h, w + 1);
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
