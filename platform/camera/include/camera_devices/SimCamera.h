// A simulated camera for running camera programs without one: a light floor
// with a dark line and a coloured ball that moves, rendered to 4:2:2
// Motion-JPEG at the size and rate the capture thread asks for.
#ifndef CAMERA_DEVICES_SIMCAMERA_H
#define CAMERA_DEVICES_SIMCAMERA_H

#include <cstdint>
#include <vector>

extern "C" {
// Puts the simulated camera behind the camera seam.
void SimCamera_Install(void);
}

namespace camera_devices {
// The scene at one frame number as the camera sends it (4:2:2 Motion-JPEG).
std::vector<uint8_t> SimCameraFrame(uint32_t frameNumber, int width, int height);

// Where the scene draws the ball at a frame number: centre and radius in
// pixels, so that tests can hold an analysis' findings against it.
struct SimCameraBall {
  double x, y, radius;
};
SimCameraBall SimCameraBallAt(uint32_t frameNumber, int width, int height);
// Where the dark line lies: the x of its middle on row y, and half its width
// (pixels closer to the middle than that are line, unless the ball covers
// them).
double SimCameraLineCentre(int y, int width, int height);
double SimCameraLineHalfWidth(int width);
}  // namespace camera_devices

#endif
