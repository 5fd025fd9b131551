// Accuracy and speed of the FL48 elementary functions.
//
// Before the timings it prints, per function and range, the fewest correct
// bits (largest relative error) over a dense sweep against the C library's
// long double function. Each timing runs the FL48 function over a batch of
// arguments and then, in the same run, the C library's double function over
// the same arguments; the counters give both in ns per call (thread CPU time)
// and their ratio. This file holds the program's main for the text
// conversion benchmarks as well.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "FL48LongDouble.h"
#include "fl48_func_timing.h"
#include "kavri/FL48.h"

namespace {

using Fl48Function = void (*)(FL48*);
using LongDoubleFunction = long double (*)(long double);
using DoubleFunction = double (*)(double);


using namespace fl48ld;
constexpr long double kPi = 180 * kDegree;

struct Sweep {
  const char* name;
  Fl48Function fl48;
  LongDoubleFunction reference;
  long double lo, hi;
  bool logarithmic;  // points spaced evenly in log|x| (lo, hi > 0)
};

// For each function its useful range, then the ranges where the method
// itself loses bits (named in the documentation).
const Sweep kSweeps[] = {
    {"FL48_Ln", FL48_Ln, Ln, 2.0L, 1e30L, true},
    {"FL48_Ln", FL48_Ln, Ln, 1e-30L, 0.5L, true},
    {"FL48_Ln", FL48_Ln, Ln, 1.1L, 2.0L, false},
    {"FL48_Ln", FL48_Ln, Ln, 0.5L, 1.1L, false},
    {"FL48_Log10", FL48_Log10, Log10, 2.0L, 1e30L, true},
    {"FL48_Log10", FL48_Log10, Log10, 1e-30L, 0.5L, true},
    {"FL48_Log10", FL48_Log10, Log10, 0.5L, 2.0L, false},
    {"FL48_Exp", FL48_Exp, Exp, -1.0L, 1.0L, false},
    {"FL48_Exp", FL48_Exp, Exp, -10.0L, 10.0L, false},
    {"FL48_Exp", FL48_Exp, Exp, -100.0L, 100.0L, false},
    {"FL48_Exp", FL48_Exp, Exp, -4095.0L, 4095.0L, false},
    {"FL48_Exp10", FL48_Exp10, Exp10, -1.0L, 1.0L, false},
    {"FL48_Exp10", FL48_Exp10, Exp10, -30.0L, 30.0L, false},
    {"FL48_Sin", FL48_Sin, Sin, -kPi / 2, kPi / 2, false},
    {"FL48_Sin", FL48_Sin, Sin, 1e-9L, 1.0L, true},
    {"FL48_Sin", FL48_Sin, Sin, -100.0L, 100.0L, false},
    {"FL48_Cos", FL48_Cos, Cos, -1.0L, 1.0L, false},
    {"FL48_Cos", FL48_Cos, Cos, -1.5L, 1.5L, false},
    {"FL48_Cos", FL48_Cos, Cos, -100.0L, 100.0L, false},
    {"FL48_Tan", FL48_Tan, Tan, -1.0L, 1.0L, false},
    {"FL48_Tan", FL48_Tan, Tan, -1.5L, 1.5L, false},
    {"FL48_Tan", FL48_Tan, Tan, -100.0L, 100.0L, false},
    {"FL48_Sin360", FL48_Sin360, SinDeg, -90.0L, 90.0L, false},
    {"FL48_Sin360", FL48_Sin360, SinDeg, -720.0L, 720.0L, false},
    {"FL48_Cos360", FL48_Cos360, CosDeg, -60.0L, 60.0L, false},
    {"FL48_Cos360", FL48_Cos360, CosDeg, -720.0L, 720.0L, false},
    {"FL48_Tan360", FL48_Tan360, TanDeg, -60.0L, 60.0L, false},
    {"FL48_Tan360", FL48_Tan360, TanDeg, -89.0L, 89.0L, false},
    {"FL48_Asin", FL48_Asin, Asin, -0.625L, 0.625L, false},
    {"FL48_Asin", FL48_Asin, Asin, 1e-9L, 0.625L, true},
    {"FL48_Asin", FL48_Asin, Asin, 0.625L, 0.99L, false},
    {"FL48_Asin", FL48_Asin, Asin, 0.99L, 1.0L, false},
    {"FL48_Acos", FL48_Acos, Acos, -0.625L, 0.5L, false},
    {"FL48_Acos", FL48_Acos, Acos, -1.0L, -0.625L, false},
    {"FL48_Acos", FL48_Acos, Acos, 0.5L, 0.99L, false},
    {"FL48_Acos", FL48_Acos, Acos, 0.99L, 1.0L, false},
    {"FL48_Atan", FL48_Atan, Atan, -1e6L, 1e6L, false},
    {"FL48_Atan", FL48_Atan, Atan, 1e-9L, 1e9L, true},
    {"FL48_Asin360", FL48_Asin360, AsinDeg, -0.625L, 0.625L, false},
    {"FL48_Acos360", FL48_Acos360, AcosDeg, -0.625L, 0.5L, false},
    {"FL48_Atan360", FL48_Atan360, AtanDeg, -1e6L, 1e6L, false},
};

constexpr int kSweepPoints = 200001;

long double SweepPoint(const Sweep& s, int i) {
  const long double t = static_cast<long double>(i) / (kSweepPoints - 1);
  if (s.logarithmic) return std::exp(std::log(s.lo) + t * (std::log(s.hi) - std::log(s.lo)));
  return s.lo + t * (s.hi - s.lo);
}

struct Accuracy {
  double fewestBits = 64;  // relative to the result
  long double worstArgument = 0;
  double fewestScaledBits = 64;  // error against max(1, |result|): for results near zero
  int notNumbers = 0;
};

Accuracy Measure(const Sweep& s) {
  Accuracy a;
  for (int i = 0; i < kSweepPoints; ++i) {
    FL48 x = Nearest(SweepPoint(s, i));
    const long double arg = Value(x);
    const long double expected = s.reference(arg);
    s.fl48(&x);
    if (!IsNumber(x)) {
      ++a.notNumbers;
      continue;
    }
    const long double error = std::fabs(Value(x) - expected);
    if (error == 0 || expected == 0) continue;
    const long double scale = std::max(1.0L, std::fabs(expected));
    a.fewestScaledBits = std::min(a.fewestScaledBits, -std::log2(static_cast<double>(error / scale)));
    const double bits = -std::log2(static_cast<double>(error / std::fabs(expected)));
    if (bits < a.fewestBits) {
      a.fewestBits = bits;
      a.worstArgument = arg;
    }
  }
  return a;
}

void PrintAccuracyTable() {
  std::printf("| function | range | fewest correct bits | at x | bits against max(1, abs(f)) | specials |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (const Sweep& s : kSweeps) {
    const Accuracy a = Measure(s);
    std::printf("| %s | %Lg .. %Lg%s | %.1f | %.9Lg | %.1f | %d |\n", s.name, s.lo, s.hi, s.logarithmic ? " (log)" : "",
                a.fewestBits, a.worstArgument, a.fewestScaledBits, a.notNumbers);
  }
  std::fflush(stdout);
}

// ---- Speed ----

constexpr int kBatch = 256;

std::vector<FL48> Arguments(long double lo, long double hi) {
  std::vector<FL48> args;
  for (int i = 0; i < kBatch; ++i) args.push_back(Nearest(lo + (hi - lo) * (i + 0.5L) / kBatch));
  return args;
}

void BM_Function(benchmark::State& state, Fl48Function fl48, DoubleFunction reference, double lo, double hi) {
  const std::vector<FL48> args = Arguments(lo, hi);
  std::vector<double> doubles;
  for (const FL48& x : args) doubles.push_back(static_cast<double>(Value(x)));
  const auto runFl48 = [&] {
    for (FL48 x : args) {
      fl48(&x);
      benchmark::DoNotOptimize(x);
    }
  };
  const auto runReference = [&] {
    for (double d : doubles) benchmark::DoNotOptimize(reference(d));
  };
  fl48bench::ReportAgainstReference(state, runFl48, runReference, kBatch, "libm_double");
}

double LibmExp10(double x) { return std::pow(10.0, x); }
double LibmSinDeg(double x) { return std::sin(x * (M_PI / 180)); }
double LibmCosDeg(double x) { return std::cos(x * (M_PI / 180)); }
double LibmTanDeg(double x) { return std::tan(x * (M_PI / 180)); }
double LibmAsinDeg(double x) { return std::asin(x) * (180 / M_PI); }
double LibmAcosDeg(double x) { return std::acos(x) * (180 / M_PI); }
double LibmAtanDeg(double x) { return std::atan(x) * (180 / M_PI); }
double LibmLn(double x) { return std::log(x); }
double LibmLog10(double x) { return std::log10(x); }
double LibmExp(double x) { return std::exp(x); }
double LibmSin(double x) { return std::sin(x); }
double LibmCos(double x) { return std::cos(x); }
double LibmTan(double x) { return std::tan(x); }
double LibmAsin(double x) { return std::asin(x); }
double LibmAcos(double x) { return std::acos(x); }
double LibmAtan(double x) { return std::atan(x); }

BENCHMARK_CAPTURE(BM_Function, Ln, FL48_Ln, LibmLn, 0.01, 100.0);
BENCHMARK_CAPTURE(BM_Function, Log10, FL48_Log10, LibmLog10, 0.01, 100.0);
BENCHMARK_CAPTURE(BM_Function, Exp, FL48_Exp, LibmExp, -20.0, 20.0);
BENCHMARK_CAPTURE(BM_Function, Exp10, FL48_Exp10, LibmExp10, -10.0, 10.0);
BENCHMARK_CAPTURE(BM_Function, Sin, FL48_Sin, LibmSin, -10.0, 10.0);
BENCHMARK_CAPTURE(BM_Function, Cos, FL48_Cos, LibmCos, -10.0, 10.0);
BENCHMARK_CAPTURE(BM_Function, Tan, FL48_Tan, LibmTan, -1.5, 1.5);
BENCHMARK_CAPTURE(BM_Function, Sin360, FL48_Sin360, LibmSinDeg, -360.0, 360.0);
BENCHMARK_CAPTURE(BM_Function, Cos360, FL48_Cos360, LibmCosDeg, -360.0, 360.0);
BENCHMARK_CAPTURE(BM_Function, Tan360, FL48_Tan360, LibmTanDeg, -85.0, 85.0);
BENCHMARK_CAPTURE(BM_Function, Asin, FL48_Asin, LibmAsin, -1.0, 1.0);
BENCHMARK_CAPTURE(BM_Function, Acos, FL48_Acos, LibmAcos, -1.0, 1.0);
BENCHMARK_CAPTURE(BM_Function, Atan, FL48_Atan, LibmAtan, -10.0, 10.0);
BENCHMARK_CAPTURE(BM_Function, Asin360, FL48_Asin360, LibmAsinDeg, -1.0, 1.0);
BENCHMARK_CAPTURE(BM_Function, Acos360, FL48_Acos360, LibmAcosDeg, -1.0, 1.0);
BENCHMARK_CAPTURE(BM_Function, Atan360, FL48_Atan360, LibmAtanDeg, -10.0, 10.0);

}  // namespace

int main(int argc, char** argv) {
  PrintAccuracyTable();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
