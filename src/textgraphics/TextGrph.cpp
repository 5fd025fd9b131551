// Text graphics state, display hand-over, fonts, text output and the cursor.
#include "kavri/TextGrph.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "TextGrphPixels.h"

using namespace textgrph;

extern "C" {
TextGrphState TextGrph = {nullptr, 0, 0, 0, 0, 0, 0, 0, TEXTGRPH_CURSOR_DISABLED, nullptr, nullptr};
}

namespace {

constexpr int32_t kCellWidth = 8;

// The transfer area whose display the buffer belongs to; its update fields
// are shared with the display side's thread.
shm_if_s* DisplayArea = nullptr;

std::atomic_ref<uint16_t> UpdateCounter() { return std::atomic_ref<uint16_t>(DisplayArea->DisplayUpdateCounter); }
std::atomic_ref<uint16_t> UpdateFlag() { return std::atomic_ref<uint16_t>(DisplayArea->DisplayUpdateFlag); }

// Publishes the buffer: the display side reads it once it sees the flag.
void RaiseUpdateFlag() { UpdateFlag().store(1, std::memory_order_release); }

bool CellInBuffer(int32_t x, int32_t y) {
  return x >= 0 && x < TextGrph.Width - 7 && y >= 0 && y <= TextGrph.Height - TextGrph.CharHeight;
}

// Calls `writeRow(row byte, glyph row)` for each row of the character cell
// at (x, y), if the cell lies inside the buffer.
template <typename WriteRow>
void ForEachCellRow(int32_t x, int32_t y, WriteRow writeRow) {
  if (!CellInBuffer(x, y)) return;
  for (int32_t r = 0; r < TextGrph.CharHeight; ++r) writeRow(RowOf(y + r)[x / 8], r);
}

void PutGlyph(int32_t x, int32_t y, uint8_t c, uint8_t invertMask) {
  const TextGrphFontByte* font = TextGrph.FontByte;
  if (!font) return;
  const uint8_t* glyph = font->Data + TextGrph.GlyphOffset + c * font->Height;
  ForEachCellRow(x, y, [&](uint8_t& byte, int32_t r) { byte = glyph[r] ^ invertMask; });
}

// The shown cursor is an inverted cell; inverting it again erases it, so one
// call hides it before a change and the next one shows it after.
void ToggleCursorIfShown() {
  if (TextGrph.CursorState == TEXTGRPH_CURSOR_SHOWN) TextGrph_DispCrsr();
}

void ResetCursor() {
  TextGrph.CursorX = 0;
  TextGrph.CursorY = 0;
  TextGrph.CursorState = TEXTGRPH_CURSOR_DISABLED;
}

void UseFontByte(const TextGrphFontByte* font) {
  TextGrph.FontByte = font;
  TextGrph.LineHeight = font->Height;
  TextGrph.CharHeight = font->Height;
  TextGrph.GlyphOffset = 0;
}

// Clears the rows [first, last) that lie inside the buffer.
void ClearRows(int32_t first, int32_t last) {
  first = std::max(first, 0);
  last = std::min(last, TextGrph.Height);
  if (first >= last) return;
  memset(RowOf(first), 0, static_cast<size_t>((last - first) * BytesPerRow()));
}

// The cells at every x from the cursor to the last cell; one call per cell
// is enough, as a cell's x is rounded down to its byte.
void ClearCellsToEndOfLine() {
  for (int32_t x = std::max(TextGrph.CursorX, 0); x <= TextGrph.Width - kCellWidth; x = (x / 8 + 1) * 8)
    TextGrph_PutSpace(x, TextGrph.CursorY);
}

void PrintGlyph(uint8_t c, uint8_t invertMask) {
  // The glyph overwrites the cell, and with it a cursor shown there.
  PutGlyph(TextGrph.CursorX, TextGrph.CursorY, c, invertMask);
  if (TextGrph.CursorX < TextGrph.Width - kCellWidth) TextGrph.CursorX += kCellWidth;
  ToggleCursorIfShown();
}

// 16-bit codes use their low byte: byte fonts hold 256 glyphs.
template <typename Code>
void PrintCodes(const Code* codes, int32_t n, uint8_t invertMask) {
  for (int32_t i = 0; i < n; ++i) PrintGlyph(static_cast<uint8_t>(codes[i] & 0xFF), invertMask);
}

bool FontVrblHasChar(const TextGrphFontVrbl* font, uint8_t c) { return font && font->Strip && c < 128; }

// Up to 8 bits of a strip row from column `col` on, right-aligned.
uint32_t ReadStripBits(const uint8_t* row, int32_t col, int32_t n) {
  const int32_t bit = col % 8;
  uint32_t window = static_cast<uint32_t>(row[col / 8]) << 8;
  if (bit + n > 8) window |= row[col / 8 + 1];
  return (window >> (16 - bit - n)) & ((1u << n) - 1);
}

// ORs the strip columns [col, col + n) of one row into a buffer row at dx,
// one destination byte at a time.
void OrStripSpan(uint8_t* dst, int32_t dx, const uint8_t* src, int32_t col, int32_t n) {
  while (n > 0) {
    const int32_t bit = dx % 8;
    const int32_t take = std::min(8 - bit, n);
    dst[dx / 8] |= static_cast<uint8_t>(ReadStripBits(src, col, take) << (8 - bit - take));
    dx += take;
    col += take;
    n -= take;
  }
}

}  // namespace

extern "C" {

void TextGrph_Intl(shm_if_s* area) {
  if (!area) {
    fprintf(stderr, "ERROR TextGrph_Intl without a transfer area\n");
    return;
  }
  DisplayArea = area;
  TextGrph.Buffer = KavriDisplayBufferOf(area);
  TextGrph.Width = KAVRI_DISPLAY_WIDTH;
  TextGrph.Height = KAVRI_DISPLAY_HEIGHT;
  TextGrph.FontVrbl = nullptr;
  TextGrph_IntlFontByte(&FontByte8x8L);
  ClearRows(0, TextGrph.Height);
  UpdateCounter().fetch_add(1, std::memory_order_relaxed);
  RaiseUpdateFlag();
}

int TextGrph_Update(void) {
  if (!DisplayArea) return 1;
  // Acquire: the display side has finished copying the buffer when it clears the counter.
  if (UpdateCounter().load(std::memory_order_acquire) != 0) return 1;
  UpdateCounter().store(1, std::memory_order_relaxed);
  RaiseUpdateFlag();
  return 0;
}

void TextGrph_IntlFontByte(const TextGrphFontByte* font) {
  if (!font) return;
  UseFontByte(font);
  ResetCursor();
}

void TextGrph_SetFontByte(const TextGrphFontByte* font) {
  if (!font) return;
  ToggleCursorIfShown();
  UseFontByte(font);
  ToggleCursorIfShown();
}

void TextGrph_IntlFontVrbl(const TextGrphFontVrbl* font) {
  TextGrph.FontVrbl = font;
  ResetCursor();
}

void TextGrph_PutChar(int32_t x, int32_t y, uint8_t c) { PutGlyph(x, y, c, 0x00); }

void TextGrph_PutCharInv(int32_t x, int32_t y, uint8_t c) { PutGlyph(x, y, c, 0xFF); }

void TextGrph_PutSpace(int32_t x, int32_t y) {
  ForEachCellRow(x, y, [](uint8_t& byte, int32_t) { byte = 0; });
}

int32_t TextGrph_PutStrg(int32_t x, int32_t y, const char* s) {
  for (; *s; ++s) {
    TextGrph_PutChar(x, y, static_cast<uint8_t>(*s));
    if (x < TextGrph.Width - kCellWidth) x += kCellWidth;
  }
  return x;
}

void TextGrph_PutCharVrbl(const TextGrphFontVrbl* font, int32_t x, int32_t y, uint8_t c) {
  if (!FontVrblHasChar(font, c) || !TextGrph.Buffer) return;
  const int32_t start = font->Columns[c];
  const int32_t end = std::min<int32_t>(font->Columns[c + 1], font->Stride * 8);
  const int32_t firstCol = std::max(start, start - x);
  const int32_t lastCol = std::min(end, start + TextGrph.Width - x);
  const int32_t firstRow = std::max(0, -y);
  const int32_t lastRow = std::min(font->Height, TextGrph.Height - y);
  if (firstCol >= lastCol) return;
  for (int32_t r = firstRow; r < lastRow; ++r)
    OrStripSpan(RowOf(y + r), x + firstCol - start, font->Strip + r * font->Stride, firstCol, lastCol - firstCol);
}

void TextGrph_PrintChar(uint8_t ch) { PrintGlyph(ch, 0x00); }

void TextGrph_PrintStrg(const char* s) {
  for (; *s; ++s) PrintGlyph(static_cast<uint8_t>(*s), 0x00);
}

void TextGrph_PrintArrayUC(const uint8_t* a, int32_t n) { PrintCodes(a, n, 0x00); }

void TextGrph_PrintArrayS2(const int16_t* a, int32_t n) { PrintCodes(a, n, 0x00); }

void TextGrph_PrintInvArrayUC(const uint8_t* a, int32_t n) { PrintCodes(a, n, 0xFF); }

void TextGrph_PrintInvArrayS2(const int16_t* a, int32_t n) { PrintCodes(a, n, 0xFF); }

void TextGrph_PrintCharVrbl(uint8_t ch) {
  const TextGrphFontVrbl* font = TextGrph.FontVrbl;
  if (!FontVrblHasChar(font, ch)) return;
  ToggleCursorIfShown();
  TextGrph.CursorX += font->LeftOffset[ch];
  TextGrph_PutCharVrbl(font, TextGrph.CursorX, TextGrph.CursorY, ch);
  TextGrph.CursorX += (font->Columns[ch + 1] - font->Columns[ch]) + font->Spacing[ch];
  ToggleCursorIfShown();
}

void TextGrph_PrintStrgVrbl(const char* s) {
  for (; *s; ++s) TextGrph_PrintCharVrbl(static_cast<uint8_t>(*s));
}

void TextGrph_ClearHome(void) {
  ClearRows(0, TextGrph.Height);
  TextGrph.CursorX = 0;
  TextGrph.CursorY = 0;
  ToggleCursorIfShown();
}

// A shown cursor wiped out by a clear is drawn again where it stands.
void TextGrph_ClearToEOL(void) {
  ClearCellsToEndOfLine();
  ToggleCursorIfShown();
}

void TextGrph_ClearToEOP(void) {
  ClearCellsToEndOfLine();
  ClearRows(TextGrph.CursorY + TextGrph.CharHeight, TextGrph.Height);
  ToggleCursorIfShown();
}

void TextGrph_CarriageReturn(void) {
  ToggleCursorIfShown();
  TextGrph.CursorX = 0;
  ToggleCursorIfShown();
}

void TextGrph_Linefeed(void) {
  if (TextGrph.CursorY >= TextGrph.Height - TextGrph.LineHeight) return;
  ToggleCursorIfShown();
  TextGrph.CursorY += TextGrph.LineHeight;
  ToggleCursorIfShown();
}

void TextGrph_Backspace(void) {
  if (TextGrph.CursorX < kCellWidth) return;
  ToggleCursorIfShown();
  TextGrph.CursorX -= kCellWidth;
  TextGrph_PutSpace(TextGrph.CursorX, TextGrph.CursorY);
  ToggleCursorIfShown();
}

void TextGrph_GotoXY(int32_t x, int32_t y) {
  if (!InBuffer(x, y)) return;
  ToggleCursorIfShown();
  TextGrph.CursorX = x;
  TextGrph.CursorY = y;
  ToggleCursorIfShown();
}

int32_t TextGrph_GetNLines(void) { return TextGrph.LineHeight > 0 ? TextGrph.Height / TextGrph.LineHeight : 0; }

void TextGrph_CurOff(void) {
  if (TextGrph.CursorState == TEXTGRPH_CURSOR_DISABLED) return;
  ToggleCursorIfShown();
  ++TextGrph.CursorState;
}

void TextGrph_CurOn(void) {
  if (TextGrph.CursorState < 1) return;
  --TextGrph.CursorState;
  ToggleCursorIfShown();
}

void TextGrph_DispCrsr(void) {
  ForEachCellRow(TextGrph.CursorX, TextGrph.CursorY, [](uint8_t& byte, int32_t) { byte ^= 0xFF; });
}

uint8_t* TextGrph_Origin(void) { return TextGrph.Buffer; }

}  // extern "C"
