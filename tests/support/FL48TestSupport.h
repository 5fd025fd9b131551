// Helpers shared by the FL48 test programs: building records from words and
// values, comparing them with readable failure messages, random numbers.
#ifndef KAVRI_TESTS_FL48_TEST_SUPPORT_H
#define KAVRI_TESTS_FL48_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <stdint.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "FL48LongDouble.h"
#include "kavri/FL48.h"

namespace fl48test {

inline FL48 Make(uint16_t expWord, uint32_t mant) {
  return FL48{expWord, {uint16_t(mant >> 16), uint16_t(mant)}};
}
inline uint32_t Mant(const FL48& x) { return (uint32_t(x.mant[0]) << 16) | x.mant[1]; }
inline unsigned Field(const FL48& x) { return x.expWord & FL48_EXP_MASK; }
inline bool Negative(const FL48& x) { return (x.expWord & FL48_SIGN_BIT) != 0; }

inline FL48 FromShort(int n) {
  FL48 x;
  FL48_ConvFromShort(&x, n);
  return x;
}
// The result of an operation on a copy of its operands.
inline FL48 Do(void (*op)(FL48*, const FL48*), FL48 a, const FL48& b) { return op(&a, &b), a; }
inline FL48 Do(void (*f)(FL48*), FL48 x) { return f(&x), x; }

inline std::string Describe(const FL48& x) {
  char text[48];
  std::snprintf(text, sizeof text, "{0x%04X, 0x%08X}", x.expWord, Mant(x));
  return text;
}
inline std::string Describe(const FL64& x) {
  char text[48];
  std::snprintf(text, sizeof text, "{0x%04X, 0x%04X%04X%04X}", x.expWord, x.mant[0], x.mant[1], x.mant[2]);
  return text;
}

inline bool SameWords(const FL48& a, const FL48& b) {
  return a.expWord == b.expWord && a.mant[0] == b.mant[0] && a.mant[1] == b.mant[1];
}
inline bool SameWords(const FL64& a, const FL64& b) {
  return a.expWord == b.expWord && a.mant[0] == b.mant[0] && a.mant[1] == b.mant[1] && a.mant[2] == b.mant[2];
}

// A normalised random number with its field in [lo, hi].
class RandomNumbers {
 public:
  explicit RandomNumbers(uint32_t seed) : engine_(seed) {}
  uint32_t Word32() { return uint32_t(engine_()); }
  uint16_t Word16() { return uint16_t(engine_()); }
  int Between(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine_); }
  bool Coin() { return engine_() & 1; }
  FL48 Normal(int lo = 0x2000 - 40, int hi = 0x2000 + 40) {
    uint16_t head = uint16_t(Between(lo, hi) | (Coin() ? FL48_SIGN_BIT : 0) | (Coin() ? FL48_EXACT_BIT : 0));
    return Make(head, Word32() | 0x80000000u);
  }

 private:
  std::mt19937 engine_;
};

}  // namespace fl48test

#endif  // KAVRI_TESTS_FL48_TEST_SUPPORT_H
