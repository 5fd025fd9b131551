// What a person sees: a page with every widget type against a stored
// picture, and the screen's PNG read back.
#include <unistd.h>

#include <cstdlib>

#include "ControllerProcess.h"
#include "DisplayFixture.h"
#include "PngChunks.h"

namespace {

constexpr int kWidth = SDLWIDGETS_SCREEN_WIDTH, kHeight = SDLWIDGETS_SCREEN_HEIGHT;

class DisplayPictureTest : public DisplayTest {
 protected:
  // A page with one widget of each kind, the toggle down and a slider moved.
  void SetUp() override {
    DisplayTest::SetUp();
    list.Button(0, 4, 2, 56, 10, "Start", vars[0]);
    list.Button(0, 68, 2, 56, 10, "Light", vars[1], 1, 2, true, 1);
    list.Slider(0, 4, 16, 96, 8, 0, 100, 70, vars[2]);
    list.Slider(0, 108, 16, 16, 44, -10, 10, -5, vars[3]);
    list.Text(0, 4, 28, 72, 14, 8, 2, chars, &textChanged);
    list.Rect(0, 80, 28, 22, 30);
    list.Line(0, 4, 46, 100, 60);
    for (int i = 0; i < 16; ++i) chars[i] = uint16_t("Speed 42Dist  7m"[i]);
    Start();
    SDLWidgetsSim_CopyScreen(pixels.data());
  }

  ProgramVars vars[4];
  uint16_t chars[16] = {};
  int16_t textChanged = 0;
  std::vector<uint32_t> pixels = std::vector<uint32_t>(kWidth * kHeight);
};

// Glyph edges are blended, and FreeType builds that hint differently move
// them by a pixel, so a pixel counts as different only beyond 16 in a
// channel, and up to 1.5 % of the screen (1152 pixels, about a third of what
// the page's texts cover) may differ. A widget drawn in a wrong place or
// colour changes far more.
TEST_F(DisplayPictureTest, PageWithEveryWidgetMatchesTheStoredPicture) {
  if (const char* png = getenv("KAVRI_DISPLAY_PICTURE")) {
    EXPECT_EQ(SDLWidgetsSim_SavePng(png), 1);
  }
  if (getenv("KAVRI_DISPLAY_WRITE_REFERENCE")) {
    SDL_Surface* out = SDL_CreateRGBSurfaceWithFormatFrom(pixels.data(), kWidth, kHeight, 32, kWidth * 4,
                                                          SDL_PIXELFORMAT_RGB888);
    ASSERT_EQ(SDL_SaveBMP(out, KAVRI_DISPLAY_REFERENCE), 0) << SDL_GetError();
    SDL_FreeSurface(out);
    GTEST_SKIP() << "reference written to " << KAVRI_DISPLAY_REFERENCE;
  }
  SDL_Surface* loaded = SDL_LoadBMP(KAVRI_DISPLAY_REFERENCE);
  ASSERT_NE(loaded, nullptr) << SDL_GetError();
  SDL_Surface* reference = SDL_ConvertSurfaceFormat(loaded, SDL_PIXELFORMAT_RGB888, 0);
  SDL_FreeSurface(loaded);
  ASSERT_TRUE(reference && reference->w == kWidth && reference->h == kHeight);
  int differing = 0, firstX = -1, firstY = -1;
  for (int y = 0; y < kHeight; ++y) {
    const auto* row = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(reference->pixels) +
                                                        y * reference->pitch);
    for (int x = 0; x < kWidth; ++x) {
      int worst = 0;
      for (int shift = 0; shift < 24; shift += 8) {
        const int a = (row[x] >> shift) & 0xFF, b = (pixels[y * kWidth + x] >> shift) & 0xFF;
        worst = std::max(worst, std::abs(a - b));
      }
      if (worst > 16 && differing++ == 0) firstX = x, firstY = y;
    }
  }
  SDL_FreeSurface(reference);
  EXPECT_LE(differing, kWidth * kHeight * 15 / 1000) << "first at " << firstX << "," << firstY;
}

TEST_F(DisplayPictureTest, SavedPngHoldsTheScreen) {
  char path[] = "/tmp/kavri-screen-XXXXXX";
  close(mkstemp(path));
  ASSERT_EQ(SDLWidgetsSim_SavePng(path), 1);
  const std::string file = ReadWholeFile(path);
  unlink(path);
  auto chunks = PngChunks(std::vector<uint8_t>(file.begin(), file.end()), kHeight * (1 + kWidth * 3));
  const std::vector<uint8_t> &header = chunks["IHDR"], &raw = chunks["rows"];
  ASSERT_EQ(header.size(), 13u);
  // Width, height, 8 bits a channel, RGB.
  EXPECT_EQ(std::vector<uint32_t>({BigEndian32(header, 0), BigEndian32(header, 4), header[8], header[9]}),
            std::vector<uint32_t>({kWidth, kHeight, 8, 2}));
  ASSERT_EQ(raw.size(), size_t(kHeight * (1 + kWidth * 3)));
  for (int y = 0; y < kHeight; ++y) {
    const uint8_t* row = &raw[y * (1 + kWidth * 3)];
    ASSERT_EQ(row[0], 0) << "filter of row " << y;
    for (int x = 0; x < kWidth; ++x)
      ASSERT_EQ(uint32_t{row[1 + 3 * x]} << 16 | row[2 + 3 * x] << 8 | row[3 + 3 * x], pixels[y * kWidth + x])
          << x << "," << y;
  }
}

}  // namespace
