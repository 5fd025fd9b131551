// The ball finders run by the capture thread on the simulated camera's scene
// (Motion-JPEG, decoded as for a real camera), against where the scene drew
// its ball. The scene's chroma is smeared by 4:2:2 sampling and JPEG:
// positions hold to 2 pixels.
#include <gtest/gtest.h>

#include <cmath>

#include "ControllerProcess.h"  // WaitFor
#include "YuyvCanvas.h"
#include "camera_devices/CounterRecord.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"

namespace {

constexpr int kWidth = 320, kHeight = 240;

class BallSceneTest : public testing::TestWithParam<uint32_t> {
 protected:
  void TearDown() override { camera_devices::FakeCamera::Uninstall(); }
};

TEST_P(BallSceneTest, BothFindersReportTheBallWhereTheSceneDrewIt) {
  uint32_t frameNumber = GetParam();
  camera_devices::FakeCamera::Install().SetFrameSource(
      [frameNumber](uint32_t, int width, int height) { return camera_devices::SimCameraFrame(frameNumber, width, height); });
  int16_t frames = 0;
  uint8_t change = 0;
  CameraAnalysisCounter counter = camera_devices::MakeCounterRecord(kWidth, kHeight, 30, 50, &frames, &change);
  // The single block's results in pixels, y downwards like rows. Cells of
  // 40: no 2 x 2 group holds 0.7 x 60 x 60 pixels, so the ball is the whole
  // block's.
  Results single, multi;
  auto singleBlock = SingleBlock({0, 0, kWidth, kHeight, 10, 100, 10, 0, kWidth, kHeight, 0}, single);
  auto multiBlock = MultiBlock({0, 0, kWidth, kHeight, 60, 200, 40}, multi);
  counter.base.next = &singleBlock.record.base;
  singleBlock.record.base.next = &multiBlock.record.base;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  CameraSetup(&counter.base);
  bool analysed = WaitFor([&] { return std::atomic_ref<int16_t>(frames).load() >= 3; });
  CameraThreadTerminate.store(true);
  bool stopped = WaitFor([] { return !CameraThreadRunning.load(); });
  testing::internal::GetCapturedStdout();
  std::string errors = testing::internal::GetCapturedStderr();
  ASSERT_TRUE(analysed && stopped) << errors;
  EXPECT_TRUE(errors.find("ERROR") == std::string::npos && errors.find("Camera Error") == std::string::npos) << errors;

  camera_devices::SimCameraBall drawn = camera_devices::SimCameraBallAt(frameNumber, kWidth, kHeight);
  EXPECT_NEAR(single.a, drawn.x, 2);
  EXPECT_NEAR(single.b, drawn.y, 2);
  EXPECT_NEAR(single.c, 1.98 * drawn.radius, 0.15 * drawn.radius);  // 2.8 x the spread of a disc
  EXPECT_NEAR(multi.a, drawn.x * 2000 / kWidth - 1000, 2 * 2000 / kWidth);  // -1000..1000, y downwards
  EXPECT_NEAR(multi.b, drawn.y * 2000 / kHeight - 1000, 2 * 2000 / kHeight);
  // A disc's spread is radius / sqrt 2; weighting by colourfulness favours
  // its evenly coloured middle.
  EXPECT_NEAR(multi.c, drawn.radius / std::sqrt(2.0), 0.2 * drawn.radius);
  EXPECT_TRUE(single.d > 0 && multi.d > 0);
}

// Three places along the ball's lap: right of centre, lower left, upper right.
INSTANTIATE_TEST_SUITE_P(AlongTheLap, BallSceneTest, testing::Values(0u, 50u, 100u));

}  // namespace
