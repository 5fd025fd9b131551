// Elementary functions: special values, identities, the limits of the
// reductions, and dense sweeps against the C library's long double functions
// within the accuracy that each reduction and approximation supports.
#include <gtest/gtest.h>

#include <algorithm>

#include "FL48TestSupport.h"

namespace {

using namespace fl48ld;
using fl48test::Describe;
using fl48test::Do;
using fl48test::Make;
using fl48test::Mant;
using Function = void (*)(FL48*);
using Reference = long double (*)(long double);

FL48 Code(int code) { return Make(uint16_t(code), 0); }

const FL48 kExactOne = Make(FL48_EXACT_BIT | 0x2001, 0x80000000);

// ---- Special values and limits ----

TEST(FL48Functions, SpecialArgumentsGiveTheirDocumentedResults) {
  const FL48 zero = Code(FL48_CODE_UNDERFLOW), overflow = Code(FL48_CODE_OVERFLOW), nan = Code(FL48_CODE_NAN),
             lost = Code(FL48_CODE_LOST), twoTo29 = Make(0x201E, 0x80000000);
  const struct { const char* name; Function f; FL48 x, expected; } cases[] = {
      {"log10 0", FL48_Log10, zero, overflow}, {"exp10 0", FL48_Exp10, zero, kExactOne},
      {"exp -4096", FL48_Exp, fl48test::FromShort(-4096), zero},
      {"exp 4096", FL48_Exp, fl48test::FromShort(4096), overflow},
      {"sin 2^29", FL48_Sin, twoTo29, lost}, {"sin 2^30", FL48_Sin, Make(0x201F, 0x80000000), lost},
      {"cos -2^29", FL48_Cos, Make(0xA01E, 0x80000000), lost}, {"tan 2^29", FL48_Tan, twoTo29, lost},
      {"sin360 2^29 degrees", FL48_Sin360, Make(0x2024, 0x80000000), lost},
      {"asin 1.5", FL48_Asin, Nearest(1.5L), nan}, {"asin -1.5", FL48_Asin, Nearest(-1.5L), nan},
      {"acos 0", FL48_Acos, zero, FL48_PiH}, {"acos 1", FL48_Acos, fl48test::FromShort(1), zero},
      {"acos nan", FL48_Acos, nan, nan}, {"acos -1 is the constant pi", FL48_Acos, fl48test::FromShort(-1), FL48_Pi},
  };
  for (const auto& c : cases) {
    const FL48 result = Do(c.f, c.x);
    // A special's mantissa words carry nothing, so only word 0 counts then.
    const bool same =
        IsNumber(c.expected) ? fl48test::SameWords(result, c.expected) : result.expWord == c.expected.expWord;
    EXPECT_TRUE(same) << c.name << ": " << Describe(result) << ", expected " << Describe(c.expected);
  }
}

// Just below 2^29 the trigonometric functions still reduce; exp saturates
// only from 4096 on, just below it the result is e^x in range.
TEST(FL48Functions, JustInsideTheLimitsResultsAreNumbers) {
  const FL48 below = Make(0x201D, 0xFFFFFFFF);  // the largest number below 2^29
  for (Function f : {FL48_Sin, FL48_Cos, FL48_Tan}) EXPECT_TRUE(IsNumber(Do(f, below)));
  EXPECT_LE(std::fabs(Value(Do(FL48_Sin, below))), 1.0L);
  for (long double x : {4095.99L, -4095.99L}) {
    const FL48 r = Do(FL48_Exp, Nearest(x));
    ASSERT_TRUE(IsNumber(r)) << Describe(r);
    const double log2Result = double(int(fl48test::Field(r)) - FL48_EXP_BIAS - 32) + std::log2(double(Mant(r)));
    EXPECT_NEAR(log2Result, double(Value(Nearest(x))) / std::log(2.0), 1e-4) << double(x);
  }
}

// ---- Sweeps against the C library ----

// Required correct bits; nearZeroScale: error measured against max(1, |result|).
struct Sweep {
  const char* name; Function f; Reference reference; long double lo, hi; double bits; bool nearZeroScale, logarithmic;
};

// The bounds follow the methods: full precision in the core ranges; fewer
// bits where the reduction itself leaves fewer (large |x| for exp and the
// trigonometric functions, ln near 1, asin and acos near 1, tan away from
// its core range, where the reduction's absolute error of about 2^-30 grows
// by 1 / |cos x|).
const Sweep kSweeps[] = {
    {"ln", FL48_Ln, Ln, 2, 1e30L, 28.5, false, true},
    {"ln", FL48_Ln, Ln, 1e-30L, 0.5L, 28.5, false, true},
    {"ln", FL48_Ln, Ln, 1.1L, 2, 26.5, false, false},
    {"ln near 1", FL48_Ln, Ln, 0.5L, 1.1L, 29, true, false},
    {"log10", FL48_Log10, Log10, 1e-30L, 1e30L, 28.5, true, true},
    {"log10 near 1", FL48_Log10, Log10, 0.5L, 2, 29, true, false},
    {"exp", FL48_Exp, Exp, -1, 1, 28.5, false, false},
    {"exp", FL48_Exp, Exp, -100, 100, 22, false, false},
    {"exp", FL48_Exp, Exp, -700, 700, 18, false, false},
    {"exp10", FL48_Exp10, Exp10, -1, 1, 27, false, false},
    {"exp10", FL48_Exp10, Exp10, -30, 30, 22, false, false},
    {"sin", FL48_Sin, Sin, -1.5707L, 1.5707L, 28.5, false, false},
    {"sin small", FL48_Sin, Sin, 1e-9L, 1, 29, false, true},
    {"sin", FL48_Sin, Sin, -100, 100, 22, true, false},
    {"cos", FL48_Cos, Cos, -1, 1, 27.5, false, false},
    {"cos", FL48_Cos, Cos, -100, 100, 22, true, false},
    {"tan", FL48_Tan, Tan, -1, 1, 27.5, false, false},
    {"tan", FL48_Tan, Tan, -1.5L, 1.5L, 25.5, false, false},
    {"tan past pi/2", FL48_Tan, Tan, 1.6L, 4.6L, 24, true, false},
    {"sin360", FL48_Sin360, SinDeg, -90, 90, 28.5, false, false},
    {"sin360", FL48_Sin360, SinDeg, -720, 720, 25, true, false},
    {"cos360", FL48_Cos360, CosDeg, -60, 60, 27, false, false},
    {"tan360", FL48_Tan360, TanDeg, -60, 60, 27, false, false},
    {"asin", FL48_Asin, Asin, -0.625L, 0.625L, 29, false, false},
    {"asin small", FL48_Asin, Asin, 1e-9L, 0.625L, 29, false, true},
    {"asin", FL48_Asin, Asin, 0.625L, 0.99L, 26, false, false},
    {"asin near 1", FL48_Asin, Asin, 0.99L, 1, 19, false, false},
    {"acos", FL48_Acos, Acos, -0.625L, 0.5L, 29, false, false},
    {"acos", FL48_Acos, Acos, -1, -0.625L, 22.5, false, false},
    {"acos", FL48_Acos, Acos, 0.5L, 0.99L, 23, false, false},
    {"atan", FL48_Atan, Atan, -1e6L, 1e6L, 30, false, false},
    {"atan", FL48_Atan, Atan, 1e-9L, 1e9L, 29, false, true},
    {"asin360", FL48_Asin360, AsinDeg, -0.625L, 0.625L, 28.5, false, false},
    {"acos360", FL48_Acos360, AcosDeg, -0.625L, 0.5L, 28.5, false, false},
    {"atan360", FL48_Atan360, AtanDeg, -1e6L, 1e6L, 29.5, false, false},
};

TEST(FL48Functions, SweepsAgreeWithTheCLibrary) {
  constexpr int kPoints = 20001;
  for (const Sweep& s : kSweeps) {
    double fewest = 64;
    long double worst = 0;
    for (int i = 0; i < kPoints; ++i) {
      const long double t = (long double)i / (kPoints - 1);
      const long double v =
          s.logarithmic ? std::exp(std::log(s.lo) + t * (std::log(s.hi) - std::log(s.lo))) : s.lo + t * (s.hi - s.lo);
      if (v == 0) continue;
      const FL48 arg = Nearest(v);
      const long double expected = s.reference(Value(arg));
      const FL48 r = Do(s.f, arg);
      ASSERT_TRUE(IsNumber(r)) << s.name << " at " << double(v) << ": " << Describe(r);
      const long double scale = s.nearZeroScale ? std::max(1.0L, std::fabs(expected)) : std::fabs(expected);
      const long double error = std::fabs(Value(r) - expected);
      if (error == 0) continue;
      const double bits = -std::log2(double(error / scale));
      if (bits < fewest) {
        fewest = bits;
        worst = Value(arg);
      }
    }
    EXPECT_GE(fewest, s.bits) << s.name << " over " << double(s.lo) << " .. " << double(s.hi) << ", worst at "
                              << double(worst);
  }
}

}  // namespace
