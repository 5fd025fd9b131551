// What a person sees: a page with every widget type against a stored
// picture, and the screen's PNG read back.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "DisplayFixture.h"

namespace {

constexpr int kPixels = SDLWIDGETS_SCREEN_WIDTH * SDLWIDGETS_SCREEN_HEIGHT;

std::vector<uint32_t> ScreenPixels() {
  std::vector<uint32_t> pixels(kPixels);
  SDLWidgetsSim_CopyScreen(pixels.data());
  return pixels;
}

class DisplayPictureTest : public DisplayTest {
 protected:
  // A page with one widget of each kind, the toggle down and a slider moved.
  void BuildEveryWidget() {
    list.Button(0, 4, 2, 56, 10, "Start", vars[0]);
    list.Button(0, 68, 2, 56, 10, "Light", vars[1], 1, 2, true, 1);
    list.Slider(0, 4, 16, 96, 8, 0, 100, 70, vars[2]);
    list.Slider(0, 108, 16, 16, 44, -10, 10, -5, vars[3]);
    list.Text(0, 4, 28, 72, 14, 8, 2, chars, &textChanged);
    list.Rect(0, 80, 28, 22, 30);
    list.Line(0, 4, 46, 100, 60);
    const char* text = "Speed 42Dist  7m";
    for (int i = 0; i < 16; ++i) chars[i] = static_cast<uint16_t>(text[i]);
    Start();
  }

  ProgramVars vars[4];
  uint16_t chars[16] = {};
  int16_t textChanged = 0;
};

// Glyph edges are blended, and FreeType builds that hint differently move
// them by a pixel, so a pixel counts as different only beyond 16 in a
// channel, and up to 1.5 % of the screen (1152 pixels, about a third of what
// the page's texts cover) may differ. A widget drawn in a wrong place or
// colour changes far more.
TEST_F(DisplayPictureTest, PageWithEveryWidgetMatchesTheStoredPicture) {
  BuildEveryWidget();
  const std::vector<uint32_t> pixels = ScreenPixels();
  if (const char* png = getenv("KAVRI_DISPLAY_PICTURE")) {
    EXPECT_EQ(SDLWidgetsSim_SavePng(png), 1);
  }
  if (getenv("KAVRI_DISPLAY_WRITE_REFERENCE")) {
    SDL_Surface* out = SDL_CreateRGBSurfaceWithFormatFrom(const_cast<uint32_t*>(pixels.data()), SDLWIDGETS_SCREEN_WIDTH,
                                                          SDLWIDGETS_SCREEN_HEIGHT, 32, SDLWIDGETS_SCREEN_WIDTH * 4,
                                                          SDL_PIXELFORMAT_RGB888);
    ASSERT_EQ(SDL_SaveBMP(out, KAVRI_DISPLAY_REFERENCE), 0) << SDL_GetError();
    SDL_FreeSurface(out);
    GTEST_SKIP() << "reference written to " << KAVRI_DISPLAY_REFERENCE;
  }

  SDL_Surface* loaded = SDL_LoadBMP(KAVRI_DISPLAY_REFERENCE);
  ASSERT_NE(loaded, nullptr) << SDL_GetError();
  SDL_Surface* reference = SDL_ConvertSurfaceFormat(loaded, SDL_PIXELFORMAT_RGB888, 0);
  SDL_FreeSurface(loaded);
  ASSERT_NE(reference, nullptr);
  ASSERT_EQ(reference->w, SDLWIDGETS_SCREEN_WIDTH);
  ASSERT_EQ(reference->h, SDLWIDGETS_SCREEN_HEIGHT);
  int differing = 0, firstX = -1, firstY = -1;
  for (int y = 0; y < reference->h; ++y) {
    const auto* row = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(reference->pixels) + y * reference->pitch);
    for (int x = 0; x < reference->w; ++x) {
      const uint32_t a = row[x] & 0xFFFFFF, b = pixels[y * reference->w + x];
      int worst = 0;
      for (int shift = 0; shift < 24; shift += 8)
        worst = std::max(worst, std::abs(static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF)));
      if (worst > 16 && differing++ == 0) firstX = x, firstY = y;
    }
  }
  SDL_FreeSurface(reference);
  EXPECT_LE(differing, kPixels * 15 / 1000) << "first at " << firstX << "," << firstY;
}

// Big-endian 32 bits at p.
uint32_t Get32(const std::vector<uint8_t>& v, size_t p) {
  return uint32_t{v.at(p)} << 24 | uint32_t{v.at(p + 1)} << 16 | uint32_t{v.at(p + 2)} << 8 | v.at(p + 3);
}

uint32_t Crc(const uint8_t* p, size_t n) {
  uint32_t c = 0xFFFFFFFFu;
  while (n--) {
    c ^= *p++;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}

TEST_F(DisplayPictureTest, SavedPngHoldsTheScreen) {
  BuildEveryWidget();
  char path[] = "/tmp/kavri-screen-XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  ASSERT_EQ(SDLWidgetsSim_SavePng(path), 1);
  const std::vector<uint32_t> pixels = ScreenPixels();
  std::ifstream in(path, std::ios::binary);
  const std::vector<uint8_t> png((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  unlink(path);

  ASSERT_GT(png.size(), 8u);
  EXPECT_EQ(memcmp(png.data(), "\x89PNG\r\n\x1a\n", 8), 0);
  std::vector<uint8_t> header, zlib;
  for (size_t p = 8; p + 12 <= png.size();) {
    const uint32_t length = Get32(png, p);
    ASSERT_LE(p + 12 + length, png.size());
    const std::string type(png.begin() + p + 4, png.begin() + p + 8);
    EXPECT_EQ(Crc(&png[p + 4], length + 4), Get32(png, p + 8 + length)) << type;
    const std::vector<uint8_t> data(png.begin() + p + 8, png.begin() + p + 8 + length);
    if (type == "IHDR") header = data;
    if (type == "IDAT") zlib.insert(zlib.end(), data.begin(), data.end());
    p += 12 + length;
  }
  ASSERT_EQ(header.size(), 13u);
  EXPECT_EQ(Get32(header, 0), 240u);
  EXPECT_EQ(Get32(header, 4), 320u);
  EXPECT_EQ(header[8], 8);  // bits a channel
  EXPECT_EQ(header[9], 2);  // RGB

  // Stored deflate blocks: a final bit, then length and its complement.
  std::vector<uint8_t> raw;
  size_t p = 2;
  for (bool last = false; !last;) {
    last = zlib.at(p) & 1;
    const size_t n = zlib.at(p + 1) | zlib.at(p + 2) << 8;
    const size_t complement = zlib.at(p + 3) | zlib.at(p + 4) << 8;
    ASSERT_EQ(n ^ 0xFFFF, complement);
    raw.insert(raw.end(), zlib.begin() + p + 5, zlib.begin() + p + 5 + n);
    p += 5 + n;
  }
  ASSERT_EQ(raw.size(), 320u * (1 + 240 * 3));
  for (int y = 0; y < 320; ++y) {
    const uint8_t* row = &raw[y * (1 + 240 * 3)];
    ASSERT_EQ(row[0], 0) << "filter of row " << y;
    for (int x = 0; x < 240; ++x)
      ASSERT_EQ(uint32_t{row[1 + 3 * x]} << 16 | row[2 + 3 * x] << 8 | row[3 + 3 * x], pixels[y * 240 + x])
          << x << "," << y;
  }
}

}  // namespace
