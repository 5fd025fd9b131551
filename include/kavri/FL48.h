// FL48: the 48-bit software floating point number used by downloaded code,
// its wider internal formats, the mantissa primitives every operation is built
// from, the arithmetic, text conversion and elementary functions.
//
// Every routine works on caller-owned records through pointers, writes its
// result in place (or into the named destination), keeps no state besides the
// read-only tables and FL_OptionExactRoundUp, and never allocates. Failures
// are special values in the result, never reports.
#ifndef KAVRI_FL48_H
#define KAVRI_FL48_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Word 0 of every format: sign, exact flag, 14-bit exponent field.
enum {
  FL48_SIGN_BIT = 0x8000,   // 1 = negative
  FL48_EXACT_BIT = 0x4000,  // 1 = no 1 bit was dropped while computing it
  FL48_EXP_MASK = 0x3FFF,
  FL48_EXP_BIAS = 8192,     // 1.0 is field 0x2001 with mantissa 0x80000000
  FL48_EXP_MIN = 256,       // smallest field of a normal number
  FL48_EXP_MAX = 16128,     // largest field of a normal number
};

// Exponent fields below FL48_EXP_MIN are special values; 5..255 never come
// out of an operation and are treated as undefined.
enum {
  FL48_CODE_UNDEFINED = 0,
  FL48_CODE_NAN = 1,
  FL48_CODE_UNDERFLOW = 2,  // also the library's zero
  FL48_CODE_OVERFLOW = 3,
  FL48_CODE_LOST = 4,
};

// Value (mant / 2^32) * 2^(field - 8192); 6 bytes, 2-byte aligned.
typedef struct FL48 {
  uint16_t expWord;  // 0: sign, exact flag, exponent field
  uint16_t mant[2];  // 2: 32-bit mantissa, high word first
} FL48;

// Value (mant / 2^48) * 2^(field - 8192); same word 0 and codes as FL48.
typedef struct FL64 {
  uint16_t expWord;  // 0: sign, exact flag, exponent field
  uint16_t mant[3];  // 2: 48-bit mantissa, high word first
} FL64;

// The extended format is an FL48 with 16 more mantissa bits below word 2,
// which is exactly the FL64 layout, so the FL64 routines work on it directly.
typedef FL64 FL48Ext;

// Read by the mantissa multiplications of both formats; default 1.
extern int32_t FL_OptionExactRoundUp;

// ---- Special values ----
void FL48_SetUndefined(FL48* x);
void FL48_SetNan(FL48* x);
void FL48_SetUnderflow(FL48* x);
void FL48_SetOverflow(FL48* x);
void FL48_SetLost(FL48* x);
int32_t FL48_IsNan(const FL48* x);
int32_t FL48_IsUnderflow(const FL48* x);
int32_t FL48_IsOverflow(const FL48* x);
void FL64_SetUnderflow(FL64* x);
void FL64_SetOverflow(FL64* x);

// ---- Inspection and format changes ----
void FL48_Abs(FL48* x);
int32_t FL48_Normalize(FL48* dst, const FL48* src);
int32_t FL48_GetValidBits(const FL48* x);
void FL48_ConvToExtended(FL48Ext* dst, const FL48* src);
void FL48_ConvFromExtended(FL48* dst, const FL48Ext* src);

// ---- Mantissa primitives (word 0 untouched unless the name says so) ----
void FL48_INT_MantissaShiftRight(FL48* dst, const FL48* src, int32_t n);
void FL64_INT_MantissaShiftRight(FL64* dst, const FL64* src, int32_t n);
void FL48_INT_MantissaShiftLeft(FL48* dst, const FL48* src, int32_t n);
void FL64_INT_MantissaShiftLeft(FL64* dst, const FL64* src, int32_t n);
// acc[0] = low 32 bits of (mantissa << n), acc[1] = the bits shifted out
// above them (a 64-bit result, least significant word first); n >= 64 gives 0.
void FL48_INT_MantissaShiftLeftToLsw0Accu(uint32_t acc[2], const FL48* src, int32_t n);
void FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponent(FL48* x);
void FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponent(FL64* x);
void FL48_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(FL48* x, int32_t* exp);
void FL64_INT_MantissaShiftRightOneAdjustExactAdjustExponentVar(FL64* x, int32_t* exp);
int32_t FL48_INT_MantissaCountZeroMsb(const FL48* x);
int32_t FL64_INT_MantissaCountZeroMsb(const FL64* x);
int32_t FL48_INT_MantissaNormalizeeExponentSet(FL48* x);
int32_t FL64_INT_MantissaNormalizeeExponentSet(FL64* x);
int32_t FL48_INT_MantissaNormalizeEx(FL48* x, int32_t k);
void FL48_INT_MantissaInvertExponentInvert(FL48* x);
void FL64_INT_MantissaInvertExponentInvert(FL64* x);
int32_t FL48_INT_MantissaAdd(FL48* dst, const FL48* src);
int32_t FL64_INT_MantissaAdd(FL64* dst, const FL64* src);
int32_t FL48_INT_MantissaAddWord(FL48* x, uint32_t w);
int32_t FL64_INT_MantissaAddWord(FL64* x, uint32_t w);
int32_t FL48_INT_MantissaSub(FL48* dst, const FL48* src);
int32_t FL64_INT_MantissaSub(FL64* dst, const FL64* src);
// Product and quotient keep the leading zeros of the less precise operand;
// *exp is lowered or raised by the shift taken. They return 1 when no 1 bit
// of the exact result was dropped. A zero divisor mantissa leaves dst alone,
// returns 0 and raises *exp beyond every exponent field.
int32_t FL48_INT_MantissaMul(FL48* dst, const FL48* src, int32_t* exp);
int32_t FL64_INT_MantissaMul(FL64* dst, const FL64* src, int32_t* exp);
int32_t FL48_INT_MantissaDiv(FL48* dst, const FL48* src, int32_t* exp);
int32_t FL48_INT_MantissaMul10(FL48* x);
int32_t FL64_INT_MantissaMul10(FL64* x);
int32_t FL48_INT_MantissaCompareEqual(const FL48* a, const FL48* b);
void FL48_INT_MantissaClear(FL48* x);
void FL64_INT_MantissaClear(FL64* x);

// Special-value rules; 1 means the result is already in a. op is one of
// '*', '+', '-', '/' (binary) or 'r', '+', '-', 'l', 'e', 's', 'c', 'S', 'T'.
int32_t FL48_INT_HandleExpSpecialBinary(FL48* a, const FL48* b, int32_t op);
int32_t FL64_INT_HandleExpSpecialBinary(FL64* a, const FL64* b, int32_t op);
int32_t FL48_INT_HandleExpSpecialUnary(FL48* a, int32_t op);

uint16_t FL48_Internal_SplitIntFrac(FL48* x);
int32_t FL48_Internal_SplitExpMant(FL48* x);

// ---- Arithmetic (a = a op b) ----
void FL48_Add(FL48* a, const FL48* b);
void FL48_Sub(FL48* a, const FL48* b);
void FL48_Mul(FL48* a, const FL48* b);
void FL48_Div(FL48* a, const FL48* b);
void FL48_Sqrt(FL48* a);
void FL48_AddExp(FL48* a, int32_t n);
void FL64_Add(FL64* a, const FL64* b);
void FL64_Mul(FL64* a, const FL64* b);

int32_t FL48_IsLess(const FL48* a, const FL48* b);
int32_t FL48_IsLessEqual(const FL48* a, const FL48* b);
int32_t FL48_IsGreater(const FL48* a, const FL48* b);
int32_t FL48_IsGreaterEqual(const FL48* a, const FL48* b);
int32_t FL48_IsEqual(const FL48* a, const FL48* b);
int32_t FL48_IsNotEqual(const FL48* a, const FL48* b);

// Rounding modes of FL48_ConvToShort.
enum {
  FL48_ROUND_NEAREST = 0,  // halves away from zero
  FL48_ROUND_TOWARD_ZERO = 1,
  FL48_ROUND_DOWN = 2,     // toward minus infinity
  FL48_ROUND_UP = 3,       // toward plus infinity
};
#define FL48_NO_SHORT_VALUE (-32768)

void FL48_ConvFromShort(FL48* a, int32_t n);
int16_t FL48_ConvToShort(const FL48* a, int32_t mode);

// ---- Text conversion ----
uint32_t FL_ParseFormat(const char* format);
void FL48_ConvToText(char* dst, const FL48* x, uint32_t formatWord);
void FL48_ConvToTextRP(const FL48* x, uint32_t formatWord, uint32_t* dst);
char* FL_CopyText(char* dst, const char* src, int32_t max);

// ---- Elementary functions (in place) ----
void FL48_PolynomEval(FL48* dst, const FL48* x, const FL48* C, int32_t n);
void FL48_PolynomEval1(FL48* dst, const FL48* x, const FL48* C, int32_t n);
void FL48_Ln(FL48* x);
void FL48_Log10(FL48* x);
void FL48_Exp(FL48* x);
void FL48_Exp10(FL48* x);
void FL48_Sin(FL48* x);
void FL48_Cos(FL48* x);
void FL48_Tan(FL48* x);
void FL48_Sin360(FL48* x);
void FL48_Cos360(FL48* x);
void FL48_Tan360(FL48* x);
void FL48_Asin(FL48* x);
void FL48_Acos(FL48* x);
void FL48_Atan(FL48* x);
void FL48_Asin360(FL48* x);
void FL48_Acos360(FL48* x);
void FL48_Atan360(FL48* x);

// ---- Constants ----
extern const FL48 FL48_One;
extern const FL48 FL48_Half;
extern const FL48 FL48_Pi;
extern const FL48 FL48_PiH;
extern const FL48 FL48_PiHI;
extern const FL48 FL48_Sqrt2;
extern const FL48 FL48_Ln2;
extern const FL48 FL48_Ln2I;
extern const FL48 FL48_Deg2Rad;
extern const FL48 FL48_Rad2Deg;
extern const FL48 FL48_Ln10;
extern const FL48 FL48_Ln10I;
extern const FL48 FL48_SqrtApr1;
extern const FL48 FL48_SqrtApr2;
extern const FL48 FL48_AsinLim;
extern const FL48 FL48_AtanLim1;
extern const FL48 FL48_AtanLim2;

// Powers of ten, correctly rounded: 10^(2^k) and 10^-(2^k) for k = 0..11,
// 10^k and 10^-k for k = 0..15.
#define FL_POW2_TABLE_SIZE 12
#define FL_POW_TABLE_SIZE 16
extern const FL48 FL48_Pow10[FL_POW2_TABLE_SIZE];
extern const FL48 FL48_Pow01[FL_POW2_TABLE_SIZE];
extern const FL48 FL48_Pow10_1[FL_POW_TABLE_SIZE];
extern const FL48 FL48_Pow01_1[FL_POW_TABLE_SIZE];
extern const FL64 FL64_Pow10[FL_POW2_TABLE_SIZE];
extern const FL64 FL64_Pow01[FL_POW2_TABLE_SIZE];
extern const FL64 FL64_Pow10_1[FL_POW_TABLE_SIZE];
extern const FL64 FL64_Pow01_1[FL_POW_TABLE_SIZE];

// Polynomial coefficients of the elementary functions, highest power first.
extern const FL48 FL48_LogCofN[6];
extern const FL48 FL48_LogCofD[5];
extern const FL48 FL48_ExpCofN[3];
extern const FL48 FL48_ExpCofD[4];
extern const FL48 FL48_SinCof[6];
extern const FL48 FL48_CosCof[7];
extern const FL48 FL48_TanCofN[3];
extern const FL48 FL48_TanCofD[4];
extern const FL48 FL48_AsinCof1N[6];
extern const FL48 FL48_AsinCof1D[5];
extern const FL48 FL48_AsinCof2N[5];
extern const FL48 FL48_AsinCof2D[4];
extern const FL48 FL48_AtanCofN[5];
extern const FL48 FL48_AtanCofD[5];

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(FL48) == 6 && alignof(FL48) == 2, "FL48 is three words");
static_assert(offsetof(FL48, mant) == 2, "FL48 mantissa offset");
static_assert(sizeof(FL64) == 8 && alignof(FL64) == 2, "FL64 is four words");
static_assert(offsetof(FL64, mant) == 2, "FL64 mantissa offset");
#endif

#endif  // KAVRI_FL48_H
