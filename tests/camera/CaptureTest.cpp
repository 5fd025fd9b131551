// The capture thread against the fake Video4Linux2 device.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>

#include "YuyvCanvas.h"

using camera_devices::Bytes;
using camera_devices::FakeCamera;
using camera_devices::FakeStep;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kWidth = 32;
constexpr int kHeight = 16;

using Lines = std::vector<std::string>;

const Lines kCaptureTerminates = {"Camera thread started", "CameraOpenDevice",   "CameraInit",
                                  "CameraAllocateBuffers", "CameraStartCapture", "Camera thread terminating",
                                  "CameraStopCapture",     "CameraFreeBuffers",  "Camera thread terminated"};
// The paths out that fail earlier: the steps of the whole path marked '1'.
Lines Path(const char* steps) {
  Lines lines;
  for (size_t i = 0; i < kCaptureTerminates.size(); ++i)
    if (steps[i] == '1') lines.push_back(kCaptureTerminates[i]);
  return lines;
}
const Lines kNoDevice = Path("110000001"), kConfigureFails = Path("111000011"), kBuffersFail = Path("111100011"),
            kCaptureEnds = Path("111110111");

// The bare progress lines of the thread, in order.
Lines ProgressLines(const std::string& output) {
  const std::set<std::string> progress(kCaptureTerminates.begin(), kCaptureTerminates.end());
  Lines lines;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);)
    if (progress.count(line)) lines.push_back(line);
  return lines;
}

std::string ErrorLine(const char* step, int error) {
  return std::string("Camera Error at ") + step + " error " + std::to_string(error) + ", " + strerror(error) + "\n";
}

// Indices of the dequeued buffers, in order.
std::vector<int> DequeuedIndices(const std::vector<std::string>& events) {
  std::vector<int> indices;
  for (const std::string& event : events)
    if (event.rfind("DQBUF ", 0) == 0) indices.push_back(std::stoi(event.substr(6)));
  return indices;
}

class CameraCaptureTest : public testing::Test {
 protected:
  void SetUp() override {
    camera_ = &FakeCamera::Install();
    DebugFlags = 0;
    CameraFile = nullptr;
    Bytes yuyv = GradientYuyv(kWidth, kHeight);
    goodFrame_ = camera_devices::EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight);
    counter_ = camera_devices::MakeCounterRecord(kWidth, kHeight, 30, 60, &frameCounterVar_, &changeVar_);
  }

  void TearDown() override {
    if (capturing_) Finish();
    FakeCamera::Uninstall();
  }

  void Start() {
    capturing_ = true;
    StartCapture(&counter_.base);
  }

  void StreamFrames() {
    camera_->SetFrameSource([this](uint32_t, int, int) { return goodFrame_; });
  }

  bool Starved() { return camera_->WaitUntilStarved(std::chrono::seconds(60)); }

  // Queues `frames`, starts capture and waits until the thread has taken them all.
  bool CaptureUntilStarved(const std::vector<Bytes>& frames) {
    for (const Bytes& frame : frames) camera_->PushFrame(frame);
    Start();
    return Starved();
  }

  // Waits for the thread to end on its own or after a stop request.
  void Finish(bool requestStop = false) {
    CaptureOutput output = StopCapture(requestStop, camera_);
    capturing_ = false;
    out_ = output.out;
    err_ = output.err;
    ASSERT_TRUE(output.ended) << "capture thread did not end";
  }

  void ExpectReleasedEverything() {
    EXPECT_TRUE(!camera_->IsOpen() && camera_->MappedBufferCount() == 0 && CameraDeviceHandle == -1);
    EXPECT_TRUE(CameraBuffers == nullptr && CameraChangeVar == nullptr && !camera_->IsStreaming());
  }

  FakeCamera* camera_ = nullptr;
  Bytes goodFrame_;
  CameraAnalysisCounter counter_{};
  int16_t frameCounterVar_ = -1;
  uint8_t changeVar_ = 0;
  bool capturing_ = false;
  std::string out_, err_;
};

TEST_F(CameraCaptureTest, FirstFrameIsOnlyHeldBackAndLaterFramesAreCountedAndAnalysed) {
  ASSERT_TRUE(CaptureUntilStarved({goodFrame_}));
  // Frames, frames this second, counter variable, change variable, queued buffers: the held-back one stays out.
  auto state = [this] {
    return std::vector<int>({int(CameraFrameCount.load()), CameraFrameCountSecond.load(), frameCounterVar_,
                             changeVar_, camera_->QueuedBufferCount()});
  };
  EXPECT_EQ(state(), std::vector<int>({0, 0, -1, 0, 2}));
  for (int i = 0; i < 3; ++i) camera_->PushFrame(goodFrame_);
  ASSERT_TRUE(Starved());
  EXPECT_EQ(state(), std::vector<int>({3, 3, 3, 255, 2}));
  Finish(true);
  EXPECT_EQ(ProgressLines(out_), kCaptureTerminates);
  ExpectReleasedEverything();
}

// Settings come from the first counter record, the change variable from the
// last one, since each Init overwrites it.
TEST_F(CameraCaptureTest, FirstCounterRecordSetsTheDeviceAndTheLastNamesTheChangeVariable) {
  DebugFlags = debugflag::kListFormats;
  int16_t lastCount = 0;
  uint8_t lastChange = 0;
  CameraAnalysisCounter last = camera_devices::MakeCounterRecord(96, 64, 5, 50, &lastCount, &lastChange);
  counter_.base.next = &last.base;
  ASSERT_TRUE(CaptureUntilStarved({goodFrame_}));
  EXPECT_EQ(std::vector<int>({int(camera_->RequestedWidth()), int(camera_->RequestedHeight()),
                              int(camera_->RequestedFrameInterval()),
                              camera_->ControlValue(V4L2_CID_POWER_LINE_FREQUENCY),
                              camera_->ControlValue(V4L2_CID_SHARPNESS)}),
            std::vector<int>({kWidth, kHeight, 30, V4L2_CID_POWER_LINE_FREQUENCY_60HZ, 0}));
  EXPECT_EQ(last.base.width, kWidth) << "every record gets the capture size";
  EXPECT_EQ(CameraChangeVar, &lastChange);
  Finish(true);
  EXPECT_THAT(out_, HasSubstr("Camera parameter record found 32x16 30 fps 60 plf\n"));
  EXPECT_THAT(out_, HasSubstr("Format type=1 flags=1 desc=Motion-JPEG 4cc=MJPG\n  Size type=1 width=320"));
  EXPECT_THAT(err_, HasSubstr("Camera error status A error 0, Success\n"));
  EXPECT_THAT(err_, HasSubstr("Camera error status D error"));
}

// A frame that fails to decode is given straight back; the held-back frame
// stays the previous one of the next analysed frame.
TEST_F(CameraCaptureTest, FrameThatDoesNotDecodeIsGivenBackAndNotCounted) {
  DebugFlags = debugflag::kBufferTrace;
  ASSERT_TRUE(CaptureUntilStarved({goodFrame_, goodFrame_, camera_devices::UndecodableFrame(), goodFrame_}));
  EXPECT_EQ(CameraFrameCount.load(), 2u);
  EXPECT_EQ(frameCounterVar_, 2);
  std::vector<std::string> events = camera_->Events();
  std::vector<int> dequeued = DequeuedIndices(events);
  ASSERT_EQ(dequeued.size(), 4u);
  auto badAt = std::find(events.begin(), events.end(), "DQBUF " + std::to_string(dequeued[2]));
  ASSERT_LT(badAt + 1, events.end());
  EXPECT_EQ(*(badAt + 1), "QBUF " + std::to_string(dequeued[2])) << "given back at once";
  Finish(true);
  EXPECT_THAT(out_, HasSubstr("Buffer " + std::to_string(dequeued[3]) + ", previous buffer " +
                              std::to_string(dequeued[1]) + "\n"));
}

// The decoder writes whole 8-row bands: a capture height that is not a
// multiple of 8 still decodes, and a picture of another size whose bands
// would run past the decoded image is not taken.
TEST_F(CameraCaptureTest, FramesAreAnalysedOnlyWhenTheirBandsFitTheDecodedImage) {
  const struct { const char* name; int captureWidth, captureHeight, pictureWidth, pictureHeight; uint32_t analysed; }
      cases[] = {{"height not a multiple of 8", 32, 20, 32, 20, 2},
                 {"fewer pixels, last band past the image", 32, 16, 14, 36, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    camera_ = &FakeCamera::Install();
    counter_.base.width = c.captureWidth, counter_.base.height = c.captureHeight;
    Bytes yuyv = GradientYuyv(c.pictureWidth, c.pictureHeight);
    Bytes jpeg = camera_devices::EncodeYuyvJpeg(yuyv.data(), c.pictureWidth, c.pictureHeight);
    ASSERT_TRUE(CaptureUntilStarved({jpeg, jpeg, jpeg}));
    EXPECT_EQ(CameraFrameCount.load(), c.analysed);
    Finish(true);
  }
}

TEST_F(CameraCaptureTest, RecordingWritesTheDecodedImageForTheCompressedLength) {
  DebugFlags = debugflag::kRecordFrames;
  CameraFile = tmpfile();
  ASSERT_NE(CameraFile, nullptr);
  ASSERT_TRUE(CaptureUntilStarved({goodFrame_, goodFrame_, goodFrame_}));
  Finish(true);
  long perFrame = std::min<long>(long(goodFrame_.size()), kWidth * kHeight * 2);
  EXPECT_EQ(ftell(CameraFile), 2 * perFrame);
  fclose(CameraFile);
  CameraFile = nullptr;
}

struct FailureCase {
  const char* name;
  std::function<void(FakeCamera&)> arrange;
  std::string message;
  const Lines& path;
  bool windingDown = false;  // fails once frames flow and a stop was asked for
};

std::function<void(FakeCamera&)> Failing(FakeStep step, int error, int skip = 0) {
  return [=](FakeCamera& camera) { camera.FailStep(step, error, skip); };
}

// Every step that ends the thread, with its message and the path it takes
// out; nothing stays open or mapped behind it. Failures while winding down,
// or of a control, are reported and the rest goes on.
TEST_F(CameraCaptureTest, EachFailingStepEndsTheThreadThroughItsPath) {
  // Two frames, then none: the ten seconds of select pass in ten milliseconds.
  auto silent = [this](FakeCamera& c) {
    c.SetFrameSource(nullptr);
    c.PushFrame(goodFrame_);
    c.PushFrame(goodFrame_);
    c.ScaleSelectTimeout(0.001);
  };
  auto slow = [this](FakeCamera& c) {  // and no frame after the slow one
    c.SetFrameSource(nullptr);
    c.PushFrame(goodFrame_);
    c.DelayEachFrame(std::chrono::milliseconds(300));
    c.ScaleSelectTimeout(0.05);
  };
  const FailureCase cases[] = {
      {"camera stops sending", silent, "Camera Error at select timeout error", kCaptureEnds},
      {"slow frame", slow, "Camera Frame Capture Took ", kCaptureEnds},
      {"a control", Failing(FakeStep::SetCtrl, EINVAL), ErrorLine("VIDIOC_S_CTRL", EINVAL), kCaptureTerminates, true},
      {"missing device", Failing(FakeStep::Stat, ENOENT), ErrorLine("stat camera device", ENOENT), kNoDevice},
      {"not a character device", [](FakeCamera& c) { c.SetCharacterDevice(false); },
       "Camera Error at stat: not a device error", kNoDevice},
      {"open", Failing(FakeStep::Open, EACCES), ErrorLine("open", EACCES), kNoDevice},
      {"query capabilities", Failing(FakeStep::QueryCap, EIO), ErrorLine("VIDIOC_QUERYCAP", EIO), kConfigureFails},
      {"no video capture", [](FakeCamera& c) { c.SetCapabilities(V4L2_CAP_STREAMING); },
       "Camera Error at VIDIOC_QUERYCAP, not V4L2_CAP_VIDEO_CAPTURE error", kConfigureFails},
      {"no streaming", [](FakeCamera& c) { c.SetCapabilities(V4L2_CAP_VIDEO_CAPTURE); },
       "Camera Error at VIDIOC_QUERYCAP, not V4L2_CAP_STREAMING error", kConfigureFails},
      {"set format", Failing(FakeStep::SetFormat, EINVAL), ErrorLine("VIDIOC_S_FMT", EINVAL), kConfigureFails},
      {"bytes per line", [](FakeCamera& c) { c.AnswerFormat(10, 0); },
       "bytesperline 10 < 64Camera Error at VIDIOC_S_FMT, bytesperline wrong error", kConfigureFails},
      {"image size", [](FakeCamera& c) { c.AnswerFormat(64, 100); },
       "Camera Error at VIDIOC_S_FMT, sizeimage wrong error", kConfigureFails},
      {"frame rate", Failing(FakeStep::SetParm, EINVAL), ErrorLine("VIDIOC_S_PARM", EINVAL), kConfigureFails},
      {"request buffers", Failing(FakeStep::ReqBufs, ENOMEM), ErrorLine("VIDIOC_REQBUFS", ENOMEM), kBuffersFail},
      {"two buffers granted", [](FakeCamera& c) { c.GrantBuffers(2); },
       "Camera Error at VIDIOC_REQBUFS, buffer count<2 error", kBuffersFail},
      {"query buffer", Failing(FakeStep::QueryBuf, EINVAL, 1), ErrorLine("VIDIOC_QUERYBUF", EINVAL), kBuffersFail},
      {"map buffer", Failing(FakeStep::Mmap, ENOMEM, 2), ErrorLine("mmap", ENOMEM), kBuffersFail},
      {"queue at start", Failing(FakeStep::QBuf, EIO, 1), ErrorLine("VIDIOC_QBUF", EIO), kCaptureEnds},
      {"stream on", Failing(FakeStep::StreamOn, EIO), ErrorLine("VIDIOC_STREAMON", EIO), kCaptureEnds},
      {"select", Failing(FakeStep::Select, EIO, 2), ErrorLine("select", EIO), kCaptureEnds},
      {"dequeue", Failing(FakeStep::DqBuf, EIO, 2), ErrorLine("VIDIOC_DQBUF", EIO), kCaptureTerminates},
      {"dequeue again", Failing(FakeStep::DqBuf, EAGAIN, 2), ErrorLine("VIDIOC_DQBUF EAGAIN", EAGAIN),
       kCaptureTerminates},
      {"give back previous", Failing(FakeStep::QBuf, EIO, 3), ErrorLine("VIDIOC_QBUF", EIO), kCaptureTerminates},
      {"stream off", Failing(FakeStep::StreamOff, EIO), ErrorLine("VIDIOC_STREAMOFF", EIO), kCaptureTerminates, true},
      {"unmap", Failing(FakeStep::Munmap, EINVAL, 1), ErrorLine("munmap", EINVAL), kCaptureTerminates, true},
      {"close", Failing(FakeStep::Close, EIO), ErrorLine("close", EIO), kCaptureTerminates, true},
  };
  for (const FailureCase& c : cases) {
    SCOPED_TRACE(c.name);
    camera_ = &FakeCamera::Install();
    StreamFrames();
    c.arrange(*camera_);
    Start();
    ASSERT_TRUE(!c.windingDown || WaitFor([] { return CameraFrameCount.load() >= 2; }));
    Finish(c.windingDown);
    EXPECT_THAT(out_ + err_, HasSubstr(c.message));
    EXPECT_EQ(ProgressLines(out_), c.path);
    // Unmapping may be what failed; everything else is released.
    EXPECT_TRUE(!camera_->IsOpen() && CameraBuffers == nullptr && CameraChangeVar == nullptr);
    EXPECT_TRUE(c.windingDown || (camera_->MappedBufferCount() == 0 && CameraDeviceHandle == -1));
  }
}

TEST_F(CameraCaptureTest, BufferIndexTheDriverNeverGrantedAborts) {
  // Fork without re-running the program: under qemu-arm a re-executed ARM
  // binary cannot start.
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(
      {
        camera_->ReportBadIndexOnce();
        StreamFrames();
        CameraSetup(&counter_.base);
        WaitFor([] { return !CameraThreadRunning.load(); });
      },
      "buffer.index < CameraBufferCount");
}

TEST_F(CameraCaptureTest, NewSetupEndsTheRunningCaptureFirst) {
  StreamFrames();
  Start();
  ASSERT_TRUE(WaitFor([] { return CameraFrameCount.load() >= 2; }));
  CameraSetup(&counter_.base);
  uint32_t servedBefore = camera_->FramesServed();  // the first thread has ended
  ASSERT_TRUE(WaitFor([&] { return camera_->FramesServed() >= servedBefore + 3; }));
  Finish(true);
  EXPECT_EQ(camera_->OpenCount(), 2);
  EXPECT_EQ(camera_->CloseCount(), 2) << "the first thread closed the device before the second opened it";
  EXPECT_THAT(err_, Not(HasSubstr("ERROR")));
}

// The system calls behind the seam, on nodes every machine has.
TEST(CameraRealDeviceTest, NodesThatAreNoCameraEndTheThreadWithTheirStep) {
  CameraAnalysisDeliverFrame deliver{};
  deliver.base.type = CameraAnalysisTypeDeliverFrame;
  for (auto [path, message] : {std::pair{"/nonexistent/video0", "Camera Error at stat camera device error 2, "},
                               {"/proc/self/cmdline", "Camera Error at stat: not a device error"},
                               {"/dev/null", "Camera Error at VIDIOC_QUERYCAP error"}}) {
    CameraUseDevice(path);
    StartCapture(&deliver.base);
    CaptureOutput output = StopCapture(false);
    ASSERT_TRUE(output.ended) << path;
    EXPECT_THAT(output.err, HasSubstr(message));
    EXPECT_EQ(CameraDeviceHandle, -1) << path;
  }
  CameraUseDevice(nullptr);
  EXPECT_STREQ(CameraGetDevicePath(), "/dev/video0");
}

}  // namespace
