// A PNG file read back with zlib, independently of the writer: its chunks
// checked with zlib's CRC-32, and the image data inflated, which checks the
// stream's Adler-32.
#ifndef KAVRI_TESTS_PNGCHUNKS_H
#define KAVRI_TESTS_PNGCHUNKS_H

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

inline uint32_t BigEndian32(const std::vector<uint8_t>& b, size_t at) {
  return uint32_t{b.at(at)} << 24 | uint32_t{b.at(at + 1)} << 16 | uint32_t{b.at(at + 2)} << 8 | b.at(at + 3);
}

// The data of each chunk type, joined in file order; "rows" is the inflated
// image data, empty unless it is exactly `rowBytes` long.
inline std::map<std::string, std::vector<uint8_t>> PngChunks(const std::vector<uint8_t>& png, size_t rowBytes) {
  std::map<std::string, std::vector<uint8_t>> chunks;
  EXPECT_TRUE(png.size() > 8 && memcmp(png.data(), "\x89PNG\r\n\x1a\n", 8) == 0);
  for (size_t at = 8, length = 0; at + 12 <= png.size(); at += 12 + length) {
    length = BigEndian32(png, at);
    const std::string type(png.begin() + long(at) + 4, png.begin() + long(at) + 8);
    EXPECT_EQ(BigEndian32(png, at + 8 + length), crc32(0, &png[at + 4], uInt(length + 4))) << type;
    chunks[type].insert(chunks[type].end(), png.begin() + long(at) + 8, png.begin() + long(at + 8 + length));
  }
  std::vector<uint8_t>& rows = chunks["rows"];
  rows.resize(rowBytes + 1);
  uLongf size = rows.size();
  const std::vector<uint8_t>& data = chunks["IDAT"];
  const bool whole = uncompress(rows.data(), &size, data.data(), data.size()) == Z_OK && size == rowBytes;
  rows.resize(whole ? rowBytes : 0);
  return chunks;
}

#endif
