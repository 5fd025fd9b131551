#include "TestImages.h"

#include <gtest/gtest.h>

std::vector<uint8_t> GradientYuyv(int width, int height) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; x += 2) {
      uint8_t* pair = &yuyv[(size_t(y) * width + x) * 2];
      pair[0] = uint8_t(30 + 160 * x / width + 40 * y / height);
      pair[1] = uint8_t(80 + 90 * y / height);
      pair[2] = uint8_t(30 + 160 * (x + 1) / width + 40 * y / height);
      pair[3] = uint8_t(200 - 100 * x / width);
    }
  }
  return yuyv;
}

void StartCapture(CameraAnalysisBase* chain) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  CameraSetup(chain);
}

CaptureOutput StopCapture(bool requestStop, camera_devices::FakeCamera* wake) {
  if (requestStop) {
    CameraThreadTerminate.store(true);
    if (wake) wake->PushFrame(camera_devices::UndecodableFrame());
  }
  bool ended = WaitFor([] { return !CameraThreadRunning.load(); });
  std::string out = testing::internal::GetCapturedStdout();
  return {ended, out, testing::internal::GetCapturedStderr()};
}
