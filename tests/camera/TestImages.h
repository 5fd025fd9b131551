// Images, frames and the capture thread's start and stop, shared by the
// camera suites.
#ifndef KAVRI_TESTS_CAMERA_TESTIMAGES_H
#define KAVRI_TESTS_CAMERA_TESTIMAGES_H

#include <cstdint>
#include <string>
#include <vector>

#include "camera_devices/FakeCamera.h"
#include "kavri/Camera.h"

#include "DebugFlagBits.h"
#include "WaitFor.h"

// A smooth YUYV picture (gradients in all three components), so that a
// lossy round trip stays close to its source.
std::vector<uint8_t> GradientYuyv(int width, int height);

// Starts capture on `chain` with the thread's output captured.
void StartCapture(CameraAnalysisBase* chain);

struct CaptureOutput {
  bool ended;  // the thread ended within the bound
  std::string out, err;
};
// Waits for the capture thread to end, after a stop request if asked for
// (a frame pushed to `wake` ends a starved wait), and ends output capture.
CaptureOutput StopCapture(bool requestStop, camera_devices::FakeCamera* wake = nullptr);

#endif
