// Speed of FL48_ConvToText for typical pictures against snprintf of a double
// with the same layout, measured in the same run (ns per call and ratio).
// The program's main is in fl48_func_bench.cpp.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "fl48_func_timing.h"
#include "kavri/FL48.h"

namespace {

constexpr int kBatch = 64;

// Values of a typical display: a few magnitudes, both signs.
std::vector<double> SampleValues() {
  std::vector<double> values;
  for (int i = 0; i < kBatch; ++i) {
    const double v = std::ldexp(1.0 + i * 0.37, (i % 9) - 4) * ((i & 1) != 0 ? -1 : 1);
    values.push_back(v);
  }
  return values;
}

FL48 FromDouble(double v) {
  int e = 0;
  const double m = std::frexp(std::fabs(v), &e);
  const auto mant = static_cast<uint32_t>(std::ldexp(m, 32));
  FL48 x{};
  x.expWord = static_cast<uint16_t>((e + FL48_EXP_BIAS) | (v < 0 ? FL48_SIGN_BIT : 0));
  x.mant[0] = static_cast<uint16_t>(mant >> 16);
  x.mant[1] = static_cast<uint16_t>(mant);
  return x;
}

void BM_ConvToText(benchmark::State& state, const char* picture, const char* printfFormat) {
  const std::vector<double> values = SampleValues();
  std::vector<FL48> numbers;
  for (double v : values) numbers.push_back(FromDouble(v));
  const uint32_t word = FL_ParseFormat(picture);
  char text[64];
  const auto runFl48 = [&] {
    for (const FL48& x : numbers) {
      FL48_ConvToText(text, &x, word);
      benchmark::DoNotOptimize(text);
    }
  };
  const auto runSnprintf = [&] {
    for (double v : values) {
      std::snprintf(text, sizeof text, printfFormat, v);
      benchmark::DoNotOptimize(text);
    }
  };
  fl48bench::ReportAgainstReference(state, runFl48, runSnprintf, kBatch, "snprintf");
}

BENCHMARK_CAPTURE(BM_ConvToText, Fixed, "####.##", "%7.2f");
BENCHMARK_CAPTURE(BM_ConvToText, Integer, "######", "%6.0f");
BENCHMARK_CAPTURE(BM_ConvToText, TenDigitsE, "#.#########^^###", "%15.8E");
BENCHMARK_CAPTURE(BM_ConvToText, ExponentMark, "#.####^##", "%9.3e");
BENCHMARK_CAPTURE(BM_ConvToText, Engineering, "##.##^", "%6.3g");

}  // namespace
