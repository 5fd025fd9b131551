// The library's own delivery record as it is when the library has just been
// loaded: handed to CameraSetup alone, it must be taken for what it is.
// A program of its own, so that nothing has touched the record before.
#include <gtest/gtest.h>

#include <cstring>

#include "TestImages.h"
#include "camera_devices/FakeCamera.h"
#include "kavri/CameraAnalysis.h"
#include "kavri/KavriLib.h"

namespace {

TEST(DeliverFrameInstance, AloneInAChainItCapturesWithTheDefaultsAndDeliversFrames) {
  CameraAnalysisDeliverFrame& record = CameraAnalysisDeliverFrame_Inst;
  ASSERT_EQ(record.base.type, CameraAnalysisTypeDeliverFrame) << "as loaded";

  camera_devices::FakeCamera& camera = camera_devices::FakeCamera::Install();
  DebugFlags = 0;
  const int width = CameraFrameWidth, height = CameraFrameHeight, rate = CameraFrameRate;
  std::vector<uint8_t> yuyv = GradientYuyv(width, height);
  camera_devices::Bytes frame = camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height);
  camera.SetFrameSource([&frame](uint32_t, int, int) { return frame; });

  // Lent as the camera server lends them: capacity and buffers before enabled.
  std::vector<uint8_t> buffers[2] = {std::vector<uint8_t>(frame.size() + 64), std::vector<uint8_t>(frame.size() + 64)};
  record.capacity = static_cast<int32_t>(frame.size() + 64);
  record.buffer[0] = buffers[0].data();
  record.buffer[1] = buffers[1].data();
  record.SetEnabled(true);

  StartCapture(&record.base);
  bool delivered = WaitFor([&] { return record.Full(0).load(std::memory_order_acquire) != 0; });
  CaptureOutput output = StopCapture(true, &camera);
  record.SetEnabled(false);
  const uint32_t requestedWidth = camera.RequestedWidth(), requestedHeight = camera.RequestedHeight();
  camera_devices::FakeCamera::Uninstall();

  ASSERT_TRUE(output.ended) << output.out << output.err;
  ASSERT_TRUE(delivered) << output.out << output.err;
  EXPECT_EQ(record.size[0], static_cast<int32_t>(frame.size()));
  EXPECT_EQ(memcmp(buffers[0].data(), frame.data(), frame.size()), 0);
  // Settings untouched by the record, so the device was asked for the defaults.
  EXPECT_EQ(CameraFrameWidth, width);
  EXPECT_EQ(CameraFrameRate, rate);
  EXPECT_EQ(requestedWidth, static_cast<uint32_t>(width));
  EXPECT_EQ(requestedHeight, static_cast<uint32_t>(height));
  EXPECT_EQ(output.out.find("Camera parameter record found"), std::string::npos) << output.out;
}

}  // namespace
