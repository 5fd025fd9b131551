// Special values, inspection and the extended format of FL48 numbers.
#include "FloatCommon.h"

using namespace kavri::fl;

namespace {

template <class R>
void setSpecial(R* x, unsigned code) {
  *x = R{};
  setCode(*x, code);
}

}  // namespace

extern "C" {

int32_t FL_OptionExactRoundUp = 1;

void FL48_SetUndefined(FL48* x) { setSpecial(x, FL48_CODE_UNDEFINED); }
void FL48_SetNan(FL48* x) { setSpecial(x, FL48_CODE_NAN); }
void FL48_SetUnderflow(FL48* x) { setSpecial(x, FL48_CODE_UNDERFLOW); }
void FL48_SetOverflow(FL48* x) { setSpecial(x, FL48_CODE_OVERFLOW); }
void FL48_SetLost(FL48* x) { setSpecial(x, FL48_CODE_LOST); }
void FL64_SetUnderflow(FL64* x) { setSpecial(x, FL48_CODE_UNDERFLOW); }
void FL64_SetOverflow(FL64* x) { setSpecial(x, FL48_CODE_OVERFLOW); }

int32_t FL48_IsNan(const FL48* x) { return fieldOf(*x) == FL48_CODE_NAN; }
int32_t FL48_IsUnderflow(const FL48* x) { return fieldOf(*x) == FL48_CODE_UNDERFLOW; }
int32_t FL48_IsOverflow(const FL48* x) { return fieldOf(*x) == FL48_CODE_OVERFLOW; }

void FL48_Abs(FL48* x) { x->expWord &= uint16_t(~FL48_SIGN_BIT); }

int32_t FL48_GetValidBits(const FL48* x) { return 32 - countZeroMsb<FL48>(loadMant(*x)); }

int32_t FL48_Normalize(FL48* dst, const FL48* src) {
  *dst = *src;
  unsigned field = fieldOf(*src);
  if (!isNormalField(field)) return 0;
  uint32_t m = loadMant(*src);
  int z = countZeroMsb<FL48>(m);
  storeMant(*dst, shiftLeft<FL48>(m, z));
  if (field - z < FL48_EXP_MIN) {
    setCode(*dst, FL48_CODE_UNDERFLOW);
  } else {
    setField(*dst, field - z);
  }
  return z;
}

void FL48_ConvToExtended(FL48Ext* dst, const FL48* src) {
  FL48Ext wide = {src->expWord, {src->mant[0], src->mant[1], 0}};
  *dst = wide;
}

// Rounds the 16 extra bits to nearest (a half rounds up); the exact flag is
// the caller's business.
void FL48_ConvFromExtended(FL48* dst, const FL48Ext* src) {
  FL48 narrow = {src->expWord, {src->mant[0], src->mant[1]}};
  if (src->mant[2] & 0x8000) {
    uint32_t m = loadMant(narrow);
    if (addMant<FL48>(m, 1)) {
      shiftRightOneAdjustExponent(narrow, m);
    } else {
      storeMant(narrow, m);
    }
  }
  *dst = narrow;
}

}  // extern "C"
