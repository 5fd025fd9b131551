// Pixels of the 128 x 64 display buffer and of any one-bit bitmap laid out
// the same way: rows of bytes, the leftmost pixel in the top bit.
#ifndef KAVRI_TESTS_DISPLAYPIXELS_H
#define KAVRI_TESTS_DISPLAYPIXELS_H

#include <cstdint>

inline bool BitmapPixel(const uint8_t* rows, int bytesPerRow, int x, int y) {
  return rows[y * bytesPerRow + x / 8] & (0x80 >> (x % 8));
}

inline bool DisplayPixel(const uint8_t* frame, int x, int y) { return BitmapPixel(frame, 128 / 8, x, y); }

#endif
