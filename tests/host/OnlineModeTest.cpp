// Online mode's commands, camera online included: what they put into the
// transfer area and what they answer. The handlers run in this process on
// one end of a socket pair, with the I/O library and camera stand-ins.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "LinkHandlerCall.h"
#include "OpenFds.h"
#include "TestClient.h"
#include "WaitFor.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/JpegFrames.h"
#include "host/CameraServer.h"
#include "host/KavriState.h"
#include "host/OnlineMode.h"
#include "kavri/Camera.h"
#include "kavri/MotorIOLib.h"
#include "motoriolib/MotorIOLibSim.h"

namespace {

uint8_t* Area() { return reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX)); }

uint16_t Le16(const uint8_t* bytes) { return uint16_t(bytes[0] | bytes[1] << 8); }
void PutLe16(uint8_t* bytes, uint16_t value) {
  bytes[0] = uint8_t(value);
  bytes[1] = uint8_t(value >> 8);
}

struct HeardInfo {
  std::string name;
  int state;
  bool operator==(const HeardInfo&) const = default;
};
std::vector<HeardInfo> heard;
void RecordInfo(KavriLib_ProgramInfo* info) { heard.push_back({info->name ? info->name : "(null)", info->state}); }

class OnlineCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    memcpy(saved_, Area(), sizeof saved_);
    heard.clear();
    KavriLib_SetProgramInfoCallback(RecordInfo);
  }
  void TearDown() override {
    for (int channel = 0; channel < MOTORIOLIB_SIM_CHANNELS; ++channel) MotorIOLibSim_SetInput(channel, -1);
    memcpy(Area(), saved_, sizeof saved_);
    KavriLib_SetProgramInfoCallback(nullptr);
    OnlineModeActive = false;
  }

  // A pattern no command writes by chance; the stand-in's display pointer stays.
  void FillArea() {
    for (int offset = 0; offset < KAVRI_TRANS_AREA_SIZE; ++offset)
      if (offset < 464 || offset >= 472) Area()[offset] = uint8_t(offset * 7 + 3);
  }
  std::vector<uint8_t> RunCaptured(LinkHandler handler, const void* packet, size_t length, std::string& printed) {
    ::testing::internal::CaptureStdout();
    std::vector<uint8_t> reply = CallLinkHandler(handler, packet, length);
    fflush(stdout);
    printed = ::testing::internal::GetCapturedStdout();
    return reply;
  }

  uint8_t saved_[KAVRI_TRANS_AREA_SIZE];
};

std::vector<uint8_t> ReplyCode(uint32_t code) {
  std::vector<uint8_t> bytes(4);
  memcpy(bytes.data(), &code, 4);
  return bytes;
}

// A run of 16-bit fields as the protocol documents it, in packet and area.
struct Span {
  const char* name;
  int packetOffset;
  int areaOffset;
  int count;
  bool lowByteOnly;
};

TEST_F(OnlineCommand, ExchangeMovesEveryFieldBetweenPacketAndAreaAndNothingElse) {
  const Span toArea[] = {
      {"outputs at 4", 4, 332, 8, false},        {"low bytes at 20", 20, 328, 4, true},
      {"outputs at 28", 28, 348, 8, false},      {"values at 44", 44, 320, 4, false},
      {"values at 52", 52, 834, 3, false},
  };
  const Span toReply[] = {
      {"inputs 252", 4, 252, 8, false},  {"inputs 268", 20, 268, 8, false}, {"values 320", 36, 320, 4, false},
      {"values 312", 44, 312, 4, false}, {"value 832", 52, 832, 1, false},
  };
  FillArea();
  uint8_t command[60] = {};
  uint32_t code = KavriCmdIoExchange;
  memcpy(command, &code, 4);
  std::vector<uint8_t> expected(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
  for (int row = 0; row < int(std::size(toArea)); ++row) {
    const Span& span = toArea[row];
    for (int i = 0; i < span.count; ++i) {
      // A high byte that differs from the low one shows which byte went where.
      uint16_t value = uint16_t((row + 1) << 12 | (i + 1) << 8 | (row * 16 + i + 0x41));
      PutLe16(command + span.packetOffset + 2 * i, value);
      if (span.lowByteOnly)
        expected[span.areaOffset + i] = uint8_t(value);
      else
        PutLe16(&expected[span.areaOffset + 2 * i], value);
    }
  }
  for (int channel = 0; channel < 8; ++channel) {
    MotorIOLibSim_SetInput(channel, 0x5100 + channel);
    PutLe16(&expected[252 + 2 * channel], uint16_t(0x5100 + channel));
  }
  // Infrared flag words: record k flag j set when k + j is even, by its high
  // byte only, so that a flag read as one byte is caught.
  for (int k = 0; k < 5; ++k)
    for (int j = 0; j < 4; ++j) {
      bool set = (k + j) % 2 == 0;
      PutLe16(Area() + 696 + 32 * k + 2 * j, set ? 0x0100 : 0);
      PutLe16(&expected[696 + 32 * k + 2 * j], set ? 0x0100 : 0);
    }

  std::string printed;
  std::vector<uint8_t> reply = RunCaptured(kavri::HandleIoExchange, command, sizeof command, printed);

  for (int offset = 0; offset < KAVRI_TRANS_AREA_SIZE; ++offset) {
    if (offset >= 464 && offset < 472) continue;
    ASSERT_EQ(Area()[offset], expected[offset]) << "area offset " << offset;
  }
  ASSERT_EQ(reply.size(), 80u);
  EXPECT_EQ(std::vector<uint8_t>(reply.begin(), reply.begin() + 4), ReplyCode(KavriReplyIoExchange));
  for (const Span& span : toReply) {
    SCOPED_TRACE(span.name);
    for (int i = 0; i < span.count; ++i)
      EXPECT_EQ(Le16(&reply[span.packetOffset + 2 * i]), Le16(&expected[span.areaOffset + 2 * i])) << i;
  }
  EXPECT_EQ(reply[79], 0);
  // The line shows the reply's infrared records: each one's four values from
  // every sixth byte of the area, then its flags as a mask (5 or 10 here).
  EXPECT_EQ(printed, "IR  99141183225 5  6710915119310  35 77119161 5   3 45 8712910 227 13 55 97 5\n");
}

// An id of -1: its low byte is stored, the id printed signed.
TEST_F(OnlineCommand, UpdateConfigStoresTheIdsLowByteAndTheBlock) {
  FillArea();
  std::vector<uint8_t> before(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
  xoIF2013Command_UpdateConfig command{KavriCmdUpdateConfig, -1};
  auto* bytes = reinterpret_cast<uint8_t*>(&command);
  for (int i = 8; i < 96; ++i) bytes[i] = uint8_t(0x80 + i);
  const uint8_t motor[4] = {1, 200, 3, 4};
  const int32_t input[8] = {10, 11, 12, 13, 14, 15, 16, -17}, counter[4] = {-1, 20, 30, 40};
  memcpy(command.motor, motor, sizeof motor);
  memcpy(command.input, input, sizeof input);
  memcpy(command.counter, counter, sizeof counter);
  std::string printed;
  EXPECT_EQ(RunCaptured(kavri::HandleUpdateConfig, &command, sizeof command, printed),
            ReplyCode(KavriReplyUpdateConfig));
  before[75] = 0xFF;
  memcpy(&before[164], bytes + 8, 88);
  EXPECT_EQ(std::vector<uint8_t>(Area(), Area() + KAVRI_TRANS_AREA_SIZE), before);
  EXPECT_EQ(printed, "Received update config command, id=-1\nM:1 200 3 4, I:10 11 12 13 14 15 16 -17, c:-1 20 30 40\n");
}

// Start clears the outputs and tells the host the full name; stop clears
// them only once the PC has its reply.
TEST_F(OnlineCommand, StartAndStopOnlineClearTheOutputsAndTellTheHost) {
  for (bool pcListens : {true, false}) {
    SCOPED_TRACE(pcListens ? "reply written" : "reply cannot be written");
    heard.clear();
    FillArea();
    xoIF2013Command_StartOnline start{KavriCmdStartOnline};
    memset(start.programName, 'n', sizeof start.programName);  // no terminator
    EXPECT_EQ(CallLinkHandler(kavri::HandleStartOnline, &start, sizeof start), ReplyCode(KavriReplyStartOnline));
    EXPECT_TRUE(KavriLib_CheckOnlineProgramActive());
    for (int offset = 0; offset < KAVRI_TRANS_AREA_CLEAR_SIZE; ++offset) ASSERT_EQ(Area()[offset], 0) << offset;
    EXPECT_EQ(Area()[KAVRI_TRANS_AREA_CLEAR_SIZE], uint8_t(KAVRI_TRANS_AREA_CLEAR_SIZE * 7 + 3));
    FillArea();
    std::vector<uint8_t> before(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
    xoIF2013Command_Base stop{KavriCmdStopOnline};
    bool accepted = false;
    std::vector<uint8_t> reply = CallLinkHandler(kavri::HandleStopOnline, &stop, sizeof stop, &accepted, !pcListens);
    EXPECT_EQ(accepted, pcListens);
    EXPECT_FALSE(KavriLib_CheckOnlineProgramActive());
    EXPECT_EQ(heard, (std::vector<HeardInfo>{{std::string(64, 'n'), KavriProgramOnlineStarted},
                                             {"(null)", KavriProgramOnlineStopped}}));
    if (pcListens) {
      EXPECT_EQ(reply, ReplyCode(KavriReplyStopOnline));
      for (int offset = 0; offset < KAVRI_TRANS_AREA_CLEAR_SIZE; ++offset) ASSERT_EQ(Area()[offset], 0) << offset;
    } else {
      EXPECT_EQ(0, memcmp(Area(), before.data(), KAVRI_TRANS_AREA_SIZE));
    }
  }
}

// The camera server seen from a PC on loopback, with frames from the fake
// camera or handed to the delivery record where the buffer state matters.
// However a run ends, both threads end by their own paths, the buffers come
// back and no descriptor is left open.
using camera_devices::FakeCamera;
using camera_devices::FakeStep;

CameraAnalysisDeliverFrame& Record() { return CameraAnalysisDeliverFrame_Inst; }

int LentBuffers() {
  return (std::atomic_ref<uint8_t*>(Record().buffer[0]).load() != nullptr) +
         (std::atomic_ref<uint8_t*>(Record().buffer[1]).load() != nullptr);
}

// The port this process listens on, found by probing its descriptors (the
// emulator shows /proc/self/fd only in part); 0 if none listens. The server
// binds port 0, the kernel's choice, so no parallel test can take it first.
int OwnListeningPort() {
  for (int fd = 0; fd < 1024; ++fd) {
    int listening = 0;
    socklen_t length = sizeof listening;
    sockaddr_in address{};
    socklen_t addressLength = sizeof address;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) == 0 && listening &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &addressLength) == 0 && address.sin_family == AF_INET)
      return ntohs(address.sin_port);
  }
  return 0;
}

bool BothThreadsEnded() {
  return WaitFor([] { return !CameraThreadRunning.load() && !CameraServerThreadRunning.load(); });
}

bool ServerEnds() {
  return WaitFor([] { return !CameraServerThreadRunning.load(); });
}

struct Frame {
  KavriCameraFrameHeader header{};
  std::vector<uint8_t> data;
  bool complete = false;
};

constexpr size_t kHeader = sizeof(KavriCameraFrameHeader);

uint32_t FrameSize(const std::vector<uint8_t>& header) {
  KavriCameraFrameHeader fields{};
  memcpy(&fields, header.data(), std::min(header.size(), kHeader));
  return fields.size;
}

Frame ReceiveFrame(TestClient& pc) {
  Frame frame;
  std::vector<uint8_t> head = pc.Receive(kHeader);
  if (head.size() != kHeader) return frame;
  memcpy(&frame.header, head.data(), kHeader);
  frame.data = pc.Receive(frame.header.size);
  frame.complete = frame.data.size() == frame.header.size;
  return frame;
}

camera_devices::Bytes TestPicture(uint32_t sequence, int width, int height) {
  std::vector<uint8_t> yuyv(size_t(width) * height * 2);
  for (size_t i = 0; i < yuyv.size(); ++i) yuyv[i] = uint8_t(i % 2 ? 128 : (i / 2 + sequence * 8) % 220 + 16);
  return camera_devices::EncodeYuyvJpeg(yuyv.data(), width, height);
}

class CameraServer : public ::testing::Test {
 protected:
  void SetUp() override {
    CameraServerPort = 0;
    fdsBefore_ = CountOpenFds();
    InstallCamera();
  }
  void TearDown() override {
    Record().EndWriting();
    CameraThreadTerminate.store(true);
    StopThreadCameraServer();
    EXPECT_TRUE(BothThreadsEnded());
    FakeCamera::Uninstall();
  }
  void InstallCamera() {
    camera_ = &FakeCamera::Install();
    camera_->SetFrameSource(TestPicture);
  }

  void StartCameraOnline(int width = 64, int height = 48) {
    xoIF2013Command_StartCameraOnline command{KavriCmdStartCameraOnline, width, height, 30, 50};
    ASSERT_EQ(CallLinkHandlerForCode(kavri::HandleStartCameraOnline, &command, sizeof command),
              KavriReplyStartCameraOnline);
  }
  void StopCameraOnline() {
    xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
    EXPECT_EQ(CallLinkHandlerForCode(kavri::HandleStopCameraOnline, &stop, sizeof stop), KavriReplyStopCameraOnline);
  }
  // The server alone, with the test as the capture thread.
  void StartServer(int width, int height) {
    CameraFrameWidth = width;
    CameraFrameHeight = height;
    ASSERT_EQ(StartThreadCameraServer(), 1);
    ASSERT_TRUE(WaitFor([] { return Record().IsEnabled(); }));
  }
  void Deliver(const std::vector<uint8_t>& frame) { Record().Analyze(0, nullptr, nullptr, frame.data(), int(frame.size())); }
  std::unique_ptr<TestClient> ConnectPc() {
    int port = 0;
    EXPECT_TRUE(WaitFor([&] { return (port = OwnListeningPort()) != 0; }));
    return std::make_unique<TestClient>(port, 20);
  }
  // Nothing of the session is left: threads, buffers, the device, descriptors.
  // A mapping whose unmap failed stays, as the kernel's would.
  void ExpectAllReleased(int stillMapped = 0) {
    EXPECT_TRUE(BothThreadsEnded());
    EXPECT_EQ(LentBuffers(), 0);
    EXPECT_FALSE(Record().IsEnabled());
    EXPECT_FALSE(camera_->IsOpen());
    EXPECT_EQ(camera_->MappedBufferCount(), stillMapped);
    EXPECT_EQ(CountOpenFds(), fdsBefore_);
  }

  FakeCamera* camera_ = nullptr;
  int fdsBefore_ = 0;
};

// A second start replaces the first with its own size.
TEST_F(CameraServer, CameraFramesArriveWithTheirHeaderAndDecode) {
  StartCameraOnline(64, 48);
  StartCameraOnline(32, 24);
  auto pc = ConnectPc();
  std::vector<uint8_t> decoded(CameraDecodedAllocation(32, 24));
  for (int count = 0; count < 3; ++count) {
    SCOPED_TRACE(count);
    Frame frame = ReceiveFrame(*pc);
    ASSERT_TRUE(frame.complete);
    EXPECT_EQ(frame.header.magic, 0xbdc2d7a1u);
    EXPECT_EQ(frame.header.width, 32);
    EXPECT_EQ(frame.header.height, 24);
    EXPECT_EQ(frame.header.capacity, 32u * 24u * 2u);
    EXPECT_EQ(xoProJpegDec(frame.data.data(), int(frame.data.size()), decoded.data(), int(decoded.size())), 1);
    pc->SendWord(KavriCameraFrameAck);
  }
  StopCameraOnline();
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
    EXPECT_EQ(OwnListeningPort(), 0);
    EXPECT_EQ(LentBuffers(), 0);
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
  EXPECT_EQ(LentBuffers(), 2);
  Record().EndWriting();
  EXPECT_TRUE(ServerEnds());
  EXPECT_EQ(LentBuffers(), 0);
}

// What the PC does before it vanishes, after acknowledging `frames` whole ones.
struct VanishCase {
  const char* name;
  int frames;
  std::function<void(TestClient&)> last;
};

TEST_F(CameraServer, PcVanishingAtAnyPointOfTheStreamEndsTheServerAlone) {
  const VanishCase cases[] = {
      {"before the first frame", 0, [](TestClient&) {}},
      {"inside the header", 0, [](TestClient& pc) { pc.Receive(kHeader / 2); }},
      {"inside the acknowledgement", 0,
       [](TestClient& pc) {
         pc.Receive(FrameSize(pc.Receive(kHeader)));
         const uint32_t ack = KavriCameraFrameAck;
         pc.Send(&ack, 2);
       }},
      {"after an acknowledgement", 1, [](TestClient&) {}},
  };
  const char* const ends[] = {"ERROR calling write", "ERROR calling read in camera server",
                              "ERROR received illegal command packet (length<4) in camera server"};
  for (const VanishCase& c : cases) {
    SCOPED_TRACE(c.name);
    ::testing::internal::CaptureStderr();
    StartCameraOnline();
    {
      auto pc = ConnectPc();
      for (int frame = 0; frame < c.frames; ++frame) {
        Frame whole = ReceiveFrame(*pc);
        ASSERT_TRUE(whole.complete);
        pc->SendWord(KavriCameraFrameAck);
      }
      c.last(*pc);
    }
    // No stop is asked for: the server ends on its own, the capture goes on.
    bool serverEnded = ServerEnds();
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

TEST_F(CameraServer, CameraFailingAtAnyStepIsWoundDownByStopCameraOnline) {
  const struct {
    const char* name;
    FakeStep step;
    int skip;         // calls that succeed first
    bool atTeardown;  // the step is only taken when the capture is stopped
  } faults[] = {
      {"stat", FakeStep::Stat, 0, false},          {"open", FakeStep::Open, 0, false},
      {"frame rate", FakeStep::SetParm, 0, false}, {"request buffers", FakeStep::ReqBufs, 0, false},
      {"query buffer", FakeStep::QueryBuf, 1, false}, {"map", FakeStep::Mmap, 2, false},
      {"queue", FakeStep::QBuf, 1, false},         {"stream on", FakeStep::StreamOn, 0, false},
      {"give back", FakeStep::QBuf, 6, false},     {"stream off", FakeStep::StreamOff, 0, true},
      {"unmap", FakeStep::Munmap, 1, true},        {"close", FakeStep::Close, 0, true},
  };
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.name);
    camera_->FailStep(fault.step, EIO, fault.skip);
    ::testing::internal::CaptureStderr();
    StartCameraOnline();
    {
      // Connected and silent: the server sends at most one frame and waits
      // for its acknowledgement, or waits for a frame that never comes.
      auto pc = ConnectPc();
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
    InstallCamera();
  }
}

}  // namespace
