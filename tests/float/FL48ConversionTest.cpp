// Conversions between FL48 numbers and 16-bit integers, the extended format,
// normalisation and the integer/fraction and exponent/mantissa splits.
#include <gtest/gtest.h>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

TEST(FL48ConvFromShort, ZeroAndNoValueAndOnlyTheLowSixteenBits) {
  EXPECT_TRUE(SameWords(FromShort(0), Make(FL48_CODE_UNDERFLOW, 0)));
  EXPECT_TRUE(SameWords(FromShort(-32768), Make(FL48_CODE_UNDEFINED, 0)));
  EXPECT_TRUE(SameWords(FromShort(0x10005), FromShort(5)));
  EXPECT_TRUE(SameWords(FromShort(0xFFFF), FromShort(-1)));
}

TEST(FL48ConvToShort, EveryIntegerComesBackInEveryMode) {
  for (int n = -32768; n <= 32767; ++n) {
    FL48 x = FromShort(n);
    for (int mode = 0; mode < 4; ++mode) {
      ASSERT_EQ(FL48_ConvToShort(&x, mode), n) << n << " mode " << mode;
    }
  }
}

struct RoundingCase {
  double value;
  int nearest, towardZero, down, up;
};

FL48 FromDouble(double v) {
  int exponent;
  double fraction = std::frexp(std::fabs(v), &exponent);  // [0.5, 1)
  uint32_t mant = uint32_t(std::ldexp(fraction, 32));
  return Make(uint16_t((v < 0 ? FL48_SIGN_BIT : 0) | (FL48_EXP_BIAS + exponent)), mant);
}

TEST(FL48ConvToShort, RoundingModes) {
  const int kNone = FL48_NO_SHORT_VALUE;
  const RoundingCase cases[] = {
      {-2.5, -3, -2, -3, -2},        {2.5, 3, 2, 2, 3},
      {0.3, 0, 0, 0, 1},             {-0.3, 0, 0, -1, 0},
      {0.5, 1, 0, 0, 1},             {-0.5, -1, 0, -1, 0},
      {0.25, 0, 0, 0, 1},            {-0.25, 0, 0, -1, 0},
      {1.75, 2, 1, 1, 2},            {-1.75, -2, -1, -2, -1},
      {32767.5, kNone, 32767, 32767, kNone}, {-32767.5, kNone, -32767, kNone, -32767},
      {32767.25, 32767, 32767, 32767, kNone}, {32768, kNone, kNone, kNone, kNone},
      {-32768, kNone, kNone, kNone, kNone},   {1e9, kNone, kNone, kNone, kNone},
      {32766.5, 32767, 32766, 32766, 32767},
  };
  for (const RoundingCase& c : cases) {
    FL48 x = FromDouble(c.value);
    EXPECT_EQ(FL48_ConvToShort(&x, FL48_ROUND_NEAREST), c.nearest) << c.value;
    EXPECT_EQ(FL48_ConvToShort(&x, FL48_ROUND_TOWARD_ZERO), c.towardZero) << c.value;
    EXPECT_EQ(FL48_ConvToShort(&x, FL48_ROUND_DOWN), c.down) << c.value;
    EXPECT_EQ(FL48_ConvToShort(&x, FL48_ROUND_UP), c.up) << c.value;
  }
}

TEST(FL48ConvToShort, SpecialsAndUnnormalisedNumbers) {
  for (uint16_t code : {0, 1, 3, 4, 5, 200}) {
    FL48 x = Make(code, 0);
    for (int mode = 0; mode < 4; ++mode) EXPECT_EQ(FL48_ConvToShort(&x, mode), FL48_NO_SHORT_VALUE) << code;
  }
  FL48 zero = Make(FL48_CODE_UNDERFLOW, 0);
  for (int mode = 0; mode < 4; ++mode) EXPECT_EQ(FL48_ConvToShort(&zero, mode), 0);
  // 256 with 23 leading zeros and a field far above 16 bits still converts.
  FL48 wide = Make(FL48_EXP_BIAS + 40, 0x00000001);
  EXPECT_EQ(FL48_ConvToShort(&wide, FL48_ROUND_NEAREST), 256);
  EXPECT_EQ(FL48_ConvToShort(&wide, FL48_ROUND_UP), 256);
  FL48 tooWide = Make(FL48_EXP_BIAS + 40, 0x00000100);
  EXPECT_EQ(FL48_ConvToShort(&tooWide, FL48_ROUND_TOWARD_ZERO), FL48_NO_SHORT_VALUE);
  // A cancelled difference below 0.5 still rounds away from zero in modes 2 and 3.
  FL48 nothing = Make(FL48_SIGN_BIT | (FL48_EXP_BIAS - 1), 0);
  EXPECT_EQ(FL48_ConvToShort(&nothing, FL48_ROUND_DOWN), -1);
  EXPECT_EQ(FL48_ConvToShort(&nothing, FL48_ROUND_NEAREST), 0);
}

// Independent rounding of m * 2^(e - 32) with e = field - 8192 in 0..15.
int RoundExactly(bool negative, uint32_t m, int e, int mode) {
  uint64_t denominator = uint64_t(1) << (32 - e);
  int64_t whole = int64_t(m / denominator);
  uint64_t rest = m % denominator;
  int64_t magnitude = whole;
  if (mode == 0 && 2 * rest >= denominator) magnitude = whole + 1;
  if (mode == 2 && negative && rest != 0) magnitude = whole + 1;
  if (mode == 3 && !negative && rest != 0) magnitude = whole + 1;
  if (magnitude > 32767) return FL48_NO_SHORT_VALUE;
  return int(negative ? -magnitude : magnitude);
}

TEST(FL48ConvToShort, RandomFractionsRoundLikeExactArithmetic) {
  RandomNumbers random(77);
  for (int i = 0; i < 50000; ++i) {
    FL48 x = random.Normal(FL48_EXP_BIAS, FL48_EXP_BIAS + 15);
    for (int mode = 0; mode < 4; ++mode) {
      int want = RoundExactly(Negative(x), Mant(x), int(Field(x)) - FL48_EXP_BIAS, mode);
      ASSERT_EQ(FL48_ConvToShort(&x, mode), want) << Describe(x) << " mode " << mode;
    }
  }
}

TEST(FL48Extended, WidensWithZeroAndRoundsTheExtraWordBack) {
  FL48Ext wide;
  FL48 x = Make(0xC123, 0x89ABCDEF);
  FL48_ConvToExtended(&wide, &x);
  EXPECT_TRUE(SameWords(wide, FL64{0xC123, {0x89AB, 0xCDEF, 0}}));
  struct Case {
    FL48Ext in;
    FL48 want;
  };
  const Case cases[] = {
      {{0x6001, {0x8000, 0x0001, 0x7FFF}}, Make(0x6001, 0x80000001)},   // below half: dropped
      {{0x6001, {0x8000, 0x0001, 0x8000}}, Make(0x6001, 0x80000002)},   // half rounds up, flag kept
      {{0xA001, {0xFFFF, 0xFFFF, 0x8000}}, Make(0xA002, 0x80000000)},   // carry raises the exponent
      {{uint16_t(0x4000 | FL48_EXP_MAX), {0xFFFF, 0xFFFF, 0xC000}}, Make(FL48_CODE_OVERFLOW, 0x80000000)},
  };
  for (const Case& c : cases) {
    FL48 got;
    FL48_ConvFromExtended(&got, &c.in);
    EXPECT_TRUE(SameWords(got, c.want)) << Describe(c.in) << " -> " << Describe(got);
  }
}

TEST(FL48Normalize, ShiftsOutLeadingZerosAndLowersTheExponent) {
  struct Case {
    FL48 in, want;
    int zeros;
  };
  const Case cases[] = {
      {Make(0xE010, 0x00F00000), Make(0xE008, 0xF0000000), 8},
      {Make(0x2010, 0x80000000), Make(0x2010, 0x80000000), 0},
      {Make(0x0105, 0x00010000), Make(FL48_CODE_UNDERFLOW, 0x80000000), 15},
      {Make(0x2003, 0), Make(0x2003 - 32, 0), 32},
      {Make(FL48_CODE_OVERFLOW, 0x1234), Make(FL48_CODE_OVERFLOW, 0x1234), 0},
      {Make(77, 0x1234), Make(77, 0x1234), 0},
  };
  for (const Case& c : cases) {
    FL48 got;
    EXPECT_EQ(FL48_Normalize(&got, &c.in), c.zeros) << Describe(c.in);
    EXPECT_TRUE(SameWords(got, c.want)) << Describe(c.in) << " -> " << Describe(got);
  }
}

TEST(FL48Split, IntegerAndFraction) {
  struct Case {
    const char* name;
    FL48 in;
    uint16_t integer;
    FL48 rest;
  };
  const Case cases[] = {
      {"70000.25 wraps modulo 65536", Make(0x2011, 0x88B82000), 4464, Make(0x2011, 0x00002000)},
      {"below one", Make(0x2000, 0xC0000000), 0, Make(0x2000, 0xC0000000)},
      {"e = 0 keeps all", Make(0xA000, 0x80000001), 0, Make(0xA000, 0x80000001)},
      {"e = 16 clears the high word", Make(0x2010, 0x1234ABCD), 0x1234, Make(0x2010, 0x0000ABCD)},
      {"e = 32 takes the low word", Make(0x2020, 0x1234ABCD), 0xABCD, Make(0x2020, 0)},
      {"e = 33 is lost", Make(0x2021, 0x80000000), 0, Make(FL48_CODE_LOST, 0x80000000)},
      {"specials stay", Make(FL48_CODE_OVERFLOW, 0), 0, Make(FL48_CODE_OVERFLOW, 0)},
  };
  for (const Case& c : cases) {
    FL48 x = c.in;
    EXPECT_EQ(FL48_Internal_SplitIntFrac(&x), c.integer) << c.name;
    EXPECT_TRUE(SameWords(x, c.rest)) << c.name << ": got " << Describe(x);
  }
}

TEST(FL48Split, ExponentAndMantissaInOneToTwo) {
  struct Case {
    FL48 in;
    int exponent;
    FL48 mantissa;
  };
  const Case cases[] = {
      {Make(0x6004, 0xC0000000), 3, Make(0x6001, 0xC0000000)},        // 12 = 1.5 * 2^3
      {Make(0xA000, 0x80000000), -1, Make(0xA001, 0x80000000)},       // -0.5
      {Make(0x2003, 0x00600000), -7, Make(0x2001, 0xC0000000)},       // unnormalised
  };
  for (const Case& c : cases) {
    FL48 x = c.in;
    EXPECT_EQ(FL48_Internal_SplitExpMant(&x), c.exponent) << Describe(c.in);
    EXPECT_TRUE(SameWords(x, c.mantissa)) << Describe(c.in) << " -> " << Describe(x);
  }
}

}  // namespace
