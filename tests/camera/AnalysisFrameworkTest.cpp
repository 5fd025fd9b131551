// The analysis chain: dispatch, the counter record, the change variable and
// the frame hand-over to a consumer thread.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "YuyvCanvas.h"

using camera_devices::FakeCamera;

namespace {

CameraAnalysisCounter MakeCounter(int width, int height, int16_t* frameCounter, uint8_t* change) {
  return camera_devices::MakeCounterRecord(width, height, 10, 50, frameCounter, change);
}

class CameraFrameworkTest : public testing::Test {
 protected:
  void SetUp() override {
    DebugFlags = 0;
    CameraFrameCount.store(1);
    CameraChangeVar = nullptr;
  }
  uint8_t frame_[64 * 48 * 2] = {};
};

TEST_F(CameraFrameworkTest, FrameCounterVariableWrapsFrom32767ToZero) {
  int16_t count = -1;
  CameraAnalysisCounter counter = MakeCounter(64, 48, &count, nullptr);
  const std::pair<uint32_t, int16_t> cases[] = {{1, 1}, {32767, 32767}, {32768, 0}, {32769, 1}, {65535, 32767}};
  for (auto [frames, expected] : cases) {
    CameraFrameCount.store(frames);
    counter.Analyze(0, frame_, frame_, frame_, 0);
    EXPECT_EQ(count, expected) << "after " << frames << " frames";
  }
}

TEST_F(CameraFrameworkTest, ChangeVariableIsRaisedOrItsAbsenceReportedOnce) {
  uint8_t change = 0;
  CameraAnalysisCounter counter = MakeCounter(64, 48, nullptr, &change);
  CameraInitAnalysis(&counter.base, 64, 48);
  testing::internal::CaptureStderr();
  CameraRunAnalysis(&counter.base, frame_, frame_, frame_, 0);
  EXPECT_EQ(change, 255);
  CameraUninitAnalysis(&counter.base);
  EXPECT_EQ(CameraChangeVar, nullptr);

  CameraAnalysisDeliverFrame deliver{{CameraAnalysisTypeDeliverFrame}};
  CameraInitAnalysis(&deliver.base, 64, 48);
  for (uint32_t frames = 1; frames <= 3; ++frames) {
    CameraFrameCount.store(frames);
    CameraRunAnalysis(&deliver.base, frame_, frame_, frame_, 0);
  }
  CameraFrameCount.store(1);
  CameraRunAnalysis(nullptr, frame_, frame_, frame_, 0);
  std::string errors = testing::internal::GetCapturedStderr();
  const std::string message = "Camera change variable is not set. Do you have a camera object?\n";
  EXPECT_EQ(errors, message + message) << "once for the first frame of each chain, null chain included";
}

TEST_F(CameraFrameworkTest, SharpnessLineMeasuresTheMiddleRow) {
  // A type without an analysis: the measurement looks only at the image.
  CameraAnalysisBase head{9, nullptr, 8, 4};
  unsigned char frame[8 * 4 * 2] = {};
  unsigned char* middleRow = frame + 8 * 4;
  for (int pixel = 0; pixel < 8; ++pixel) middleRow[2 * pixel] = uint8_t(10 * pixel);
  DebugFlags = debugflag::kSharpness;
  CameraFrameCount.store(5);
  testing::internal::CaptureStdout();
  CameraRunAnalysis(&head, frame, frame, frame, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Sharpness  25% ( 10  20  30  40) 12345\n");
}

TEST_F(CameraFrameworkTest, SetupWithNullChainStartsNothing) {
  FakeCamera& camera = FakeCamera::Install();
  int marker = 0;
  CameraAnalysisData = reinterpret_cast<CameraAnalysisBase*>(&marker);
  CameraSetup(nullptr);
  EXPECT_TRUE(CameraAnalysisData == nullptr && !CameraThreadRunning.load());
  CameraInitAnalysis(nullptr, 64, 48);
  CameraUninitAnalysis(nullptr);
  EXPECT_TRUE(camera.Events().empty()) << "the device was never touched";
  FakeCamera::Uninstall();
}

class CameraDeliverFrameTest : public testing::Test {
 protected:
  static constexpr int kCapacity = 16;
  void SetUp() override {
    record_.base.type = CameraAnalysisTypeDeliverFrame, record_.capacity = kCapacity;
    record_.buffer[0] = storage_[0], record_.buffer[1] = storage_[1];
    record_.SetEnabled(true);
    record_.Init();
  }
  void Deliver(std::vector<uint8_t> frame) {
    record_.Analyze(0, nullptr, nullptr, frame.data(), int(frame.size()));
  }
  // Takes the frame at readIndex the way the camera server does.
  std::vector<uint8_t> Take() {
    int which = record_.readIndex;
    if (!record_.Full(which).load(std::memory_order_acquire)) return {};
    std::vector<uint8_t> frame(size_t(record_.size[which]));
    std::copy_n(record_.buffer[which], frame.size(), frame.begin());
    record_.readIndex = (which + 1) % 2;
    record_.Full(which).store(0, std::memory_order_release);
    return frame;
  }
  CameraAnalysisDeliverFrame record_{};
  uint8_t storage_[2][kCapacity + 1] = {};
};

// Steps: 'D' delivers the frame, 'T' takes one and expects the frame (empty:
// nothing to take), 'B' gives buffer 0 back to the record, 'I' runs Init.
TEST_F(CameraDeliverFrameTest, FramesThatCannotBeStoredAreDroppedAndInitEmptiesTheBuffers) {
  using Frame = std::vector<uint8_t>;
  struct Step { char op; Frame frame; };
  const struct { const char* name; void (*prepare)(CameraAnalysisDeliverFrame&); std::vector<Step> steps; } cases[] = {
      {"one byte over the capacity, then exactly the capacity",
       [](CameraAnalysisDeliverFrame&) {},
       {{'D', Frame(kCapacity + 1, 1)}, {'T', {}}, {'D', Frame(kCapacity, 2)}, {'T', Frame(kCapacity, 2)}}},
      {"record disabled", [](CameraAnalysisDeliverFrame& r) { r.SetEnabled(false); }, {{'D', {1, 2, 3}}, {'T', {}}}},
      {"buffer not yet set by the server",
       [](CameraAnalysisDeliverFrame& r) { r.buffer[0] = nullptr; },
       {{'D', {1, 2, 3}}, {'T', {}}, {'B', {}}, {'D', {4}}, {'T', {4}}}},
      {"both buffers full; the next frame goes to the buffer just freed",
       [](CameraAnalysisDeliverFrame&) {},
       {{'D', {1}}, {'D', {2}}, {'D', {3}}, {'T', {1}}, {'D', {4}}, {'T', {2}}, {'T', {4}}, {'T', {}}}},
      {"Init empties both buffers but keeps what the server lent",
       [](CameraAnalysisDeliverFrame&) {},
       {{'D', {1}}, {'D', {2}}, {'T', {1}}, {'D', {3}}, {'I', {}}, {'T', {}}, {'D', {5}}, {'D', {6}}, {'T', {5}},
        {'T', {6}}}},
  };
  for (const auto& c : cases) {
    SetUp();
    c.prepare(record_);
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const Step& step = c.steps[i];
      if (step.op == 'D') Deliver(step.frame);
      if (step.op == 'B') record_.buffer[0] = storage_[0];
      if (step.op == 'I') record_.Init();
      if (step.op == 'T') {
        EXPECT_EQ(Take(), step.frame) << c.name << ", step " << i;
      }
    }
  }
}

// Each frame holds its sequence number and then a filler whose length and
// value follow from it, so a torn frame shows as a mismatch.
std::vector<uint8_t> NumberedFrame(uint32_t sequence) {
  std::vector<uint8_t> frame(4 + sequence % 12, uint8_t(sequence));
  memcpy(frame.data(), &sequence, 4);
  return frame;
}

// A producer thread that is stopped and joined however the test leaves.
class Producer {
 public:
  explicit Producer(std::function<void(uint32_t)> deliver)
      : thread_([this, deliver] {
          for (uint32_t sequence = 1; !stop_.load(); ++sequence) {
            deliver(sequence);
            produced_.store(sequence);
          }
        }) {}
  ~Producer() {
    stop_.store(true);
    thread_.join();
  }
  uint32_t Produced() const { return produced_.load(); }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<uint32_t> produced_{0};
  std::thread thread_;
};

TEST_F(CameraDeliverFrameTest, LaggingConsumerSeesWholeFramesInOrderAndStopsCleanly) {
  Producer producer([this](uint32_t sequence) { Deliver(NumberedFrame(sequence)); });
  // The consumer starts only when three frames are out: the third found both
  // buffers full.
  ASSERT_TRUE(WaitFor([&] { return producer.Produced() >= 3; }));
  uint32_t taken = 0, lastSequence = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (taken < 100) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "only " << taken << " frames arrived";
    std::vector<uint8_t> frame = Take();
    if (frame.empty()) continue;
    ASSERT_GE(frame.size(), 4u);
    uint32_t sequence;
    memcpy(&sequence, frame.data(), 4);
    EXPECT_EQ(frame, NumberedFrame(sequence)) << "torn frame";
    EXPECT_GT(sequence, lastSequence) << "frames arrive in order";
    lastSequence = sequence;
    ++taken;
    if (taken % 10 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_GT(producer.Produced(), taken) << "frames were dropped rather than waited for";

  // The server's stop: disable, wait until no copy is under way; from then on
  // nothing is written.
  record_.SetEnabled(false);
  ASSERT_TRUE(WaitFor([&] { return !record_.IsWriting(); }));
  std::vector<uint8_t> snapshot(&storage_[0][0], &storage_[0][0] + sizeof storage_);
  uint32_t producedAtStop = producer.Produced();
  ASSERT_TRUE(WaitFor([&] { return producer.Produced() > producedAtStop + 100; }));
  EXPECT_EQ(std::vector<uint8_t>(&storage_[0][0], &storage_[0][0] + sizeof storage_), snapshot);
}

}  // namespace
