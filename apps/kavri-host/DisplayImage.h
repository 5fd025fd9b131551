// The display's frame as an image file a person can look at.
#ifndef KAVRI_HOST_DISPLAY_IMAGE_H
#define KAVRI_HOST_DISPLAY_IMAGE_H

#include <cstdint>

// Writes the 1024-byte display frame (128 x 64, 1 bit per pixel, rows top to
// bottom, leftmost pixel in the top bit, 1 = dark) to `path`: as a PNG scaled
// up 4 times when the path ends in ".png", else as a PBM of the frame itself.
// The file is replaced whole or not at all. On failure prints an "ERROR ..."
// line on standard error and returns false.
bool WriteDisplayImage(const uint8_t* frame, const char* path);

#endif
