// The simulated camera: what it shows. That capture runs on it is seen end
// to end, where the controller streams it to the PC.
#include <gtest/gtest.h>

#include "TestImages.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"

namespace {

constexpr int kWidth = 160, kHeight = 120;

struct Decoded {
  std::vector<uint8_t> yuyv;
  int result;
};

Decoded DecodeSimFrame(uint32_t frameNumber) {
  std::vector<uint8_t> jpeg = camera_devices::SimCameraFrame(frameNumber, kWidth, kHeight);
  Decoded decoded{std::vector<uint8_t>(CameraDecodedAllocation(kWidth, kHeight)), 0};
  decoded.result = xoProJpegDec(jpeg.data(), int(jpeg.size()), decoded.yuyv.data(), kWidth * kHeight * 2);
  return decoded;
}

// Where the red chroma peaks: the ball, the only coloured thing.
std::pair<int, int> BallCentre(const std::vector<uint8_t>& yuyv) {
  long sumX = 0, sumY = 0, count = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int pair = 0; pair < kWidth / 2; ++pair)
      if (yuyv[(size_t(y) * kWidth + 2 * pair) * 2 + 3] > 170) {
        sumX += 2 * pair;
        sumY += y;
        ++count;
      }
  if (count == 0) return {-1, -1};
  return {int(sumX / count), int(sumY / count)};
}

TEST(CameraSimTest, SceneHasADarkLineOnALightFloorAndABallThatMoves) {
  Decoded first = DecodeSimFrame(0), later = DecodeSimFrame(30);
  ASSERT_EQ(first.result, 1);
  ASSERT_EQ(later.result, 1);
  const uint8_t* bottomRow = &first.yuyv[size_t(kHeight - 1) * kWidth * 2];
  int darkest = 255, lightest = 0;
  for (int x = 0; x < kWidth; ++x) {
    darkest = std::min(darkest, int(bottomRow[2 * x]));
    lightest = std::max(lightest, int(bottomRow[2 * x]));
  }
  EXPECT_LT(darkest, 60) << "the line crosses the bottom row";
  EXPECT_GT(lightest, 160) << "on a light floor";
  auto [x0, y0] = BallCentre(first.yuyv);
  auto [x1, y1] = BallCentre(later.yuyv);
  ASSERT_GE(x0, 0) << "a ball in the first frame";
  ASSERT_GE(x1, 0) << "a ball in the later frame";
  EXPECT_GT(abs(x1 - x0) + abs(y1 - y0), 10) << "the ball has moved";
}

}  // namespace
