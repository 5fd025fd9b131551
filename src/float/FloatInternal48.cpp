// The FL48 mantissa primitives and special-value entry points.
#include "FloatCommon.h"

using namespace kavri::fl;


extern "C" {

void FL48_INT_MantissaShiftRight(FL48* dst, const FL48* src, int32_t n) { mantissaShiftRight(*dst, *src, n); }

void FL48_INT_MantissaShiftLeft(FL48* dst, const FL48* src, int32_t n) { mantissaShiftLeft(*dst, *src, n); }

void FL48_INT_MantissaShiftLeftToLsw0Accu(uint32_t acc[2], const FL48* src, int32_t n) {
  uint64_t m = loadMant(*src);
  uint64_t shifted = uint32_t(n) >= 64 ? 0 : m << n;
  acc[0] = uint32_t(shifted);
  acc[1] = uint32_t(shifted >> 32);
}

void FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponent(FL48* x) {
  shiftRightOneAdjustExponent(*x, loadMant(*x));
}

void FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(FL48* x, int32_t* exp) {
  mantissaShiftRightOneVar(*x, *exp);
}

int32_t FL48_INT_MantissaCountZeroMsb(const FL48* x) { return countZeroMsb<FL48>(loadMant(*x)); }

int32_t FL48_INT_MantissaNormalizeeExponentSet(FL48* x) { return mantissaNormalizeExponentSet(*x); }

int32_t FL48_INT_MantissaNormalizeEx(FL48* x, int32_t k) {
  uint32_t m = loadMant(*x);
  int32_t excess = countZeroMsb<FL48>(m) - k;
  storeMant(*x, excess >= 0 ? shiftLeft<FL48>(m, excess) : shiftRight<FL48>(m, -excess));
  return excess;
}

void FL48_INT_MantissaInvertExponentInvert(FL48* x) { mantissaNegate(*x); }

int32_t FL48_INT_MantissaAdd(FL48* dst, const FL48* src) { return mantissaAdd(*dst, *src); }

int32_t FL48_INT_MantissaAddWord(FL48* x, uint32_t w) { return mantissaAddWord(*x, w); }

int32_t FL48_INT_MantissaSub(FL48* dst, const FL48* src) { return mantissaSub(*dst, *src); }

int32_t FL48_INT_MantissaMul(FL48* dst, const FL48* src, int32_t* exp) { return mantissaMul(*dst, *src, *exp); }

int32_t FL48_INT_MantissaDiv(FL48* dst, const FL48* src, int32_t* exp) { return mantissaDiv(*dst, *src, *exp); }

int32_t FL48_INT_MantissaMul10(FL48* x) { return mantissaMul10(*x); }

int32_t FL48_INT_MantissaCompareEqual(const FL48* a, const FL48* b) {
  return a->mant[0] == b->mant[0] && a->mant[1] == b->mant[1];
}

void FL48_INT_MantissaClear(FL48* x) { storeMant(*x, 0); }

int32_t FL48_INT_HandleExpSpecialBinary(FL48* a, const FL48* b, int32_t op) { return handleSpecialBinary(*a, *b, op); }

int32_t FL48_INT_HandleExpSpecialUnary(FL48* a, int32_t op) {
  return handleSpecialUnary(*a, op);
}

uint16_t FL48_Internal_SplitIntFrac(FL48* x) {
  int32_t e = int32_t(fieldOf(*x)) - FL48_EXP_BIAS;
  if (e < 0) return 0;
  if (e > 32) {
    setCode(*x, FL48_CODE_LOST);
    return 0;
  }
  uint64_t m = loadMant(*x);
  uint32_t fractionBits = 32 - e;
  storeMant(*x, uint32_t(m & ((uint64_t(1) << fractionBits) - 1)));
  return uint16_t(m >> fractionBits);
}

int32_t FL48_Internal_SplitExpMant(FL48* x) {
  uint32_t m = loadMant(*x);
  int z = countZeroMsb<FL48>(m);
  int32_t taken = int32_t(fieldOf(*x)) - (FL48_EXP_BIAS + 1) - z;
  storeMant(*x, shiftLeft<FL48>(m, z));
  setField(*x, FL48_EXP_BIAS + 1);
  return taken;
}

}  // extern "C"
