// The region analyses on a decoded frame of the simulated scene, each against
// decoding that frame in the same loop: what an analysis adds to the capture
// thread's work per frame. The scene as rendered is flat, which flatters both
// the decoder and the ball finders' runs of equal pixels; the second frame
// kind adds the grain and shading of a real camera.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include "camera_devices/JpegFrames.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"
#include "kavri/CameraAnalysisBall.h"
#include "kavri/CameraAnalysisColor.h"

namespace {

constexpr int kWidth = 320, kHeight = 240;

// Processor time of this thread: other builds share the machine.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

std::vector<unsigned char> DecodedImage(const std::vector<uint8_t>& jpeg) {
  std::vector<unsigned char> image(CameraDecodedAllocation(kWidth, kHeight));
  xoProJpegDec(const_cast<uint8_t*>(jpeg.data()), int(jpeg.size()), image.data(), int(image.size()));
  return image;
}

// Sensor grain (luma +-8, chroma +-4, the same for every frame number so that
// change detection sees the scene move, not the noise) and a brightness fall
// towards the corners, re-encoded as the camera would.
std::vector<uint8_t> CameraLike(const std::vector<uint8_t>& jpeg) {
  std::vector<unsigned char> image = DecodedImage(jpeg);
  uint32_t state = 12345;
  auto grain = [&state](int spread) {
    state = state * 1103515245u + 12345u;
    return int((state >> 16) % uint32_t(2 * spread + 1)) - spread;
  };
  for (int row = 0; row < kHeight; ++row) {
    for (int column = 0; column < kWidth; ++column) {
      unsigned char* pixel = &image[(size_t(row) * kWidth + column) * 2];
      int dx = column - kWidth / 2, dy = row - kHeight / 2;
      int shade = (dx * dx + dy * dy) * 30 / (kWidth * kWidth / 4 + kHeight * kHeight / 4);
      pixel[0] = uint8_t(std::clamp(pixel[0] - shade + grain(8), 0, 255));
      pixel[1] = uint8_t(std::clamp(pixel[1] + grain(4), 0, 255));
    }
  }
  return camera_devices::EncodeYuyvJpeg(image.data(), kWidth, kHeight, 85);
}

// kind 0: the scene as rendered; 1: as a camera would see it.
std::vector<unsigned char> Decoded(uint32_t frameNumber, int kind, std::vector<uint8_t>& jpeg) {
  jpeg = camera_devices::SimCameraFrame(frameNumber, kWidth, kHeight);
  if (kind == 1) jpeg = CameraLike(jpeg);
  return DecodedImage(jpeg);
}

// Every analysis over the whole frame, with settings a program would use.
struct Records {
  int16_t results[4] = {};
  CameraAnalysisColorField colour{
      .base = {CameraAnalysisTypeColorField}, .w = kWidth, .h = kHeight, .redVar = &results[0]};
  CameraAnalysisChangeDetect change{
      .base = {CameraAnalysisTypeChangeDetect}, .w = kWidth, .h = kHeight, .threshold = 10, .areaVar = &results[1]};
  CameraAnalysisBallSingleBlock single{.base = {CameraAnalysisTypeBallSingleBlock},
                                       .blockWidth = kWidth,
                                       .blockHeight = kHeight,
                                       .radiusMin = 5,
                                       .radiusMax = 100,
                                       .threshold = 10,
                                       .xRangeMax = kWidth,
                                       .yRangeMin = kHeight,
                                       .xResult = &results[2]};
  CameraAnalysisBallMultiBlock multi{.base = {CameraAnalysisTypeBallMultiBlock},
                                     .blockWidth = kWidth,
                                     .blockHeight = kHeight,
                                     .xResult = &results[3],
                                     .sizeMin = 10,
                                     .sizeMax = 100,
                                     .cellSize = 40};

  CameraAnalysisBase* Chain(int which) {
    CameraAnalysisBase* records[] = {&colour.base, &change.base, &single.base, &multi.base};
    if (which < 4) {
      records[which]->next = nullptr;
      return records[which];
    }
    for (int i = 0; i < 3; ++i) records[i]->next = records[i + 1];
    records[3]->next = nullptr;
    return records[0];
  }
};

// range(0): 0 colour field, 1 change detection, 2 single block, 3 multi-block,
// 4 all four in one chain; range(1): the frame kind.
void BM_AnalysisAgainstDecode(benchmark::State& state) {
  std::vector<uint8_t> jpeg, previousJpeg;
  int kind = int(state.range(1));
  std::vector<unsigned char> previous = Decoded(6, kind, previousJpeg), frame = Decoded(7, kind, jpeg);
  std::vector<unsigned char> scratch(frame.size());
  Records records;
  CameraAnalysisBase* chain = records.Chain(int(state.range(0)));
  CameraInitAnalysis(chain, kWidth, kHeight);
  double analysing = 0, decoding = 0;
  for (auto _ : state) {
    double start = ThreadSeconds();
    CameraRunAnalysis(chain, frame.data(), previous.data(), jpeg.data(), int(jpeg.size()));
    double middle = ThreadSeconds();
    xoProJpegDec(jpeg.data(), int(jpeg.size()), scratch.data(), int(scratch.size()));
    decoding += ThreadSeconds() - middle;
    analysing += middle - start;
  }
  CameraUninitAnalysis(chain);
  benchmark::DoNotOptimize(records.results);
  double frames = double(state.iterations());
  state.counters["analysis_us"] = 1e6 * analysing / frames;
  state.counters["decode_us"] = 1e6 * decoding / frames;
  state.counters["ratio"] = analysing / decoding;
}
BENCHMARK(BM_AnalysisAgainstDecode)
    ->ArgsProduct({benchmark::CreateDenseRange(0, 4, 1), {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// The least a ball finder can do per frame: every pixel read once and counted
// into a table by one of its bytes, the single increment per pixel that its
// moment tables need at the very least (they need six sums). A floor for the
// ball rows above, not an analysis.
void BM_HistogramAgainstDecode(benchmark::State& state) {
  std::vector<uint8_t> jpeg;
  std::vector<unsigned char> frame = Decoded(7, int(state.range(0)), jpeg), scratch(frame.size());
  uint32_t counts[4][256] = {};
  double counting = 0, decoding = 0;
  for (auto _ : state) {
    double start = ThreadSeconds();
    for (size_t i = 0; i + 8 <= size_t(kWidth) * kHeight * 2; i += 8) {
      ++counts[0][frame[i + 1]], ++counts[1][frame[i + 3]], ++counts[2][frame[i + 5]], ++counts[3][frame[i + 7]];
      ++counts[0][frame[i]], ++counts[1][frame[i + 2]], ++counts[2][frame[i + 4]], ++counts[3][frame[i + 6]];
    }
    benchmark::DoNotOptimize(counts);
    double middle = ThreadSeconds();
    xoProJpegDec(jpeg.data(), int(jpeg.size()), scratch.data(), int(scratch.size()));
    decoding += ThreadSeconds() - middle;
    counting += middle - start;
  }
  state.counters["analysis_us"] = 1e6 * counting / double(state.iterations());
  state.counters["decode_us"] = 1e6 * decoding / double(state.iterations());
  state.counters["ratio"] = counting / decoding;
}
BENCHMARK(BM_HistogramAgainstDecode)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
