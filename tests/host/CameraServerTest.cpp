// The camera server seen from a PC: a real TCP client on loopback, frames
// from the fake camera through the capture thread, or frames handed to the
// delivery record by the test itself where the exact buffer state matters.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ControllerProcess.h"
#include "LinkHandlerCall.h"
#include "TestClient.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/JpegFrames.h"
#include "host/CameraServer.h"
#include "host/OnlineMode.h"
#include "kavri/Camera.h"
#include "host/KavriState.h"

namespace {

using camera_devices::Bytes;
using camera_devices::FakeCamera;

CameraAnalysisDeliverFrame& Record() { return CameraAnalysisDeliverFrame_Inst; }

bool BuffersLent() {
  return std::atomic_ref<uint8_t*>(Record().buffer[0]).load() && std::atomic_ref<uint8_t*>(Record().buffer[1]).load();
}

struct Frame {
  KavriCameraFrameHeader header{};
  std::vector<uint8_t> data;
  bool complete = false;
};

Frame ReceiveFrame(TestClient& pc) {
  Frame frame;
  std::vector<uint8_t> head = pc.Receive(sizeof frame.header);
  if (head.size() != sizeof frame.header) return frame;
  memcpy(&frame.header, head.data(), sizeof frame.header);
  frame.data = pc.Receive(frame.header.size);
  frame.complete = frame.data.size() == frame.header.size;
  return frame;
}

Bytes TestPicture(int width, int height, uint32_t sequence) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (size_t i = 0; i < yuyv.size(); ++i) yuyv[i] = uint8_t(i % 2 ? 128 : (i / 2 + sequence * 8) % 220 + 16);
  return camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height);
}

class CameraServer : public ::testing::Test {
 protected:
  void SetUp() override {
    port_ = FindFreePort();
    CameraServerPort = port_;
  }
  void TearDown() override {
    Record().EndWriting();
    StopThreadCameraServer();
    CameraThreadTerminate.store(true);
    EXPECT_TRUE(WaitFor([] { return !CameraThreadRunning.load() && !CameraServerThreadRunning.load(); }));
    if (camera_) FakeCamera::Uninstall();
  }

  void StartCameraOnline(int width, int height) {
    if (!camera_) {
      camera_ = &FakeCamera::Install();
      camera_->SetFrameSource([](uint32_t sequence, int w, int h) { return TestPicture(w, h, sequence); });
    }
    xoIF2013Command_StartCameraOnline command{KavriCmdStartCameraOnline, width, height, 30, 50};
    ASSERT_EQ(CallLinkHandlerForCode(kavri::HandleStartCameraOnline, &command, sizeof command), KavriReplyStartCameraOnline);
  }
  // The server alone, with the test as the capture thread.
  void StartServer(int width, int height) {
    CameraFrameWidth = width;
    CameraFrameHeight = height;
    ASSERT_EQ(StartThreadCameraServer(), 1);
    ASSERT_TRUE(WaitFor([] { return Record().IsEnabled(); }));
  }
  void Deliver(const std::vector<uint8_t>& frame) {
    Record().Analyze(0, nullptr, nullptr, frame.data(), int(frame.size()));
  }
  std::unique_ptr<TestClient> ConnectPc() {
    EXPECT_TRUE(WaitFor([&] { return PortIsListening(port_); }));
    return std::make_unique<TestClient>(port_, 20);
  }
  static bool ServerEnds() {
    return WaitFor([] { return !CameraServerThreadRunning.load(); });
  }

  int port_ = 0;
  FakeCamera* camera_ = nullptr;
};

TEST_F(CameraServer, CameraFramesArriveWithTheirHeaderAndDecode) {
  StartCameraOnline(64, 48);
  auto pc = ConnectPc();
  std::vector<uint8_t> decoded(CameraDecodedAllocation(64, 48));
  for (int count = 0; count < 3; ++count) {
    SCOPED_TRACE(count);
    Frame frame = ReceiveFrame(*pc);
    ASSERT_TRUE(frame.complete);
    EXPECT_EQ(frame.header.magic, 0xbdc2d7a1u);
    EXPECT_EQ(frame.header.width, 64);
    EXPECT_EQ(frame.header.height, 48);
    EXPECT_EQ(frame.header.capacity, 64u * 48u * 2u);
    EXPECT_TRUE(frame.header.backlog == 0 || frame.header.backlog == 1) << frame.header.backlog;
    EXPECT_EQ(xoProJpegDec(frame.data.data(), int(frame.data.size()), decoded.data(), int(decoded.size())), 1);
    pc->SendWord(KavriCameraFrameAck);
  }
  xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
  EXPECT_EQ(CallLinkHandlerForCode(kavri::HandleStopCameraOnline, &stop, sizeof stop), KavriReplyStopCameraOnline);
  EXPECT_FALSE(CameraServerThreadRunning.load());
  EXPECT_FALSE(BuffersLent());
}

TEST_F(CameraServer, BacklogCountsTheFramesStillWaiting) {
  StartServer(8, 4);
  const std::vector<uint8_t> first(40, 0xA1), second(64, 0xB2), third(3, 0xC3), tooLarge(65, 0xD4);
  Deliver(first);
  Deliver(second);
  Deliver(tooLarge);  // both buffers full: dropped, not queued
  auto pc = ConnectPc();
  const struct {
    const std::vector<uint8_t>* deliveredFirst;  // once a buffer is free again
    const std::vector<uint8_t>& expected;
    int backlog;
  } steps[] = {{nullptr, first, 1}, {&tooLarge, second, 0}, {&third, third, 0}};
  for (const auto& step : steps) {
    SCOPED_TRACE(step.expected.size());
    if (step.deliveredFirst) {
      ASSERT_TRUE(WaitFor([] { return !Record().Full(0).load() || !Record().Full(1).load(); }));
      Deliver(*step.deliveredFirst);
    }
    Frame frame = ReceiveFrame(*pc);
    ASSERT_TRUE(frame.complete);
    EXPECT_EQ(frame.header.backlog, step.backlog);
    EXPECT_EQ(frame.header.capacity, 64u);
    EXPECT_EQ(frame.data, step.expected);
    pc->SendWord(KavriCameraFrameAck);
  }
}

// Every way a run ends early: its message, no listener left, buffers back.
TEST_F(CameraServer, RunThatCannotGoOnEndsWithItsMessageAndTakesTheBuffersBack) {
  const struct {
    const char* name;
    int width, height;
    std::vector<uint8_t> answer;  // the PC's answer to a first frame; none: no PC
    const char* message;
  } cases[] = {
      {"no PC within 5 s", 16, 8, {}, "\nCameraServer: ERROR calling accept\n"},
      {"no frame size", 0, 48, {}, "ERROR camera server frame size 0x48 out of range\n"},
      {"frame size beyond any camera", 5000, 5000, {}, "ERROR camera server frame size 5000x5000 out of range\n"},
      {"wrong value", 8, 4, {0x78, 0x56, 0x34, 0x12}, "ERROR received illegal command (0x12345678) in camera server"},
      {"two bytes, then gone", 8, 4, {0xba, 0x9f}, "ERROR received illegal command packet (length<4) in camera server\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ::testing::internal::CaptureStderr();
    CameraFrameWidth = c.width;
    CameraFrameHeight = c.height;
    ASSERT_EQ(StartThreadCameraServer(), 1);
    if (!c.answer.empty()) {
      ASSERT_TRUE(WaitFor([] { return Record().IsEnabled(); }));
      Deliver(std::vector<uint8_t>(10, 1));
      auto pc = ConnectPc();
      ASSERT_TRUE(ReceiveFrame(*pc).complete);
      pc->Send(c.answer.data(), c.answer.size());
    }
    bool ended = ServerEnds();
    std::string printed = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(ended);
    EXPECT_NE(printed.find(c.message), std::string::npos) << printed;
    EXPECT_FALSE(PortIsListening(port_));
    EXPECT_FALSE(BuffersLent());
  }
}

TEST_F(CameraServer, StopWaitsForACopyUnderWayBeforeFreeing) {
  StartServer(8, 4);
  ASSERT_TRUE(Record().BeginWriting());  // the capture thread is in the middle of a copy
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(StopThreadCameraServer(), 0);
  std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(printed, "Timeout terminating camera server thread");
  // The server runs at the lowest priority: on a busy machine it may reach
  // its clean-up only after the stop has given up waiting.
  EXPECT_TRUE(WaitFor([] { return !Record().IsEnabled(); }));
  EXPECT_TRUE(BuffersLent());
  Record().EndWriting();
  EXPECT_TRUE(ServerEnds());
  EXPECT_FALSE(BuffersLent());
}

TEST_F(CameraServer, SecondStartReplacesTheFirstWithItsOwnSize) {
  StartCameraOnline(64, 48);
  StartCameraOnline(32, 24);
  auto pc = ConnectPc();
  Frame frame = ReceiveFrame(*pc);
  ASSERT_TRUE(frame.complete);
  EXPECT_EQ(frame.header.width, 32);
  EXPECT_EQ(frame.header.height, 24);
  EXPECT_EQ(frame.header.capacity, 32u * 24u * 2u);
}

}  // namespace
