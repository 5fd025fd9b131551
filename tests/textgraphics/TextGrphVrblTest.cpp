// Variable-width text: glyphs copied out of a bitmap strip, clipped at every edge.
#include <random>
#include <set>

#include "TextGrphFixture.h"

namespace {

constexpr int kStripHeight = 6;
constexpr int kStripStride = 5;  // 40 columns

// A font whose glyphs have awkward widths and start columns, so that they
// straddle the bytes of the strip and of the buffer.
class VariableFont : public TextGraphics {
 protected:
  void SetUp() override {
    TextGraphics::SetUp();
    std::mt19937 random(7);
    for (uint8_t& byte : strip) byte = static_cast<uint8_t>(random());
    memset(&font, 0, sizeof font);
    font.Height = kStripHeight, font.Stride = kStripStride, font.Strip = strip;
    SetGlyph('A', 3, 14, 0, 1);   // 11 columns from the middle of byte 0
    SetGlyph('i', 14, 17, -2, 2);  // 3 columns, drawn 2 pixels to the left
    SetGlyph('W', 17, 40, 1, 0);  // 23 columns to the strip's end
  }

  void SetGlyph(uint8_t c, int start, int end, int8_t left, int8_t spacing) {
    font.Columns[c] = static_cast<uint16_t>(start), font.Columns[c + 1] = static_cast<uint16_t>(end);
    font.LeftOffset[c] = left, font.Spacing[c] = spacing;
  }

  bool StripPixel(int col, int row) const { return BitmapPixel(strip, kStripStride, col, row); }

  // The pixels the glyph should light when drawn at (x, y), clipped to the buffer.
  int ExpectedGlyphPixels(uint8_t c, int x, int y, std::set<std::pair<int, int>>& lit) const {
    const int start = font.Columns[c];
    for (int row = 0; row < kStripHeight; ++row)
      for (int col = start; col < font.Columns[c + 1]; ++col) {
        const int px = x + col - start, py = y + row;
        if (StripPixel(col, row) && px >= 0 && px < 128 && py >= 0 && py < 64) lit.emplace(px, py);
      }
    return static_cast<int>(lit.size());
  }

  uint8_t strip[kStripHeight * kStripStride];
  TextGrphFontVrbl font;
};

TEST_F(VariableFont, GlyphsAreCopiedPixelExactAndClippedAtEachEdge) {
  const struct { const char* where; uint8_t c; int x, y; } cases[] = {
      {"inside", 'A', 5, 3},                {"inside, unaligned", 'W', 61, 30},  {"over the left edge", 'A', -4, 10},
      {"over the right edge", 'W', 110, 10}, {"at the right edge", 'A', 117, 0},  {"over the top edge", 'W', 20, -3},
      {"over the bottom edge", 'A', 40, 61}, {"over two edges", 'W', -9, 60},     {"left of the buffer", 'A', -11, 5},
      {"right of the buffer", 'A', 128, 5},  {"above the buffer", 'W', 10, -6},   {"below the buffer", 'W', 10, 64},
  };
  for (const auto& c : cases) {
    Fill(0);
    TextGrph_PutCharVrbl(&font, c.x, c.y, c.c);
    std::set<std::pair<int, int>> lit;
    const int expected = ExpectedGlyphPixels(c.c, c.x, c.y, lit);
    EXPECT_EQ(CountSet(), expected) << c.where;
    for (auto [px, py] : lit) EXPECT_TRUE(Pixel(px, py)) << c.where << " pixel " << px << "," << py;
  }
  Fill(0xFF);  // glyphs are ORed in: set pixels stay set
  TextGrph_PutCharVrbl(&font, 9, 9, 'W');
  EXPECT_EQ(CountSet(), 128 * 64);
}

// Characters outside the font, or without one selected, are skipped.
TEST_F(VariableFont, PrintingAppliesLeftOffsetWidthAndSpacing) {
  TextGrph_PrintCharVrbl('A');
  EXPECT_EQ(TextGrph.CursorX, 0) << "no variable font selected yet";
  TextGrph_IntlFontVrbl(&font);
  EXPECT_EQ(TextGrph.FontVrbl, &font);
  TextGrph_PrintCharVrbl(200);
  TextGrph_PutCharVrbl(&font, 0, 0, 128);
  EXPECT_EQ(TextGrph.CursorX + CountSet(), 0);
  TextGrph_GotoXY(20, 8);
  TextGrph_PrintStrgVrbl("Ai");
  // 'A': 20 + 0, then 11 wide + 1; 'i': 32 - 2 = 30, then 3 wide + 2.
  EXPECT_TRUE(TextGrph.CursorX == 35 && TextGrph.CursorY == 8) << TextGrph.CursorX;
  std::set<std::pair<int, int>> lit;
  ExpectedGlyphPixels('A', 20, 8, lit);
  const int expected = ExpectedGlyphPixels('i', 30, 8, lit);
  EXPECT_EQ(CountSet(), expected);
  for (auto [px, py] : lit) EXPECT_TRUE(Pixel(px, py)) << px << "," << py;
}

}  // namespace
