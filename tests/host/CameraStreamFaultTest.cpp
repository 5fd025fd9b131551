// Camera online when things go wrong: a PC that vanishes at any point of the
// stream, a camera that fails at any step. Either way both threads end by
// their own paths, the buffers come back, and no descriptor is left open.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ControllerProcess.h"
#include "LinkHandlerCall.h"
#include "OpenFds.h"
#include "TestClient.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/JpegFrames.h"
#include "host/CameraServer.h"
#include "host/KavriState.h"
#include "host/OnlineMode.h"
#include "kavri/Camera.h"

namespace {

using camera_devices::FakeCamera;
using camera_devices::FakeStep;

CameraAnalysisDeliverFrame& Record() { return CameraAnalysisDeliverFrame_Inst; }

bool BuffersLent() {
  return std::atomic_ref<uint8_t*>(Record().buffer[0]).load() || std::atomic_ref<uint8_t*>(Record().buffer[1]).load();
}

camera_devices::Bytes FlatFrames(uint32_t sequence, int width, int height) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2, uint8_t(16 + sequence % 200));
  return camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height);
}

bool BothThreadsEnded() {
  return WaitFor([] { return !CameraThreadRunning.load() && !CameraServerThreadRunning.load(); });
}

class CameraStreamFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    CameraServerPort = FindFreePort();
    fdsBefore_ = CountOpenFds();
    camera_ = &FakeCamera::Install();
    camera_->SetFrameSource(FlatFrames);
  }
  void TearDown() override {
    CameraThreadTerminate.store(true);
    StopThreadCameraServer();
    EXPECT_TRUE(BothThreadsEnded());
    FakeCamera::Uninstall();
  }

  void StartCameraOnline() {
    xoIF2013Command_StartCameraOnline command{KavriCmdStartCameraOnline, 64, 48, 30, 50};
    ASSERT_EQ(CallLinkHandlerForCode(kavri::HandleStartCameraOnline, &command, sizeof command),
              KavriReplyStartCameraOnline);
    ASSERT_TRUE(WaitFor([] { return PortIsListening(CameraServerPort); }));
  }
  void StopCameraOnline() {
    xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
    EXPECT_EQ(CallLinkHandlerForCode(kavri::HandleStopCameraOnline, &stop, sizeof stop), KavriReplyStopCameraOnline);
  }
  // Nothing of the session is left: threads, buffers, the device, descriptors.
  // A mapping whose unmap failed stays, as the kernel's would.
  void ExpectAllReleased(int stillMapped = 0) {
    EXPECT_TRUE(BothThreadsEnded());
    EXPECT_FALSE(BuffersLent());
    EXPECT_FALSE(Record().IsEnabled());
    EXPECT_FALSE(camera_->IsOpen());
    EXPECT_EQ(camera_->MappedBufferCount(), stillMapped);
    EXPECT_EQ(CountOpenFds(), fdsBefore_);
  }

  FakeCamera* camera_ = nullptr;
  int fdsBefore_ = 0;
};

constexpr size_t kHeader = sizeof(KavriCameraFrameHeader);

// What the PC does before it vanishes; `frames` is how many it acknowledges
// in whole before that.
struct VanishCase {
  const char* name;
  int frames;
  std::function<void(TestClient&)> last;
};

uint32_t FrameSize(const std::vector<uint8_t>& header) {
  KavriCameraFrameHeader fields;
  memcpy(&fields, header.data(), kHeader);
  return fields.size;
}

TEST_F(CameraStreamFaults, PcVanishingAtAnyPointOfTheStreamEndsTheServerAlone) {
  const VanishCase cases[] = {
      {"before the first frame", 0, [](TestClient&) {}},
      {"inside the header", 0, [](TestClient& pc) { pc.Receive(kHeader / 2); }},
      {"after the header", 0, [](TestClient& pc) { pc.Receive(kHeader); }},
      {"inside the frame", 0, [](TestClient& pc) { pc.Receive(FrameSize(pc.Receive(kHeader)) / 2); }},
      {"before the acknowledgement", 0, [](TestClient& pc) { pc.Receive(FrameSize(pc.Receive(kHeader))); }},
      {"inside the acknowledgement", 0,
       [](TestClient& pc) {
         pc.Receive(FrameSize(pc.Receive(kHeader)));
         const uint32_t ack = KavriCameraFrameAck;
         pc.Send(&ack, 2);
       }},
      {"after an acknowledgement", 1, [](TestClient&) {}},
      {"after three frames", 3, [](TestClient&) {}},
  };
  const char* const ends[] = {"ERROR calling write", "ERROR calling read in camera server",
                              "ERROR received illegal command packet (length<4) in camera server"};
  for (const VanishCase& c : cases) {
    SCOPED_TRACE(c.name);
    ::testing::internal::CaptureStderr();
    StartCameraOnline();
    {
      TestClient pc(CameraServerPort, 20);
      for (int frame = 0; frame < c.frames; ++frame) {
        std::vector<uint8_t> header = pc.Receive(kHeader);
        ASSERT_EQ(header.size(), kHeader);
        ASSERT_EQ(pc.Receive(FrameSize(header)).size(), FrameSize(header));
        pc.SendWord(KavriCameraFrameAck);
      }
      c.last(pc);
    }
    // No stop is asked for: the server ends on its own, the capture goes on.
    bool serverEnded = WaitFor([] { return !CameraServerThreadRunning.load(); });
    std::string printed = ::testing::internal::GetCapturedStderr();
    ASSERT_TRUE(serverEnded);
    EXPECT_TRUE(CameraThreadRunning.load());
    int paths = 0;
    for (const char* end : ends) paths += printed.find(end) != std::string::npos;
    EXPECT_EQ(paths, 1) << printed;
    StopCameraOnline();
    ExpectAllReleased();
  }
}

struct DeviceFault {
  const char* name;
  FakeStep step;
  int skip;        // calls that succeed first
  bool atTeardown; // the step is only taken when the capture is stopped
};

TEST_F(CameraStreamFaults, CameraFailingAtAnyStepIsWoundDownByStopCameraOnline) {
  const DeviceFault faults[] = {
      {"stat", FakeStep::Stat, 0, false},
      {"open", FakeStep::Open, 0, false},
      {"capabilities", FakeStep::QueryCap, 0, false},
      {"format", FakeStep::SetFormat, 0, false},
      {"frame rate", FakeStep::SetParm, 0, false},
      {"request buffers", FakeStep::ReqBufs, 0, false},
      {"query buffer", FakeStep::QueryBuf, 1, false},
      {"map", FakeStep::Mmap, 2, false},
      {"queue", FakeStep::QBuf, 1, false},
      {"stream on", FakeStep::StreamOn, 0, false},
      {"select", FakeStep::Select, 3, false},
      {"dequeue", FakeStep::DqBuf, 3, false},
      {"give back", FakeStep::QBuf, 6, false},
      {"stream off", FakeStep::StreamOff, 0, true},
      {"unmap", FakeStep::Munmap, 1, true},
      {"close", FakeStep::Close, 0, true},
  };
  for (const DeviceFault& fault : faults) {
    SCOPED_TRACE(fault.name);
    camera_->FailStep(fault.step, EIO, fault.skip);
    ::testing::internal::CaptureStderr();
    StartCameraOnline();
    {
      // Connected and silent: the server sends at most one frame and waits
      // for its acknowledgement, or waits for a frame that never comes.
      TestClient pc(CameraServerPort, 20);
      if (fault.atTeardown)
        EXPECT_TRUE(WaitFor([this] { return camera_->FramesServed() >= 2; }));
      else
        EXPECT_TRUE(WaitFor([] { return !CameraThreadRunning.load(); })) << "the fault ends the capture";
      StopCameraOnline();
      EXPECT_TRUE(BothThreadsEnded());
    }
    std::string printed = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(printed.find("Camera Error at "), std::string::npos) << printed;
    ExpectAllReleased(fault.step == FakeStep::Munmap ? 1 : 0);
    camera_ = &FakeCamera::Install();
    camera_->SetFrameSource(FlatFrames);
  }
}

}  // namespace
