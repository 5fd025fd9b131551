// The line finders against decoding the frame they look at, on the scene as
// rendered (flat, so both decode cheaply) and as a camera would see it, and
// the multi-width finder's cost as its scan line grows.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "SceneFrames.h"
#include "kavri/Camera.h"

namespace {

using scene_frames::kHeight;
using scene_frames::kWidth;
using scene_frames::ThreadSeconds;

CameraAnalysisMaxOnLine SingleFinder(int startX, int startY, int endX, int endY, int16_t* results) {
  CameraAnalysisMaxOnLine record{{CameraAnalysisTypeMaxOnLine}, startX, startY, endX, endY};
  record.widthMin = 5, record.widthMax = 15, record.peakThreshold = 30, record.contrastThreshold = 20;
  record.positionResult = &results[0], record.qualityResult = &results[1], record.widthResult = &results[2];
  return record;
}

// As a program looking for the scene's tape (18 pixels wide at 320) would
// set it: widths 4 to 40 samples, refined; or, the heaviest setting, every
// width up to half the scan line.
CameraAnalysisMaxOnLine2 MultiFinder(int startX, int startY, int endX, int endY, bool colour, int16_t* results,
                                     bool everyWidth = false) {
  CameraAnalysisMaxOnLine2 record{{CameraAnalysisTypeMaxOnLine2}, startX, startY, endX, endY, 4, 40, 20, 5};
  record.color = colour;
  record.refine = 1;
  record.rangeMax = std::max(std::abs(endX - startX), std::abs(endY - startY));
  if (everyWidth) record.widthMax = record.rangeMax;
  for (int i = 0; i < 5; ++i) record.positionResults[i] = &results[i], record.widthResults[i] = &results[5 + i];
  return record;
}

// A finder takes a microsecond or two, about what reading this thread's
// clock costs, so each timing covers this many runs and is divided back.
constexpr int kRepeats = 16;

// One finder on the simulated scene, timed in the same loop as decoding the
// frame, each over kRepeats runs between two clock readings; the counter
// "percent" is the finder's share of the decode. Frame kind 0 is the scene
// as rendered, 1 as a camera would see it.
// The measured work, a function of its own so that an instruction count
// can leave out making the frames (--toggle-collect='*TimedRound*').
template <typename Record>
__attribute__((noinline)) void TimedRound(Record& record, std::vector<uint8_t>& jpeg,
                                          std::vector<unsigned char>& image, double& finding, double& decoding) {
  double start = ThreadSeconds();
  for (int i = 0; i < kRepeats; ++i) xoProJpegDec(jpeg.data(), int(jpeg.size()), image.data(), int(image.size()));
  double middle = ThreadSeconds();
  for (int i = 0; i < kRepeats; ++i) record.Analyze(0, image.data(), image.data(), nullptr, 0);
  finding += ThreadSeconds() - middle;
  decoding += middle - start;
}

template <typename Record>
void FinderAgainstDecode(benchmark::State& state, Record record, int64_t kind) {
  std::vector<uint8_t> jpeg;
  std::vector<unsigned char> image = scene_frames::Decoded(7, int(kind), jpeg);
  CameraInitAnalysis(&record.base, kWidth, kHeight);
  double finding = 0, decoding = 0;
  for (auto _ : state) TimedRound(record, jpeg, image, finding, decoding);
  finding /= kRepeats;
  decoding /= kRepeats;
  CameraUninitAnalysis(&record.base);
  state.counters["finder_us"] = finding / double(state.iterations()) * 1e6;
  state.counters["decode_us"] = decoding / double(state.iterations()) * 1e6;
  state.counters["percent"] = 100 * finding / decoding;
}

int16_t results[10];

void BM_SingleRow(benchmark::State& state) {
  FinderAgainstDecode(state, SingleFinder(0, 200, kWidth, 200, results), state.range(0));
}
void BM_SingleDiagonal(benchmark::State& state) {
  FinderAgainstDecode(state, SingleFinder(0, 0, kWidth - 1, kHeight - 1, results), state.range(0));
}
void BM_MultiRow(benchmark::State& state) {
  FinderAgainstDecode(state, MultiFinder(0, 200, kWidth, 200, state.range(0), results), state.range(1));
}
void BM_MultiDiagonal(benchmark::State& state) {
  FinderAgainstDecode(state, MultiFinder(0, 0, kWidth - 1, kHeight - 1, state.range(0), results), state.range(1));
}
void BM_MultiRowEveryWidth(benchmark::State& state) {
  FinderAgainstDecode(state, MultiFinder(0, 200, kWidth, 200, state.range(0), results, true), state.range(1));
}

// Scan lines of n samples over dark stripes 8 pixels wide every 40; the
// fitted complexity and ns per sample show how the cost grows.
void BM_MultiScanLength(benchmark::State& state, bool colour) {
  const int n = int(state.range(0));
  std::vector<unsigned char> frame(size_t(n) * 2 * 2, 200);
  for (int x = 0; x < n; ++x)
    if (x % 40 < 8) frame[2 * x] = frame[2 * (n + x)] = 40;
  CameraAnalysisMaxOnLine2 record = MultiFinder(0, 1, n, 1, colour, results, true);
  CameraInitAnalysis(&record.base, n, 2);
  for (auto _ : state) record.Analyze(0, frame.data(), frame.data(), nullptr, 0);
  CameraUninitAnalysis(&record.base);
  state.SetComplexityN(n);
  state.counters["s_per_sample"] =
      benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

// Single finders: the frame kind. Multi-line finders: colour, frame kind.
BENCHMARK(BM_SingleRow)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SingleDiagonal)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MultiRow)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MultiDiagonal)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MultiRowEveryWidth)->ArgsProduct({{0, 1}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_MultiScanLength, luma, false)
    ->RangeMultiplier(10)
    ->Range(100, 10000)
    ->Complexity(benchmark::oNLogN)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_MultiScanLength, colour, true)
    ->RangeMultiplier(10)
    ->Range(100, 10000)
    ->Complexity(benchmark::oNLogN)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
