// The screen as a PNG file. The deflate stream is made of stored blocks: the
// screen is small, and the library then needs no image or zlib library on
// the controller's side.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "WidgetsInternal.h"
#include "sdlwidgets/SDLWidgetsSim.h"

namespace {

constexpr int kWidth = SDLWIDGETS_SCREEN_WIDTH;
constexpr int kHeight = SDLWIDGETS_SCREEN_HEIGHT;

class PngWriter {
 public:
  // RGB, 8 bits a channel, rows led by filter type 0.
  std::vector<uint8_t> Encode(const std::vector<uint32_t>& pixels) {
    static const uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    out_.assign(std::begin(signature), std::end(signature));
    std::vector<uint8_t> header;
    Put32(header, kWidth);
    Put32(header, kHeight);
    header.insert(header.end(), {8, 2, 0, 0, 0});
    Chunk("IHDR", header);

    std::vector<uint8_t> raw;
    raw.reserve(kHeight * (1 + kWidth * 3));
    for (int y = 0; y < kHeight; ++y) {
      raw.push_back(0);
      for (int x = 0; x < kWidth; ++x) {
        const uint32_t p = pixels[y * kWidth + x];
        raw.insert(raw.end(), {uint8_t(p >> 16), uint8_t(p >> 8), uint8_t(p)});
      }
    }
    Chunk("IDAT", Stored(raw));
    Chunk("IEND", {});
    return out_;
  }

 private:
  static void Put32(std::vector<uint8_t>& v, uint32_t x) {
    v.insert(v.end(), {uint8_t(x >> 24), uint8_t(x >> 16), uint8_t(x >> 8), uint8_t(x)});
  }

  static std::vector<uint8_t> Stored(const std::vector<uint8_t>& raw) {
    std::vector<uint8_t> z = {0x78, 0x01};
    uint32_t a = 1, b = 0;
    for (size_t pos = 0; pos < raw.size();) {
      const size_t n = std::min<size_t>(0xFFFF, raw.size() - pos);
      z.push_back(pos + n == raw.size() ? 1 : 0);
      z.insert(z.end(), {uint8_t(n), uint8_t(n >> 8), uint8_t(~n), uint8_t(~n >> 8)});
      for (size_t i = pos; i < pos + n; ++i) {
        a = (a + raw[i]) % 65521;
        b = (b + a) % 65521;
        z.push_back(raw[i]);
      }
      pos += n;
    }
    Put32(z, b << 16 | a);
    return z;
  }

  void Chunk(const char* type, const std::vector<uint8_t>& data) {
    static const std::array<uint32_t, 256> table = [] {
      std::array<uint32_t, 256> t{};
      for (uint32_t n = 0; n < 256; ++n) {
        uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        t[n] = c;
      }
      return t;
    }();
    Put32(out_, static_cast<uint32_t>(data.size()));
    const size_t start = out_.size();
    out_.insert(out_.end(), type, type + 4);
    out_.insert(out_.end(), data.begin(), data.end());
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = start; i < out_.size(); ++i) crc = table[(crc ^ out_[i]) & 0xFF] ^ (crc >> 8);
    Put32(out_, ~crc);
  }

  std::vector<uint8_t> out_;
};

int Fail(const char* path, const char* what) {
  fprintf(stderr, "ERROR cannot write screen image %s: %s: %s\n", path, what, strerror(errno));
  return 0;
}

}  // namespace

extern "C" int SDLWidgetsSim_SavePng(const char* path) {
  if (!path || !*path) {
    fprintf(stderr, "ERROR cannot write screen image: no path given\n");
    return 0;
  }
  std::vector<uint32_t> pixels(kWidth * kHeight);
  SDLWidgetsSim_CopyScreen(pixels.data());
  const std::vector<uint8_t> png = PngWriter().Encode(pixels);

  // Written beside the target and renamed over it: a viewer never sees half.
  std::string temp = std::string(path) + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) return Fail(path, "cannot create a temporary file beside it");
  FILE* file = fdopen(fd, "wb");
  const bool written = file && fwrite(png.data(), 1, png.size(), file) == png.size();
  if (!file) close(fd);
  if ((file && fclose(file) != 0) || !written) {
    unlink(temp.c_str());
    return Fail(path, "cannot write the temporary file");
  }
  chmod(temp.c_str(), 0644);
  if (rename(temp.c_str(), path) != 0) {
    unlink(temp.c_str());
    return Fail(path, "cannot replace it");
  }
  return 1;
}
