// Text output, fonts, the cursor and the hand-over of the buffer to the display.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "TextGrphFixture.h"

namespace {

class TextOutput : public TextGraphics {
 protected:
  // True if byte column `col`, rows y .. y + 7, hold glyph c (inverted when asked).
  bool GlyphAt(int col, int y, uint8_t c, bool inverted = false) const {
    for (int r = 0; r < 8; ++r)
      if (buffer[(y + r) * 16 + col] != uint8_t(FontByte8x8LData[c * 8 + r] ^ (inverted ? 0xFF : 0))) return false;
    return true;
  }
  bool CellInverted(int col, int y) const { return CountSetIn(col * 8, y, 8, 8) == 64; }
};

TEST_F(TextGraphics, InitialisationClearsAndUpdateWaitsForTheDisplayToTakeTheFrame) {
  Fill(0xFF);
  PlaceCursor(40, 16);
  TextGrph_Intl(area);
  // Pixels set, cursor, cursor state, lines; the frame raised by initialisation is still pending.
  EXPECT_EQ(std::vector<int>({CountSet(), TextGrph.CursorX, TextGrph.CursorY, TextGrph.CursorState,
                              TextGrph_GetNLines(), TextGrph_Update()}),
            std::vector<int>({0, 0, 0, TEXTGRPH_CURSOR_DISABLED, 8, 1}));
  ASSERT_TRUE(TakeFrame());
  EXPECT_EQ(area->DisplayUpdateCounter, 0);
  TextGrph_PutStrg(0, 0, "Hi");
  EXPECT_EQ(TextGrph_Update(), 0);
  EXPECT_TRUE(area->DisplayUpdateCounter == 1 && area->DisplayUpdateFlag == 1);
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

// A cell is drawn only when it lies wholly inside, in the byte column of x.
TEST_F(TextOutput, CharactersAreWholeCellsInsideTheBuffer) {
  const struct { int x, y, column; } cases[] = {  // column -1: nothing drawn
      {0, 0, 0},    {13, 0, 1},   {7, 8, 0},   {120, 0, 15}, {120, 56, 15}, {121, 0, -1},
      {127, 0, -1}, {-1, 0, -1},  {-8, 0, -1}, {0, 57, -1},  {0, -1, -1},   {64, 63, -1},
  };
  for (const auto& c : cases) {
    Fill(0);
    TextGrph_PutChar(c.x, c.y, 'A');
    if (c.column >= 0) {
      EXPECT_TRUE(GlyphAt(c.column, c.y, 'A')) << "x " << c.x << " y " << c.y;
    }
    EXPECT_EQ(CountSet(), c.column < 0 ? 0 : CountSetIn(c.column * 8, c.y, 8, 8)) << "x " << c.x << " y " << c.y;
  }
  // Inverted characters and spaces overwrite the whole cell and nothing else.
  Fill(0x3C);
  TextGrph_PutCharInv(16, 8, 'k');
  TextGrph_PutSpace(27, 16);
  TextGrph_PutSpace(121, 0);
  EXPECT_TRUE(GlyphAt(2, 8, 'k', true));
  EXPECT_EQ(CountSetIn(24, 16, 8, 8), 0);
  EXPECT_EQ(CountSet(), 128 * 64 / 2 - 32 - 32 + CountSetIn(16, 8, 8, 8));
}

TEST_F(TextOutput, StringsStopAdvancingAtTheLastCell) {
  // From 100 the cells start at 100, 108, 116; the fourth x, 124, is past the last cell.
  EXPECT_EQ(TextGrph_PutStrg(100, 0, "abcd"), 124);
  EXPECT_TRUE(GlyphAt(12, 0, 'a') && GlyphAt(14, 0, 'c'));
  EXPECT_EQ(CountSetIn(120, 0, 8, 8), 0);
  Fill(0);
  TextGrph_PrintStrg("ABCDEFGHIJKLMNOPQRST");  // overwrites the last cell without wrapping
  EXPECT_EQ(TextGrph.CursorX, 120);
  for (int col = 0; col < 15; ++col) EXPECT_TRUE(GlyphAt(col, 0, uint8_t('A' + col))) << col;
  EXPECT_TRUE(GlyphAt(15, 0, 'T'));
  EXPECT_EQ(CountSetIn(0, 8, 128, 56), 0);
  // Arrays of bytes, or of 16-bit codes of which the low byte counts.
  Fill(0);
  TextGrph_GotoXY(0, 8);
  const uint8_t bytes[] = {'x', 0, 0x99};
  const int16_t codes[] = {'y', 0x141, -1};
  TextGrph_PrintArrayUC(bytes, 3);
  TextGrph_PrintArrayS2(codes, 3);
  TextGrph_PrintInvArrayUC(bytes, 1);
  TextGrph_PrintInvArrayS2(codes, 2);
  const uint8_t expected[] = {'x', 0, 0x99, 'y', 'A', 0xFF, 'x', 'y', 'A'};
  for (int col = 0; col < 9; ++col) EXPECT_TRUE(GlyphAt(col, 8, expected[col], col >= 6)) << col;
  EXPECT_EQ(TextGrph.CursorX, 72);
}

// Moves stay within their bounds; the clears reach the end of the line or
// the page from the cell of x, and nothing else clears.
TEST_F(TextGraphics, CursorMovesAndClearsStayWithinTheirBounds) {
  const struct { const char* what; int x, y; void (*move)(); int wantX, wantY, cleared; } cases[] = {
      {"carriage return", 40, 16, TextGrph_CarriageReturn, 0, 16, 0},
      {"line feed", 40, 48, TextGrph_Linefeed, 40, 56, 0},
      {"line feed on the last line", 40, 56, TextGrph_Linefeed, 40, 56, 0},
      {"backspace clears the cell it moves to", 19, 16, TextGrph_Backspace, 11, 16, 8 * 8},
      {"backspace in the first cell", 7, 8, TextGrph_Backspace, 7, 8, 0},
      {"backspace from the second cell", 8, 8, TextGrph_Backspace, 0, 8, 8 * 8},
      {"goto inside", 0, 0, [] { TextGrph_GotoXY(127, 63); }, 127, 63, 0},
      {"goto right of the buffer", 5, 6, [] { TextGrph_GotoXY(128, 0); }, 5, 6, 0},
      {"goto below the buffer", 5, 6, [] { TextGrph_GotoXY(0, 64); }, 5, 6, 0},
      {"goto left of the buffer", 5, 6, [] { TextGrph_GotoXY(-1, 0); }, 5, 6, 0},
      {"goto above the buffer", 5, 6, [] { TextGrph_GotoXY(0, -1); }, 5, 6, 0},
      {"to the end of the line", 20, 16, TextGrph_ClearToEOL, 20, 16, 112 * 8},
      {"no cell starts at or after 125", 125, 16, TextGrph_ClearToEOL, 125, 16, 0},
      {"to the end of the page", 20, 16, TextGrph_ClearToEOP, 20, 16, 112 * 8 + 128 * 40},
      {"home", 20, 16, TextGrph_ClearHome, 0, 0, 128 * 64},
  };
  for (const auto& c : cases) {
    Fill(0xFF);
    PlaceCursor(c.x, c.y);
    c.move();
    EXPECT_EQ(std::vector<int>({TextGrph.CursorX, TextGrph.CursorY, 128 * 64 - CountSet()}),
              std::vector<int>({c.wantX, c.wantY, c.cleared})) << c.what;
  }
}

// Hiding nests; only the outermost show draws the cursor, which then follows
// moves, printing, erasing and a change of font height.
TEST_F(TextOutput, CursorHidesNestedAndFollowsTheText) {
  TextGrph_CurOff();
  TextGrph_CurOn();
  EXPECT_TRUE(TextGrph.CursorState == TEXTGRPH_CURSOR_DISABLED && CountSet() == 0) << "a disabled cursor ignores both";
  PlaceCursor(16, 8);
  TextGrph.CursorState = TEXTGRPH_CURSOR_SHOWN;
  TextGrph_DispCrsr();
  ASSERT_TRUE(CellInverted(2, 8));
  const int states[] = {1, 2, 1, 0, 0};
  for (int i = 0; i < 5; ++i) {
    i < 2 ? TextGrph_CurOff() : TextGrph_CurOn();
    EXPECT_TRUE(TextGrph.CursorState == states[i] && CountSet() == (states[i] == 0 ? 64 : 0)) << "step " << i;
  }
  TextGrph_GotoXY(40, 24);
  TextGrph_PrintChar('A');
  EXPECT_TRUE(GlyphAt(5, 24, 'A') && CellInverted(6, 24));
  TextGrph_Backspace();
  EXPECT_EQ(CountSetIn(48, 24, 8, 8), 0);
  EXPECT_TRUE(CellInverted(5, 24)) << "the erased cell shows the cursor";
  TextGrph_ClearHome();
  EXPECT_TRUE(CellInverted(0, 0) && CountSet() == 64);
  // Setting a font keeps the cursor where it is, at the new cell height;
  // initialising one sends it home, disabled.
  static const uint8_t tallData[256 * 12] = {};
  static const TextGrphFontByte tall = {12, tallData};
  TextGrph_SetFontByte(&tall);
  EXPECT_TRUE(CountSetIn(0, 0, 8, 12) == 96 && CountSet() == 96);
  PlaceCursor(24, 16);
  TextGrph_IntlFontByte(&tall);
  EXPECT_EQ(std::vector<int>({TextGrph.CursorX, TextGrph.CursorState, TextGrph_GetNLines()}),
            std::vector<int>({0, TEXTGRPH_CURSOR_DISABLED, 5}));
  Fill(0xFF);
  TextGrph_PutChar(0, 52, 'A');  // the last row that fits a 12-row cell
  TextGrph_PutChar(8, 53, 'A');
  EXPECT_TRUE(CountSetIn(0, 52, 8, 12) == 0 && CountSetIn(8, 52, 8, 12) == 96);
  TextGrph_IntlFontByte(&FontByte8x8L);
}

}  // namespace
