// The FL64 mantissa primitives: the FL48 ones with a 48-bit mantissa.
#include "FloatCommon.h"

using namespace kavri::fl;

extern "C" {

void FL64_INT_MantissaShiftRight(FL64* dst, const FL64* src, int32_t n) { mantissaShiftRight(*dst, *src, n); }

void FL64_INT_MantissaShiftLeft(FL64* dst, const FL64* src, int32_t n) { mantissaShiftLeft(*dst, *src, n); }

void FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponent(FL64* x) {
  shiftRightOneAdjustExponent(*x, loadMant(*x));
}

void FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(FL64* x, int32_t* exp) {
  mantissaShiftRightOneVar(*x, *exp);
}

int32_t FL64_INT_MantissaCountZeroMsb(const FL64* x) { return countZeroMsb<FL64>(loadMant(*x)); }

int32_t FL64_INT_MantissaNormalizeeExponentSet(FL64* x) { return mantissaNormalizeExponentSet(*x); }

void FL64_INT_MantissaInvertExponentInvert(FL64* x) { mantissaNegate(*x); }

int32_t FL64_INT_MantissaAdd(FL64* dst, const FL64* src) { return mantissaAdd(*dst, *src); }

int32_t FL64_INT_MantissaAddWord(FL64* x, uint32_t w) { return mantissaAddWord(*x, w); }

int32_t FL64_INT_MantissaSub(FL64* dst, const FL64* src) { return mantissaSub(*dst, *src); }

int32_t FL64_INT_MantissaMul(FL64* dst, const FL64* src, int32_t* exp) { return mantissaMul(*dst, *src, *exp); }

int32_t FL64_INT_MantissaMul10(FL64* x) { return mantissaMul10(*x); }

void FL64_INT_MantissaClear(FL64* x) { storeMant(*x, 0); }

int32_t FL64_INT_HandleExpSpecialBinary(FL64* a, const FL64* b, int32_t op) { return handleSpecialBinary(*a, *b, op); }

}  // extern "C"
