// Picture formats and the fixed-width text of FL48 numbers. Expected digits of
// the sweeps come from an exact decimal expansion of each record's value.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "BigNat.h"
#include "FL48LongDouble.h"
#include "FL48TestSupport.h"
#include "kavri/FL48.h"
#include "kavri/FL48Text.h"

namespace {

using fl48ld::Nearest;
using kavritest::BigNat;

using fl48test::Make;
using fl48test::Mant;

// ---- Exact decimal expansion ----

// |x| = num / den exactly, both scaled by 10^q.
struct Fraction {
  BigNat num, den;
};

Fraction ScaledMagnitude(const FL48& x, int q) {
  const int e = int(x.expWord & FL48_EXP_MASK) - FL48_EXP_BIAS - 32;
  Fraction f{BigNat(Mant(x)), BigNat(1)};
  f.num.ShiftLeft(std::max(e, 0));
  f.den.ShiftLeft(std::max(-e, 0));
  if (q >= 0) {
    for (int i = 0; i < q; ++i) f.num.MulSmall(10);
  } else {
    for (int i = 0; i < -q; ++i) f.den.MulSmall(10);
  }
  return f;
}

// |x| * 10^q rounded half away from zero (result below 2^62).
uint64_t RoundedScaled(const FL48& x, int q) {
  Fraction f = ScaledMagnitude(x, q);
  uint64_t n = BigNat::DivideSmallQuotient(f.num, f.den);
  f.num.ShiftLeft(1);
  return Compare(f.num, f.den) >= 0 ? n + 1 : n;
}

// floor(log10 |x|), exactly.
int DecimalExponent(const FL48& x) {
  const int e = int(x.expWord & FL48_EXP_MASK) - FL48_EXP_BIAS;
  int d = int(std::floor((e - 1) * 0.30102999566398120));  // at most one too small
  Fraction f = ScaledMagnitude(x, -(d + 1));
  if (Compare(f.num, f.den) >= 0) ++d;
  return d;
}

struct Digits {
  std::string text;  // exactly n digits
  int exponent;      // weight 10^exponent of the first digit
};

// The first n significant digits of |x|, correctly rounded.
Digits ExactDigits(const FL48& x, int n) {
  int d = DecimalExponent(x);
  uint64_t v = RoundedScaled(x, n - 1 - d);
  if (std::to_string(v).size() > size_t(n)) {
    v /= 10;
    ++d;
  }
  return {std::to_string(v), d};
}


std::string Text(const FL48& x, const char* format) {
  char out[300];
  FL48_ConvToText(out, &x, FL_ParseFormat(format));
  return out;
}

// ---- Format grammar ----

struct FormatCase {
  std::string format;
  uint32_t kind;
  int digits;
  int width;
  bool comma;
  bool significance;
};

TEST(FL48FormatParse, EveryPictureGivesItsFormatWord) {
  const std::string many(300, '#');
  const FormatCase cases[] = {
      {"###.##", FL_KIND_FIXED, 2, 6, false, false},
      {"^###", FL_KIND_INTEGER, 0, 4, false, true},
      {"#.##^^##", 9, 2, 8, false, false},
      {"#.##^", FL_KIND_ENGINEERING, 2, 5, false, false},
      {"##,#", FL_KIND_FIXED, 1, 4, true, false},
      {"#######", FL_KIND_INTEGER, 0, 7, false, false},
      {"###.", FL_KIND_FIXED, 0, 4, false, false},
      {"#^", FL_KIND_ENGINEERING, 0, 3, false, false},
      {"#^#", 4, 0, 4, false, false},
      {"#.###^####", 7, 3, 10, false, false},
      {"#.###^#######", 7, 3, 10, false, false},  // exponent digits stop at 4
      {"#^^", 8, 0, 5, false, false},
      {"#^^#", 8, 0, 5, false, false},
      {"#^^###", 10, 0, 7, false, false},
      {"##,##^^####", 11, 3, 11, true, false},
      {"^.##", FL_KIND_FIXED, 2, 4, false, true},
      {"^^##", 5, 0, 5, false, true},  // the second '^' starts the exponent
      {"^", FL_KIND_INTEGER, 0, 1, false, true},
      {"", FL_KIND_INTEGER, 0, 0, false, false},
      {"no digits", FL_KIND_INTEGER, 0, 0, false, false},
      {"Speed: ##.# km/h", FL_KIND_FIXED, 1, 4, false, false},
      {",#", FL_KIND_INTEGER, 0, 1, false, false},  // text before the first '#' is skipped
      {"##.##.##", FL_KIND_FIXED, 2, 5, false, false},
      {"#.#^^^", 8, 1, 6, false, false},
      {many, FL_KIND_INTEGER, 0, 255, false, false},
      {std::string(200, '#') + "." + std::string(100, '#'), FL_KIND_FIXED, 100, 255, false, false},
      {std::string(200, '#') + "." + std::string(100, '#') + "^^##", 9, 255, 255, false, false},
      {"#." + many, FL_KIND_FIXED, 255, 255, false, false},
  };
  for (const FormatCase& c : cases) {
    const uint32_t word = FL_ParseFormat(c.format.c_str());
    SCOPED_TRACE("format \"" + c.format.substr(0, 40) + "\"");
    EXPECT_EQ(word & FL_FORMAT_KIND_MASK, c.kind);
    EXPECT_EQ(int((word >> FL_FORMAT_DIGITS_SHIFT) & 0xFF), c.digits);
    EXPECT_EQ(int((word >> FL_FORMAT_WIDTH_SHIFT) & 0xFF), c.width);
    EXPECT_EQ((word & FL_FORMAT_COMMA) != 0, c.comma);
    EXPECT_EQ((word & FL_FORMAT_SIGNIFICANCE) != 0, c.significance);
    EXPECT_EQ(word & ~(FL_FORMAT_KIND_MASK | FL_FORMAT_COMMA | FL_FORMAT_SIGNIFICANCE | 0xFFFF00u), 0u);
  }
}

// ---- Printing ----

struct TextCase {
  FL48 x;
  const char* format;
  const char* expected;
};

void ExpectTexts(const std::vector<TextCase>& cases) {
  for (const TextCase& c : cases) {
    EXPECT_EQ(Text(c.x, c.format), c.expected) << fl48test::Describe(c.x) << " in \"" << c.format << "\"";
  }
}

TEST(FL48ConvToText, FixedAndIntegerFieldsAreRightAlignedWithASignPosition) {
  ExpectTexts({
      {Nearest(3.14159265L), "###.##", "  3.14"},
      {Nearest(-3.14159265L), "###.##", " -3.14"},
      {Nearest(-42.4242L), "###.##", "-42.42"},
      {Nearest(0.0123L), "###.###", "  0.012"},
      {Nearest(0.004L), "##.##", " 0.00"},
      {Nearest(-0.004L), "##.##", "-0.00"},
      {Nearest(0.0071L), "##.##", " 0.01"},  // no digit of its own, rounds into the last place
      {Nearest(1.5L), "##,##", " 1,50"},
      {Nearest(12345.678L), "######", " 12346"},
      {Nearest(-7.49L), "###", " -7"},
      {fl48test::FromShort(1), "##.", " 1."},
      {Nearest(1e9L), "############", "  1000000000"},
      {Nearest(123456789012.0L), "##############", "  123456789000"},  // ten digits, then zeros
  });
}

TEST(FL48ConvToText, ExactHalvesRoundAwayFromZero) {
  ExpectTexts({
      {Make(0x2002, 0xA0000000), "####", "   3"},                // 2.5
      {Make(0xA002, 0xA0000000), "####", "  -3"},                // -2.5
      {Make(0x1FFE, 0x80000000), "##.##", " 0.13"},              // 0.125
      {Make(0x2002, 0xC9000000), "##.#####", " 3.14063"},        // 3.140625
      {Make(0x2005, 0xC8000000), "#.#^^#", "  3E+1"},            // 25
      {Make(0x201F, 0x932C05A5), "###########", " 1234567891"},  // 1234567890.5
  });
}

TEST(FL48ConvToText, RoundingCarryLaysTheFieldOutAgain) {
  ExpectTexts({
      {Nearest(999.96L), "#####.#", " 1000.0"},
      {Nearest(999.96L), "####.#", "?FORMA"},
      {Nearest(-9.99996L), "#.####^^###", "-1.000E+001"},
      {Nearest(9.6L), "##", "?F"},
      {Nearest(99.996L), "###.##", "?FORMA"},
      {Nearest(999.7L), "##.#^", " 1.0k"},
      {Nearest(0.0996L), "##.#", " 0.1"},
  });
}

TEST(FL48ConvToText, ExponentKindsShowMarkOrSignedExponent) {
  ExpectTexts({
      {Nearest(123456.0L), "#.##^^##", " 1.2E+05"},
      {Nearest(0.000123456L), "#.###^^##", " 1.23E-04"},
      {Nearest(-0.000123456L), "#.####^^####", "-1.235E-0004"},
      {Nearest(12345.0L), "#.###^##", " 1.23^04"},
      {Nearest(1e-5L), "#.###^#", " 1.00v5"},
      {Nearest(7.0L), "#^^#", " 7E+0"},
      {Nearest(7.0L), "#.#^^#", "  7E+0"},  // no separator without a digit behind it
      {Nearest(-7.0L), "#.#^^#", "- 7E+0"},  // the sign keeps the first position
      {Nearest(-7.0L), "##^#", "- 7^0"},
      {Nearest(1e10L), "#.###^^#", "?FORMAT?"},
      {Nearest(1e-100L), "#.###^^##", "?FORMAT??"},
      {Nearest(1e-100L), "#.###^^###", " 1.00E-100"},
      {Nearest(1e300L), "#.#^####", "  1^0300"},
      {Nearest(1.5L), "#,##^^##", " 1,5E+00"},
  });
}

TEST(FL48ConvToText, EngineeringKindPicksThePrefixLetter) {
  ExpectTexts({
      {Nearest(12345.0L), "##.##^", " 12.3k"},
      {Nearest(0.0012345L), "##.##^", " 1.23m"},
      {Nearest(-5.0L), "##.##^", "-5.00 "},
      {Nearest(123456.0L), "##.##^", "  123k"},
      {Nearest(-123456.0L), "##.##^", "- 123k"},
      {Nearest(2.5e-18L), "##.##^", " 2.50a"},
      {Nearest(4.2e-15L), "##.##^", " 4.20f"},
      {Nearest(4.2e-12L), "##.##^", " 4.20p"},
      {Nearest(4.2e-9L), "##.##^", " 4.20n"},
      {Nearest(4.2e-6L), "##.##^", " 4.20u"},
      {Nearest(4.2e6L), "##.##^", " 4.20M"},
      {Nearest(4.2e9L), "##.##^", " 4.20G"},
      {Nearest(4.2e12L), "##.##^", " 4.20T"},
      {Nearest(4.2e15L), "##.##^", " 4.20P"},
      {Nearest(4.2e18L), "##.##^", " 4.20E"},
      {Nearest(4.2e21L), "##.##^", "?FORMA"},
      {Nearest(4.2e-19L), "##.##^", "?FORMA"},
      {Nearest(42.0L), "#^", "?FO"},  // two integer digits do not fit one position
  });
}

TEST(FL48ConvToText, SignificanceModePrintsOnlyJustifiedDigits) {
  const FL48 twelveBits = Make(0x2016, 0x00000C90);  // 3.140625 with 12 valid bits: 4 digits
  FL48 exact = twelveBits;
  exact.expWord |= FL48_EXACT_BIT;
  const FL48 eightBits = Make(0x2029, 0x000000F1);  // 123392 with 8 valid bits: 3 digits
  ExpectTexts({
      {twelveBits, "^###.#####", "   3.14100"},
      {twelveBits, "###.#####", "  3.14063"},  // without '^' the full ten digits
      {exact, "^###.#####", "   3.14063"},     // the exact flag justifies every digit
      {eightBits, "^######", " 123000"},
      {eightBits, "^.####^^##", " 1.230E+05"},
      {Make(0x201F, 0x00000001), "^.##^^#", " 5.0E-1"},  // 0.5 with one valid bit: one digit
  });
}

TEST(FL48ConvToText, SpecialValuesFillTheField) {
  const FL48 zeroMantissa = Make(0x2003, 0);  // the exact difference of two equal numbers
  ExpectTexts({
      {Make(FL48_CODE_UNDERFLOW, 0), "#####", "    0"},
      {Make(FL48_CODE_UNDERFLOW, 0), "##.##^^##", "        0"},
      {Make(FL48_CODE_UNDERFLOW, 0), "#", "0"},
      {Make(FL48_CODE_UNDERFLOW, 0), "", ""},
      {zeroMantissa, "###.##", "     0"},
      {Make(FL48_CODE_OVERFLOW, 0), "############", "?OVERFLOW???"},
      {Make(FL48_CODE_OVERFLOW, 0), "###", "?OV"},
      {Make(FL48_CODE_NAN, 0), "############", "?NAN????????"},
      {Make(FL48_CODE_NAN, 0), "##", "?N"},
      {Make(FL48_CODE_UNDEFINED, 0), "############", "?UNDEFINED??"},
      {Make(FL48_CODE_UNDEFINED, 0), "#.##", "?UND"},
      {Make(FL48_CODE_LOST, 0), "############", "?LOST???????"},
      {Make(FL48_CODE_LOST, 0x12345678), "#####", "?LOST"},
      {Make(7, 0), "############", "?CORRUPTED??"},
      {Make(255, 0x80000000), "#.#^^##", "?CORRUP"},
      {Make(0x3FFF, 0x80000000), "############", "?CORRUPTED??"},
  });
}

TEST(FL48ConvToText, UnknownKindPrintsFormat) {
  for (uint32_t kind : {3u, 12u, 15u}) {
    const FL48 one = fl48test::FromShort(1);
    char out[16];
    FL48_ConvToText(out, &one, kind | (9u << FL_FORMAT_WIDTH_SHIFT));
    EXPECT_STREQ(out, "?FORMAT??") << "kind " << kind;
  }
}

// Any word and any record: exactly width characters and the terminator, and
// not one byte more.
TEST(FL48ConvToText, AnyWordAndRecordWritesExactlyTheField) {
  fl48test::RandomNumbers random(4711);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t word = random.Word32();
    const int width = int((word >> FL_FORMAT_WIDTH_SHIFT) & 0xFF);
    const FL48 x = Make(random.Word16(), random.Word32());
    std::vector<char> out(size_t(width) + 64, '\x7F');
    FL48_ConvToText(out.data(), &x, word);
    ASSERT_EQ(std::strlen(out.data()), size_t(width)) << fl48test::Describe(x) << " word " << word;
    ASSERT_TRUE(std::all_of(out.begin() + width + 1, out.end(), [](char c) { return c == '\x7F'; }));
  }
}

// ---- Exact digits over the whole range ----

std::string ExpectedScientific(const FL48& x, int digits, int exponentDigits) {
  const Digits d = ExactDigits(x, digits);
  std::string text = fl48test::Negative(x) ? "-" : " ";
  text += d.text.substr(0, 1) + "." + d.text.substr(1) + (d.exponent < 0 ? "E-" : "E+");
  const std::string e = std::to_string(std::abs(d.exponent));
  return text + std::string(size_t(exponentDigits) - e.size(), '0') + e;
}

// Random numbers with fields in [lo, hi], printed with ten digits.
void ExpectTenDigitsCorrect(uint32_t seed, int count, int lo, int hi) {
  fl48test::RandomNumbers random(seed);
  for (int i = 0; i < count; ++i) {
    const FL48 x = random.Normal(lo, hi);
    ASSERT_EQ(Text(x, "#.##########^^####"), ExpectedScientific(x, 10, 4)) << fl48test::Describe(x);
  }
}

TEST(FL48ConvToText, TenDigitsAreCorrectlyRounded) {
  ExpectTenDigitsCorrect(2024, 3000, FL48_EXP_MIN, FL48_EXP_MAX);
  ExpectTenDigitsCorrect(99, 20000, FL48_EXP_BIAS - 60, FL48_EXP_BIAS + 60);
}

// Values whose tenth digit's rest lies closer to one half than the FL64
// scaling can resolve.
TEST(FL48ConvToText, RestsCloseToAHalfFollowTheExactValue) {
  ExpectTexts({
      {Make(0x9D97, 0xCC871334), "#.##########^^####", "-1.468942210E-0186"},
      {Make(0xB1A8, 0xC4AC9198), "#.##########^^####", "-3.476062687E+1360"},
      {Make(0x0347, 0xAE2C80E9), "#.##########^^####", " 2.286571833E-2214"},
      {Make(0x5FD3, 0xA0DCEC82), "#.##########^^####", " 1.785937885E-0014"},
  });
}

// With the option off a product may keep one leading zero; the digits stay.
TEST(FL48ConvToText, DigitsDoNotDependOnTheRoundUpOption) {
  struct OptionOff {
    int32_t saved = FL_OptionExactRoundUp;
    OptionOff() { FL_OptionExactRoundUp = 0; }
    ~OptionOff() { FL_OptionExactRoundUp = saved; }
  } optionOff;
  ExpectTenDigitsCorrect(5, 2000, FL48_EXP_MIN, FL48_EXP_MAX);
}

std::string ExpectedFixed(const FL48& x, int fracDigits, int width) {
  uint64_t unit = 1;
  for (int i = 0; i < fracDigits; ++i) unit *= 10;
  const uint64_t scaled = RoundedScaled(x, fracDigits);
  std::string number = std::to_string(scaled / unit) + ".";
  if (fracDigits > 0) number += std::to_string(unit + scaled % unit).substr(1);
  number = (fl48test::Negative(x) ? "-" : " ") + number;
  return std::string(size_t(width) - number.size(), ' ') + number;
}

TEST(FL48ConvToText, FixedDigitsAreCorrectlyRounded) {
  fl48test::RandomNumbers random(7);
  for (int i = 0; i < 20000; ++i) {
    const FL48 x = random.Normal(FL48_EXP_BIAS - 12, FL48_EXP_BIAS + 19);  // below 2^19
    ASSERT_EQ(Text(x, "#######.###"), ExpectedFixed(x, 3, 11)) << fl48test::Describe(x);
  }
}

// odd / 2^j printed with j - 1 fraction digits lies exactly halfway.
TEST(FL48ConvToText, HalfwayValuesRoundAwayFromZero) {
  fl48test::RandomNumbers random(11);
  for (int i = 0; i < 5000; ++i) {
    const int j = random.Between(1, 7);
    FL48 x = fl48test::FromShort(random.Between(0, 8191) * 2 + 1);
    FL48_AddExp(&x, -j);
    if (random.Coin()) x.expWord |= FL48_SIGN_BIT;
    const std::string format = "#####." + std::string(size_t(j - 1), '#');
    ASSERT_EQ(Text(x, format.c_str()), ExpectedFixed(x, j - 1, 5 + j)) << fl48test::Describe(x);
  }
}

// ---- 32-bit destination and text copy ----

TEST(FL48ConvToTextRP, WidensEachCharacterBehindElementZero) {
  const FL48 x = Nearest(-3.14159265L);
  uint32_t dst[10];
  std::fill(std::begin(dst), std::end(dst), 0xDEADBEEFu);
  FL48_ConvToTextRP(&x, FL_ParseFormat("###.##"), dst);
  EXPECT_EQ(dst[0], 0xDEADBEEFu);
  const char* expected = " -3.14";
  for (int i = 0; i < 6; ++i) EXPECT_EQ(dst[i + 1], uint32_t(uint8_t(expected[i]))) << "element " << i + 1;
  EXPECT_EQ(dst[7], 0xDEADBEEFu);
}

TEST(FL48ConvToTextRP, ZeroWidthCopiesNothing) {
  const FL48 x = Nearest(1.0L);
  uint32_t dst[2] = {0xDEADBEEFu, 0xDEADBEEFu};
  FL48_ConvToTextRP(&x, FL_ParseFormat(""), dst);
  EXPECT_EQ(dst[0], 0xDEADBEEFu);
  EXPECT_EQ(dst[1], 0xDEADBEEFu);
}

TEST(FL48CopyText, CopiesAtMostMaxCharactersWithoutTerminator) {
  struct Case {
    const char* src;
    int max;
    const char* expected;  // then '*' untouched
  } cases[] = {{"abc", 5, "abc**"}, {"abc", 2, "ab***"}, {"abc", 0, "*****"}, {"abc", -1, "*****"}, {"", 3, "*****"}};
  for (const Case& c : cases) {
    char dst[6] = "*****";
    char* end = FL_CopyText(dst, c.src, c.max);
    EXPECT_STREQ(dst, c.expected) << c.src << " max " << c.max;
    EXPECT_EQ(end - dst, long(std::strspn(c.expected, "abc")));
  }
}

}  // namespace
