// FL48 records to and from long double, and the C library's long double
// functions that the elementary functions are measured against. Shared by
// the tests and the accuracy benchmark.
#ifndef KAVRI_TESTS_FL48_LONG_DOUBLE_H
#define KAVRI_TESTS_FL48_LONG_DOUBLE_H

#include <cmath>
#include <cstdint>

#include "kavri/FL48.h"

namespace fl48ld {

// The FL48 nearest to v; zero gives underflow, the FL48 zero.
inline FL48 Nearest(long double v) {
  FL48 x{};
  if (v == 0) {
    FL48_SetUnderflow(&x);
    return x;
  }
  int e = 0;
  const long double m = std::frexp(std::fabs(v), &e);
  uint64_t mant = static_cast<uint64_t>(std::llround(std::ldexp(m, 32)));
  if ((mant >> 32) != 0) {
    mant >>= 1;
    ++e;
  }
  x.expWord = static_cast<uint16_t>((e + FL48_EXP_BIAS) | (v < 0 ? FL48_SIGN_BIT : 0));
  x.mant[0] = static_cast<uint16_t>(mant >> 16);
  x.mant[1] = static_cast<uint16_t>(mant);
  return x;
}

inline bool IsNumber(const FL48& x) { return (x.expWord & FL48_EXP_MASK) >= FL48_EXP_MIN; }

// The exact value of a number record.
inline long double Value(const FL48& x) {
  const uint32_t mant = (uint32_t{x.mant[0]} << 16) | x.mant[1];
  const long double v = std::ldexp(static_cast<long double>(mant), (x.expWord & FL48_EXP_MASK) - FL48_EXP_BIAS - 32);
  return (x.expWord & FL48_SIGN_BIT) != 0 ? -v : v;
}

constexpr long double kDegree = 3.14159265358979323846264338327950288L / 180;

inline long double Ln(long double x) { return std::log(x); }
inline long double Log10(long double x) { return std::log10(x); }
inline long double Exp(long double x) { return std::exp(x); }
inline long double Exp10(long double x) { return std::pow(10.0L, x); }
inline long double Sin(long double x) { return std::sin(x); }
inline long double Cos(long double x) { return std::cos(x); }
inline long double Tan(long double x) { return std::tan(x); }
inline long double Asin(long double x) { return std::asin(x); }
inline long double Acos(long double x) { return std::acos(x); }
inline long double Atan(long double x) { return std::atan(x); }
inline long double SinDeg(long double x) { return std::sin(x * kDegree); }
inline long double CosDeg(long double x) { return std::cos(x * kDegree); }
inline long double TanDeg(long double x) { return std::tan(x * kDegree); }
inline long double AsinDeg(long double x) { return std::asin(x) / kDegree; }
inline long double AcosDeg(long double x) { return std::acos(x) / kDegree; }
inline long double AtanDeg(long double x) { return std::atan(x) / kDegree; }

}  // namespace fl48ld

#endif
