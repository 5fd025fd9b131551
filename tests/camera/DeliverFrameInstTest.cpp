// The library's own delivery record as it is when the library has just been
// loaded: handed to CameraSetup alone, it must be taken for what it is.
// A program of its own, so that nothing has touched the record before.

#include "YuyvCanvas.h"
#include "kavri/CameraAnalysis.h"

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
  // Settings untouched by the record, so the device was asked for the defaults.
  EXPECT_EQ(std::vector<uint32_t>({camera.RequestedWidth(), camera.RequestedHeight()}),
            std::vector<uint32_t>({uint32_t(width), uint32_t(height)}));
  camera_devices::FakeCamera::Uninstall();

  ASSERT_TRUE(output.ended && delivered) << output.out << output.err;
  EXPECT_EQ(std::vector<uint8_t>(buffers[0].begin(), buffers[0].begin() + record.size[0]), frame);
  EXPECT_EQ(std::vector<int>({CameraFrameWidth, CameraFrameRate}), std::vector<int>({width, rate}));
  EXPECT_EQ(output.out.find("Camera parameter record found"), std::string::npos) << output.out;
}

}  // namespace
