// Add, Sub, Mul, Div, Sqrt, AddExp, the comparisons and the wide format: the
// significance arithmetic's edge cases, then randomized properties checked
// against exact products and quotients formed here in wide integers.
#include <gtest/gtest.h>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

TEST(FL48Arithmetic, CancellationKeepsItsLeadingZeros) {
  const FL48 five = FromShort(5), zero = Make(FL48_CODE_UNDERFLOW, 0);
  const FL48 nothing = Do(FL48_Sub, five, five);  // exact cancellation: no valid bits left
  EXPECT_TRUE(Field(nothing) == 0x2003u && Mant(nothing) == 0u && FL48_IsEqual(&nothing, &zero) == 1);
  EXPECT_EQ(Do(FL48_Div, five, nothing).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Do(FL48_Sqrt, nothing).expWord, FL48_CODE_UNDERFLOW);
  const FL48 d = Do(FL48_Sub, Make(0x2001, 0x80000010), Make(0x2001, 0x80000000));  // 2^-27
  EXPECT_TRUE(SameWords(d, Make(0x2001, 0x10))) << Describe(d);
  // A quotient keeps the leading zeros of the less precise operand.
  const FL48 q = Do(FL48_Div, FromShort(3), d);
  EXPECT_EQ(FL48_GetValidBits(&q), 5) << Describe(q);
}

TEST(FL48Arithmetic, AlignmentAndCarries) {
  const uint16_t top = FL48_EXP_MAX, overflow = FL48_CODE_OVERFLOW;
  const auto M = Make;
  const struct { const char* name; char op; FL48 a, b, want; } cases[] = {
      {"carry dropping a 1 clears exact", '+', M(0x6001, 0xC0000001), M(0x6001, 0xC0000000), M(0x2002, 0xC0000000)},
      {"carry dropping a 0 keeps exact", '+', M(0x6001, 0xC0000000), M(0x6001, 0xC0000000), M(0x6002, 0xC0000000)},
      {"carry at the top", '+', M(0xE000 | top, 0xC0000000), M(0x8000 | top, 0xC0000000), M(overflow, 0xC0000000)},
      {"carry to the top", '+', M(0x6000 | (top - 1), 0xC0000000), M(0x6000 | (top - 1), 0xC0000000),
       M(0x6000 | top, 0xC0000000)},
      {"no carry at the top", '+', M(0x6000 | top, 0xC0000000), M(0xE000 | top, 0x40000000),
       M(0x6000 | top, 0x80000000)},
      {"above the top, no carry", '-', M(0x6000 | 16200, 0xC0000000), M(0x6000 | 16199, 0x80000000),
       M(0x6000 | 16200, 0x80000000)},
      {"above the top, carry", '+', M(0x2000 | 16383, 0x80000000), M(0x2000 | 16383, 0x80000000), 
       M(overflow, 0x80000000)},
      {"smaller b shifted, exact kept", '+', M(0x6003, 0x80000000), M(0x2001, 0x80000001), M(0x6003, 0xA0000000)},
      {"smaller a takes b's field", '+', M(0xE001, 0x80000000), M(0xA003, 0x80000000), M(0xE003, 0xA0000000)},
      {"b far below a vanishes", '+', M(0x2030, 0x80000000), M(0x2001, 0xFFFFFFFF), M(0x2030, 0x80000000)},
      {"a borrow negates", '-', M(0x2001, 0x80000000), M(0x2002, 0x80000000), M(0xA002, 0x40000000)},
      {"unlike signs add in Sub", '-', M(0x2001, 0x80000000), M(0xA001, 0x80000000), M(0x2002, 0x80000000)},
      {"unlike signs subtract in Add", '+', M(0x2002, 0x80000000), M(0xA001, 0x80000000), M(0x2002, 0x40000000)},
  };
  for (const auto& c : cases) {
    const FL48 s = Do(c.op == '-' ? FL48_Sub : FL48_Add, c.a, c.b);
    EXPECT_TRUE(SameWords(s, c.want)) << c.name << ": got " << Describe(s) << ", want " << Describe(c.want);
  }
}

TEST(FL48Arithmetic, ExponentRangeAndScaling) {
  const FL48 big = Make(0x3E00, 0x80000000), tiny = Make(0x0200, 0x80000000), one = Make(0xE001, 0x80000000);
  EXPECT_EQ(Do(FL48_Mul, big, big).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Do(FL48_Mul, tiny, tiny).expWord, FL48_CODE_UNDERFLOW);
  EXPECT_EQ(Do(FL48_Div, big, tiny).expWord, FL48_CODE_OVERFLOW);
  EXPECT_EQ(Do(FL48_Div, tiny, big).expWord, FL48_CODE_UNDERFLOW);
  const struct { int32_t n; FL48 want; } scalings[] = {{5, Make(0xE006, 0x80000000)},
                  {FL48_EXP_MAX - 0x2001, Make(0xE000 | FL48_EXP_MAX, 0x80000000)},  // the top field is a number
                  {FL48_EXP_MAX - 0x2000, Make(FL48_CODE_OVERFLOW, 0x80000000)},
                  {FL48_EXP_MIN - 0x2001, Make(0xC000 | FL48_EXP_MIN, 0x80000000)},
                  {FL48_EXP_MIN - 0x2002, Make(FL48_CODE_UNDERFLOW, 0x80000000)},
                  {INT32_MIN, Make(FL48_CODE_UNDERFLOW, 0x80000000)},
                  {INT32_MAX, Make(FL48_CODE_OVERFLOW, 0x80000000)}};
  for (const auto& s : scalings) {
    FL48 x = one;
    FL48_AddExp(&x, s.n);
    EXPECT_TRUE(SameWords(x, s.want)) << s.n << ": " << Describe(x);
  }
}

TEST(FL48Arithmetic, WithoutExactRoundUpAProductMayKeepOneLeadingZero) {
  const FL48 one = Make(0x2001, 0x80000000);  // 1 * 1: bit 63 of the full product is 0
  FL_OptionExactRoundUp = 0;
  const FL48 loose = Do(FL48_Mul, one, one);
  FL_OptionExactRoundUp = 1;
  EXPECT_TRUE(SameWords(loose, Make(0x2002, 0x40000000))) << Describe(loose);
  EXPECT_TRUE(SameWords(Do(FL48_Mul, one, one), one));
}

// Operations whose destination is also a source read it before writing.
TEST(FL48Arithmetic, ResultMayBeTheSourceRecord) {
  FL48 x = FromShort(3), y = FromShort(-7), z = Make(0x2010, 0x00F00000);
  FL48_Mul(&x, &x), FL48_Add(&x, &x), FL48_Div(&y, &y), FL48_Normalize(&z, &z);
  EXPECT_TRUE(SameWords(x, FromShort(18)) && SameWords(y, FromShort(1)) && SameWords(z, Make(0x2008, 0xF0000000)))
      << Describe(x) << Describe(y) << Describe(z);
}

TEST(FL48Comparisons, DecideOnTheDifference) {
  const FL48 one = FromShort(1), two = FromShort(2), minusTwo = FromShort(-2), zero = Make(FL48_CODE_UNDERFLOW, 0),
             nan = Make(FL48_CODE_NAN, 0), over = Make(FL48_CODE_OVERFLOW, 0), undef = Make(FL48_CODE_UNDEFINED, 0),
             lost = Make(FL48_CODE_LOST, 0), nothing = Do(FL48_Sub, two, two);
  const FL48 topBig = Make(0x2000 | FL48_EXP_MAX, 0xC0000000), topSmall = Make(0x2000 | FL48_EXP_MAX, 0x80000000);
  // Answers of <, <=, >, >=, ==, != in that order.
  const struct { const char* name; FL48 a, b; const char* answers; } cases[] = {
      {"1 vs 2", one, two, "110001"},           {"2 vs 1", two, one, "001101"},
      {"-2 vs 1", minusTwo, one, "110001"},     {"2 vs 2", two, two, "010110"},
      {"-2 vs -2", minusTwo, minusTwo, "010110"}, {"0 vs 0", zero, zero, "010110"},
      {"0 vs 1", zero, one, "110001"},          {"1 vs 0", one, zero, "001101"},
      {"cancelled vs 0", nothing, zero, "010110"}, {"NaN vs NaN", nan, nan, "000000"},
      {"1 vs NaN", one, nan, "000000"},         {"overflow vs overflow", over, over, "000000"},
      {"1 vs overflow", one, over, "000000"},   {"lost vs 1", lost, one, "000000"},
      {"undefined vs undefined", undef, undef, "000010"}, {"undefined vs 1", undef, one, "000000"},
      {"at the top, larger vs smaller", topBig, topSmall, "001101"},
      {"at the top, -x vs x (difference overflows)", Make(0xA000 | FL48_EXP_MAX, 0xC0000000), topBig, "000000"},
      {"at the top vs 1", topSmall, one, "001101"},
  };
  int32_t (*const compare[])(const FL48*, const FL48*) = {FL48_IsLess,         FL48_IsLessEqual, FL48_IsGreater,
                                                          FL48_IsGreaterEqual, FL48_IsEqual,     FL48_IsNotEqual};
  for (const auto& c : cases) {
    for (int i = 0; i < 6; ++i) EXPECT_EQ(compare[i](&c.a, &c.b), c.answers[i] - '0') << c.name << " operator " << i;
  }
}

// ---- Randomized properties against exact values ----

constexpr int kRounds = 20000;

// Half the factors carry leading zeros: the product keeps those of the less
// precise factor and is the exact product cut to the mantissa.
TEST(FL48RandomArithmetic, ProductIsCommutativeAndTheTruncatedExactProduct) {
  RandomNumbers random(77);
  for (int i = 0; i < kRounds; ++i) {
    FL48 a = random.Normal(), b = random.Normal();
    const int za = random.Coin() ? random.Between(0, 31) : 0, zb = random.Coin() ? random.Between(0, 31) : 0;
    a = Make(a.expWord, Mant(a) >> za);
    b = Make(b.expWord, Mant(b) >> zb);
    const FL48 ab = Do(FL48_Mul, a, b);
    ASSERT_TRUE(SameWords(ab, Do(FL48_Mul, b, a))) << Describe(a) << Describe(b);
    const uint64_t exact = uint64_t(Mant(a)) * Mant(b);
    // ab = M * 2^(f - 8224), exact = P * 2^(fa + fb - 16448): M = P >> t.
    const int t = int(Field(ab)) + 8224 - int(Field(a) + Field(b));
    ASSERT_TRUE(t >= 0 && t <= 32) << t;
    ASSERT_EQ(Mant(ab), uint32_t(exact >> t)) << Describe(a) << " * " << Describe(b);
    ASSERT_EQ(FL48_GetValidBits(&ab), 32 - std::max(za, zb)) << Describe(a) << " * " << Describe(b);
    const bool exactFlag = (a.expWord & b.expWord & FL48_EXACT_BIT) && (exact & ((uint64_t(1) << t) - 1)) == 0;
    ASSERT_EQ((ab.expWord & FL48_EXACT_BIT) != 0, exactFlag) << Describe(ab);
    ASSERT_EQ(Negative(ab), Negative(a) != Negative(b));
  }
}

TEST(FL48RandomArithmetic, QuotientIsTheTruncatedExactQuotient) {
  RandomNumbers random(5);
  for (int i = 0; i < kRounds; ++i) {
    const FL48 a = random.Normal(), b = i % 4 ? random.Normal() : Make(random.Normal().expWord, Mant(a));
    const FL48 q = Do(FL48_Div, a, b);
    // q = M * 2^(fq - 8224) and a / b = (ma / mb) * 2^(fa - fb): M = floor(ma * 2^t / mb).
    const int t = int(Field(a)) - int(Field(b)) - int(Field(q)) + 8224;
    ASSERT_TRUE(t == 31 || t == 32) << t;
    const uint64_t numerator = uint64_t(Mant(a)) << t;
    ASSERT_EQ(Mant(q), uint32_t(numerator / Mant(b))) << Describe(a) << " / " << Describe(b);
    ASSERT_NE(Mant(q) & 0x80000000u, 0u);
    const bool exactFlag = (a.expWord & b.expWord & FL48_EXACT_BIT) && numerator % Mant(b) == 0;
    ASSERT_EQ((q.expWord & FL48_EXACT_BIT) != 0, exactFlag);
    ASSERT_EQ(Negative(q), Negative(a) != Negative(b));
  }
}

// a * 2^32 / b = q + (b - 1) / b: the quotient lies just below an integer,
// where an estimate of the quotient rounds up. b odd, q + 1 = 1 / b modulo
// 2^32 makes a * 2^32 = (q + 1) * b - 1 exactly.
TEST(FL48RandomArithmetic, QuotientJustBelowAnIntegerIsNotRoundedUp) {
  RandomNumbers random(6);
  for (int checked = 0; checked < 2000;) {
    const uint32_t b = random.Word32() | 0x80000001u;
    uint32_t inverse = b;  // Newton steps for the inverse modulo 2^32
    for (int i = 0; i < 5; ++i) inverse *= 2 - b * inverse;
    const uint64_t scaled = uint64_t(inverse) * b - 1;  // (q + 1) * b - 1
    const uint32_t a = uint32_t(scaled >> 32);
    if ((scaled & 0xFFFFFFFFu) != 0 || a < 0x80000000u || a >= b) continue;
    const FL48 q = Do(FL48_Div, Make(0x2001, a), Make(0x2001, b));
    ASSERT_TRUE(Mant(q) == inverse - 1 && Field(q) == 0x2000u) << std::hex << a << " / " << b;
    ++checked;
  }
}

TEST(FL48RandomArithmetic, SquareOfTheRootIsCloseToTheArgument) {
  RandomNumbers random(7);
  for (int i = 0; i < kRounds; ++i) {
    FL48 x = random.Normal(0x0200, 0x3E00);
    x.expWord &= uint16_t(~FL48_SIGN_BIT);
    const FL48 y = Do(FL48_Sqrt, x);
    const uint64_t square = uint64_t(Mant(y)) * Mant(y);  // y^2 = square * 2^(2 fy - 16448)
    const int d = int(Field(x)) + 8224 - 2 * int(Field(y));  // x = (mx << d) in those units
    ASSERT_TRUE(d >= 30 && d <= 34) << d;
    const uint64_t mx = Mant(x), squareInXUnits = square >> d;
    const uint64_t error = squareInXUnits > mx ? squareInXUnits - mx : mx - squareInXUnits;
    ASSERT_LE(error, (mx >> 27) + 1) << Describe(x) << " root " << Describe(y);
  }
}

// ---- The wide format ----

FL64 Make64(uint16_t head, uint64_t m) { return FL64{head, {uint16_t(m >> 32), uint16_t(m >> 16), uint16_t(m)}}; }

// The 96-bit product of two 48-bit mantissas from 16-bit pieces, the way a
// pencil would do it; limbs least significant first.
bool ProductBit(const uint32_t (&limbs)[6], int k) { return k >= 0 && k < 96 && ((limbs[k / 16] >> (k % 16)) & 1); }

TEST(FL48Wide, ProductIsTheTruncatedExactProduct) {
  RandomNumbers random(4242);
  for (int i = 0; i < kRounds; ++i) {
    const int zerosA = random.Between(0, 20), zerosB = random.Between(0, 20);
    const uint64_t a = (((uint64_t(random.Word32()) << 16) | random.Word16()) | 0x800000000000u) >> zerosA;
    const uint64_t b = (((uint64_t(random.Word32()) << 16) | random.Word16()) | 0x800000000000u) >> zerosB;
    uint32_t limbs[6] = {};
    for (int p = 0; p < 3; ++p) {
      uint64_t carry = 0;
      for (int q = 0; q < 3; ++q) {
        const uint64_t t = ((a >> (16 * p)) & 0xFFFF) * ((b >> (16 * q)) & 0xFFFF) + limbs[p + q] + carry;
        limbs[p + q] = uint32_t(t & 0xFFFF);
        carry = t >> 16;
      }
      limbs[p + 3] = uint32_t(carry);
    }
    // Leading bit at 95 - (zerosA + zerosB) or one lower; the result keeps
    // max(zerosA, zerosB) leading zeros.
    int top = 95 - zerosA - zerosB;
    if (!ProductBit(limbs, top)) --top;
    const int from = top + 1 + std::max(zerosA, zerosB) - 48;
    uint64_t want = 0;
    bool exact = true;
    for (int k = 0; k < 48; ++k) want |= uint64_t(ProductBit(limbs, from + k)) << k;
    for (int k = 0; k < from; ++k) exact = exact && !ProductBit(limbs, k);
    FL64 product = Make64(0x6001, a), factor = Make64(0xE001, b);
    FL64_Mul(&product, &factor);
    ASSERT_TRUE(SameWords(product, Make64(uint16_t((exact ? 0xE002 : 0xA002) + from - 48), want)))
        << std::hex << a << " * " << b << " = " << Describe(product);
  }
}

}  // namespace
