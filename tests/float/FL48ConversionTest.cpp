// Conversions between FL48 numbers and 16-bit integers, the extended format,
// normalisation and the integer/fraction split.
#include <gtest/gtest.h>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

// Zero is the underflow code and -32768 no value; only the low 16 bits count.
TEST(FL48ConvToShort, EveryIntegerComesBackInEveryMode) {
  EXPECT_TRUE(SameWords(FromShort(0), Make(FL48_CODE_UNDERFLOW, 0)));
  EXPECT_TRUE(SameWords(FromShort(-32768), Make(FL48_CODE_UNDEFINED, 0)));
  EXPECT_TRUE(SameWords(FromShort(0x10005), FromShort(5)));
  EXPECT_TRUE(SameWords(FromShort(0xFFFF), FromShort(-1)));
  for (int n = -32768; n <= 32767; ++n) {
    const FL48 x = FromShort(n);
    for (int mode = 0; mode < 4; ++mode) ASSERT_EQ(FL48_ConvToShort(&x, mode), n) << n << " mode " << mode;
  }
}

// Independent rounding of m * 2^(e - 32), e = field - 8192.
int RoundExactly(bool negative, uint32_t m, int e, int mode) {
  const uint64_t denominator = uint64_t(1) << (32 - e);
  const uint64_t whole = m / denominator, rest = m % denominator;
  uint64_t magnitude = whole;
  if (mode == FL48_ROUND_NEAREST && 2 * rest >= denominator) magnitude = whole + 1;
  if (((mode == FL48_ROUND_DOWN && negative) || (mode == FL48_ROUND_UP && !negative)) && rest != 0) ++magnitude;
  if (magnitude > 32767) return FL48_NO_SHORT_VALUE;
  return int(negative ? -int64_t(magnitude) : int64_t(magnitude));
}

// From below one half to past the 16-bit range, in every mode.
TEST(FL48ConvToShort, RandomFractionsRoundLikeExactArithmetic) {
  RandomNumbers random(77);
  for (int i = 0; i < 50000; ++i) {
    const FL48 x = random.Normal(FL48_EXP_BIAS - 3, FL48_EXP_BIAS + 16);
    for (int mode = 0; mode < 4; ++mode) {
      const int want = RoundExactly(Negative(x), Mant(x), int(Field(x)) - FL48_EXP_BIAS, mode);
      ASSERT_EQ(FL48_ConvToShort(&x, mode), want) << Describe(x) << " mode " << mode;
    }
  }
}

TEST(FL48ConvToShort, SpecialsAndUnnormalisedNumbers) {
  for (uint16_t code : {0, 1, 3, 4, 5, 200}) {
    const FL48 x = Make(code, 0);
    for (int mode = 0; mode < 4; ++mode) EXPECT_EQ(FL48_ConvToShort(&x, mode), FL48_NO_SHORT_VALUE) << code;
  }
  const FL48 zero = Make(FL48_CODE_UNDERFLOW, 0);
  for (int mode = 0; mode < 4; ++mode) EXPECT_EQ(FL48_ConvToShort(&zero, mode), 0);
  // 256 with 23 leading zeros and a field far above 16 bits still converts.
  const FL48 wide = Make(FL48_EXP_BIAS + 40, 0x00000001), tooWide = Make(FL48_EXP_BIAS + 40, 0x00000100);
  EXPECT_EQ(FL48_ConvToShort(&wide, FL48_ROUND_NEAREST), 256);
  EXPECT_EQ(FL48_ConvToShort(&wide, FL48_ROUND_UP), 256);
  EXPECT_EQ(FL48_ConvToShort(&tooWide, FL48_ROUND_TOWARD_ZERO), FL48_NO_SHORT_VALUE);
  // A cancelled difference below 0.5 still rounds away from zero in modes 2 and 3.
  const FL48 nothing = Make(FL48_SIGN_BIT | (FL48_EXP_BIAS - 1), 0);
  EXPECT_EQ(FL48_ConvToShort(&nothing, FL48_ROUND_DOWN), -1);
  EXPECT_EQ(FL48_ConvToShort(&nothing, FL48_ROUND_NEAREST), 0);
}

TEST(FL48Extended, WidensWithZeroAndRoundsTheExtraWordBack) {
  FL48Ext wide;
  const FL48 x = Make(0xC123, 0x89ABCDEF);
  FL48_ConvToExtended(&wide, &x);
  EXPECT_TRUE(SameWords(wide, FL64{0xC123, {0x89AB, 0xCDEF, 0}}));
  const struct { FL48Ext in; FL48 want; } cases[] = {
      {{0x6001, {0x8000, 0x0001, 0x7FFF}}, Make(0x6001, 0x80000001)},  // below half: dropped
      {{0x6001, {0x8000, 0x0001, 0x8000}}, Make(0x6001, 0x80000002)},  // half rounds up, flag kept
      {{0xA001, {0xFFFF, 0xFFFF, 0x8000}}, Make(0xA002, 0x80000000)},  // carry raises the exponent
      {{uint16_t(0x4000 | FL48_EXP_MAX), {0xFFFF, 0xFFFF, 0xC000}}, Make(FL48_CODE_OVERFLOW, 0x80000000)},
      {{uint16_t(0x6000 | (FL48_EXP_MAX - 1)), {0xFFFF, 0xFFFF, 0x8000}}, Make(0x6000 | FL48_EXP_MAX, 0x80000000)},
  };
  for (const auto& c : cases) {
    FL48 got;
    FL48_ConvFromExtended(&got, &c.in);
    EXPECT_TRUE(SameWords(got, c.want)) << Describe(c.in) << " -> " << Describe(got);
  }
  // The same step after a carry whose shift drops a 1: the result is no longer exact.
  FL48 carried = Make(0x6001, 0xC0000001);
  FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponent(&carried);
  EXPECT_TRUE(SameWords(carried, Make(0x2002, 0xE0000000))) << Describe(carried);
}

TEST(FL48Normalize, ShiftsOutLeadingZerosAndLowersTheExponent) {
  const struct { FL48 in, want; int zeros; } cases[] = {
      {Make(0xE010, 0x00F00000), Make(0xE008, 0xF0000000), 8},
      {Make(0x2010, 0x80000000), Make(0x2010, 0x80000000), 0},
      {Make(0x0105, 0x00010000), Make(FL48_CODE_UNDERFLOW, 0x80000000), 15},
      {Make(0x2003, 0), Make(0x2003 - 32, 0), 32},
      {Make(FL48_CODE_OVERFLOW, 0x1234), Make(FL48_CODE_OVERFLOW, 0x1234), 0},
      {Make(77, 0x1234), Make(77, 0x1234), 0},
  };
  for (const auto& c : cases) {
    FL48 got;
    EXPECT_EQ(FL48_Normalize(&got, &c.in), c.zeros) << Describe(c.in);
    EXPECT_TRUE(SameWords(got, c.want)) << Describe(c.in) << " -> " << Describe(got);
  }
}

TEST(FL48Split, IntegerAndFraction) {
  const struct { const char* name; FL48 in; uint16_t integer; FL48 rest; } cases[] = {
      {"70000.25 wraps modulo 65536", Make(0x2011, 0x88B82000), 4464, Make(0x2011, 0x00002000)},
      {"below one", Make(0x2000, 0xC0000000), 0, Make(0x2000, 0xC0000000)},
      {"e = 0 keeps all", Make(0xA000, 0x80000001), 0, Make(0xA000, 0x80000001)},
      {"e = 16 clears the high word", Make(0x2010, 0x1234ABCD), 0x1234, Make(0x2010, 0x0000ABCD)},
      {"e = 32 takes the low word", Make(0x2020, 0x1234ABCD), 0xABCD, Make(0x2020, 0)},
      {"e = 33 is lost", Make(0x2021, 0x80000000), 0, Make(FL48_CODE_LOST, 0x80000000)},
      {"specials stay", Make(FL48_CODE_OVERFLOW, 0), 0, Make(FL48_CODE_OVERFLOW, 0)},
  };
  for (const auto& c : cases) {
    FL48 x = c.in;
    EXPECT_EQ(FL48_Internal_SplitIntFrac(&x), c.integer) << c.name;
    EXPECT_TRUE(SameWords(x, c.rest)) << c.name << ": got " << Describe(x);
  }
}

}  // namespace
