// The mantissa primitives of both formats, where their carries, borrows,
// shift limits and exact-flag handling can go wrong.
#include <gtest/gtest.h>

#include <vector>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

uint64_t Mant64(const FL64& x) { return (uint64_t(x.mant[0]) << 32) | (uint64_t(x.mant[1]) << 16) | x.mant[2]; }
FL64 Make64(uint16_t head, uint64_t m) {
  return FL64{head, {uint16_t(m >> 32), uint16_t(m >> 16), uint16_t(m)}};
}

TEST(FL48Primitives, ShiftsStopAtTheWidthAndLeaveWordZero) {
  const FL48 x = Make(0xC123, 0x89ABCDEF);
  struct Case {
    int n;
    uint32_t right, left;
  };
  const Case cases[] = {{0, 0x89ABCDEF, 0x89ABCDEF}, {4, 0x089ABCDE, 0x9ABCDEF0}, {16, 0x000089AB, 0xCDEF0000},
                        {31, 0x1, 0x80000000},      {32, 0, 0},                   {100, 0, 0},
                        {-1, 0, 0}};
  for (const Case& c : cases) {
    FL48 r = Make(0x1111, 0), l = Make(0x2222, 0);
    FL48_INT_MantissaShiftRight(&r, &x, c.n);
    FL48_INT_MantissaShiftLeft(&l, &x, c.n);
    EXPECT_TRUE(SameWords(r, Make(0x1111, c.right))) << c.n << " " << Describe(r);
    EXPECT_TRUE(SameWords(l, Make(0x2222, c.left))) << c.n << " " << Describe(l);
  }
  const FL64 w = Make64(0xC123, 0x89ABCDEF0123);
  FL64 r = w, l = w;
  FL64_INT_MantissaShiftRight(&r, &w, 20);
  FL64_INT_MantissaShiftLeft(&l, &w, 20);
  EXPECT_EQ(Mant64(r), 0x89ABCDEF0123u >> 20);
  EXPECT_EQ(Mant64(l), (0x89ABCDEF0123u << 20) & 0xFFFFFFFFFFFFu);
  FL64_INT_MantissaShiftLeft(&l, &w, 48);
  EXPECT_TRUE(SameWords(l, Make64(0xC123, 0)));
}

TEST(FL48Primitives, ShiftLeftIntoTheAccumulatorKeepsTheBitsAboveTheWord) {
  const FL48 x = Make(0x2001, 0x89ABCDEF);
  uint32_t acc[2] = {1, 1};
  FL48_INT_MantissaShiftLeftToLsw0Accu(acc, &x, 8);
  EXPECT_EQ(acc[0], 0xABCDEF00u);
  EXPECT_EQ(acc[1], 0x89u);
  FL48_INT_MantissaShiftLeftToLsw0Accu(acc, &x, 40);
  EXPECT_EQ(acc[0], 0u);
  EXPECT_EQ(acc[1], 0xABCDEF00u);
  FL48_INT_MantissaShiftLeftToLsw0Accu(acc, &x, 64);
  EXPECT_EQ(acc[0] | acc[1], 0u);
}

TEST(FL48Primitives, ShiftRightOneAfterACarry) {
  struct Case {
    FL48 in, want;
  };
  const Case cases[] = {
      {Make(0x6001, 0x00000002), Make(0x6002, 0x80000001)},  // a 0 falls out: still exact
      {Make(0x6001, 0x00000003), Make(0x2002, 0x80000001)},  // a 1 falls out: not exact
      {Make(0xE000 | (FL48_EXP_MAX - 1), 0x2), Make(0xE000 | FL48_EXP_MAX, 0x80000001)},
      {Make(0xE000 | FL48_EXP_MAX, 0x2), Make(FL48_CODE_OVERFLOW, 0x80000001)},
  };
  for (const Case& c : cases) {
    FL48 x = c.in;
    FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponent(&x);
    EXPECT_TRUE(SameWords(x, c.want)) << Describe(c.in) << " -> " << Describe(x);
  }
  FL48 x = Make(0x6000 | FL48_EXP_MAX, 0x3);
  int32_t exp = 40000;
  FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(&x, &exp);
  EXPECT_TRUE(SameWords(x, Make(0x2000 | FL48_EXP_MAX, 0x80000001)));
  EXPECT_EQ(exp, 40001);
  FL64 w = Make64(0x6001, 0x3);
  FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponent(&w);
  EXPECT_TRUE(SameWords(w, Make64(0x2002, 0x800000000001))) << Describe(w);
  FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(&w, &exp);
  EXPECT_TRUE(SameWords(w, Make64(0x2002, 0xC00000000000))) << Describe(w);
  EXPECT_EQ(exp, 40002);
}

TEST(FL48Primitives, LeadingZerosAndNormalisationOfIntegers) {
  for (int z = 0; z <= 32; ++z) {
    uint32_t m = z == 32 ? 0 : 0x80000000u >> z;
    FL48 x = Make(0xC000, m | (m >> 1));
    EXPECT_EQ(FL48_INT_MantissaCountZeroMsb(&x), z);
    EXPECT_EQ(FL48_GetValidBits(&x), 32 - z);
  }
  for (int z = 0; z <= 48; ++z) {
    FL64 x = Make64(0xC000, z == 48 ? 0 : 0x800000000000u >> z);
    EXPECT_EQ(FL64_INT_MantissaCountZeroMsb(&x), z);
  }
  FL48 x = Make(0xE777, 1000);
  EXPECT_EQ(FL48_INT_MantissaNormalizeeExponentSet(&x), 22);
  EXPECT_TRUE(SameWords(x, Make(8224 - 22, 1000u << 22))) << Describe(x);
  FL64 w = Make64(0xE777, 1000);
  EXPECT_EQ(FL64_INT_MantissaNormalizeeExponentSet(&w), 38);
  EXPECT_TRUE(SameWords(w, Make64(8240 - 38, uint64_t(1000) << 38))) << Describe(w);
}

TEST(FL48Primitives, NormalizeExToAGivenNumberOfLeadingZeros) {
  struct Case {
    uint32_t in;
    int k, returned;
    uint32_t out;
  };
  const Case cases[] = {{0x00F00000, 4, 4, 0x0F000000}, {0xF0000000, 4, -4, 0x0F000000},
                        {0x0F000000, 4, 0, 0x0F000000}, {0, 3, 29, 0}};
  for (const Case& c : cases) {
    FL48 x = Make(0x2001, c.in);
    EXPECT_EQ(FL48_INT_MantissaNormalizeEx(&x, c.k), c.returned) << std::hex << c.in;
    EXPECT_TRUE(SameWords(x, Make(0x2001, c.out))) << Describe(x);
  }
}

TEST(FL48Primitives, AddSubtractNegateWithCarryAndBorrow) {
  FL48 a = Make(0x2001, 0xFFFF0001), b = Make(0x9999, 0x0001FFFF);
  EXPECT_EQ(FL48_INT_MantissaAdd(&a, &b), 1);
  EXPECT_TRUE(SameWords(a, Make(0x2001, 0x00010000)));
  EXPECT_EQ(FL48_INT_MantissaSub(&a, &b), 1);
  EXPECT_TRUE(SameWords(a, Make(0x2001, 0xFFFF0001)));
  EXPECT_EQ(FL48_INT_MantissaSub(&a, &b), 0);
  EXPECT_TRUE(SameWords(a, Make(0x2001, 0xFFFD0002)));
  FL48 c = Make(0x2001, 0x0000FFFF);
  EXPECT_EQ(FL48_INT_MantissaAddWord(&c, 0xFFFF), 0);
  EXPECT_TRUE(SameWords(c, Make(0x2001, 0x0001FFFE)));
  FL48 d = Make(0x2001, 0xFFFFFFFF);
  EXPECT_EQ(FL48_INT_MantissaAddWord(&d, 1), 1);
  EXPECT_EQ(Mant(d), 0u);
  FL48 e = Make(0x6001, 0x00000001);
  FL48_INT_MantissaInvertExponentInvert(&e);
  EXPECT_TRUE(SameWords(e, Make(0xE001, 0xFFFFFFFF)));
  FL48 f = Make(0x2001, 0x00010000);  // low word 0: the +1 carries into the high word
  FL48_INT_MantissaInvertExponentInvert(&f);
  EXPECT_TRUE(SameWords(f, Make(0xA001, 0xFFFF0000)));

  FL64 g = Make64(0x2001, 0xFFFFFFFFFFFF), h = Make64(0, 2);
  EXPECT_EQ(FL64_INT_MantissaAdd(&g, &h), 1);
  EXPECT_EQ(Mant64(g), 1u);
  EXPECT_EQ(FL64_INT_MantissaSub(&g, &h), 1);
  EXPECT_EQ(Mant64(g), 0xFFFFFFFFFFFFu);
  EXPECT_EQ(FL64_INT_MantissaAddWord(&g, 1), 1);
  EXPECT_EQ(Mant64(g), 0u);
  FL64_INT_MantissaInvertExponentInvert(&h);
  EXPECT_TRUE(SameWords(h, Make64(0x8000, 0xFFFFFFFFFFFE)));
}

TEST(FL48Primitives, TimesTenReportsOverflowOfTheMantissa) {
  FL48 x = Make(0x2001, 0x19999999);
  EXPECT_EQ(FL48_INT_MantissaMul10(&x), 0);
  EXPECT_EQ(Mant(x), 0xFFFFFFFAu);
  EXPECT_EQ(FL48_INT_MantissaMul10(&x), 1);
  EXPECT_EQ(Mant(x), uint32_t(0xFFFFFFFAull * 10));
  FL64 w = Make64(0x2001, 0x199999999999);
  EXPECT_EQ(FL64_INT_MantissaMul10(&w), 0);
  EXPECT_EQ(Mant64(w), 0xFFFFFFFFFFFAu);
  EXPECT_EQ(FL64_INT_MantissaMul10(&w), 1);
  EXPECT_EQ(Mant64(w), (0xFFFFFFFFFFFAull * 10) & 0xFFFFFFFFFFFFull);
}

TEST(FL48Primitives, CompareAndClearLookOnlyAtTheMantissa) {
  FL48 a = Make(0x2001, 0x12345678), b = Make(0x9999, 0x12345678), c = Make(0x2001, 0x12345679);
  EXPECT_EQ(FL48_INT_MantissaCompareEqual(&a, &b), 1);
  EXPECT_EQ(FL48_INT_MantissaCompareEqual(&a, &c), 0);
  FL48_INT_MantissaClear(&a);
  EXPECT_TRUE(SameWords(a, Make(0x2001, 0)));
  FL64 w = Make64(0x2001, 0x123456789ABC);
  FL64_INT_MantissaClear(&w);
  EXPECT_TRUE(SameWords(w, Make64(0x2001, 0)));
}

// The 96-bit product of two 48-bit mantissas from 16-bit pieces, the way a
// pencil would do it; limbs least significant first.
std::vector<uint32_t> SchoolProduct(uint64_t a, uint64_t b) {
  std::vector<uint32_t> limbs(6, 0);
  for (int i = 0; i < 3; ++i) {
    uint64_t carry = 0;
    for (int j = 0; j < 3; ++j) {
      uint64_t t = uint64_t((a >> (16 * i)) & 0xFFFF) * ((b >> (16 * j)) & 0xFFFF) + limbs[i + j] + carry;
      limbs[i + j] = uint32_t(t & 0xFFFF);
      carry = t >> 16;
    }
    limbs[i + 3] = uint32_t(carry);
  }
  return limbs;
}
// Bits [from, from + 48) of the product.
uint64_t ProductBits(const std::vector<uint32_t>& limbs, int from) {
  uint64_t bits = 0;
  for (int i = 0; i < 48; ++i) {
    int k = from + i;
    if (k >= 0 && k < 96 && ((limbs[k / 16] >> (k % 16)) & 1)) bits |= uint64_t(1) << i;
  }
  return bits;
}

bool AnyBitBelow(const std::vector<uint32_t>& limbs, int end) {
  for (int k = 0; k < end; ++k) {
    if ((limbs[k / 16] >> (k % 16)) & 1) return true;
  }
  return false;
}

TEST(FL48Primitives, Fl64ProductIsTheTruncatedExactProduct) {
  RandomNumbers random(4242);
  for (int i = 0; i < 20000; ++i) {
    int zerosA = random.Between(0, 20), zerosB = random.Between(0, 20);
    uint64_t a = ((uint64_t(random.Word32()) << 16) | random.Word16()) >> zerosA | (0x800000000000u >> zerosA);
    uint64_t b = ((uint64_t(random.Word32()) << 16) | random.Word16()) >> zerosB | (0x800000000000u >> zerosB);
    FL64 x = Make64(0x2001, a), y = Make64(0x2001, b);
    int32_t exp = 0;
    int exact = FL64_INT_MantissaMul(&x, &y, &exp);
    std::vector<uint32_t> limbs = SchoolProduct(a, b);
    // Leading bit of the product at 95 - (zerosA + zerosB) or one lower; the
    // result keeps max(zerosA, zerosB) leading zeros.
    int top = 95 - zerosA - zerosB;
    if (((limbs[top / 16] >> (top % 16)) & 1) == 0) --top;
    int keep = std::max(zerosA, zerosB);
    int from = top + 1 + keep - 48;
    ASSERT_EQ(Mant64(x), ProductBits(limbs, from)) << std::hex << a << " * " << b;
    ASSERT_EQ(exp, -(95 - top - keep));
    ASSERT_EQ(exact, !AnyBitBelow(limbs, from)) << std::hex << a << " * " << b;
    // The whole operation: same mantissa, the exponent counter in word 0.
    FL64 product = Make64(0x6001, a), factor = Make64(0xE001, b);
    FL64_Mul(&product, &factor);
    ASSERT_TRUE(SameWords(product, Make64(uint16_t((exact ? 0xE002 : 0xA002) + exp), Mant64(x))))
        << Describe(product);
  }
}

TEST(FL48Primitives, Fl64AddAndMulFollowTheFl48Shapes) {
  FL64 a = Make64(0x6001, 0xC00000000001), b = Make64(0x6001, 0xC00000000000);
  FL64_Add(&a, &b);
  EXPECT_TRUE(SameWords(a, Make64(0x2002, 0xC00000000000))) << Describe(a);
  FL64 c = Make64(0x6002, 0xC00000000000), d = Make64(0xE003, 0x800000000000);  // 3 * -4
  FL64_Mul(&c, &d);
  EXPECT_TRUE(SameWords(c, Make64(0xE004, 0xC00000000000))) << Describe(c);
  FL64 e = Make64(0x2001, 0x800000000000), f = Make64(0xA002, 0x800000000000);  // 1 - 2 with Add
  FL64_Add(&e, &f);
  EXPECT_TRUE(SameWords(e, Make64(0xA002, 0x400000000000))) << Describe(e);
  FL64 big = Make64(0x3E00, 0x800000000000);
  FL64_Mul(&big, &big);
  EXPECT_EQ(big.expWord, FL48_CODE_OVERFLOW);
}

}  // namespace
