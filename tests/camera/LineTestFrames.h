// Frames of vertical stripes of known place, brightness and colour for the
// line finders.
#ifndef KAVRI_TESTS_CAMERA_LINETESTFRAMES_H
#define KAVRI_TESTS_CAMERA_LINETESTFRAMES_H

#include "YuyvCanvas.h"
#include "kavri/Camera.h"

// Neutral chroma: R = G = B = y.
constexpr YuyvColour Grey(uint8_t y) { return {y, 128, 128}; }

struct StripeFrame : YuyvCanvas {
  StripeFrame(int width, int height, YuyvColour floor) : YuyvCanvas(width, height, floor) {}
  // Chroma belongs to pixel pairs: coloured edges go on even columns.
  StripeFrame& Columns(int x0, int x1, YuyvColour colour) {
    Fill(x0, 0, x1 - x0, height(), colour);
    return *this;
  }
};

#endif
