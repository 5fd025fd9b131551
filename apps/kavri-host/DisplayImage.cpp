// Display frames as image files. PNG is written without an image library:
// its deflate stream may consist of stored blocks, which a frame this small
// can afford.
#include "DisplayImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kFrameWidth = 128;
constexpr int kFrameHeight = 64;
constexpr int kFrameRowBytes = kFrameWidth / 8;
constexpr int kPngScale = 4;
constexpr int kPngWidth = kFrameWidth * kPngScale;
constexpr int kPngHeight = kFrameHeight * kPngScale;
constexpr size_t kStoredBlockMax = 65535;

// Palette of the PNG: index 0 an unlit pixel, 1 a dark one, in the colours
// of a monochrome LCD.
constexpr uint8_t kPalette[] = {0xDC, 0xE6, 0xD2, 0x1E, 0x26, 0x2E};

using Bytes = std::vector<uint8_t>;

void AppendBigEndian32(Bytes& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void AppendLittleEndian16(Bytes& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}

uint32_t Crc32(const uint8_t* data, size_t n) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < n; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

uint32_t Adler32(const Bytes& data) {
  uint32_t a = 1, b = 0;
  for (uint8_t byte : data) {
    a = (a + byte) % 65521;
    b = (b + a) % 65521;
  }
  return (b << 16) | a;
}

bool FramePixel(const uint8_t* frame, int x, int y) { return frame[y * kFrameRowBytes + x / 8] & (0x80 >> (x % 8)); }

// Scan lines of the scaled image, 1 bit per pixel, each led by filter type 0.
Bytes ScaledScanLines(const uint8_t* frame) {
  Bytes lines;
  lines.reserve(kPngHeight * (1 + kPngWidth / 8));
  for (int y = 0; y < kPngHeight; ++y) {
    lines.push_back(0);
    for (int x = 0; x < kPngWidth; x += 8) {
      uint8_t byte = 0;
      for (int bit = 0; bit < 8; ++bit)
        if (FramePixel(frame, (x + bit) / kPngScale, y / kPngScale)) byte |= static_cast<uint8_t>(0x80 >> bit);
      lines.push_back(byte);
    }
  }
  return lines;
}

// A zlib stream of stored (uncompressed) deflate blocks.
Bytes ZlibStored(const Bytes& raw) {
  Bytes out = {0x78, 0x01};
  size_t pos = 0;
  do {
    const size_t n = std::min(kStoredBlockMax, raw.size() - pos);
    const bool last = pos + n == raw.size();
    out.push_back(last ? 1 : 0);
    AppendLittleEndian16(out, static_cast<uint16_t>(n));
    AppendLittleEndian16(out, static_cast<uint16_t>(~n));
    out.insert(out.end(), raw.begin() + static_cast<std::ptrdiff_t>(pos), raw.begin() + static_cast<std::ptrdiff_t>(pos + n));
    pos += n;
  } while (pos < raw.size());
  AppendBigEndian32(out, Adler32(raw));
  return out;
}

void AppendChunk(Bytes& png, const char* type, const Bytes& data) {
  AppendBigEndian32(png, static_cast<uint32_t>(data.size()));
  const size_t typeStart = png.size();
  png.insert(png.end(), type, type + 4);
  png.insert(png.end(), data.begin(), data.end());
  AppendBigEndian32(png, Crc32(png.data() + typeStart, png.size() - typeStart));
}

Bytes EncodePng(const uint8_t* frame) {
  Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  Bytes header;
  AppendBigEndian32(header, kPngWidth);
  AppendBigEndian32(header, kPngHeight);
  // 1 bit per pixel, palette colours, deflate, standard filters, no interlace.
  header.insert(header.end(), {1, 3, 0, 0, 0});
  AppendChunk(png, "IHDR", header);
  AppendChunk(png, "PLTE", Bytes(std::begin(kPalette), std::end(kPalette)));
  AppendChunk(png, "IDAT", ZlibStored(ScaledScanLines(frame)));
  AppendChunk(png, "IEND", {});
  return png;
}

// Binary PBM: the frame's own bit layout, 1 = black.
Bytes EncodePbm(const uint8_t* frame) {
  const std::string header = "P4\n" + std::to_string(kFrameWidth) + " " + std::to_string(kFrameHeight) + "\n";
  Bytes pbm(header.begin(), header.end());
  pbm.insert(pbm.end(), frame, frame + kFrameRowBytes * kFrameHeight);
  return pbm;
}

bool IsPngPath(const std::string& path) {
  if (path.size() < 4) return false;
  std::string suffix = path.substr(path.size() - 4);
  std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return std::tolower(c); });
  return suffix == ".png";
}

bool Fail(const std::string& path, const char* what) {
  fprintf(stderr, "ERROR cannot write display image %s: %s: %s\n", path.c_str(), what, strerror(errno));
  return false;
}

bool WriteAll(int fd, const Bytes& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Writes beside the target and renames over it, so a reader sees either the
// old image or the new one, never a part.
bool ReplaceFile(const std::string& path, const Bytes& bytes) {
  std::string temp = path + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) return Fail(path, "cannot create a temporary file beside it");
  const bool written = fchmod(fd, 0644) == 0 && WriteAll(fd, bytes);
  const int writeErrno = errno;
  if (close(fd) != 0 || !written) {
    if (!written) errno = writeErrno;
    unlink(temp.c_str());
    return Fail(path, "cannot write the temporary file");
  }
  if (rename(temp.c_str(), path.c_str()) != 0) {
    const int renameErrno = errno;
    unlink(temp.c_str());
    errno = renameErrno;
    return Fail(path, "cannot replace it");
  }
  return true;
}

}  // namespace

bool WriteDisplayImage(const uint8_t* frame, const char* path) {
  if (!frame || !path || !*path) {
    fprintf(stderr, "ERROR cannot write display image: no %s given\n", frame ? "path" : "frame");
    return false;
  }
  return ReplaceFile(path, IsPngPath(path) ? EncodePng(frame) : EncodePbm(frame));
}
