// Sliders: their drawing, and the value a held slider steps to.
#include <algorithm>
#include <cstdint>

#include "TextGrphFixture.h"

namespace {

using Sliders = TextGraphics;

TEST_F(Sliders, HorizontalSliderDrawsFrameTrackAndKnob) {
  Fill(0xFF);
  PlaceCursor(3, 4);
  // Knob 4 wide at ((40 - 4) * 50) / 100 = 18 pixels from the left.
  TextGrph_DrawSliderHor(10, 10, 40, 8, 50, 0, 1, 100, 0, 1);
  const std::string slider =
      "..................#####..................\n"
      "..................#...#..................\n"
      "..................#...#..................\n"
      "..#################...#################..\n"
      ".#................#...#................#.\n"
      "..#################...#################..\n"
      "..................#...#..................\n"
      "..................#...#..................\n"
      "..................#####..................\n";
  EXPECT_EQ(Region(10, 10, 41, 9), slider);
  EXPECT_EQ(CountSet(), 128 * 64 - 41 * 9 + std::count(slider.begin(), slider.end(), '#'))
      << "nothing outside the frame changed";
  EXPECT_TRUE(TextGrph.CursorX == 3 && TextGrph.CursorY == 4) << "the text cursor stays where it was";
}

TEST_F(Sliders, VerticalSliderWithFocusHasADottedKnob) {
  // Knob 5 high at ((40 - 5) * ((20 - 10) / 2)) / 10 = 17 pixels from the top.
  TextGrph_DrawSliderVert(80, 5, 10, 40, 20, 10, 2, 10, 7, 7);
  EXPECT_EQ(Region(79, 20, 13, 10),
            ".....#.#.....\n"
            ".....#.#.....\n"
            ".#.#.#.#.#.#.\n"
            ".............\n"
            ".#.........#.\n"
            ".............\n"
            ".#.........#.\n"
            "..#.#.#.#.#..\n"
            ".....#.#.....\n"
            ".....#.#.....\n");
  EXPECT_TRUE(Pixel(85, 6) && Pixel(84, 7) && Pixel(86, 43) && Pixel(85, 44)) << "rounded ends of the track";
  // Track: two sides of 37 rows less the 6 under the knob, and two end pixels.
  EXPECT_EQ(CountSet(), 2 * (37 - 6) + 2 + CountSetIn(80, 22, 11, 6));
}

TEST_F(Sliders, FocusVariantsRedrawOnlyTheKnob) {
  TextGrph_DrawSliderFocusHor(10, 10, 40, 8, 50, 0, 1, 100, 0, 1);
  EXPECT_TRUE(CountSet() == 2 * 5 + 2 * 7 && CountSetIn(28, 10, 5, 9) == CountSet());
  Fill(0);
  TextGrph_DrawSliderFocusHor(10, 10, 40, 7, 50, 0, 1, 100, 0, 1);  // odd thickness: a knob (7 + 1) / 2 = 4 long
  EXPECT_TRUE(CountSetIn(28, 10, 5, 8) == 2 * 5 + 2 * 6 && CountSet() == 2 * 5 + 2 * 6);
  Fill(0);
  TextGrph_DrawSliderFocusVert(80, 5, 10, 40, 20, 10, 2, 10, 7, 7);
  EXPECT_TRUE(CountSet() == 6 + 2 + 2 + 5 && CountSetIn(80, 22, 11, 6) == CountSet());
}

// The knob offset is worked out in full, so extreme values neither trap nor
// wrap: the first two put the knob at the far end, as value 100 of 0..100
// does. A knob beyond every 64-bit position is not drawn (the frame and the
// track are off the buffer too: the height is negative); zero divisors draw
// nothing and say so.
TEST_F(Sliders, ExtremeValuesGiveTheKnobOffsetInFull) {
  const std::string empty = Region(0, 0, 128, 64);
  TextGrph_DrawSliderHor(10, 10, 40, 8, 100, 0, 1, 100, 0, 1);
  const std::string atEnd = Region(0, 0, 128, 64);
  const struct { const char* what; void (*draw)(int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                                                int32_t, int32_t, int32_t);
                 int32_t w, h, value, min, div1, div2; bool drawn, warned; } cases[] = {
      {"lowest value over -1", TextGrph_DrawSliderHor, 40, 8, INT32_MIN, 0, -1, INT32_MAX, true, false},
      {"value minus min past 32 bits", TextGrph_DrawSliderHor, 40, 8, INT32_MAX, -INT32_MAX, 2, INT32_MAX, true, false},
      {"knob past 64 bits", TextGrph_DrawSliderHor, INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 1, 1, false, false},
      {"knob past 64 bits, focus", TextGrph_DrawSliderFocusVert, INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX, -1, 1,
       false, false},
      {"first divisor 0", TextGrph_DrawSliderHor, 40, 8, 50, 0, 0, 100, false, true},
      {"second divisor 0, focus", TextGrph_DrawSliderFocusVert, 40, 8, 50, 0, 1, 0, false, true},
  };
  for (const auto& c : cases) {
    Fill(0);
    ::testing::internal::CaptureStderr();
    c.draw(10, 10, c.w, c.h, c.value, c.min, c.div1, c.div2, 0, 1);
    const bool warned = ::testing::internal::GetCapturedStderr().find("ERROR") != std::string::npos;
    EXPECT_TRUE(Region(0, 0, 128, 64) == (c.drawn ? atEnd : empty) && warned == c.warned) << c.what;
  }
}

// From a press at 1000 (scale 1, limits -30000 and 30000): the step's size s
// picks the increment k, growing in bands of 2048 from s = 1536 on.
TEST(SliderStepping, IncrementFollowsHowLongTheSliderIsHeld) {
  const struct { const char* band; int32_t step; int16_t expected; } cases[] = {
      {"first press", 1, 1001}, {"first press, down", -1, 999}, {"below 1536", 1000, 1002},
      {"below 1536, down", -1535, 997}, {"j 0, start", 1536, 1004}, {"j 0, end", 1536 + 2047, 1007},
      {"j 1", 3584 + 300, 1009}, {"j 2", 5632 + 300, 1018}, {"j 3", 7680 + 300, 1036}, {"j 4", 9728 + 300, 1073},
      {"j 5", 11776 + 300, 1148}, {"j 6", 13824 + 300, 1295}, {"j 7", 15872 + 300, 1589},
      {"j 8, down", -(17920 + 300), -176}, {"j 9", 19968 + 300, 3352}, {"j 9, end", 19968 + 2047, 5099},
      {"j 10 jumps past the limit", 22016, 30000}, {"j 10, down", -22016, -30000}, {"j 11 falls back", 24064, 9196},
      {"j 12", 26112 + 1, 17392},
  };
  for (const auto& c : cases) {
    TextGrph_HandleSlider(1000, -30000, 30000, 1, c.step > 0 ? 1 : -1);
    EXPECT_EQ(TextGrph_HandleSlider(1000, -30000, 30000, 1, c.step), c.expected) << c.band;
  }
}

TEST(SliderStepping, PressRemembersTheBaseAndLimitsClampTheResult) {
  EXPECT_EQ(TextGrph_HandleSlider(10, 0, 100, 1, -1), 9);
  EXPECT_EQ(TextGrphSliderBase, 10);
  EXPECT_EQ(TextGrph_HandleSlider(9, 0, 100, 1, -600), 8) << "counted from the base, not the value";
  EXPECT_EQ(TextGrph_HandleSlider(42, 0, 100, 1, 0), 42) << "no step, no change";
  EXPECT_EQ(TextGrphSliderBase, 10);
  EXPECT_EQ(TextGrph_HandleSlider(8, 0, 100, 5, -1536), 0) << "10 - 4 * 5 clamped to the minimum";
  EXPECT_EQ(TextGrph_HandleSlider(8, 0, 100, 25, 1536), 100) << "10 + 4 * 25 clamped to the maximum";
  EXPECT_EQ(TextGrph_HandleSlider(8, 0, 100, 3, 1536), 22);
  EXPECT_EQ(TextGrph_HandleSlider(100, 0, 100, 1, 1), 100) << "one past the maximum";
  EXPECT_EQ(TextGrph_HandleSlider(0, 0, 100, 1, -1), 0) << "one below the minimum";
}

}  // namespace
