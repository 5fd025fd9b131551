// The region analyses on a decoded frame of the simulated scene, each against
// decoding that frame in the same loop: what an analysis adds to the capture
// thread's work per frame. The scene as rendered is flat, which flatters both
// the decoder and the ball finders' runs of equal pixels; the second frame
// kind adds the grain and shading of a real camera.
#include <benchmark/benchmark.h>

#include <vector>

#include "SceneFrames.h"
#include "kavri/Camera.h"
#include "kavri/CameraAnalysisBall.h"
#include "kavri/CameraAnalysisColor.h"

namespace {

using scene_frames::Decoded;
using scene_frames::kHeight;
using scene_frames::kWidth;
using scene_frames::ThreadSeconds;

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
