// Bit-level access to the display buffer bound in TextGrph, shared by the
// text and the shape functions. Callers check bounds; these do not.
#ifndef KAVRI_TEXTGRPH_PIXELS_H
#define KAVRI_TEXTGRPH_PIXELS_H

#include <cstdint>

#include "kavri/TextGrph.h"

namespace textgrph {

inline int32_t BytesPerRow() { return TextGrph.Width / 8; }

inline uint8_t* RowOf(int32_t y) { return TextGrph.Buffer + y * BytesPerRow(); }

inline uint8_t PixelMask(int32_t x) { return static_cast<uint8_t>(0x80u >> (x % 8)); }

inline bool InBuffer(int64_t x, int64_t y) {
  return x >= 0 && y >= 0 && x < TextGrph.Width && y < TextGrph.Height;
}

inline void WritePixel(int32_t x, int32_t y, bool set) {
  uint8_t& byte = RowOf(y)[x / 8];
  byte = set ? static_cast<uint8_t>(byte | PixelMask(x)) : static_cast<uint8_t>(byte & ~PixelMask(x));
}

// Writes `pattern` into the pixels [x, x + n) of a row, leaving the others.
// n > 0 and the span inside the row.
inline void WriteRowSpan(uint8_t* row, int32_t x, int32_t n, uint8_t pattern) {
  const int32_t last = x + n - 1;
  const int32_t firstByte = x / 8;
  const int32_t lastByte = last / 8;
  const uint8_t headMask = static_cast<uint8_t>(0xFFu >> (x % 8));
  const uint8_t tailMask = static_cast<uint8_t>(0xFFu << (7 - last % 8));
  auto blend = [pattern](uint8_t& byte, uint8_t mask) {
    byte = static_cast<uint8_t>((byte & ~mask) | (pattern & mask));
  };
  if (firstByte == lastByte) {
    blend(row[firstByte], headMask & tailMask);
    return;
  }
  blend(row[firstByte], headMask);
  for (int32_t i = firstByte + 1; i < lastByte; ++i) row[i] = pattern;
  blend(row[lastByte], tailMask);
}

}  // namespace textgrph

#endif
