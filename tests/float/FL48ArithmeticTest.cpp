// Add, Sub, Mul, Div, Sqrt, AddExp and the comparisons on numbers: the
// significance arithmetic's edge cases, then randomized properties checked
// against exact products, sums and quotients formed here in wide integers.
#include <gtest/gtest.h>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

FL48 Sum(FL48 a, const FL48& b) {
  FL48_Add(&a, &b);
  return a;
}
FL48 Difference(FL48 a, const FL48& b) {
  FL48_Sub(&a, &b);
  return a;
}
FL48 Product(FL48 a, const FL48& b) {
  FL48_Mul(&a, &b);
  return a;
}
FL48 Quotient(FL48 a, const FL48& b) {
  FL48_Div(&a, &b);
  return a;
}
FL48 Root(FL48 a) {
  FL48_Sqrt(&a);
  return a;
}

TEST(FL48Arithmetic, ExactCancellationLeavesANumberWithNoValidBits) {
  FL48 five = FromShort(5);
  FL48 d = Difference(five, five);
  EXPECT_EQ(Field(d), 0x2003u);
  EXPECT_EQ(Mant(d), 0u);
  EXPECT_EQ(FL48_GetValidBits(&d), 0);
  FL48 zero;
  FL48_SetUnderflow(&zero);
  EXPECT_EQ(FL48_IsEqual(&d, &zero), 1);
  EXPECT_EQ(FL48_IsNotEqual(&d, &zero), 0);
}

TEST(FL48Arithmetic, NearCancellationKeepsItsLeadingZeros) {
  FL48 a = Make(0x2001, 0x80000010), b = Make(0x2001, 0x80000000);  // 1 + 2^-27 and 1
  FL48 d = Difference(a, b);
  EXPECT_TRUE(SameWords(d, Make(0x2001, 0x10))) << Describe(d);
  EXPECT_EQ(FL48_GetValidBits(&d), 5);
  // A product keeps the leading zeros of the less precise factor.
  FL48 p = Product(d, FromShort(3));
  EXPECT_EQ(FL48_GetValidBits(&p), 5) << Describe(p);
  EXPECT_DOUBLE_EQ(ToDouble(p), 3 * ToDouble(d));
  FL48 q = Quotient(FromShort(3), d);
  EXPECT_EQ(FL48_GetValidBits(&q), 5) << Describe(q);
  EXPECT_DOUBLE_EQ(ToDouble(q), 3 / ToDouble(d));
}

TEST(FL48Arithmetic, AlignmentAndCarries) {
  struct Case {
    const char* name;
    bool subtract;
    FL48 a, b, want;
  };
  const Case cases[] = {
      {"carry raises the exponent, a 1 falling out clears exact", false, Make(0x6001, 0xC0000001),
       Make(0x6001, 0xC0000000), Make(0x2002, 0xC0000000)},
      {"carry dropping a 0 keeps exact", false, Make(0x6001, 0xC0000000), Make(0x6001, 0xC0000000),
       Make(0x6002, 0xC0000000)},
      {"carry at the top exponent overflows", false, Make(0xE000 | FL48_EXP_MAX, 0xC0000000),
       Make(0x8000 | FL48_EXP_MAX, 0xC0000000), Make(FL48_CODE_OVERFLOW, 0xC0000000)},
      {"carry just below the top reaches it", false, Make(0x6000 | (FL48_EXP_MAX - 1), 0xC0000000),
       Make(0x6000 | (FL48_EXP_MAX - 1), 0xC0000000), Make(0x6000 | FL48_EXP_MAX, 0xC0000000)},
      {"no carry at the top stays there", false, Make(0x6000 | FL48_EXP_MAX, 0xC0000000),
       Make(0xE000 | FL48_EXP_MAX, 0x40000000), Make(0x6000 | FL48_EXP_MAX, 0x80000000)},
      {"a field above the top without a carry is kept", true, Make(0x6000 | 16200, 0xC0000000),
       Make(0x6000 | 16199, 0x80000000), Make(0x6000 | 16200, 0x80000000)},
      {"a field above the top with a carry overflows", false, Make(0x2000 | 16383, 0x80000000),
       Make(0x2000 | 16383, 0x80000000), Make(FL48_CODE_OVERFLOW, 0x80000000)},
      {"smaller b is shifted without touching exact", false, Make(0x6003, 0x80000000), Make(0x2001, 0x80000001),
       Make(0x6003, 0xA0000000)},
      {"smaller a takes b's exponent, keeps its sign and flag", false, Make(0xE001, 0x80000000),
       Make(0xA003, 0x80000000), Make(0xE003, 0xA0000000)},
      {"b far below a vanishes", false, Make(0x2030, 0x80000000), Make(0x2001, 0xFFFFFFFF),
       Make(0x2030, 0x80000000)},
      {"a borrow negates the mantissa and the sign", true, Make(0x2001, 0x80000000), Make(0x2002, 0x80000000),
       Make(0xA002, 0x40000000)},
      {"unlike signs add in Sub", true, Make(0x2001, 0x80000000), Make(0xA001, 0x80000000),
       Make(0x2002, 0x80000000)},
      {"unlike signs subtract in Add", false, Make(0x2002, 0x80000000), Make(0xA001, 0x80000000),
       Make(0x2002, 0x40000000)},
  };
  for (const Case& c : cases) {
    FL48 s = c.subtract ? Difference(c.a, c.b) : Sum(c.a, c.b);
    EXPECT_TRUE(SameWords(s, c.want)) << c.name << ": got " << Describe(s) << ", want " << Describe(c.want);
  }
}

TEST(FL48Arithmetic, ProductAndQuotientExponentRange) {
  FL48 big = Make(0x3E00, 0x80000000), tiny = Make(0x0200, 0x80000000);
  EXPECT_EQ(Product(big, big).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Product(tiny, tiny).expWord, FL48_CODE_UNDERFLOW);
  EXPECT_EQ(Quotient(big, tiny).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Quotient(tiny, big).expWord, FL48_CODE_UNDERFLOW);
}

TEST(FL48Arithmetic, SignAndExactFlagOfProductsAndQuotients) {
  FL48 minusThree = FromShort(-3), four = FromShort(4), inexactFour = Make(0x2003, 0x80000000);
  FL48 p = Product(minusThree, four);
  EXPECT_TRUE(SameWords(p, Make(0xE004, 0xC0000000))) << Describe(p);
  EXPECT_TRUE(SameWords(Product(minusThree, inexactFour), Make(0xA004, 0xC0000000)));
  FL48 q = Quotient(FromShort(-12), minusThree);
  EXPECT_TRUE(SameWords(q, Make(0x6003, 0x80000000))) << Describe(q);
  FL48 third = Quotient(FromShort(1), FromShort(3));  // a remainder is left: not exact
  EXPECT_TRUE(SameWords(third, Make(0x1FFF, 0xAAAAAAAA))) << Describe(third);
}

TEST(FL48Arithmetic, DivisionByACancelledDifferenceOverflows) {
  FL48 five = FromShort(5);
  FL48 nothing = Difference(five, five);
  EXPECT_EQ(Quotient(five, nothing).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Root(nothing).expWord, FL48_CODE_UNDERFLOW);
}

TEST(FL48Arithmetic, WithoutExactRoundUpAProductMayKeepOneLeadingZero) {
  FL48 a = Make(0x2001, 0x80000000), b = Make(0x2001, 0x80000000);  // 1 * 1: product bit 63 is 0
  FL_OptionExactRoundUp = 0;
  FL48 loose = Product(a, b);
  FL_OptionExactRoundUp = 1;
  FL48 tight = Product(a, b);
  EXPECT_TRUE(SameWords(loose, Make(0x2002, 0x40000000))) << Describe(loose);
  EXPECT_TRUE(SameWords(tight, Make(0x2001, 0x80000000))) << Describe(tight);
}

TEST(FL48Arithmetic, AddExpScalesAndSaturates) {
  FL48 x = Make(0xE001, 0x80000000);
  FL48_AddExp(&x, 5);
  EXPECT_TRUE(SameWords(x, Make(0xE006, 0x80000000)));
  FL48_AddExp(&x, FL48_EXP_MAX - 0x2006);
  EXPECT_TRUE(SameWords(x, Make(0xE000 | FL48_EXP_MAX, 0x80000000))) << "the top field itself is a number";
  FL48_AddExp(&x, 1);
  EXPECT_EQ(x.expWord, FL48_CODE_OVERFLOW);
  FL48 y = Make(0x2001, 0x80000000);
  FL48_AddExp(&y, INT32_MIN);
  EXPECT_EQ(y.expWord, FL48_CODE_UNDERFLOW);
  FL48 z = Make(0x2001, 0x80000000);
  FL48_AddExp(&z, INT32_MAX);
  EXPECT_EQ(z.expWord, FL48_CODE_OVERFLOW);
}

TEST(FL48Arithmetic, SquareRootsOfPerfectSquares) {
  for (int n = 1; n <= 181; ++n) {
    FL48 r = Root(FromShort(n * n));
    EXPECT_NEAR(ToDouble(r), n, n * 1e-9) << n << " " << Describe(r);
    EXPECT_EQ(FL48_ConvToShort(&r, FL48_ROUND_NEAREST), n);
  }
}

TEST(FL48Comparisons, DecideOnTheDifference) {
  FL48 one = FromShort(1), two = FromShort(2), minusTwo = FromShort(-2), zero, nan, over, undef, lost, nothing;
  FL48_SetUnderflow(&zero);
  FL48_SetNan(&nan);
  FL48_SetOverflow(&over);
  FL48_SetUndefined(&undef);
  FL48_SetLost(&lost);
  nothing = Difference(two, two);
  struct Case {
    const char* name;
    FL48 a, b;
    int less, lessEqual, greater, greaterEqual, equal, notEqual;
  };
  const Case cases[] = {
      {"1 vs 2", one, two, 1, 1, 0, 0, 0, 1},
      {"2 vs 1", two, one, 0, 0, 1, 1, 0, 1},
      {"-2 vs 1", minusTwo, one, 1, 1, 0, 0, 0, 1},
      {"2 vs 2", two, two, 0, 1, 0, 1, 1, 0},
      {"-2 vs -2", minusTwo, minusTwo, 0, 1, 0, 1, 1, 0},
      {"0 vs 0", zero, zero, 0, 1, 0, 1, 1, 0},
      {"0 vs 1 (difference is -1)", zero, one, 1, 1, 0, 0, 0, 1},
      {"1 vs 0", one, zero, 0, 0, 1, 1, 0, 1},
      {"cancelled difference vs 0", nothing, zero, 0, 1, 0, 1, 1, 0},
      {"NaN vs NaN", nan, nan, 0, 0, 0, 0, 0, 0},
      {"1 vs NaN", one, nan, 0, 0, 0, 0, 0, 0},
      {"overflow vs overflow", over, over, 0, 0, 0, 0, 0, 0},
      {"1 vs overflow", one, over, 0, 0, 0, 0, 0, 0},
      {"lost vs 1", lost, one, 0, 0, 0, 0, 0, 0},
      {"undefined vs undefined", undef, undef, 0, 0, 0, 0, 1, 0},
      {"undefined vs 1", undef, one, 0, 0, 0, 0, 0, 0},
      {"at the top, larger vs smaller", Make(0x2000 | FL48_EXP_MAX, 0xC0000000),
       Make(0x2000 | FL48_EXP_MAX, 0x80000000), 0, 0, 1, 1, 0, 1},
      {"at the top, -x vs x (the difference overflows)", Make(0xA000 | FL48_EXP_MAX, 0xC0000000),
       Make(0x2000 | FL48_EXP_MAX, 0xC0000000), 0, 0, 0, 0, 0, 0},
      {"at the top vs 1", Make(0x2000 | FL48_EXP_MAX, 0x80000000), one, 0, 0, 1, 1, 0, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FL48_IsLess(&c.a, &c.b), c.less) << c.name;
    EXPECT_EQ(FL48_IsLessEqual(&c.a, &c.b), c.lessEqual) << c.name;
    EXPECT_EQ(FL48_IsGreater(&c.a, &c.b), c.greater) << c.name;
    EXPECT_EQ(FL48_IsGreaterEqual(&c.a, &c.b), c.greaterEqual) << c.name;
    EXPECT_EQ(FL48_IsEqual(&c.a, &c.b), c.equal) << c.name;
    EXPECT_EQ(FL48_IsNotEqual(&c.a, &c.b), c.notEqual) << c.name;
  }
}

// ---- Randomized properties against exact values ----

class FL48RandomArithmetic : public ::testing::Test {
 protected:
  RandomNumbers random_{20261121};
  static constexpr int kRounds = 20000;
};

// value * 2^(field - 8224) as an integer scaled to a common exponent
uint64_t Scaled(const FL48& x, unsigned baseField) { return uint64_t(Mant(x)) << (Field(x) - baseField); }

TEST_F(FL48RandomArithmetic, AddIsCommutativeAndWithinTwoUnitsOfTheExactSum) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 a = random_.Normal(0x2000, 0x2000 + 30), b = random_.Normal(0x2000, 0x2000 + 30);
    b.expWord = uint16_t((b.expWord & ~FL48_EXACT_BIT) | (a.expWord & FL48_EXACT_BIT));
    FL48 ab = Sum(a, b), ba = Sum(b, a);
    ASSERT_EQ(ab.expWord & ~FL48_SIGN_BIT, ba.expWord & ~FL48_SIGN_BIT) << Describe(a) << Describe(b);
    ASSERT_EQ(Mant(ab), Mant(ba)) << Describe(a) << Describe(b);
    unsigned base = std::min(Field(a), Field(b));
    int64_t exact = (Negative(a) ? -1 : 1) * int64_t(Scaled(a, base)) + (Negative(b) ? -1 : 1) * int64_t(Scaled(b, base));
    int64_t got = (Negative(ab) ? -1 : 1) * int64_t(Scaled(ab, base));
    int64_t unit = int64_t(1) << (Field(ab) - base);
    ASSERT_LT(std::llabs(got - exact), 2 * unit) << Describe(a) << " + " << Describe(b) << " = " << Describe(ab);
  }
}

TEST_F(FL48RandomArithmetic, ProductIsCommutativeAndTheTruncatedExactProduct) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 a = random_.Normal(), b = random_.Normal();
    FL48 ab = Product(a, b), ba = Product(b, a);
    ASSERT_TRUE(SameWords(ab, ba)) << Describe(a) << Describe(b);
    uint64_t exact = uint64_t(Mant(a)) * Mant(b);
    // result = M * 2^(f - 8224), exact = P * 2^(fa + fb - 16448): M = P >> t.
    int t = int(Field(ab)) + 8224 - int(Field(a) + Field(b));
    ASSERT_TRUE(t == 31 || t == 32) << t;
    ASSERT_EQ(Mant(ab), uint32_t(exact >> t)) << Describe(a) << " * " << Describe(b);
    ASSERT_NE(Mant(ab) & 0x80000000u, 0u);
    bool exactFlag = (a.expWord & b.expWord & FL48_EXACT_BIT) && (exact & ((uint64_t(1) << t) - 1)) == 0;
    ASSERT_EQ((ab.expWord & FL48_EXACT_BIT) != 0, exactFlag) << Describe(ab);
    ASSERT_EQ(Negative(ab), Negative(a) != Negative(b));
  }
}

// With leading zeros the product keeps those of the less precise factor and
// is still the exact product cut to the mantissa.
TEST_F(FL48RandomArithmetic, ProductOfUnnormalisedFactorsKeepsTheirSignificance) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 a = random_.Normal(), b = random_.Normal();
    int za = random_.Between(0, 31), zb = random_.Between(0, 31);
    a = Make(a.expWord, Mant(a) >> za);
    b = Make(b.expWord, Mant(b) >> zb);
    FL48 ab = Product(a, b);
    uint64_t exact = uint64_t(Mant(a)) * Mant(b);
    int t = int(Field(ab)) + 8224 - int(Field(a) + Field(b));
    ASSERT_TRUE(t >= 0 && t <= 32) << t;
    ASSERT_EQ(Mant(ab), uint32_t(exact >> t)) << Describe(a) << " * " << Describe(b);
    ASSERT_EQ(FL48_GetValidBits(&ab), 32 - std::max(za, zb)) << Describe(a) << " * " << Describe(b);
  }
}

TEST_F(FL48RandomArithmetic, TimesOneAndOverItselfAreIdentities) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 x = random_.Normal(0x0200, 0x3E00);
    FL48 timesOne = Product(x, FromShort(1));
    ASSERT_TRUE(SameWords(timesOne, x)) << Describe(x) << " -> " << Describe(timesOne);
    FL48 ratio = Quotient(x, x);
    ASSERT_TRUE(SameWords(ratio, Make(0x2001 | (x.expWord & FL48_EXACT_BIT), 0x80000000))) << Describe(ratio);
  }
}

TEST_F(FL48RandomArithmetic, QuotientIsTheTruncatedExactQuotient) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 a = random_.Normal(), b = random_.Normal();
    FL48 q = Quotient(a, b);
    // q = M * 2^(fq - 8224) and a / b = (ma / mb) * 2^(fa - fb): M = floor(ma * 2^t / mb).
    int t = int(Field(a)) - int(Field(b)) - int(Field(q)) + 8224;
    ASSERT_TRUE(t == 31 || t == 32) << t;
    uint64_t numerator = uint64_t(Mant(a)) << t;
    ASSERT_EQ(Mant(q), uint32_t(numerator / Mant(b))) << Describe(a) << " / " << Describe(b);
    ASSERT_NE(Mant(q) & 0x80000000u, 0u);
    bool exactFlag = (a.expWord & b.expWord & FL48_EXACT_BIT) && numerator % Mant(b) == 0;
    ASSERT_EQ((q.expWord & FL48_EXACT_BIT) != 0, exactFlag);
  }
}

// a * 2^32 / b = q + (b - 1) / b: the quotient lies just below an integer,
// where an estimate of the quotient rounds up. b odd, q + 1 = 1 / b modulo
// 2^32 makes a * 2^32 = (q + 1) * b - 1 exactly.
TEST_F(FL48RandomArithmetic, QuotientJustBelowAnIntegerIsNotRoundedUp) {
  int checked = 0;
  while (checked < 2000) {
    uint32_t b = random_.Word32() | 0x80000001u;
    uint32_t inverse = b;  // Newton steps for the inverse modulo 2^32
    for (int i = 0; i < 5; ++i) inverse *= 2 - b * inverse;
    uint64_t scaled = uint64_t(inverse) * b - 1;  // (q + 1) * b - 1
    uint32_t a = uint32_t(scaled >> 32);
    if ((scaled & 0xFFFFFFFFu) != 0 || a < 0x80000000u || a >= b) continue;
    FL48 q = Quotient(Make(0x2001, a), Make(0x2001, b));
    ASSERT_EQ(Mant(q), inverse - 1) << std::hex << a << " / " << b;
    ASSERT_EQ(Field(q), 0x2000u);
    ++checked;
  }
}

TEST_F(FL48RandomArithmetic, SquareOfTheRootIsCloseToTheArgument) {
  for (int i = 0; i < kRounds; ++i) {
    FL48 x = random_.Normal(0x0200, 0x3E00);
    x.expWord &= uint16_t(~FL48_SIGN_BIT);
    FL48 y = Root(x);
    ASSERT_GE(Field(y), 256u) << Describe(x);
    uint64_t square = uint64_t(Mant(y)) * Mant(y);  // y^2 = square * 2^(2 fy - 16448)
    int d = int(Field(x)) + 8224 - 2 * int(Field(y));  // x = (mx << d) in those units
    ASSERT_TRUE(d >= 30 && d <= 34) << d;
    uint64_t squareInXUnits = square >> d;
    uint64_t mx = Mant(x);
    uint64_t error = squareInXUnits > mx ? squareInXUnits - mx : mx - squareInXUnits;
    ASSERT_LE(error, (mx >> 27) + 1) << Describe(x) << " root " << Describe(y);
  }
}

}  // namespace
