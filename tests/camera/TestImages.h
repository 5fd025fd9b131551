// Images and frames shared by the camera suites.
#ifndef KAVRI_TESTS_CAMERA_TESTIMAGES_H
#define KAVRI_TESTS_CAMERA_TESTIMAGES_H

#include <cstdint>
#include <vector>

#include "ControllerProcess.h"  // WaitFor

// A smooth YUYV picture (gradients in all three components), so that a
// lossy round trip stays close to its source.
std::vector<uint8_t> GradientYuyv(int width, int height);

#endif
