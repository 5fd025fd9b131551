// Text graphics: text, lines, rectangles and sliders drawn into the
// controller's 128 x 64 monochrome display buffer. Downloaded programs call
// these services directly, so every name here has C linkage.
//
// Buffer format: 1 bit per pixel, 1 = dark, 16 bytes per row, rows top to
// bottom; pixel x of a row is bit (0x80 >> (x % 8)) of byte x / 8.
#ifndef KAVRI_TEXTGRPH_H
#define KAVRI_TEXTGRPH_H

#include <stddef.h>
#include <stdint.h>

#include "kavri/shm_if.h"

#ifdef __cplusplus
extern "C" {
#endif

// A fixed-width font of 8-pixel-wide glyphs, one byte per glyph row; glyph c
// starts at byte (glyph offset + c * Height) of Data.
typedef struct TextGrphFontByte {
  int16_t Height;
  const uint8_t* Data;
} TextGrphFontByte;

// A variable-width font built by the downloaded program. All glyphs stand
// side by side in one bitmap strip (same bit order as the display buffer);
// the library reads only the named fields, the rest belongs to the program.
typedef struct TextGrphFontVrbl {
  uint8_t Reserved0[8];
  int32_t Height;                 // 8: rows of the strip
  uint8_t Reserved12[4];
  int32_t Stride;                 // 16: bytes per strip row
  uint8_t Reserved20[108 - 20];
  uint16_t Columns[129];          // 108: glyph c spans strip columns [Columns[c], Columns[c + 1])
  int8_t LeftOffset[128];         // 366: added to the cursor before drawing
  int8_t Spacing[128];            // 494: added to the cursor after the glyph
  uint8_t Reserved622[1136 - 622];
  const uint8_t* Strip;           // 1136: the bitmap strip
} TextGrphFontVrbl;

#define TEXTGRPH_CURSOR_DISABLED (-1)
#define TEXTGRPH_CURSOR_SHOWN 0

// The state of the text graphics; one global instance, TextGrph.
typedef struct TextGrphState {
  uint8_t* Buffer;
  int32_t Width;
  int32_t Height;
  int32_t CursorX;
  int32_t CursorY;
  int32_t LineHeight;
  int32_t GlyphOffset;
  int32_t CharHeight;
  int32_t CursorState;  // -1 disabled, 0 shown, n > 0 hidden n times
  const TextGrphFontByte* FontByte;
  const TextGrphFontVrbl* FontVrbl;
} TextGrphState;

#if defined(__cplusplus) && UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(TextGrphFontByte, Data) == 4, "byte font data pointer offset");
static_assert(sizeof(TextGrphFontByte) == 8, "byte font record size");
static_assert(offsetof(TextGrphFontVrbl, Height) == 8, "variable font height offset");
static_assert(offsetof(TextGrphFontVrbl, Stride) == 16, "variable font stride offset");
static_assert(offsetof(TextGrphFontVrbl, Columns) == 108, "variable font column table offset");
static_assert(offsetof(TextGrphFontVrbl, LeftOffset) == 366, "variable font left offsets offset");
static_assert(offsetof(TextGrphFontVrbl, Spacing) == 494, "variable font spacing offset");
static_assert(offsetof(TextGrphFontVrbl, Strip) == 1136, "variable font strip pointer offset");
static_assert(offsetof(TextGrphState, CursorState) == 32, "text graphics cursor state offset");
static_assert(offsetof(TextGrphState, FontVrbl) == 40, "text graphics variable font offset");
#endif

extern TextGrphState TextGrph;
// The value of the slider being moved, when its press began.
extern int16_t TextGrphSliderBase;

extern const TextGrphFontByte FontByte8x8L;
extern const uint8_t FontByte8x8LData[256 * 8];

void TextGrph_Intl(shm_if_s* area);
int TextGrph_Update(void);
void TextGrph_IntlFontByte(const TextGrphFontByte* font);
void TextGrph_SetFontByte(const TextGrphFontByte* font);
void TextGrph_IntlFontVrbl(const TextGrphFontVrbl* font);

void TextGrph_PutChar(int32_t x, int32_t y, uint8_t c);
void TextGrph_PutCharInv(int32_t x, int32_t y, uint8_t c);
void TextGrph_PutSpace(int32_t x, int32_t y);
int32_t TextGrph_PutStrg(int32_t x, int32_t y, const char* s);
void TextGrph_PutCharVrbl(const TextGrphFontVrbl* font, int32_t x, int32_t y, uint8_t c);

void TextGrph_PrintChar(uint8_t ch);
void TextGrph_PrintStrg(const char* s);
void TextGrph_PrintArrayUC(const uint8_t* a, int32_t n);
void TextGrph_PrintArrayS2(const int16_t* a, int32_t n);
void TextGrph_PrintInvArrayUC(const uint8_t* a, int32_t n);
void TextGrph_PrintInvArrayS2(const int16_t* a, int32_t n);
void TextGrph_PrintCharVrbl(uint8_t ch);
void TextGrph_PrintStrgVrbl(const char* s);

void TextGrph_ClearHome(void);
void TextGrph_ClearToEOL(void);
void TextGrph_ClearToEOP(void);
void TextGrph_CarriageReturn(void);
void TextGrph_Linefeed(void);
void TextGrph_Backspace(void);
void TextGrph_GotoXY(int32_t x, int32_t y);
int32_t TextGrph_GetNLines(void);
void TextGrph_CurOff(void);
void TextGrph_CurOn(void);
void TextGrph_DispCrsr(void);
uint8_t* TextGrph_Origin(void);

void TextGrph_DrawHLine(int32_t x, int32_t y, int32_t n);
void TextGrph_DrawVLine(int32_t x, int32_t y, int32_t n);
void TextGrph_DrawHLineDotted(int32_t x, int32_t y, int32_t n);
void TextGrph_DrawVLineDotted(int32_t x, int32_t y, int32_t n);
void TextGrph_DrawRectangle(int32_t w, int32_t h);
void TextGrph_DrawRectangleRounded(int32_t w, int32_t h);
void TextGrph_DrawRectangleDotted(int32_t w, int32_t h);
void TextGrph_DrawRectangleBlack(int32_t w, int32_t h);
void TextGrph_DrawRectangleWhite(int32_t w, int32_t h);
void TextGrph_DrawWedgeUpperRight(int32_t w, int32_t h);
void TextGrph_DrawWedgeLowerLeft(int32_t w, int32_t h);
void TextGrph_DrawWedgeUpperRightDotted(int32_t w, int32_t h);
void TextGrph_DrawWedgeLowerLeftDotted(int32_t w, int32_t h);
void TextGrph_DrawLine(int32_t x1, int32_t y1);

// Sliders: frame at (x, y) of w x h pixels; the knob sits at
// ((value - min) / div1) * (length - knob) / div2 along it, outlined dotted
// when focus == id.
void TextGrph_DrawSliderHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                            int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                             int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderFocusHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                 int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderFocusVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                  int32_t div1, int32_t div2, int32_t focus, int32_t id);
// The slider's next value while it is held: |step| tells how long it has been
// held (1 on the first press), its sign the direction.
int16_t TextGrph_HandleSlider(int16_t value, int16_t min, int16_t max, int16_t scale, int32_t step);

#ifdef __cplusplus
}
#endif

#endif
