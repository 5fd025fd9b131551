// Building blocks shared by the FL48 and FL64 routines. Both formats have the
// same word 0 and differ only in the mantissa width, so every primitive is
// written once over Format<Record> and the exported functions are thin
// wrappers around these inline templates (which also keeps calls inside the
// library off the dynamic symbol table).
#ifndef KAVRI_FLOAT_COMMON_H
#define KAVRI_FLOAT_COMMON_H

#include <stdint.h>

#include <algorithm>
#include <cstring>

#include "kavri/FL48.h"

// Internal to the library: hidden, so that calls between its files are
// direct and never go through the dynamic symbol table.
#pragma GCC visibility push(hidden)

namespace kavri::fl {

// The operations' bodies are inlined into each exported entry point.
#define KAVRI_FL_INLINE inline __attribute__((always_inline))

// FL48_Add, FL48_Sub and FL48_Mul are built twice on x86-64: for any
// processor and for those with the three-operand shifts and bit instructions
// (BMI1, BMI2). The loader binds the symbol to the one the processor runs, so
// calls through the GOT cost nothing extra. Each starts on a cache line: their
// fast paths then span three lines instead of four. Not under
// ThreadSanitizer: the loader runs the resolvers before its run-time is up.
// Not under clang either: its version 14 names the dispatcher "FL48_Add.ifunc"
// and leaves FL48_Add itself undefined, so nothing links against it.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define KAVRI_FL_BUILT_TWICE __attribute__((target_clones("arch=x86-64-v3", "default"), aligned(64)))
#else
#define KAVRI_FL_BUILT_TWICE
#endif

// ---- Word 0 ----

inline unsigned fieldOf(uint16_t expWord) { return expWord & FL48_EXP_MASK; }
template <class R>
inline unsigned fieldOf(const R& x) {
  return fieldOf(x.expWord);
}
template <class R>
inline bool isNegative(const R& x) {
  return (x.expWord & FL48_SIGN_BIT) != 0;
}
// The special-value rules count every field of 256 or more as a number.
inline bool isNumberField(unsigned field) { return field >= FL48_EXP_MIN; }
// What an operation may produce as a normal result.
inline bool isNormalField(unsigned field) { return field >= FL48_EXP_MIN && field <= FL48_EXP_MAX; }
template <class R>
inline void setField(R& x, unsigned field) {
  x.expWord = uint16_t((x.expWord & ~FL48_EXP_MASK) | field);
}
// Writes a code over the whole of word 0; the mantissa stays as it was.
template <class R>
inline void setCode(R& x, unsigned code) {
  x.expWord = uint16_t(code);
}

// ---- Mantissa as one integer ----

template <class R>
struct Format;

template <>
struct Format<FL48> {
  using Mant = uint32_t;
  using Wide = uint64_t;  // a full product
  static constexpr int kBits = 32;
  static Mant load(const FL48& x) { return (uint32_t(x.mant[0]) << 16) | x.mant[1]; }
  static void store(FL48& x, Mant m) {
    x.mant[0] = uint16_t(m >> 16);
    x.mant[1] = uint16_t(m);
  }
};

// A 128-bit unsigned value for the FL64 product; only the low 96 bits are used.
struct U128 {
  uint64_t hi;
  uint64_t lo;
};

template <>
struct Format<FL64> {
  using Mant = uint64_t;
  using Wide = U128;
  static constexpr int kBits = 48;
  static Mant load(const FL64& x) {
    return (uint64_t(x.mant[0]) << 32) | (uint32_t(x.mant[1]) << 16) | x.mant[2];
  }
  static void store(FL64& x, Mant m) {
    x.mant[0] = uint16_t(m >> 32);
    x.mant[1] = uint16_t(m >> 16);
    x.mant[2] = uint16_t(m);
  }
};

// Word 0 and the mantissa written with 32-bit stores where the words allow,
// so that a caller reading the record back right away (typically as one
// 4-byte and one 2-byte load) gets the values forwarded from the stores.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are little-endian words");
inline void storeNumber(FL48& x, unsigned head, uint32_t m) {
  x.mant[1] = uint16_t(m);
  uint32_t low = (head & 0xFFFF) | (m >> 16 << 16);
  std::memcpy(&x, &low, 4);
}
inline void storeNumber(FL64& x, unsigned head, uint64_t m) {
  uint32_t low = (head & 0xFFFF) | (uint32_t(m >> 16) & 0xFFFF0000u);
  uint32_t high = (uint32_t(m >> 16) & 0xFFFF) | (uint32_t(m) << 16);
  std::memcpy(&x, &low, 4);
  std::memcpy(&x.mant[1], &high, 4);
}

template <class R>
using MantOf = typename Format<R>::Mant;
template <class R>
inline constexpr int kBitsOf = Format<R>::kBits;
template <class R>
inline constexpr MantOf<R> kMantMask = MantOf<R>(~MantOf<R>(0) >> (8 * sizeof(MantOf<R>) - kBitsOf<R>));
template <class R>
inline constexpr MantOf<R> kMantTop = MantOf<R>(MantOf<R>(1) << (kBitsOf<R> - 1));

template <class R>
inline MantOf<R> loadMant(const R& x) {
  return Format<R>::load(x);
}
template <class R>
inline void storeMant(R& x, MantOf<R> m) {
  Format<R>::store(x, m);
}

// The ones below the mantissa make a zero mantissa count kBits without a
// test of its own.
template <class R>
inline int countZeroMsb(MantOf<R> m) {
  constexpr int kPad = 64 - kBitsOf<R>;
  return __builtin_clzll((uint64_t(m) << kPad) | ((uint64_t(1) << kPad) - 1));
}

// Shift counts at or beyond the width (or negative) give 0, never undefined.
template <class R>
inline MantOf<R> shiftRight(MantOf<R> m, int32_t n) {
  return uint32_t(n) >= uint32_t(kBitsOf<R>) ? 0 : MantOf<R>(m >> n);
}
template <class R>
inline MantOf<R> shiftLeft(MantOf<R> m, int32_t n) {
  return uint32_t(n) >= uint32_t(kBitsOf<R>) ? 0 : MantOf<R>((m << n) & kMantMask<R>);
}

// m += s; returns the carry out of the top.
template <class R>
inline int addMant(MantOf<R>& m, MantOf<R> s) {
  uint64_t sum = uint64_t(m) + s;
  m = MantOf<R>(sum & kMantMask<R>);
  return int(sum >> kBitsOf<R>);
}
// m -= s; returns the borrow out of the top.
template <class R>
inline int subMant(MantOf<R>& m, MantOf<R> s) {
  int borrow = s > m;
  m = MantOf<R>((m - s) & kMantMask<R>);
  return borrow;
}

// After a carry out of the top: the carry enters at the top, the bottom bit
// falls out (and with it the exact flag, if it was a 1).
template <class R>
inline void shiftInCarry(R& x, MantOf<R> m) {
  if (m & 1) x.expWord &= uint16_t(~FL48_EXACT_BIT);
  storeMant(x, MantOf<R>((m >> 1) | kMantTop<R>));
}
template <class R>
inline void shiftRightOneAdjustExponent(R& x, MantOf<R> m) {
  shiftInCarry(x, m);
  unsigned raised = fieldOf(x) + 1;
  if (raised > FL48_EXP_MAX) {
    setCode(x, FL48_CODE_OVERFLOW);
  } else {
    setField(x, raised);
  }
}

// ---- Full products ----

inline uint64_t wideMul(uint32_t a, uint32_t b) { return uint64_t(a) * b; }
// The 32 bits that start s bits below the top (s = 0..32).
inline uint32_t wideTop(uint64_t p, int s) { return uint32_t(p >> (32 - s)); }
inline bool wideDropsOnes(uint64_t p, int s) { return uint32_t(uint64_t(uint32_t(p)) << s) != 0; }

// 48 x 48 bits from 32-bit pieces; the product occupies bits 95..0.
inline U128 wideMul(uint64_t a, uint64_t b) {
  uint64_t aLo = uint32_t(a), aHi = a >> 32, bLo = uint32_t(b), bHi = b >> 32;
  uint64_t low = aLo * bLo;
  uint64_t middle = aHi * bLo + aLo * bHi;  // below 2^49
  uint64_t lo = low + (middle << 32);
  uint64_t carry = lo < low;
  return U128{aHi * bHi + (middle >> 32) + carry, lo};
}
// The 48 bits that start s bits below the top (s = 0..48).
inline uint64_t wideTop(const U128& p, int s) {
  int r = 48 - s;
  uint64_t bits = r == 0 ? p.lo : (p.lo >> r) | (p.hi << (64 - r));
  return bits & ((uint64_t(1) << 48) - 1);
}
inline bool wideDropsOnes(const U128& p, int s) { return (p.lo & ((uint64_t(1) << (48 - s)) - 1)) != 0; }

// Leading zeros of a non-zero full product.
inline int wideCountZeros(uint64_t p) { return __builtin_clzll(p); }
inline int wideCountZeros(const U128& p) { return p.hi ? __builtin_clzll(p.hi) - 32 : 32 + __builtin_clzll(p.lo); }

// The product keeps as many leading zeros as the less precise factor; the
// position of its leading bit is predicted from the factors and, with
// FL_OptionExactRoundUp, checked once. Returns the shift that takes the
// mantissa from the full product.
template <class R>
inline int productShift(MantOf<R> a, MantOf<R> b, const typename Format<R>::Wide& product) {
  int za = countZeroMsb<R>(a), zb = countZeroMsb<R>(b);
  int z = za + zb;
  if (FL_OptionExactRoundUp != 0 && z < 2 * kBitsOf<R>) {
    // The product has z or z + 1 leading zeros: testing the bit at z and
    // counting them agree. A zero product has no leading bit to test.
    z = (a != 0 && b != 0) ? wideCountZeros(product) : z + 1;
  }
  return z - std::max(za, zb);
}

// exact: no 1 bit of the full product was dropped.
template <class R>
inline MantOf<R> mantissaProduct(MantOf<R> a, MantOf<R> b, int32_t& exp, int& exact) {
  auto product = wideMul(a, b);
  int shift = productShift<R>(a, b, product);
  exp -= shift;
  exact = !wideDropsOnes(product, shift);
  return MantOf<R>(wideTop(product, shift));
}

template <class R>
inline int mantissaMul(R& dst, const R& src, int32_t& exp) {
  int exact;
  storeMant(dst, mantissaProduct<R>(loadMant(dst), loadMant(src), exp, exact));
  return exact;
}

// ---- Special-value rules ----

enum class Special {
  kNone,  // both operands are numbers: the operation goes on
  kKeep,  // a stays as it is
  kCopyB,
  kCopyBNegated,
  kUndefined,
  kNan,
  kUnderflow,
  kOverflow,
  kLost,
  kOne,
};

Special binarySpecial(unsigned fa, unsigned fb, int op);
Special unarySpecial(unsigned fa, bool negative, int op);

template <class R>
inline void setOne(R& x) {
  x = R{};
  x.expWord = FL48_EXACT_BIT | (FL48_EXP_BIAS + 1);
  storeMant(x, kMantTop<R>);
}

// Writes what a rule decided into a; returns 1 when the operation ends there.
template <class R>
inline int applySpecial(R& a, const R& b, Special s) {
  switch (s) {
    case Special::kNone: return 0;
    case Special::kKeep: break;
    case Special::kCopyB: a = b; break;
    case Special::kCopyBNegated:
      a = b;
      a.expWord ^= FL48_SIGN_BIT;
      break;
    case Special::kUndefined: setCode(a, FL48_CODE_UNDEFINED); break;
    case Special::kNan: setCode(a, FL48_CODE_NAN); break;
    case Special::kUnderflow: setCode(a, FL48_CODE_UNDERFLOW); break;
    case Special::kOverflow: setCode(a, FL48_CODE_OVERFLOW); break;
    case Special::kLost: setCode(a, FL48_CODE_LOST); break;
    case Special::kOne: setOne(a); break;
  }
  return 1;
}

// The rare path, out of line so that the operations' fast paths need no
// stack frame and reach it with a tail call.
template <class R>
[[gnu::noinline]] int applyBinarySpecial(R& a, const R& b, int op) {
  return applySpecial(a, b, binarySpecial(fieldOf(a), fieldOf(b), op));
}

template <class R>
inline bool bothNumbers(const R& a, const R& b) {
  return isNumberField(fieldOf(a)) & isNumberField(fieldOf(b));
}

inline int handleSpecialUnary(FL48& a, int op) {
  return applySpecial(a, a, unarySpecial(fieldOf(a), isNegative(a), op));
}

template <class R>
inline int handleSpecialBinary(R& a, const R& b, int op) {
  if (bothNumbers(a, b)) [[likely]] return 0;
  return applyBinarySpecial(a, b, op);
}

// ---- Record-level primitives behind the exported FL48_INT_* / FL64_INT_* ----

template <class R>
inline void mantissaShiftRight(R& dst, const R& src, int32_t n) {
  storeMant(dst, shiftRight<R>(loadMant(src), n));
}
template <class R>
inline void mantissaShiftLeft(R& dst, const R& src, int32_t n) {
  storeMant(dst, shiftLeft<R>(loadMant(src), n));
}
template <class R>
inline void mantissaShiftRightOneVar(R& x, int32_t& exp) {
  shiftInCarry(x, loadMant(x));
  ++exp;
}
// Treats the mantissa as an integer and makes it a normalised number.
template <class R>
inline int mantissaNormalizeExponentSet(R& x) {
  MantOf<R> m = loadMant(x);
  int z = countZeroMsb<R>(m);
  storeMant(x, shiftLeft<R>(m, z));
  x.expWord = uint16_t(FL48_EXP_BIAS + kBitsOf<R> - z);
  return z;
}
template <class R>
inline void mantissaNegate(R& x) {
  storeMant(x, MantOf<R>((0 - loadMant(x)) & kMantMask<R>));
  x.expWord ^= FL48_SIGN_BIT;
}
template <class R>
inline int mantissaAdd(R& dst, const R& src) {
  MantOf<R> m = loadMant(dst);
  int carry = addMant<R>(m, loadMant(src));
  storeMant(dst, m);
  return carry;
}
template <class R>
inline int mantissaAddWord(R& x, uint32_t w) {
  MantOf<R> m = loadMant(x);
  int carry = addMant<R>(m, MantOf<R>(w & 0xFFFF));
  storeMant(x, m);
  return carry;
}
template <class R>
inline int mantissaSub(R& dst, const R& src) {
  MantOf<R> m = loadMant(dst);
  int borrow = subMant<R>(m, loadMant(src));
  storeMant(dst, m);
  return borrow;
}
template <class R>
inline int mantissaMul10(R& x) {
  uint64_t m = loadMant(x);
  // (m << 3) + (m << 1) without leaving 64 bits: m has at most 48 bits.
  uint64_t product = (m << 3) + (m << 1);
  storeMant(x, MantOf<R>(product & kMantMask<R>));
  return (product >> kBitsOf<R>) != 0;
}

// Beyond every exponent field: what a zero divisor mantissa adds to the counter.
inline constexpr int32_t kDivideByZeroExponentStep = 0x10000;

// floor(a * 2^shift / b) and whether nothing remains, for a < 2^32,
// 2^31 <= b < 2^32, shift <= 32 and a quotient below 2^32. Where 64-bit
// integer division is an instruction it is used as it stands; on 32-bit ARM
// it is a slow library call, so there the hardware double division estimates
// the quotient to within one and the integer remainder corrects it, which
// gives the same exact floor.
inline uint32_t longDivide(uint32_t a, int shift, uint32_t b, int& exact) {
  uint64_t numerator = uint64_t(a) << shift;
#if UINTPTR_MAX > 0xFFFFFFFFu
  exact = numerator % b == 0;
  return uint32_t(numerator / b);
#else
  uint64_t scaleBits = uint64_t(1023 + shift) << 52;  // 2^shift as a double
  double scale;
  std::memcpy(&scale, &scaleBits, sizeof scale);
  double estimate = std::min(double(a) * scale / double(b), 4294967295.0);
  uint32_t q = uint32_t(estimate);
  uint64_t product = uint64_t(q) * b;
  if (product > numerator) {
    --q;
    product -= b;
  }
  uint64_t remainder = numerator - product;
  if (remainder >= b) {
    ++q;
    remainder -= b;
  }
  exact = remainder == 0;
  return q;
#endif
}

// Division of the normalised mantissas, shifted so that the quotient keeps as
// many leading zeros as the less precise operand, like the product. A zero
// divisor mantissa (a cancelled difference) pushes the counter beyond every
// exponent, so that the caller's range check makes the result overflow.
inline uint32_t mantissaQuotient(uint32_t dividend, uint32_t divisor, int32_t& exp, int& exact) {
  exact = 1;
  if (divisor == 0) {
    exp += kDivideByZeroExponentStep;
    exact = 0;
    return dividend;
  }
  if (dividend == 0) return 0;
  int za = countZeroMsb<FL48>(dividend), zb = countZeroMsb<FL48>(divisor);
  int keptZeros = std::max(za, zb);
  uint32_t a = dividend << za, b = divisor << zb;
  int quotientAboveOne = a >= b;
  exp += quotientAboveOne + keptZeros + zb - za;
  return longDivide(a, 32 - quotientAboveOne - keptZeros, b, exact);
}

inline int mantissaDiv(FL48& dst, const FL48& src, int32_t& exp) {
  int exact;
  storeMant(dst, mantissaQuotient(loadMant(dst), loadMant(src), exp, exact));
  return exact;
}

// ---- Operations common to both formats ----

// v or -v without a branch (the sign of real data is unpredictable), in the
// form that each target's compiler turns into straight-line code.
inline int64_t negatedIf(int64_t v, bool negate) {
#if defined(__arm__)
  int64_t mask = -int64_t(negate);
  return (v ^ mask) - mask;
#else
  return negate ? -v : v;
#endif
}

// v * 2^shift for shift 0 or 1; without a 64-bit shifter (32-bit ARM) as an
// addition.
inline uint64_t doubledIf(uint64_t v, unsigned shift) {
#if defined(__arm__)
  return v + (v & (0 - uint64_t(shift)));
#else
  return v << shift;
#endif
}

// A number held in registers: word 0 and the mantissa.
template <class R>
struct Number {
  unsigned head;
  MantOf<R> mant;
};

// Read word by word: a wider load over words that were just written one by
// one (FL48_Abs, the setters, a field changed in place) would wait for the
// stores to retire instead of taking their values.
template <class R>
inline Number<R> loadNumber(const R& x) {
  return {x.expWord, loadMant(x)};
}

// a + b (subtract: a - b) of two numbers (fields of 256 or more). Not
// normalised afterwards: cancellation keeps its leading zeros, which is how
// the number of valid bits travels. The steps are those of the primitives
// (align the smaller operand, add or subtract the magnitudes, negate after a
// borrow, shift a carry back in), in one signed 64-bit sum so that the signs
// and exponents of real data, which are unpredictable, cost no branches.
template <class R>
struct AlignedSum {
  int64_t sum;    // a's magnitude plus or minus b's, aligned to the larger field
  unsigned head;  // a's sign and exact flag with the larger field
  int32_t field;
};

template <class R>
KAVRI_FL_INLINE AlignedSum<R> alignedSum(const R& a, const R& b, bool subtract) {
  int32_t fa = int32_t(fieldOf(a)), fb = int32_t(fieldOf(b));
  uint64_t ma = loadMant(a), mb = loadMant(b);
  // The shifts that align both to the larger field (one of them is 0), as
  // masks: written as a maximum, GCC may compare and branch.
  int32_t d = fa - fb;
  int32_t bLarger = d >> 31;  // all ones when b's field is the larger
  int32_t shiftB = d & ~bLarger, shiftA = -d & bLarger;
  if (shiftA + shiftB < kBitsOf<R>) [[likely]] {
    ma >>= shiftA;
    mb >>= shiftB;
  } else {  // the smaller operand is shifted out entirely
    ma = shiftA ? 0 : ma;
    mb = shiftB ? 0 : mb;
  }
  bool unlike = (((a.expWord ^ b.expWord) & FL48_SIGN_BIT) != 0) != subtract;
  // Raising a's field by its shift never reaches the flags.
  return {int64_t(ma) + negatedIf(int64_t(mb), unlike), a.expWord + unsigned(shiftA), fa + shiftA};
}

// Below the top field a carry cannot overflow; the caller says whether the
// operands are known to be there.
template <class R>
KAVRI_FL_INLINE Number<R> sumOfNumbers(const R& a, const R& b, bool subtract, bool belowTop) {
  AlignedSum<R> aligned = alignedSum(a, b, subtract);
  unsigned head = aligned.head;
  int64_t borrow = aligned.sum >> 63;  // all ones after a borrow
  uint64_t magnitude = uint64_t((aligned.sum ^ borrow) - borrow);
  head ^= unsigned(borrow & FL48_SIGN_BIT);
  unsigned carry = unsigned(magnitude >> kBitsOf<R>);
  head &= ~((carry & unsigned(magnitude)) << 14);  // a 1 shifted out: no longer exact
  magnitude >>= carry;
  head += carry;
  if (belowTop) {
    if (head > 0xFFFF) __builtin_unreachable();  // the field stays below the top
  } else {
    if (carry && aligned.field >= FL48_EXP_MAX) head = FL48_CODE_OVERFLOW;
  }
  return {head, MantOf<R>(magnitude)};
}

// Both operands are numbers below the top field: the sum needs neither the
// special rules nor the overflow test.
template <class R>
inline bool bothBelowTop(const R& a, const R& b) {
  constexpr unsigned kSpan = FL48_EXP_MAX - FL48_EXP_MIN;
  return (fieldOf(a) - FL48_EXP_MIN < kSpan) & (fieldOf(b) - FL48_EXP_MIN < kSpan);
}

template <class R>
[[gnu::noinline]] void addOrSubtractAny(R& a, const R& b, bool subtract) {
  if (!bothNumbers(a, b)) {
    applyBinarySpecial(a, b, subtract ? '-' : '+');
    return;
  }
  Number<R> sum = sumOfNumbers(a, b, subtract, false);
  storeNumber(a, sum.head, sum.mant);
}

template <class R>
KAVRI_FL_INLINE void addOrSubtract(R& a, const R& b, bool subtract) {
  if (!bothBelowTop(a, b)) [[unlikely]] {
    addOrSubtractAny(a, b, subtract);
    return;
  }
  Number<R> sum = sumOfNumbers(a, b, subtract, true);
  storeNumber(a, sum.head, sum.mant);
}

// a = the product or quotient m with the exponent counter exp; headA and
// headB are the operands' words 0.
template <class R>
inline void finishProductOrQuotient(R& a, unsigned headA, unsigned headB, int32_t exp, int exact, MantOf<R> m) {
  unsigned head;
  if (uint32_t(exp - FL48_EXP_MIN) <= uint32_t(FL48_EXP_MAX - FL48_EXP_MIN)) [[likely]] {
    unsigned sign = (headA ^ headB) & FL48_SIGN_BIT;
    unsigned exactFlag = exact ? (headA & headB & FL48_EXACT_BIT) : 0;
    head = sign | exactFlag | unsigned(exp);
  } else {
    head = exp < FL48_EXP_MIN ? FL48_CODE_UNDERFLOW : FL48_CODE_OVERFLOW;
  }
  storeNumber(a, head, m);
}

// A mantissa taken from a full product: the bits `shift` below its top and
// whether no 1 bit below them was dropped.
template <class R>
struct ProductBits {
  MantOf<R> mant;
  int shift;
  int exact;
};

template <class R>
inline ProductBits<R> productBits(const typename Format<R>::Wide& product, int shift) {
  return {MantOf<R>(wideTop(product, shift)), shift, !wideDropsOnes(product, shift)};
}

// The product of two normalised mantissas has 0 or 1 leading zero, so the
// rule's count reduces to its top bit: the product is doubled when that bit
// is clear, and the mantissa is its upper half.
inline ProductBits<FL48> normalProductBits(uint64_t product) {
  unsigned shift = unsigned(~product >> 63);  // 1 when the top bit is clear
  uint64_t aligned = doubledIf(product, shift);
  return {uint32_t(aligned >> 32), int(shift), uint32_t(aligned) == 0};
}
inline ProductBits<FL64> normalProductBits(const U128& product) {
  return productBits<FL64>(product, wideCountZeros(product));
}

template <class R>
[[gnu::noinline]] void multiplyAnyFactors(R& a, const R& b) {
  Number<R> na = loadNumber(a), nb = loadNumber(b);
  auto product = wideMul(na.mant, nb.mant);
  ProductBits<R> p = productBits<R>(product, productShift<R>(na.mant, nb.mant, product));
  int32_t exp = int32_t(fieldOf(uint16_t(na.head))) + int32_t(fieldOf(uint16_t(nb.head))) - FL48_EXP_BIAS - p.shift;
  finishProductOrQuotient(a, na.head, nb.head, exp, p.exact, p.mant);
}

// Normalised factors, the usual case, take a path of their own without calls.
template <class R>
KAVRI_FL_INLINE void multiply(R& a, const R& b) {
  Number<R> na = loadNumber(a), nb = loadNumber(b);
  if (!bothNumbers(a, b)) [[unlikely]] {
    applyBinarySpecial(a, b, '*');
    return;
  }
  if (!(na.mant & nb.mant & kMantTop<R>) || FL_OptionExactRoundUp == 0) [[unlikely]] {
    multiplyAnyFactors(a, b);
    return;
  }
  ProductBits<R> p = normalProductBits(wideMul(na.mant, nb.mant));
  int32_t exp = int32_t(fieldOf(uint16_t(na.head))) + int32_t(fieldOf(uint16_t(nb.head))) - FL48_EXP_BIAS - p.shift;
  finishProductOrQuotient(a, na.head, nb.head, exp, p.exact, p.mant);
}

KAVRI_FL_INLINE void divide(FL48& a, const FL48& b) {
  if (!bothNumbers(a, b)) [[unlikely]] {
    applyBinarySpecial(a, b, '/');
    return;
  }
  int32_t exp = int32_t(fieldOf(a)) - int32_t(fieldOf(b)) + FL48_EXP_BIAS;
  int exact;
  uint32_t m = mantissaQuotient(loadMant(a), loadMant(b), exp, exact);
  finishProductOrQuotient(a, a.expWord, b.expWord, exp, exact, m);
}

}  // namespace kavri::fl

#pragma GCC visibility pop

#endif  // KAVRI_FLOAT_COMMON_H
