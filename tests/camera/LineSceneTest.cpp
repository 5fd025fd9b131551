// Both line finders in a capture chain on the simulated camera: they report
// the scene's dark line where the scene drew it, through JPEG and all.
#include <gtest/gtest.h>

#include "ControllerProcess.h"  // WaitFor
#include "camera_devices/CounterRecord.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kWidth = 160, kHeight = 120;
// Rows below the ball's lowest reach, so that only the line crosses them.
constexpr int kRowFirst = 110, kRowSecond = 115;

TEST(CameraLineSceneTest, BothFindersReportTheSimulatedLineWhereItIsDrawn) {
  SimCamera_Install();
  DebugFlags = 0;
  CameraFrameCount.store(0);  // other suites leave their own count behind
  int16_t frames = 0, position = 0, quality = 0, width = 0, positions[5] = {}, widths[5] = {};
  uint8_t change = 0;
  CameraAnalysisCounter counter = camera_devices::MakeCounterRecord(kWidth, kHeight, 100, 50, &frames, &change);
  CameraAnalysisMaxOnLine first{{CameraAnalysisTypeMaxOnLine}, 0, kRowFirst, kWidth, kRowFirst};
  first.widthMin = 5, first.widthMax = 15, first.peakThreshold = 30, first.contrastThreshold = 20;
  first.positionResult = &position, first.qualityResult = &quality, first.widthResult = &width;
  CameraAnalysisMaxOnLine2 second{{CameraAnalysisTypeMaxOnLine2}, 0, kRowSecond, kWidth, kRowSecond, 4, 20, 20, 5};
  second.color = second.refine = 1;
  second.rangeMax = kWidth;
  for (int i = 0; i < 5; ++i) second.positionResults[i] = &positions[i], second.widthResults[i] = &widths[i];
  counter.base.next = &first.base;
  first.base.next = &second.base;

  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  CameraSetup(&counter.base);
  EXPECT_TRUE(WaitFor([] { return CameraFrameCount.load() >= 3; }));
  CameraThreadTerminate.store(true);
  EXPECT_TRUE(WaitFor([] { return !CameraThreadRunning.load(); }));
  testing::internal::GetCapturedStdout();
  std::string errors = testing::internal::GetCapturedStderr();
  camera_devices::FakeCamera::Uninstall();
  EXPECT_EQ(errors.find("Camera Error"), std::string::npos) << errors;

  // The first finder's middle, in samples, from its position over the
  // candidate places (160 - 4 - 5 - 10 of them, from h = 5); its box filter
  // sums samples m .. m + 4, so the line's middle is m + 2. Sample i is
  // pixel i. Within 3 pixels.
  EXPECT_GT(width, 0);
  EXPECT_GT(quality, 0);
  EXPECT_NEAR((position + 1000) * 141 / 2000.0 + 5 + 2, camera_devices::SimCameraLineCentre(kRowFirst, kWidth, kHeight),
              3.0)
      << "position " << position;
  // The second finder's position is sample c, with pixels c - w/2 .. c + w/2
  // - 1 inside: the middle is c - 0.5. Within 2 pixels.
  ASSERT_EQ(second.lineCount, 1);
  EXPECT_NEAR(positions[0] - 0.5, camera_devices::SimCameraLineCentre(kRowSecond, kWidth, kHeight), 2.0);
  EXPECT_NEAR(widths[0], 2 * camera_devices::SimCameraLineHalfWidth(kWidth), 2.0);
}

}  // namespace
