// Number to text: the picture-format parser and the fixed-width printer.
//
// The printer finds the decimal exponent and the leading digits in FL64, so
// the 32-bit mantissa of an FL48 keeps 16 guard bits through the scaling,
// rounds them (deciding exactly when the rest is too close to one half to
// call) and lays them out for the format's kind.
#include <algorithm>
#include <cstring>

#include "FloatTextExact.h"
#include "kavri/FL48Text.h"

namespace {

constexpr int32_t kMaxWidth = 255;
constexpr int32_t kMaxExponentDigits = 4;
constexpr int32_t kFullBudget = 10;

// Decimal digits that v mod 10 valid bits justify; each full 10 bits add 3.
constexpr uint8_t bitsToDigits[10] = {0, 1, 1, 1, 1, 2, 2, 2, 3, 3};

int32_t ExponentField(uint16_t expWord) { return expWord & FL48_EXP_MASK; }

bool IsNormalField(int32_t field) { return field >= FL48_EXP_MIN && field <= FL48_EXP_MAX; }

// ---- Format grammar ----

int32_t CountHashes(const char*& p) {
  int32_t n = 0;
  while (*p == '#') {
    ++n;
    ++p;
  }
  return n;
}

uint32_t FormatWord(uint32_t kind, int32_t digits, int32_t width, uint32_t flags) {
  const auto cap = [](int32_t v) { return static_cast<uint32_t>(std::min(v, kMaxWidth)); };
  return flags | kind | (cap(digits) << 8) | (cap(width) << 16);
}

uint32_t ExponentFormat(const char* p, int32_t mantissaDigits, uint32_t flags) {
  const bool eLayout = *p == '^';
  if (eLayout) ++p;
  const int32_t n = std::min(CountHashes(p), kMaxExponentDigits);
  const int32_t afterFirst = mantissaDigits - 1;
  if (!eLayout) {
    if (n == 0) return FormatWord(FL_KIND_ENGINEERING, afterFirst, mantissaDigits + 2, flags);
    return FormatWord(static_cast<uint32_t>(n) + 3, afterFirst, mantissaDigits + n + 2, flags);
  }
  const uint32_t kind = n <= 1 ? uint32_t{FL_KIND_E_FIRST} : static_cast<uint32_t>(n) + 7;
  const int32_t width = n == 0 ? mantissaDigits + 4 : mantissaDigits + n + 3;
  return FormatWord(kind, afterFirst, width, flags);
}

}  // namespace

extern "C" uint32_t FL_ParseFormat(const char* format) {
  const char* p = format != nullptr ? format : "";
  uint32_t flags = 0;
  while (*p != '\0' && *p != '#' && *p != '^') ++p;
  int32_t intDigits = 0;
  if (*p == '^') {
    flags |= FL_FORMAT_SIGNIFICANCE;
    intDigits = 1;
    ++p;
  }
  intDigits = std::min(intDigits + CountHashes(p), kMaxWidth);
  const bool hasSeparator = *p == '.' || *p == ',';
  int32_t fracDigits = 0;
  if (hasSeparator) {
    if (*p == ',') flags |= FL_FORMAT_COMMA;
    ++p;
    fracDigits = std::min(CountHashes(p), kMaxWidth);
  }
  if (*p == '^') return ExponentFormat(p + 1, intDigits + fracDigits, flags);
  if (!hasSeparator) return FormatWord(FL_KIND_INTEGER, 0, intDigits, flags);
  return FormatWord(FL_KIND_FIXED, fracDigits, intDigits + fracDigits + 1, flags);
}

extern "C" char* FL_CopyText(char* dst, const char* src, int32_t max) {
  int32_t n = 0;
  while (n < max && src[n] != '\0') {
    dst[n] = src[n];
    ++n;
  }
  return dst + n;
}

namespace {

// ---- Fixed-width fields ----

// A text that replaces the number: cut to the width, the rest '?'.
void WriteFilledText(char* dst, int32_t width, const char* text) {
  char* end = FL_CopyText(dst, text, width);
  std::fill(end, dst + width, '?');
  dst[width] = '\0';
}

// Zero is right-aligned "0"; a zero-width field gets only the terminator.
void WriteZero(char* dst, int32_t width) {
  if (width > 0) {
    std::fill(dst, dst + width - 1, ' ');
    dst[width - 1] = '0';
  }
  dst[width] = '\0';
}

const char* SpecialText(int32_t field) {
  switch (field) {
    case FL48_CODE_UNDEFINED:
      return "?UNDEFINED";
    case FL48_CODE_NAN:
      return "?NAN";
    case FL48_CODE_OVERFLOW:
      return "?OVERFLOW";
    case FL48_CODE_LOST:
      return "?LOST";
    default:
      return "?CORRUPTED";
  }
}

// ---- Decimal scaling in FL64 ----

// Binary magnitude m of a normal FL64: its value lies in [2^(m-1), 2^m).
int32_t BinaryMagnitude(const FL64& v) {
  return ExponentField(v.expWord) - FL48_EXP_BIAS - FL64_INT_MantissaCountZeroMsb(&v);
}

// Products keep a leading zero when FL_OptionExactRoundUp is 0; the scaling
// takes it out at once so that zeros cannot pile up over a dozen products.
FL64 ScaledBy(FL64 v, const FL64& factor) {
  FL64_Mul(&v, &factor);
  const int32_t z = FL64_INT_MantissaCountZeroMsb(&v);
  if (z > 0 && z < 48) {
    FL64_INT_MantissaShiftLeft(&v, &v, z);
    v.expWord = static_cast<uint16_t>(v.expWord - z);
  }
  return v;
}

// floor(2^k * log2(10)): below 2^this a number is surely below 10^(2^k), by
// a margin (at least 10 %) far beyond the scaling's rounding.
constexpr int32_t kBitsOfPow10[FL_POW2_TABLE_SIZE] = {3, 6, 13, 26, 53, 106, 212, 425, 850, 1700, 3401, 6803};

// Scales v (positive, normal) into [1, 10) and returns its decimal exponent.
// Each power 10^(2^k) is taken while the product stays on the same side of 1;
// powers that surely overshoot are not even tried.
int32_t ScaleToLeadingDigit(FL64& v) {
  int32_t decimalExponent = 0;
  if (BinaryMagnitude(v) >= 1) {
    for (int32_t k = FL_POW2_TABLE_SIZE - 1; k >= 0; --k) {
      if (BinaryMagnitude(v) <= kBitsOfPow10[k]) continue;
      const FL64 t = ScaledBy(v, FL64_Pow01[k]);
      if (BinaryMagnitude(t) < 1) continue;
      v = t;
      decimalExponent += 1 << k;
    }
    return decimalExponent;
  }
  for (int32_t k = FL_POW2_TABLE_SIZE - 1; k >= 1; --k) {
    if (1 - BinaryMagnitude(v) <= kBitsOfPow10[k]) continue;
    const FL64 t = ScaledBy(v, FL64_Pow10[k]);
    if (BinaryMagnitude(t) >= 1) continue;
    v = t;
    decimalExponent -= 1 << k;
  }
  // One factor 10 below 1 is left; the last 10^1 brings the first digit up.
  const FL64 t = ScaledBy(v, FL64_Pow10[0]);
  if (BinaryMagnitude(t) < 1) {
    v = ScaledBy(t, FL64_Pow10[0]);
    return decimalExponent - 2;
  }
  v = t;
  return decimalExponent - 1;
}

// Moves the binary point of v (value below 16) so that the top 4 mantissa
// bits hold the integer part.
void ToDigitFixedPoint(FL64& v) {
  const int32_t shift = ExponentField(v.expWord) - FL48_EXP_BIAS - 4;
  if (shift < 0) FL64_INT_MantissaShiftRight(&v, &v, -shift);
  if (shift > 0) FL64_INT_MantissaShiftLeft(&v, &v, shift);
}

int32_t TakeLeadingDigit(FL64& v) {
  const int32_t digit = v.mant[0] >> 12;
  v.mant[0] &= 0x0FFF;
  return digit;
}

uint64_t MantissaBits(const FL64& v) { return (uint64_t{v.mant[0]} << 32) | (uint64_t{v.mant[1]} << 16) | v.mant[2]; }

// ---- Rounded digits ----

// |x| = 0.d0 d1 d2 ... * 10^(exponent + 1): digit[p] has weight 10^(exponent - p).
// Positions at or past count are zeros.
struct Decimal {
  int32_t exponent = 0;
  int32_t count = 0;
  uint8_t digit[kFullBudget] = {};
  char At(int32_t p) const { return static_cast<char>('0' + (p >= 0 && p < count ? digit[p] : 0)); }
};

class DigitSource {
 public:
  explicit DigitSource(const FL48& x) : x_(x) {
    FL48_ConvToExtended(&scaled_, &x);
    scaled_.expWord &= static_cast<uint16_t>(~(FL48_SIGN_BIT | FL48_EXACT_BIT));
    exponent_ = ScaleToLeadingDigit(scaled_);
    ToDigitFixedPoint(scaled_);
    // A scaling error may leave a value at or above 10; the point was not
    // moved then (the value is at least 8), so the record is still a number.
    if ((scaled_.mant[0] >> 12) >= 10) {
      scaled_ = ScaledBy(scaled_, FL64_Pow01[0]);
      ++exponent_;
      ToDigitFixedPoint(scaled_);
    }
  }

  int32_t Exponent() const { return exponent_; }

  // The first n digits rounded half away from zero; n may be 0 or negative.
  Decimal Rounded(int32_t n) const {
    if (n < 0) return ZeroDecimal();
    n = std::min(n, kFullBudget);  // no budget exceeds ten digits
    Decimal d;
    d.exponent = exponent_;
    FL64 v = scaled_;
    // The rest after the kept digits, in units of the last one, as 44 bits.
    uint64_t rest = MantissaBits(v) / 10;
    if (n > 0) {
      Generate(v, n, d);
      rest = MantissaBits(v);
    }
    if (!RoundsUp(rest, d, n)) return n == 0 ? ZeroDecimal() : d;
    if (n == 0 || Carry(d)) {
      d.count = 1;
      d.digit[0] = 1;
      d.exponent = exponent_ + 1;
    }
    return d;
  }

 private:
  static Decimal ZeroDecimal() {
    Decimal d;
    d.exponent = -1;
    return d;
  }

  static void Generate(FL64& v, int32_t n, Decimal& d) {
    for (int32_t p = 0; p < n; ++p) {
      if (p > 0) FL64_INT_MantissaMul10(&v);
      d.digit[p] = static_cast<uint8_t>(TakeLeadingDigit(v));
    }
    d.count = n;
  }

  // The scaled value carries a few ulps of error (far below 2^37 in units of
  // 2^-44 of the last digit), so a rest this close to one half is decided
  // exactly on x's own bits; exact halves round up.
  bool RoundsUp(uint64_t rest, const Decimal& d, int32_t n) const {
    constexpr uint64_t kHalf = uint64_t{1} << 43;
    constexpr uint64_t kTieBand = uint64_t{1} << 37;
    const uint64_t distance = rest > kHalf ? rest - kHalf : kHalf - rest;
    if (distance > kTieBand) return rest > kHalf;
    uint64_t kept = 0;
    for (int32_t p = 0; p < n; ++p) kept = kept * 10 + d.digit[p];
    const uint32_t mant = (uint32_t{x_.mant[0]} << 16) | x_.mant[1];
    const int32_t binaryExponent = ExponentField(x_.expWord) - FL48_EXP_BIAS - 32;
    return floattext::CompareScaledWithHalf(mant, binaryExponent, n - 1 - exponent_, kept) >= 0;
  }

  // Adds one unit at the last digit; true when it carried out of the first.
  static bool Carry(Decimal& d) {
    for (int32_t p = d.count - 1; p >= 0; --p) {
      if (++d.digit[p] < 10) return false;
      d.digit[p] = 0;
    }
    return true;
  }

  FL48 x_;
  FL64 scaled_{};
  int32_t exponent_ = 0;
};

// ---- Layout ----

constexpr const char* kFormatText = "?FORMAT";
constexpr int32_t kTextCapacity = kMaxWidth + 16;  // the longest text: sign, 256 digits, exponent part

// The text of one field, built left to right, then right-aligned behind the
// characters that keep their place at the field's start.
class FieldText {
 public:
  void Put(char c) { text_[length_++] = c; }
  void PutDigits(const Decimal& d, int32_t first, int32_t count) {
    for (int32_t p = first; p < first + count; ++p) Put(d.At(p));
  }
  void PutNumber(int32_t value, int32_t digits) {
    for (int32_t i = digits - 1; i >= 0; --i, value /= 10) text_[length_ + i] = static_cast<char>('0' + value % 10);
    length_ += digits;
  }
  void WriteTo(char* dst, int32_t width, int32_t pinned = 0) const {
    if (length_ > width) return WriteFilledText(dst, width, kFormatText);
    const int32_t pad = width - length_;
    std::memcpy(dst, text_, static_cast<size_t>(pinned));
    std::fill(dst + pinned, dst + pinned + pad, ' ');
    std::memcpy(dst + pinned + pad, text_ + pinned, static_cast<size_t>(length_ - pinned));
    dst[width] = '\0';
  }

 private:
  char text_[kTextCapacity];
  int32_t length_ = 0;
};

// The exponent kinds keep their sign in the field's first position.
constexpr int32_t kSignFirst = 1;

struct Job {
  char* dst;
  int32_t width;
  uint32_t kind;
  int32_t digitsField;  // bits 15..8
  int32_t budget;
  char sign;
  char separator;
};

int32_t FloorDiv3(int32_t v) { return v >= 0 ? v / 3 : -((2 - v) / 3); }

int32_t IntegerDigitsOf(int32_t exponent) { return std::max(exponent + 1, 1); }

void PrintPositional(const Job& job, const DigitSource& source) {
  const bool fixed = job.kind == FL_KIND_FIXED;
  const int32_t fracDigits = fixed ? job.digitsField : 0;
  const Decimal d = source.Rounded(std::min(source.Exponent() + 1 + fracDigits, job.budget));
  const int32_t intDigits = IntegerDigitsOf(d.exponent);
  if (1 + intDigits + (fixed ? 1 + fracDigits : 0) > job.width) {
    return WriteFilledText(job.dst, job.width, kFormatText);
  }
  FieldText text;
  text.Put(job.sign);
  const int32_t first = d.exponent + 1 - intDigits;  // negative: zeros before the first digit
  text.PutDigits(d, first, intDigits);
  if (fixed) {
    text.Put(job.separator);
    text.PutDigits(d, first + intDigits, fracDigits);
  }
  text.WriteTo(job.dst, job.width);
}

int32_t PowerOfTen(int32_t n) {
  int32_t p = 1;
  while (n-- > 0) p *= 10;
  return p;
}

// Mantissa area of the exponent kinds: the integer digits, then the
// separator and further digits when at least one of them fits; a shorter
// text is right-aligned in the field.
bool HasFraction(int32_t intDigits, int32_t area) { return area - intDigits >= 2; }

int32_t SignificantDigits(int32_t intDigits, int32_t area) {
  return HasFraction(intDigits, area) ? area - 1 : intDigits;
}

void PutMantissa(FieldText& text, const Decimal& d, int32_t intDigits, int32_t area, char separator) {
  text.PutDigits(d, 0, intDigits);
  if (!HasFraction(intDigits, area)) return;
  text.Put(separator);
  text.PutDigits(d, intDigits, area - intDigits - 1);
}

void PrintScientific(const Job& job, const DigitSource& source) {
  const int32_t area = job.digitsField + 1;
  const Decimal d = source.Rounded(std::min(SignificantDigits(1, area), job.budget));
  const int32_t expDigits = static_cast<int32_t>(job.kind & 3) + 1;
  const int32_t magnitude = d.exponent < 0 ? -d.exponent : d.exponent;
  if (magnitude >= PowerOfTen(expDigits)) {
    return WriteFilledText(job.dst, job.width, kFormatText);
  }
  FieldText text;
  text.Put(job.sign);
  PutMantissa(text, d, 1, area, job.separator);
  if (job.kind >= FL_KIND_E_FIRST) {
    text.Put('E');
    text.Put(d.exponent < 0 ? '-' : '+');
  } else {
    text.Put(d.exponent < 0 ? 'v' : '^');
  }
  text.PutNumber(magnitude, expDigits);
  text.WriteTo(job.dst, job.width, kSignFirst);
}

constexpr char kPrefixLetters[] = "afpnum kMGTPE";  // 10^-18 .. 10^18 in steps of 10^3
constexpr int32_t kPrefixOffset = 6;

void PrintEngineering(const Job& job, const DigitSource& source) {
  const int32_t area = job.digitsField + 1;
  const auto intDigitsOf = [](int32_t exponent) { return exponent - 3 * FloorDiv3(exponent) + 1; };
  const int32_t planned = intDigitsOf(source.Exponent());
  const Decimal d = source.Rounded(std::min(SignificantDigits(planned, area), job.budget));
  const int32_t intDigits = intDigitsOf(d.exponent);  // a carry may move the prefix
  const int32_t group = FloorDiv3(d.exponent);
  if (intDigits > area || group < -kPrefixOffset || group > kPrefixOffset) {
    return WriteFilledText(job.dst, job.width, kFormatText);
  }
  FieldText text;
  text.Put(job.sign);
  PutMantissa(text, d, intDigits, area, job.separator);
  text.Put(kPrefixLetters[group + kPrefixOffset]);
  text.WriteTo(job.dst, job.width, kSignFirst);
}

int32_t DigitBudget(const FL48& x, uint32_t formatWord) {
  if ((formatWord & FL_FORMAT_SIGNIFICANCE) == 0 || (x.expWord & FL48_EXACT_BIT) != 0) return kFullBudget;
  const int32_t v = FL48_GetValidBits(&x);
  return bitsToDigits[v % 10] + 3 * (v / 10);
}

bool IsZeroMantissa(const FL48& x) { return x.mant[0] == 0 && x.mant[1] == 0; }

}  // namespace

extern "C" void FL48_ConvToText(char* dst, const FL48* x, uint32_t formatWord) {
  const int32_t width = static_cast<int32_t>((formatWord >> 16) & 0xFF);
  const int32_t field = ExponentField(x->expWord);
  if (field == FL48_CODE_UNDERFLOW || (IsNormalField(field) && IsZeroMantissa(*x))) return WriteZero(dst, width);
  if (!IsNormalField(field)) return WriteFilledText(dst, width, SpecialText(field));
  FL48 normal;
  FL48_Normalize(&normal, x);
  if (!IsNormalField(ExponentField(normal.expWord))) return WriteZero(dst, width);
  const Job job{dst,
                width,
                formatWord & FL_FORMAT_KIND_MASK,
                static_cast<int32_t>((formatWord >> 8) & 0xFF),
                DigitBudget(*x, formatWord),
                (x->expWord & FL48_SIGN_BIT) != 0 ? '-' : ' ',
                (formatWord & FL_FORMAT_COMMA) != 0 ? ',' : '.'};
  if (job.kind == 3 || job.kind > FL_KIND_E_FIRST + 3) return WriteFilledText(dst, width, kFormatText);
  const DigitSource source(normal);
  if (job.kind == FL_KIND_ENGINEERING) return PrintEngineering(job, source);
  if (job.kind == FL_KIND_FIXED || job.kind == FL_KIND_INTEGER) return PrintPositional(job, source);
  PrintScientific(job, source);
}

extern "C" void FL48_ConvToTextRP(const FL48* x, uint32_t formatWord, uint32_t* dst) {
  char text[kMaxWidth + 1];
  FL48_ConvToText(text, x, formatWord);
  const int32_t width = static_cast<int32_t>((formatWord >> 16) & 0xFF);
  for (int32_t i = 0; i < width; ++i) dst[i + 1] = static_cast<unsigned char>(text[i]);
}
