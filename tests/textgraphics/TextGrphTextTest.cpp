// Text output, fonts, the cursor and the hand-over of the buffer to the display.
#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "TextGrphFixture.h"

namespace {

const uint8_t* Glyph(uint8_t c) { return FontByte8x8LData + c * 8; }

class TextOutput : public TextGraphics {
 protected:
  // True if byte column `col`, rows y .. y + 7, hold glyph c (inverted when asked).
  bool GlyphAt(int col, int y, uint8_t c, bool inverted = false) const {
    for (int r = 0; r < 8; ++r)
      if (Cell(col, y + r) != static_cast<uint8_t>(Glyph(c)[r] ^ (inverted ? 0xFF : 0))) return false;
    return true;
  }
  int CountSetInCell(int col, int y) const { return CountSetIn(col * 8, y, 8, 8); }
};

TEST_F(TextGraphics, InitialisationBindsAndClearsTheBufferAndRaisesTheUpdate) {
  Fill(0xFF);
  PlaceCursor(40, 16);
  const uint16_t counterBefore = area->DisplayUpdateCounter;
  TextGrph_Intl(area);
  EXPECT_EQ(TextGrph_Origin(), buffer);
  EXPECT_EQ(CountSet(), 0);
  EXPECT_EQ(area->DisplayUpdateCounter, counterBefore + 1);
  EXPECT_EQ(area->DisplayUpdateFlag, 1);
  EXPECT_EQ(TextGrph.Width, 128);
  EXPECT_EQ(TextGrph.Height, 64);
  EXPECT_EQ(TextGrph.FontByte, &FontByte8x8L);
  EXPECT_EQ(TextGrph.FontVrbl, nullptr);
  EXPECT_EQ(TextGrph.CursorX, 0);
  EXPECT_EQ(TextGrph.CursorY, 0);
  EXPECT_EQ(TextGrph.CursorState, TEXTGRPH_CURSOR_DISABLED);
  EXPECT_EQ(TextGrph_GetNLines(), 8);
}

TEST_F(TextGraphics, UpdateWaitsForTheDisplayToTakeThePendingFrame) {
  EXPECT_EQ(TextGrph_Update(), 1) << "the frame raised by initialisation is still pending";
  ASSERT_TRUE(TakeFrame());
  EXPECT_EQ(area->DisplayUpdateCounter, 0);
  TextGrph_PutStrg(0, 0, "Hi");
  EXPECT_EQ(TextGrph_Update(), 0);
  EXPECT_EQ(area->DisplayUpdateCounter, 1);
  EXPECT_EQ(area->DisplayUpdateFlag, 1);
  EXPECT_EQ(TextGrph_Update(), 1);
  ASSERT_TRUE(TakeFrame());
  EXPECT_EQ(memcmp(frame, buffer, sizeof frame), 0);
  EXPECT_FALSE(TakeFrame()) << "nothing raised since";
}

// The program draws frame k, raises it, and draws k + 1 only once the display
// has it; the display thread must receive every frame whole and in order.
TEST_F(TextGraphics, DisplayThreadReceivesEveryRaisedFrame) {
  ASSERT_TRUE(TakeFrame());
  constexpr int kFrames = 40;
  std::atomic<int> taken{0};
  std::atomic<bool> stop{false};
  std::vector<uint8_t> firstBytes;
  std::thread display([&] {
    uint8_t shown[KAVRI_DISPLAY_BUFFER_SIZE];
    while (!stop.load()) {
      if (MotorIOLibSim_TakeDisplayFrame(shown)) {
        firstBytes.push_back(shown[0]);
        EXPECT_EQ(shown[KAVRI_DISPLAY_BUFFER_SIZE - 1], shown[0]) << "frame taken half drawn";
        taken.fetch_add(1);
      }
      std::this_thread::yield();
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (int k = 1; k <= kFrames && std::chrono::steady_clock::now() < deadline; ++k) {
    memset(buffer, k, KAVRI_DISPLAY_BUFFER_SIZE);
    while (TextGrph_Update() != 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    while (taken.load() < k && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  }
  stop.store(true);
  display.join();
  ASSERT_EQ(taken.load(), kFrames);
  for (int k = 1; k <= kFrames; ++k) EXPECT_EQ(firstBytes[k - 1], k);
}

TEST_F(TextOutput, PutCharPlacesTheGlyphInItsByteColumnWithinTheBounds) {
  struct Case {
    int x, y;
    int column;  // -1: nothing drawn
  } cases[] = {
      {0, 0, 0},    {13, 0, 1},    {7, 8, 0},     {120, 0, 15},  {120, 56, 15},
      {121, 0, -1}, {127, 0, -1},  {-1, 0, -1},   {-8, 0, -1},   {0, 57, -1},
      {0, -1, -1},  {64, 63, -1},
  };
  for (const Case& c : cases) {
    Fill(0);
    TextGrph_PutChar(c.x, c.y, 'A');
    if (c.column < 0) {
      EXPECT_EQ(CountSet(), 0) << "x " << c.x << " y " << c.y;
      continue;
    }
    EXPECT_TRUE(GlyphAt(c.column, c.y, 'A')) << "x " << c.x << " y " << c.y;
    EXPECT_EQ(CountSet(), CountSetInCell(c.column, c.y)) << "x " << c.x << " y " << c.y;
  }
}

TEST_F(TextOutput, InvertedCharAndSpaceOverwriteTheWholeCell) {
  Fill(0x3C);
  TextGrph_PutCharInv(16, 8, 'k');
  EXPECT_TRUE(GlyphAt(2, 8, 'k', true));
  TextGrph_PutSpace(27, 16);
  EXPECT_EQ(CountSetInCell(3, 16), 0);
  EXPECT_EQ(Cell(2, 16), 0x3C);
  EXPECT_EQ(Cell(4, 16), 0x3C);
  EXPECT_EQ(Cell(3, 15), 0x3C);
  EXPECT_EQ(Cell(3, 24), 0x3C);
  TextGrph_PutSpace(121, 0);
  TextGrph_PutCharInv(0, 57, 'k');
  EXPECT_EQ(Cell(15, 0), 0x3C);
  EXPECT_EQ(Cell(0, 63), 0x3C);
}

TEST_F(TextOutput, PutStrgStopsAdvancingAtTheLastCellAndReturnsTheFinalX) {
  EXPECT_EQ(TextGrph_PutStrg(0, 8, "ab"), 16);
  EXPECT_TRUE(GlyphAt(0, 8, 'a'));
  EXPECT_TRUE(GlyphAt(1, 8, 'b'));
  // From 100 the cells start at 100, 108, 116; the fourth x, 124, is past the last cell.
  Fill(0);
  EXPECT_EQ(TextGrph_PutStrg(100, 0, "abcd"), 124);
  EXPECT_TRUE(GlyphAt(12, 0, 'a'));
  EXPECT_TRUE(GlyphAt(14, 0, 'c'));
  EXPECT_EQ(CountSetInCell(15, 0), 0);
  EXPECT_EQ(TextGrph_PutStrg(0, 0, ""), 0);
}

TEST_F(TextOutput, PrintStrgOverwritesTheLastCellWithoutWrapping) {
  TextGrph_PrintStrg("ABCDEFGHIJKLMNOPQRST");
  EXPECT_EQ(TextGrph.CursorX, 120);
  EXPECT_EQ(TextGrph.CursorY, 0);
  for (int col = 0; col < 15; ++col) EXPECT_TRUE(GlyphAt(col, 0, static_cast<uint8_t>('A' + col))) << col;
  EXPECT_TRUE(GlyphAt(15, 0, 'T'));
  EXPECT_EQ(CountSetIn(0, 8, 128, 56), 0);
}

TEST_F(TextOutput, PrintArraysTakeBytesOrTheLowByteOfSixteenBitCodes) {
  const uint8_t bytes[] = {'x', 0, 0x99};
  const int16_t codes[] = {'y', 0x141, -1};
  TextGrph_PrintArrayUC(bytes, 3);
  TextGrph_PrintArrayS2(codes, 3);
  TextGrph_PrintInvArrayUC(bytes, 1);
  TextGrph_PrintInvArrayS2(codes, 2);
  const uint8_t expected[] = {'x', 0, 0x99, 'y', 'A', 0xFF, 'x', 'y', 'A'};
  for (int col = 0; col < 9; ++col) EXPECT_TRUE(GlyphAt(col, 0, expected[col], col >= 6)) << col;
  EXPECT_EQ(TextGrph.CursorX, 72);
}

TEST_F(TextOutput, ByteFontSelectionSetsHeightsAndResetsTheCursor) {
  static const uint8_t tallData[256 * 12] = {};
  static const TextGrphFontByte tall = {12, tallData};
  PlaceCursor(24, 16);
  TextGrph_IntlFontByte(&tall);
  EXPECT_EQ(TextGrph.LineHeight, 12);
  EXPECT_EQ(TextGrph.CharHeight, 12);
  EXPECT_EQ(TextGrph.CursorX, 0);
  EXPECT_EQ(TextGrph_GetNLines(), 5);
  Fill(0xFF);
  TextGrph_PutChar(0, 52, 'A');  // the last row that fits a 12-row cell
  TextGrph_PutChar(8, 53, 'A');
  EXPECT_EQ(CountSetIn(0, 52, 8, 12), 0);
  EXPECT_EQ(CountSetIn(8, 52, 8, 12), 96);
  PlaceCursor(24, 16);
  TextGrph_SetFontByte(&FontByte8x8L);
  EXPECT_EQ(TextGrph.CursorX, 24);
  EXPECT_EQ(TextGrph.CharHeight, 8);
}

TEST_F(TextGraphics, CursorMovesStayWithinTheirBounds) {
  struct Case {
    const char* what;
    int x, y;
    void (*move)();
    int expectedX, expectedY;
  } cases[] = {
      {"carriage return", 40, 16, TextGrph_CarriageReturn, 0, 16},
      {"line feed", 40, 48, TextGrph_Linefeed, 40, 56},
      {"line feed on the last line", 40, 56, TextGrph_Linefeed, 40, 56},
      {"backspace", 16, 8, TextGrph_Backspace, 8, 8},
      {"backspace within the first cell", 7, 8, TextGrph_Backspace, 7, 8},
      {"goto inside", 0, 0, [] { TextGrph_GotoXY(127, 63); }, 127, 63},
      {"goto right of the buffer", 5, 6, [] { TextGrph_GotoXY(128, 0); }, 5, 6},
      {"goto below the buffer", 5, 6, [] { TextGrph_GotoXY(0, 64); }, 5, 6},
      {"goto left of the buffer", 5, 6, [] { TextGrph_GotoXY(-1, 0); }, 5, 6},
      {"goto above the buffer", 5, 6, [] { TextGrph_GotoXY(0, -1); }, 5, 6},
  };
  for (const Case& c : cases) {
    PlaceCursor(c.x, c.y);
    c.move();
    EXPECT_EQ(TextGrph.CursorX, c.expectedX) << c.what;
    EXPECT_EQ(TextGrph.CursorY, c.expectedY) << c.what;
  }
}

TEST_F(TextGraphics, BackspaceClearsTheCellItMovesTo) {
  Fill(0xFF);
  PlaceCursor(19, 8);
  TextGrph_Backspace();
  EXPECT_EQ(CountSetIn(8, 8, 8, 8), 0);
  EXPECT_EQ(CountSetIn(16, 8, 8, 8), 64);
}

TEST_F(TextGraphics, ClearsReachTheEndOfTheLineAndThePage) {
  Fill(0xFF);
  PlaceCursor(20, 16);
  TextGrph_ClearToEOL();
  EXPECT_EQ(CountSetIn(16, 16, 112, 8), 0);
  EXPECT_EQ(CountSetIn(0, 16, 16, 8), 128);
  EXPECT_EQ(CountSet(), 128 * 64 - 112 * 8);

  Fill(0xFF);
  PlaceCursor(125, 16);  // no cell starts at or after 125
  TextGrph_ClearToEOL();
  EXPECT_EQ(CountSet(), 128 * 64);

  Fill(0xFF);
  PlaceCursor(20, 16);
  TextGrph_ClearToEOP();
  EXPECT_EQ(CountSet(), 128 * 16 + 16 * 8);
  EXPECT_EQ(CountSetIn(0, 0, 128, 16), 128 * 16);

  Fill(0xFF);
  PlaceCursor(20, 16);
  TextGrph_ClearHome();
  EXPECT_EQ(CountSet(), 0);
  EXPECT_EQ(TextGrph.CursorX, 0);
  EXPECT_EQ(TextGrph.CursorY, 0);
}

class Cursor : public TextOutput {
 protected:
  // Shows the cursor as a program that had it enabled would see it.
  void ShowCursorAt(int x, int y) {
    PlaceCursor(x, y);
    TextGrph.CursorState = TEXTGRPH_CURSOR_SHOWN;
    TextGrph_DispCrsr();
  }
  bool CellInverted(int col, int y) const { return CountSetIn(col * 8, y, 8, 8) == 64; }
};

TEST_F(Cursor, HidingNestsAndOnlyTheOutermostShowDrawsIt) {
  ShowCursorAt(16, 8);
  ASSERT_TRUE(CellInverted(2, 8));
  TextGrph_CurOff();
  EXPECT_EQ(TextGrph.CursorState, 1);
  EXPECT_EQ(CountSet(), 0);
  TextGrph_CurOff();
  EXPECT_EQ(TextGrph.CursorState, 2);
  TextGrph_CurOn();
  EXPECT_EQ(TextGrph.CursorState, 1);
  EXPECT_EQ(CountSet(), 0);
  TextGrph_CurOn();
  EXPECT_EQ(TextGrph.CursorState, 0);
  EXPECT_TRUE(CellInverted(2, 8));
  TextGrph_CurOn();
  EXPECT_EQ(TextGrph.CursorState, 0);
  EXPECT_EQ(CountSet(), 64);
}

TEST_F(Cursor, DisabledCursorIgnoresOffAndOn) {
  TextGrph_CurOff();
  TextGrph_CurOn();
  EXPECT_EQ(TextGrph.CursorState, TEXTGRPH_CURSOR_DISABLED);
  EXPECT_EQ(CountSet(), 0);
}

TEST_F(Cursor, ShownCursorFollowsMovesAndPrinting) {
  ShowCursorAt(16, 8);
  TextGrph_GotoXY(40, 24);
  EXPECT_TRUE(CellInverted(5, 24));
  EXPECT_EQ(CountSet(), 64);
  TextGrph_PrintChar('A');
  EXPECT_TRUE(GlyphAt(5, 24, 'A'));
  EXPECT_TRUE(CellInverted(6, 24));
  TextGrph_Backspace();
  EXPECT_EQ(CountSetIn(48, 24, 8, 8), 0);
  EXPECT_TRUE(CellInverted(5, 24)) << "the erased cell shows the cursor";
  TextGrph_ClearHome();
  EXPECT_TRUE(CellInverted(0, 0));
  EXPECT_EQ(CountSet(), 64);
}

TEST_F(Cursor, ByteFontChangeRedrawsTheCursorAtTheNewHeight) {
  static const uint8_t tallData[256 * 12] = {};
  static const TextGrphFontByte tall = {12, tallData};
  ShowCursorAt(8, 0);
  TextGrph_SetFontByte(&tall);
  EXPECT_EQ(CountSetIn(8, 0, 8, 12), 96);
  EXPECT_EQ(CountSet(), 96);
  TextGrph_IntlFontByte(&FontByte8x8L);
  EXPECT_EQ(TextGrph.CursorState, TEXTGRPH_CURSOR_DISABLED);
}

TEST_F(Cursor, DisplayingTheCursorKeepsThePutCharBounds) {
  PlaceCursor(121, 0);
  TextGrph_DispCrsr();
  PlaceCursor(0, 57);
  TextGrph_DispCrsr();
  EXPECT_EQ(CountSet(), 0);
  PlaceCursor(13, 56);
  TextGrph_DispCrsr();
  EXPECT_TRUE(CellInverted(1, 56));
}

}  // namespace
