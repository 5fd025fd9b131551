// FL48 arithmetic, comparisons and conversions to and from 16-bit integers.
#include "FloatCommon.h"

using namespace kavri::fl;

namespace {

// y = m * SqrtApr2 + SqrtApr1 for the mantissa m in [0.5, 1), scaled by the
// square root of the rest of a's exponent.
FL48 firstRootEstimate(const FL48& a) {
  int z = countZeroMsb<FL48>(loadMant(a));
  uint32_t k = fieldOf(a) - z;
  FL48 y = a;
  setField(y, FL48_EXP_BIAS + z);
  multiply(y, FL48_SqrtApr2);
  addOrSubtract(y, FL48_SqrtApr1, false);
  setField(y, fieldOf(y) + (k >> 1) - 4096);
  if (k & 1) multiply(y, FL48_Sqrt2);
  return y;
}

// y = (a / y + y) / 2; the halving lowers the field directly, which turns an
// overflow from a zero mantissa into zero.
void newtonRootStep(const FL48& a, FL48& y) {
  FL48 t = a;
  divide(t, y);
  addOrSubtract(t, y, false);
  storeNumber(y, t.expWord - 1u, loadMant(t));
}

struct Difference {
  bool special;
  bool underflow;
  bool zero;
  bool negative;
};

Difference describe(unsigned head, uint32_t mant) {
  unsigned field = fieldOf(uint16_t(head));
  return {!isNumberField(field), field == FL48_CODE_UNDERFLOW, mant == 0, (head & FL48_SIGN_BIT) != 0};
}

// a - b exactly as FL48_Sub forms it, without writing a record.
Difference difference(const FL48* a, const FL48* b) {
  if (bothBelowTop(*a, *b)) [[likely]] {
    // A number: its mantissa is zero only when the sum is, and its sign is
    // a's, turned by a borrow.
    AlignedSum<FL48> d = alignedSum(*a, *b, true);
    return {false, false, d.sum == 0, ((d.head & FL48_SIGN_BIT) != 0) != (d.sum < 0)};
  }
  FL48 d = *a;
  addOrSubtractAny(d, *b, true);
  return describe(d.expWord, loadMant(d));
}

// 2|a| truncated, a with |a| < 2^15 and e = field - 8192 >= 0.
uint32_t twiceMagnitude(uint32_t m, int32_t e) {
  return e <= 31 ? m >> (31 - e) : uint32_t(uint64_t(m) << (e - 31));
}

// |a| rounded up to the next integer: all ones below the integer bits first.
uint32_t magnitudeRoundedAway(uint32_t m, int32_t e) {
  if (e >= 32) return uint32_t(uint64_t(m) << (e - 32));
  uint64_t fractionOnes = (uint64_t(1) << (32 - e)) - 1;
  return uint32_t((m + fractionOnes) >> (32 - e));
}

}  // namespace

extern "C" {

KAVRI_FL_BUILT_TWICE void FL48_Add(FL48* a, const FL48* b) { addOrSubtract(*a, *b, false); }

KAVRI_FL_BUILT_TWICE void FL48_Sub(FL48* a, const FL48* b) { addOrSubtract(*a, *b, true); }

KAVRI_FL_BUILT_TWICE void FL48_Mul(FL48* a, const FL48* b) { multiply(*a, *b); }

void FL48_Div(FL48* a, const FL48* b) { divide(*a, *b); }

void FL48_Sqrt(FL48* a) {
  if (handleSpecialUnary(*a, 'r')) return;
  FL48 y = firstRootEstimate(*a);
  newtonRootStep(*a, y);
  newtonRootStep(*a, y);
  *a = y;
}

void FL48_AddExp(FL48* a, int32_t n) {
  if (n == 0 || handleSpecialUnary(*a, n > 0 ? '+' : '-')) return;
  int64_t field = int64_t(fieldOf(*a)) + n;
  if (field < FL48_EXP_MIN) {
    setCode(*a, FL48_CODE_UNDERFLOW);
  } else if (field > FL48_EXP_MAX) {
    setCode(*a, FL48_CODE_OVERFLOW);
  } else {
    setField(*a, unsigned(field));
  }
}

int32_t FL48_IsLess(const FL48* a, const FL48* b) {
  Difference d = difference(a, b);
  return !d.special && !d.zero && d.negative;
}

int32_t FL48_IsGreater(const FL48* a, const FL48* b) {
  Difference d = difference(a, b);
  return !d.special && !d.zero && !d.negative;
}

int32_t FL48_IsLessEqual(const FL48* a, const FL48* b) {
  Difference d = difference(a, b);
  return d.special ? d.underflow : d.zero || d.negative;
}

int32_t FL48_IsGreaterEqual(const FL48* a, const FL48* b) {
  Difference d = difference(a, b);
  return d.special ? d.underflow : d.zero || !d.negative;
}

int32_t FL48_IsEqual(const FL48* a, const FL48* b) {
  if (fieldOf(*a) == FL48_CODE_UNDEFINED && fieldOf(*b) == FL48_CODE_UNDEFINED) return 1;
  Difference d = difference(a, b);
  return d.special ? d.underflow : d.zero;
}

int32_t FL48_IsNotEqual(const FL48* a, const FL48* b) {
  Difference d = difference(a, b);
  return !d.special && !d.zero;
}

void FL48_ConvFromShort(FL48* a, int32_t n) {
  int16_t value = int16_t(n);
  if (value == FL48_NO_SHORT_VALUE) {
    FL48_SetUndefined(a);
  } else if (value == 0) {
    FL48_SetUnderflow(a);
  } else {
    uint32_t magnitude = uint32_t(value < 0 ? -value : value);
    int z = countZeroMsb<FL48>(magnitude);
    unsigned sign = value < 0 ? FL48_SIGN_BIT : 0;
    storeNumber(*a, sign | FL48_EXACT_BIT | (FL48_EXP_BIAS + 32 - z), magnitude << z);
  }
}

int16_t FL48_ConvToShort(const FL48* a, int32_t mode) {
  unsigned field = fieldOf(*a);
  if (!isNumberField(field)) return field == FL48_CODE_UNDERFLOW ? 0 : FL48_NO_SHORT_VALUE;
  bool negative = isNegative(*a);
  bool awayFromZero = (mode == FL48_ROUND_DOWN && negative) || (mode == FL48_ROUND_UP && !negative);
  int32_t e = int32_t(field) - FL48_EXP_BIAS;
  if (e < 0) return awayFromZero ? (negative ? -1 : 1) : 0;
  uint32_t m = loadMant(*a);
  if (e - countZeroMsb<FL48>(m) > 15) return FL48_NO_SHORT_VALUE;
  uint32_t magnitude;
  if (awayFromZero) {
    magnitude = magnitudeRoundedAway(m, e);
  } else {
    magnitude = (twiceMagnitude(m, e) + (mode == FL48_ROUND_NEAREST)) >> 1;
  }
  if (magnitude > 32767) return FL48_NO_SHORT_VALUE;
  return int16_t(negative ? -int32_t(magnitude) : int32_t(magnitude));
}

}  // extern "C"
