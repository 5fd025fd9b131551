// The wide format's product against the exact product formed here, and its
// sums and products following the FL48 shapes.
#include <gtest/gtest.h>

#include <vector>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

uint64_t Mant64(const FL64& x) { return (uint64_t(x.mant[0]) << 32) | (uint64_t(x.mant[1]) << 16) | x.mant[2]; }
FL64 Make64(uint16_t head, uint64_t m) {
  return FL64{head, {uint16_t(m >> 32), uint16_t(m >> 16), uint16_t(m)}};
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
