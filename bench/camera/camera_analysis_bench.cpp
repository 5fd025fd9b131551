// The region analyses on a decoded frame of the simulated scene, each against
// decoding that frame in the same loop: what an analysis adds to the capture
// thread's work per frame.
#include <benchmark/benchmark.h>
#include <time.h>

#include <vector>

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

std::vector<unsigned char> Decoded(uint32_t frameNumber, std::vector<uint8_t>& jpeg) {
  jpeg = camera_devices::SimCameraFrame(frameNumber, kWidth, kHeight);
  std::vector<unsigned char> image(CameraDecodedAllocation(kWidth, kHeight));
  xoProJpegDec(jpeg.data(), int(jpeg.size()), image.data(), int(image.size()));
  return image;
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
// 4 all four in one chain.
void BM_AnalysisAgainstDecode(benchmark::State& state) {
  std::vector<uint8_t> jpeg, previousJpeg;
  std::vector<unsigned char> previous = Decoded(6, previousJpeg), frame = Decoded(7, jpeg);
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
BENCHMARK(BM_AnalysisAgainstDecode)->DenseRange(0, 4)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
