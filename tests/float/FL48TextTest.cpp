// Picture formats and the fixed-width text of FL48 numbers. Expected digits of
// the sweeps come from the exact decimal expansion of each record's value.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "FL48TestSupport.h"
#include "kavri/FL48Text.h"

namespace {

using fl48ld::Nearest;
using namespace fl48test;

// ---- Exact decimal expansion ----

// |x| = digits * 10^-scale exactly: the mantissa times 2^e, or times 5^-e
// over 10^-e, written out from 32-bit limbs.
struct Decimal { std::string digits; int scale; };

Decimal Exact(const FL48& x) {
  const int e = int(Field(x)) - FL48_EXP_BIAS - 32;
  std::vector<uint32_t> n{Mant(x)};  // least significant limb first
  auto multiply = [&n](uint32_t factor) {
    uint64_t carry = 0;
    for (uint32_t& limb : n) {
      carry += uint64_t(limb) * factor;
      limb = uint32_t(carry);
      carry >>= 32;
    }
    if (carry != 0) n.push_back(uint32_t(carry));
  };
  for (int left = e; left > 0; left -= 31) multiply(1u << std::min(left, 31));
  for (int left = -e; left > 0; left -= 13) multiply(left >= 13 ? 1220703125u : uint32_t(std::pow(5, left)));
  std::string digits;
  while (n.size() > 1 || n[0] != 0) {
    uint64_t rest = 0;
    for (size_t i = n.size(); i-- > 0;) {
      rest = (rest << 32) | n[i];
      n[i] = uint32_t(rest / 1000000000u);
      rest %= 1000000000u;
    }
    if (n.size() > 1 && n.back() == 0) n.pop_back();
    char chunk[10];
    std::snprintf(chunk, sizeof chunk, "%09u", unsigned(rest));
    digits.insert(0, chunk);
  }
  return {digits.substr(digits.find_first_not_of('0')), std::max(-e, 0)};
}

// The first n digits, one unit up when the next is 5 or more: half away from
// zero. A carry out of the first digit makes n + 1 digits.
std::string RoundAt(const std::string& digits, int n) {
  std::string kept = digits.substr(0, size_t(n));
  kept.resize(size_t(n), '0');
  if (size_t(n) >= digits.size() || digits[size_t(n)] < '5') return kept;
  int i = n;
  while (i > 0 && kept[size_t(i - 1)] == '9') kept[size_t(--i)] = '0';
  if (i == 0) return "1" + kept;
  ++kept[size_t(i - 1)];
  return kept;
}

std::string ExpectedScientific(const FL48& x, int n, int exponentDigits) {
  const Decimal d = Exact(x);
  int exponent = int(d.digits.size()) - 1 - d.scale;
  std::string kept = RoundAt(d.digits, n);
  if (int(kept.size()) > n) kept.pop_back(), ++exponent;
  const std::string e = std::to_string(std::abs(exponent));
  return (Negative(x) ? "-" : " ") + kept.substr(0, 1) + "." + kept.substr(1) + (exponent < 0 ? "E-" : "E+") +
         std::string(size_t(exponentDigits) - e.size(), '0') + e;
}

std::string ExpectedFixed(const FL48& x, int fracDigits, int width) {
  const Decimal d = Exact(x);
  const int keep = int(d.digits.size()) - d.scale + fracDigits;
  std::string k = keep < 0 ? "" : RoundAt(d.digits, keep);
  k.insert(0, size_t(std::max(0, fracDigits + 1 - int(k.size()))), '0');
  const std::string number = (Negative(x) ? "-" : " ") + k.substr(0, k.size() - size_t(fracDigits)) + "." +
                             k.substr(k.size() - size_t(fracDigits));
  return std::string(size_t(width) - number.size(), ' ') + number;
}

std::string Text(const FL48& x, const char* format) {
  char out[300];
  FL48_ConvToText(out, &x, FL_ParseFormat(format));
  return out;
}

// ---- Format grammar ----

TEST(FL48FormatParse, EveryPictureGivesItsFormatWord) {
  const std::string many(300, '#');
  const struct { std::string format; uint32_t kind; int digits, width; bool comma, significance; } cases[] = {
      {"###.##", FL_KIND_FIXED, 2, 6, false, false},         {"^###", FL_KIND_INTEGER, 0, 4, false, true},
      {"#.##^^##", 9, 2, 8, false, false},                   {"#.##^", FL_KIND_ENGINEERING, 2, 5, false, false},
      {"##,#", FL_KIND_FIXED, 1, 4, true, false},            {"###.", FL_KIND_FIXED, 0, 4, false, false},
      {"#^#", 4, 0, 4, false, false},                        {"#.###^#######", 7, 3, 10, false, false},
      {"#^^", 8, 0, 5, false, false},                        {"#^^###", 10, 0, 7, false, false},
      {"##,##^^####", 11, 3, 11, true, false},               {"^^##", 5, 0, 5, false, true},
      {"", FL_KIND_INTEGER, 0, 0, false, false},             {"Speed: ##.# km/h", FL_KIND_FIXED, 1, 4, false, false},
      {",#", FL_KIND_INTEGER, 0, 1, false, false},           {"##.##.##", FL_KIND_FIXED, 2, 5, false, false},
      {"#.#^^^", 8, 1, 6, false, false},                     {many, FL_KIND_INTEGER, 0, 255, false, false},
      {"#." + many, FL_KIND_FIXED, 255, 255, false, false},
      {std::string(200, '#') + "." + std::string(100, '#'), FL_KIND_FIXED, 100, 255, false, false},
  };
  for (const auto& c : cases) {
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

// Each layout: right-aligned with a sign position, mark or signed exponent,
// prefix letters; a rounding carry lays the field out again; significance
// mode prints only justified digits; specials fill the field.
TEST(FL48ConvToText, EachLayoutPrintsItsField) {
  const char* const twelve = "############";
  const FL48 twelveBits = Make(0x2016, 0x00000C90);  // 3.140625 with 12 valid bits: 4 digits
  const FL48 eightBits = Make(0x2029, 0x000000F1);   // 123392 with 8 valid bits: 3 digits
  const struct { FL48 x; const char* format; const char* expected; } cases[] = {
      {Nearest(3.14159265L), "###.##", "  3.14"},  {Nearest(-3.14159265L), "###.##", " -3.14"},
      {Nearest(-42.4242L), "###.##", "-42.42"},    {Nearest(-0.004L), "##.##", "-0.00"},
      {Nearest(1.5L), "##,##", " 1,50"},           {Nearest(-7.49L), "###", " -7"},
      {FromShort(1), "##.", " 1."},                {Nearest(1e9L), "############", "  1000000000"},
      {Nearest(0.0071L), "##.##", " 0.01"},  // no digit of its own, rounds into the last place
      {Nearest(123456789012.0L), "##############", "  123456789000"},  // ten digits, then zeros
      {Make(0x201F, 0x932C05A5), "###########", " 1234567891"},       // 1234567890.5: halves round away
      {Make(0xA005, 0xC8000000), "#.#^^#", "- 3E+1"},                  // -25
      {Nearest(999.96L), "#####.#", " 1000.0"},  {Nearest(999.96L), "####.#", "?FORMA"},
      {Nearest(9.6L), "##", "?F"},               {Nearest(99.996L), "###.##", "?FORMA"},
      {Nearest(999.7L), "##.#^", " 1.0k"},       {Nearest(0.0996L), "##.#", " 0.1"},
      {Nearest(-9.99996L), "#.####^^###", "-1.000E+001"},
      {Nearest(123456.0L), "#.##^^##", " 1.2E+05"},  {Nearest(-0.000123456L), "#.####^^####", "-1.235E-0004"},
      {Nearest(12345.0L), "#.###^##", " 1.23^04"},   {Nearest(1e-5L), "#.###^#", " 1.00v5"},
      {Nearest(7.0L), "#^^#", " 7E+0"},             {Nearest(1.5L), "#,##^^##", " 1,5E+00"},
      {Nearest(7.0L), "#.#^^#", "  7E+0"},   // no separator without a digit behind it
      {Nearest(-7.0L), "#.#^^#", "- 7E+0"},  // the sign keeps the first position
      {Nearest(-7.0L), "##^#", "- 7^0"},             {Nearest(1e10L), "#.###^^#", "?FORMAT?"},
      {Nearest(1e-100L), "#.###^^##", "?FORMAT??"}, {Nearest(1e-100L), "#.###^^###", " 1.00E-100"},
      {Nearest(1e300L), "#.#^####", "  1^0300"},
      {Nearest(12345.0L), "##.##^", " 12.3k"},   {Nearest(0.0012345L), "##.##^", " 1.23m"},
      {Nearest(-5.0L), "##.##^", "-5.00 "},      {Nearest(-123456.0L), "##.##^", "- 123k"},
      {Nearest(2.5e-18L), "##.##^", " 2.50a"},   {Nearest(4.2e-15L), "##.##^", " 4.20f"},
      {Nearest(4.2e15L), "##.##^", " 4.20P"},    {Nearest(4.2e18L), "##.##^", " 4.20E"},
      {Nearest(4.2e21L), "##.##^", "?FORMA"},    {Nearest(4.2e-19L), "##.##^", "?FORMA"},
      {Nearest(42.0L), "#^", "?FO"},  // two integer digits do not fit one position
      {twelveBits, "^###.#####", "   3.14100"},
      {twelveBits, "###.#####", "  3.14063"},  // without '^' the full ten digits
      {Make(FL48_EXACT_BIT | 0x2016, 0x00000C90), "^###.#####", "   3.14063"},  // exact: every digit
      {eightBits, "^######", " 123000"},
      {eightBits, "^.####^^##", " 1.230E+05"},
      {Make(0x201F, 0x00000001), "^.##^^#", " 5.0E-1"},  // 0.5 with one valid bit: one digit
      {Make(FL48_CODE_UNDERFLOW, 0), "#####", "    0"},     {Make(FL48_CODE_UNDERFLOW, 0), "##.##^^##", "        0"},
      {Make(FL48_CODE_UNDERFLOW, 0), "", ""},              {Make(0x2003, 0), "###.##", "     0"},  // cancelled
      {Make(FL48_CODE_OVERFLOW, 0), twelve, "?OVERFLOW???"}, {Make(FL48_CODE_OVERFLOW, 0), "###", "?OV"},
      {Make(FL48_CODE_NAN, 0), twelve, "?NAN????????"},     {Make(FL48_CODE_UNDEFINED, 0), twelve, "?UNDEFINED??"},
      {Make(FL48_CODE_LOST, 0x12345678), twelve, "?LOST???????"}, {Make(7, 0), twelve, "?CORRUPTED??"},
      {Make(255, 0x80000000), "#.#^^##", "?CORRUP"},       {Make(0x3FFF, 0x80000000), twelve, "?CORRUPTED??"},
  };
  for (const auto& c : cases) EXPECT_EQ(Text(c.x, c.format), c.expected) << Describe(c.x) << " in \"" << c.format << "\"";
  for (uint32_t kind : {3u, 12u, 15u}) {  // no such layout
    const FL48 one = FromShort(1);
    char out[16];
    FL48_ConvToText(out, &one, kind | (9u << FL_FORMAT_WIDTH_SHIFT));
    EXPECT_STREQ(out, "?FORMAT??") << "kind " << kind;
  }
}

// ---- Exact digits over the whole range ----

// Random numbers with fields in [lo, hi], printed with ten digits.
void ExpectTenDigitsCorrect(uint32_t seed, int count, int lo, int hi) {
  RandomNumbers random(seed);
  for (int i = 0; i < count; ++i) {
    const FL48 x = random.Normal(lo, hi);
    ASSERT_EQ(Text(x, "#.##########^^####"), ExpectedScientific(x, 10, 4)) << Describe(x);
  }
}

// Over the whole range fewer numbers: the powers of ten behind them are
// checked where they are generated, and each costs a long exact expansion.
TEST(FL48ConvToText, TenDigitsAreCorrectlyRounded) {
  ExpectTenDigitsCorrect(2024, 1000, FL48_EXP_MIN, FL48_EXP_MAX);
  ExpectTenDigitsCorrect(99, 20000, FL48_EXP_BIAS - 60, FL48_EXP_BIAS + 60);
  // Rests closer to one half than the internal scaling can resolve.
  for (const FL48 x : {Make(0x9D97, 0xCC871334), Make(0xB1A8, 0xC4AC9198), Make(0x0347, 0xAE2C80E9),
                       Make(0x5FD3, 0xA0DCEC82)})
    EXPECT_EQ(Text(x, "#.##########^^####"), ExpectedScientific(x, 10, 4)) << Describe(x);
  // With the option off a product may keep one leading zero; the digits stay.
  FL_OptionExactRoundUp = 0;
  ExpectTenDigitsCorrect(5, 600, FL48_EXP_MIN, FL48_EXP_MAX);
  FL_OptionExactRoundUp = 1;
}

TEST(FL48ConvToText, FixedDigitsAreCorrectlyRounded) {
  RandomNumbers random(7);
  for (int i = 0; i < 20000; ++i) {
    const FL48 x = random.Normal(FL48_EXP_BIAS - 12, FL48_EXP_BIAS + 19);  // below 2^19
    ASSERT_EQ(Text(x, "#######.###"), ExpectedFixed(x, 3, 11)) << Describe(x);
  }
  // odd / 2^j printed with j - 1 fraction digits lies exactly halfway.
  for (int i = 0; i < 5000; ++i) {
    const int j = random.Between(1, 7);
    FL48 x = FromShort(random.Between(0, 8191) * 2 + 1);
    FL48_AddExp(&x, -j);
    if (random.Coin()) x.expWord |= FL48_SIGN_BIT;
    const std::string format = "#####." + std::string(size_t(j - 1), '#');
    ASSERT_EQ(Text(x, format.c_str()), ExpectedFixed(x, j - 1, 5 + j)) << Describe(x);
  }
}

// ---- 32-bit destination and text copy ----

TEST(FL48ConvToTextRP, WidensEachCharacterBehindElementZero) {
  const FL48 x = Nearest(-3.14159265L), one = Nearest(1.0L);
  uint32_t dst[10];
  std::fill(std::begin(dst), std::end(dst), 0xDEADBEEFu);
  FL48_ConvToTextRP(&one, FL_ParseFormat(""), dst + 7);  // zero width copies nothing
  FL48_ConvToTextRP(&x, FL_ParseFormat("###.##"), dst);
  const uint32_t expected[10] = {0xDEADBEEFu, ' ', '-', '3', '.', '1', '4', 0xDEADBEEFu, 0xDEADBEEFu, 0xDEADBEEFu};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(dst[i], expected[i]) << "element " << i;
}

TEST(FL48CopyText, CopiesAtMostMaxCharactersWithoutTerminator) {
  const struct {
    const char* src;
    int max;
    const char* expected;  // then '*' untouched
  } cases[] = {{"abc", 5, "abc**"}, {"abc", 2, "ab***"}, {"abc", 0, "*****"}, {"abc", -1, "*****"}, {"", 3, "*****"}};
  for (const auto& c : cases) {
    char dst[6] = "*****";
    const char* end = FL_CopyText(dst, c.src, c.max);
    EXPECT_STREQ(dst, c.expected) << c.src << " max " << c.max;
    EXPECT_EQ(end - dst, long(std::strspn(c.expected, "abc")));
  }
}

}  // namespace
