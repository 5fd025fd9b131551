// Frame decoding against a plain libjpeg raw decode of the same frame (no
// interleave), and the whole capture path per frame against decoding alone.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <ctime>
#include <vector>

#include <jpeglib.h>  // after <cstdio>, which it needs

#include "JpegReference.h"
#include "SceneFrames.h"
#include "camera_devices/CounterRecord.h"
#include "camera_devices/FakeCamera.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"

namespace {

using Clock = std::chrono::steady_clock;

// Other builds share the machine: the decoders are timed in this thread's
// processor time, which they do not disturb.
struct ThreadClock {
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<ThreadClock>;
  static time_point now() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return time_point(duration(int64_t(now.tv_sec) * 1000000000 + now.tv_nsec));
  }
};
using camera_devices::Bytes;

// The reference: the same libjpeg settings and bands, planes left as they are.
// With `copy`, each band's plane rows are also copied out one after another
// into it, as many bytes as the packed image has: the least that any way of
// writing the frame costs on top of decoding.
void PlainRawDecode(Bytes& jpeg, unsigned char* copy = nullptr) {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  StartReferenceDecode(info, errors, jpeg, true);
  JSAMPARRAY planes[3];
  for (int c = 0; c < 3; ++c)
    planes[c] = (*info.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE,
                                          info.comp_info[c].width_in_blocks * DCTSIZE, DCTSIZE);
  for (JDIMENSION row = 0; row < info.image_height; row += DCTSIZE) {
    jpeg_read_raw_data(&info, planes, DCTSIZE);
    for (int line = 0; copy != nullptr && line < DCTSIZE; ++line) {
      memcpy(copy, planes[0][line], info.image_width);
      memcpy(copy + info.image_width, planes[1][line], info.image_width / 2);
      memcpy(copy + info.image_width * 3 / 2, planes[2][line], info.image_width / 2);
      copy += size_t(info.image_width) * 2;
    }
  }
  benchmark::DoNotOptimize(planes[0][0][0]);
  jpeg_destroy_decompress(&info);
}

template <typename Duration>
double Seconds(Duration elapsed) { return std::chrono::duration<double>(elapsed).count(); }

// Third argument: 0 the scene as rendered, whose flat blocks decode unusually
// cheaply (the worst case for the interleave's share), 1 as a camera sees it.
void BM_DecodeAgainstPlainRawDecode(benchmark::State& state) {
  int width = int(state.range(0)), height = int(state.range(1));
  Bytes jpeg = camera_devices::SimCameraFrame(7, width, height);
  if (state.range(2) == 1) jpeg = scene_frames::CameraLike(jpeg, width, height);
  std::vector<unsigned char> image(CameraDecodedAllocation(width, height));
  ThreadClock::duration decoding{}, reference{}, copying{};
  for (auto _ : state) {
    auto start = ThreadClock::now();
    int decoded = xoProJpegDec(jpeg.data(), int(jpeg.size()), image.data(), int(image.size()));
    auto middle = ThreadClock::now();
    PlainRawDecode(jpeg);
    auto end = ThreadClock::now();
    PlainRawDecode(jpeg, image.data());
    copying += ThreadClock::now() - end;
    reference += end - middle;
    decoding += middle - start;
    benchmark::DoNotOptimize(decoded);
  }
  double frames = double(state.iterations());
  state.counters["fps"] = frames / Seconds(decoding);
  state.counters["reference_fps"] = frames / Seconds(reference);
  state.counters["ratio"] = Seconds(decoding) / Seconds(reference);
  state.counters["copy_ratio"] = Seconds(copying) / Seconds(reference);
}
BENCHMARK(BM_DecodeAgainstPlainRawDecode)
    ->ArgsProduct({{320}, {240}, {0, 1}})
    ->ArgsProduct({{640}, {480}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// The capture thread's own lines would mix with the report.
class QuietOutput {
 public:
  QuietOutput() {
    fflush(stdout);
    int null = open("/dev/null", O_WRONLY);
    for (int fd : {1, 2}) {
      saved_[fd - 1] = dup(fd);
      dup2(null, fd);
    }
    close(null);
  }
  ~QuietOutput() {
    fflush(stdout);
    for (int fd : {1, 2}) {
      dup2(saved_[fd - 1], fd);
      close(saved_[fd - 1]);
    }
  }

 private:
  int saved_[2];
};

void StartCapture(CameraAnalysisCounter& counter) {
  QuietOutput quiet;
  CameraFrameCount.store(0);  // the thread resets it too, but only once it has a device
  CameraSetup(&counter.base);
  while (CameraFrameCount.load() < 2) std::this_thread::yield();
}

void StopCapture() {
  QuietOutput quiet;
  CameraThreadTerminate.store(true);
  while (CameraThreadRunning.load()) std::this_thread::yield();
}

double ThreadSeconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// The capture thread runs flat out on the fake device (wait, dequeue, decode,
// analyse, give back); an iteration is a batch of its analysed frames. Its
// processor time per frame is set against decoding alone; frames per second
// are wall time and depend on what else runs.
void BM_CapturePathPerFrame(benchmark::State& state) {
  int width = int(state.range(0)), height = int(state.range(1));
  Bytes jpeg = camera_devices::SimCameraFrame(7, width, height);
  std::vector<unsigned char> image(CameraDecodedAllocation(width, height));
  constexpr int kReferenceFrames = 200;
  constexpr uint32_t kFramesPerIteration = 50;
  auto start = ThreadClock::now();
  for (int i = 0; i < kReferenceFrames; ++i) xoProJpegDec(jpeg.data(), int(jpeg.size()), image.data(), int(image.size()));
  double decodeSeconds = Seconds(ThreadClock::now() - start) / kReferenceFrames;

  camera_devices::FakeCamera& camera = camera_devices::FakeCamera::Install();
  camera.SetFrameSource([&jpeg](uint32_t, int, int) { return jpeg; });
  int16_t frameCounter = 0;
  uint8_t change = 0;
  CameraAnalysisCounter counter = camera_devices::MakeCounterRecord(width, height, 30, 50, &frameCounter, &change);
  StartCapture(counter);
  clockid_t captureClock;
  pthread_getcpuclockid(CameraThread, &captureClock);
  auto wallStart = Clock::now();
  double cpuStart = ThreadSeconds(captureClock);
  uint32_t firstFrame = CameraFrameCount.load();
  for (auto _ : state) {
    uint32_t target = CameraFrameCount.load() + kFramesPerIteration;
    while (CameraFrameCount.load() < target) std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  double cpuSeconds = ThreadSeconds(captureClock) - cpuStart;
  double frames = double(CameraFrameCount.load() - firstFrame);
  double wallSeconds = Seconds(Clock::now() - wallStart);
  StopCapture();
  camera_devices::FakeCamera::Uninstall();
  state.SetItemsProcessed(int64_t(frames));
  state.counters["fps"] = frames / wallSeconds;
  state.counters["capture_us"] = 1e6 * cpuSeconds / frames;
  state.counters["decode_us"] = 1e6 * decodeSeconds;
  state.counters["ratio"] = cpuSeconds / frames / decodeSeconds;
}
BENCHMARK(BM_CapturePathPerFrame)->Args({320, 240})->Args({640, 480})->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
