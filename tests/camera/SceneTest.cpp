// The finders run by the capture thread on the simulated camera's scene
// (Motion-JPEG, decoded as for a real camera), against where the scene drew
// its ball and its line. The scene's chroma is smeared by 4:2:2 sampling and
// JPEG: ball positions hold to 2 pixels.

#include <cmath>

#include "YuyvCanvas.h"
#include "camera_devices/SimCamera.h"

namespace {

using camera_devices::FakeCamera;

// Captures frame `frameNumber` of the scene again and again (-1: the
// simulated camera itself, its ball moving), with `chain` behind a counter
// record until three frames are analysed.
void CaptureScene(int frameNumber, int width, int height, CameraAnalysisBase* chain) {
  if (frameNumber < 0) {
    SimCamera_Install();
  } else {
    FakeCamera::Install().SetFrameSource(
        [frameNumber](uint32_t, int w, int h) { return camera_devices::SimCameraFrame(uint32_t(frameNumber), w, h); });
  }
  int16_t frames = 0;
  uint8_t change = 0;
  CameraAnalysisCounter counter = camera_devices::MakeCounterRecord(width, height, 30, 50, &frames, &change);
  counter.base.next = chain;
  DebugFlags = 0;
  StartCapture(&counter.base);
  const bool analysed = WaitFor([&] { return std::atomic_ref<int16_t>(frames).load() >= 3; });
  const CaptureOutput output = StopCapture(true);
  FakeCamera::Uninstall();
  EXPECT_TRUE(analysed && output.ended) << output.err;
  EXPECT_EQ(output.err.find("ERROR"), std::string::npos) << output.err;
  EXPECT_EQ(output.err.find("Camera Error"), std::string::npos) << output.err;
}

class BallSceneTest : public testing::TestWithParam<uint32_t> {};

TEST_P(BallSceneTest, BothFindersReportTheBallWhereTheSceneDrewIt) {
  constexpr int kWidth = 320, kHeight = 240;
  // The single block's results in pixels, y downwards like rows. Cells of
  // 40: no 2 x 2 group holds 0.7 x 60 x 60 pixels, so the ball is the whole
  // block's.
  Results single, multi;
  auto singleBlock = SingleBlock({0, 0, kWidth, kHeight, 10, 100, 10, 0, kWidth, kHeight, 0}, single);
  auto multiBlock = MultiBlock({0, 0, kWidth, kHeight, 60, 200, 40}, multi);
  singleBlock.record.base.next = &multiBlock.record.base;
  CaptureScene(int(GetParam()), kWidth, kHeight, &singleBlock.record.base);

  camera_devices::SimCameraBall drawn = camera_devices::SimCameraBallAt(GetParam(), kWidth, kHeight);
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

TEST(LineSceneTest, BothFindersReportTheLineWhereTheSceneDrewIt) {
  constexpr int kWidth = 160, kHeight = 120;
  // Rows below the ball's lowest reach, so that only the line crosses them.
  constexpr int kRowFirst = 110, kRowSecond = 115;
  int16_t position = 0, quality = 0, width = 0, positions[5] = {}, widths[5] = {};
  CameraAnalysisMaxOnLine first{{CameraAnalysisTypeMaxOnLine}, 0, kRowFirst, kWidth, kRowFirst};
  first.widthMin = 5, first.widthMax = 15, first.peakThreshold = 30, first.contrastThreshold = 20;
  first.positionResult = &position, first.qualityResult = &quality, first.widthResult = &width;
  CameraAnalysisMaxOnLine2 second{{CameraAnalysisTypeMaxOnLine2}, 0, kRowSecond, kWidth, kRowSecond, 4, 20, 20, 5};
  second.color = second.refine = 1;
  second.rangeMax = kWidth;
  for (int i = 0; i < 5; ++i) second.positionResults[i] = &positions[i], second.widthResults[i] = &widths[i];
  first.base.next = &second.base;
  CaptureScene(-1, kWidth, kHeight, &first.base);

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
