#include "camera_devices/SimCamera.h"

#include <cmath>

#include "camera_devices/FakeCamera.h"
#include "camera_devices/JpegFrames.h"

namespace camera_devices {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr uint32_t kBallPeriodFrames = 120;  // one lap of the ball
constexpr int kQuality = 85;

struct Yuv {
  uint8_t y, cb, cr;
};
constexpr Yuv kFloor{190, 128, 128};
constexpr Yuv kLine{25, 128, 128};
constexpr Yuv kBall{110, 80, 200};  // orange-red

bool OnLine(int x, int y, int width, int height) {
  return std::abs(x - SimCameraLineCentre(y, width, height)) < SimCameraLineHalfWidth(width);
}

struct Ball {
  double x, y, radius;
};

Ball BallAt(uint32_t frameNumber, int width, int height) {
  double angle = 2 * kPi * (frameNumber % kBallPeriodFrames) / kBallPeriodFrames;
  return {width * (0.5 + 0.3 * std::cos(angle)), height * (0.5 + 0.25 * std::sin(angle)), height / 10.0 + 1};
}

Yuv SceneAt(int x, int y, int width, int height, const Ball& ball) {
  double dx = x - ball.x, dy = y - ball.y;
  if (dx * dx + dy * dy <= ball.radius * ball.radius) return kBall;
  if (OnLine(x, y, width, height)) return kLine;
  return kFloor;
}

std::vector<uint8_t> RenderSimScene(uint32_t frameNumber, int width, int height) {
  if (width < 2 || height < 1) return {};
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  Ball ball = BallAt(frameNumber, width, height);
  for (int y = 0; y < height; ++y) {
    uint8_t* out = &yuyv[size_t(y) * width * 2];
    for (int x = 0; x + 1 < width; x += 2) {
      Yuv left = SceneAt(x, y, width, height, ball);
      Yuv right = SceneAt(x + 1, y, width, height, ball);
      out[0] = left.y;
      out[1] = uint8_t((left.cb + right.cb) / 2);
      out[2] = right.y;
      out[3] = uint8_t((left.cr + right.cr) / 2);
      out += 4;
    }
  }
  return yuyv;
}

}  // namespace

// The line meanders from the bottom edge to the top, as a track seen from a
// robot would.
double SimCameraLineCentre(int y, int width, int height) {
  return width * (0.5 + 0.15 * std::sin(kPi * y / height));
}

double SimCameraLineHalfWidth(int width) { return width / 40.0 + 1; }

SimCameraBall SimCameraBallAt(uint32_t frameNumber, int width, int height) {
  Ball ball = BallAt(frameNumber, width, height);
  return {ball.x, ball.y, ball.radius};
}

std::vector<uint8_t> SimCameraFrame(uint32_t frameNumber, int width, int height) {
  std::vector<uint8_t> yuyv = RenderSimScene(frameNumber, width, height);
  if (yuyv.empty()) return {};
  return EncodeYuyvJpeg(yuyv.data(), width, height, kQuality, JpegLayout::Yuv422);
}

}  // namespace camera_devices

extern "C" void SimCamera_Install(void) {
  using camera_devices::FakeCamera;
  FakeCamera& camera = FakeCamera::Install();
  camera.SetFrameSource(camera_devices::SimCameraFrame);
  camera.PaceFromFrameRate(true);
}
