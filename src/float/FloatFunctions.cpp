// Elementary functions on FL48: one argument reduction and one rational (or
// polynomial) approximation each, built only from the FL48 operations, so
// special values arising inside propagate by the operations' own rules.
#include "kavri/FL48.h"

namespace {

constexpr int32_t kExpSaturationField = FL48_EXP_BIAS + 13;  // |x| >= 4096
constexpr int32_t kTrigLostField = FL48_EXP_BIAS + 30;       // |x| >= 2^29

int32_t ExponentField(const FL48& x) { return x.expWord & FL48_EXP_MASK; }

bool IsNegative(const FL48& x) { return (x.expWord & FL48_SIGN_BIT) != 0; }

// Specials keep their bare code in word 0, so only numbers change sign.
void Negate(FL48& x) {
  if (ExponentField(x) >= FL48_EXP_MIN) x.expWord ^= FL48_SIGN_BIT;
}

FL48 Product(FL48 a, const FL48& b) {
  FL48_Mul(&a, &b);
  return a;
}

FL48 Difference(FL48 a, const FL48& b) {
  FL48_Sub(&a, &b);
  return a;
}

FL48 Polynom(const FL48& x, const FL48* c, int32_t degree) {
  FL48 p;
  FL48_PolynomEval(&p, &x, c, degree);
  return p;
}

FL48 MonicPolynom(const FL48& x, const FL48* c, int32_t degree) {
  FL48 q;
  FL48_PolynomEval1(&q, &x, c, degree);
  return q;
}

// a + a*z*P(z)/Q(z), the shape shared by the odd kernels.
FL48 OddRational(const FL48& a, const FL48& z, const FL48* p, int32_t pDegree, const FL48* q, int32_t qDegree) {
  FL48 t = Product(a, z);
  const FL48 num = Polynom(z, p, pDegree);
  const FL48 den = MonicPolynom(z, q, qDegree);
  FL48_Mul(&t, &num);
  FL48_Div(&t, &den);
  FL48_Add(&t, &a);
  return t;
}

// |x| = (q + r / (pi/2)) * pi/2 with r in [0, pi/2); q modulo 65536.
uint16_t ReduceQuadrant(FL48& x) {
  FL48_Abs(&x);
  FL48_Mul(&x, &FL48_PiHI);
  const uint16_t q = FL48_Internal_SplitIntFrac(&x);
  FL48_Mul(&x, &FL48_PiH);
  return q;
}

FL48 SinKernel(const FL48& r) {
  const FL48 z = Product(r, r);
  FL48 t = Product(r, z);
  const FL48 s = Polynom(z, FL48_SinCof, 5);
  FL48_Mul(&t, &s);
  FL48_Add(&t, &r);
  return t;
}

FL48 CosKernel(const FL48& r) {
  const FL48 z = Product(r, r);
  FL48 t = Polynom(z, FL48_CosCof, 6);
  FL48_Mul(&t, &z);
  FL48_Add(&t, &FL48_One);
  return t;
}

// The kernel of quadrant (q + shift) mod 4: sin, cos, -sin, -cos.
FL48 QuadrantValue(const FL48& r, uint32_t quadrant) {
  FL48 v = (quadrant & 1) == 0 ? SinKernel(r) : CosKernel(r);
  if ((quadrant & 2) != 0) Negate(v);
  return v;
}

bool TrigArgumentTooLarge(FL48* x) {
  if (ExponentField(*x) < kTrigLostField) return false;
  FL48_SetLost(x);
  return true;
}

FL48 Reciprocal(const FL48& y) {
  FL48 r = FL48_One;
  FL48_Div(&r, &y);
  return r;
}

// Unary step of the degree variants: convert, then the radian function.
void InDegrees(FL48* x, void (*radians)(FL48*)) {
  FL48_Mul(x, &FL48_Deg2Rad);
  radians(x);
}

void ToDegrees(FL48* x, void (*radians)(FL48*)) {
  radians(x);
  FL48_Mul(x, &FL48_Rad2Deg);
}

}  // namespace

extern "C" {

void FL48_PolynomEval(FL48* dst, const FL48* x, const FL48* C, int32_t n) {
  const FL48 arg = *x;  // dst may be x
  *dst = C[0];
  for (int32_t i = 1; i <= n; ++i) {
    FL48_Mul(dst, &arg);
    FL48_Add(dst, &C[i]);
  }
}

void FL48_PolynomEval1(FL48* dst, const FL48* x, const FL48* C, int32_t n) {
  const FL48 arg = *x;
  *dst = C[0];
  FL48_Add(dst, &arg);
  for (int32_t i = 1; i < n; ++i) {
    FL48_Mul(dst, &arg);
    FL48_Add(dst, &C[i]);
  }
}

void FL48_Ln(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 'l') != 0) return;
  const int32_t k = FL48_Internal_SplitExpMant(x);
  const FL48 f = Difference(*x, FL48_One);
  FL48 z = Product(f, f);
  FL48 r = Polynom(f, FL48_LogCofN, 5);
  const FL48 q = MonicPolynom(f, FL48_LogCofD, 5);
  FL48_Div(&r, &q);
  FL48_Mul(&r, &z);
  FL48_Mul(&r, &f);
  FL48_AddExp(&z, -1);
  FL48_Sub(&r, &z);
  FL48_Add(&r, &f);
  if (k != 0) {
    FL48 base;
    FL48_ConvFromShort(&base, static_cast<int16_t>(k));
    FL48_Mul(&base, &FL48_Ln2);
    FL48_Add(&base, &r);
    r = base;
  }
  *x = r;
}

void FL48_Log10(FL48* x) {
  FL48_Ln(x);
  FL48_Mul(x, &FL48_Ln10I);
}

void FL48_Exp(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 'e') != 0) return;
  if (ExponentField(*x) >= kExpSaturationField) {
    if (IsNegative(*x)) {
      FL48_SetUnderflow(x);
    } else {
      FL48_SetOverflow(x);
    }
    return;
  }
  const FL48 scaled = Product(*x, FL48_Ln2I);
  const int32_t n = FL48_ConvToShort(&scaled, FL48_ROUND_NEAREST);
  if (n != 0) {
    FL48 c;
    FL48_ConvFromShort(&c, n);
    FL48_Mul(&c, &FL48_Ln2);
    FL48_Sub(x, &c);
  }
  const FL48 z = Product(*x, *x);
  FL48 p = Polynom(z, FL48_ExpCofN, 2);
  FL48_Mul(&p, x);
  FL48 q = Polynom(z, FL48_ExpCofD, 3);
  FL48_Sub(&q, &p);
  FL48_Div(&p, &q);
  FL48_AddExp(&p, 1);
  FL48_Add(&p, &FL48_One);
  FL48_AddExp(&p, n);
  *x = p;
}

void FL48_Exp10(FL48* x) {
  FL48_Mul(x, &FL48_Ln10);
  FL48_Exp(x);
}

void FL48_Sin(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 's') != 0 || TrigArgumentTooLarge(x)) return;
  const bool negative = IsNegative(*x);
  const uint16_t q = ReduceQuadrant(*x);
  *x = QuadrantValue(*x, q);
  if (negative) Negate(*x);
}

void FL48_Cos(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 'c') != 0 || TrigArgumentTooLarge(x)) return;
  const uint16_t q = ReduceQuadrant(*x);
  *x = QuadrantValue(*x, q + 1u);
}

void FL48_Tan(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 's') != 0 || TrigArgumentTooLarge(x)) return;
  const bool negative = IsNegative(*x);
  const uint16_t q = ReduceQuadrant(*x);
  const FL48 z = Product(*x, *x);
  FL48 y = OddRational(*x, z, FL48_TanCofN, 2, FL48_TanCofD, 4);
  const bool odd = (q & 1) != 0;
  if (odd != negative) Negate(y);
  *x = odd ? Reciprocal(y) : y;
}

void FL48_Asin(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 'S') != 0) return;
  const bool negative = IsNegative(*x);
  FL48 a = *x;
  FL48_Abs(&a);
  if (FL48_IsGreater(&a, &FL48_AsinLim) != 0) {
    const FL48 z = Difference(FL48_One, a);
    FL48 p = Product(z, Polynom(z, FL48_AsinCof2N, 4));
    const FL48 q = MonicPolynom(z, FL48_AsinCof2D, 4);
    FL48_Div(&p, &q);
    FL48 s = z;
    FL48_AddExp(&s, 1);
    FL48_Sqrt(&s);
    FL48_Mul(&p, &s);
    *x = FL48_PiH;
    FL48_Sub(x, &s);
    FL48_Sub(x, &p);
  } else {
    *x = OddRational(a, Product(a, a), FL48_AsinCof1N, 5, FL48_AsinCof1D, 5);
  }
  if (negative) Negate(*x);
}

void FL48_Acos(FL48* x) {
  if (FL48_IsGreater(x, &FL48_Half) != 0) {
    FL48 t = Difference(FL48_One, *x);
    FL48_AddExp(&t, -1);
    FL48_Sqrt(&t);
    FL48_Asin(&t);
    // A product by 2 keeps a zero zero and the valid bits as they are.
    FL48 two;
    FL48_ConvFromShort(&two, 2);
    *x = Product(t, two);
    return;
  }
  FL48_Asin(x);
  *x = Difference(FL48_PiH, *x);
}

void FL48_Atan(FL48* x) {
  if (FL48_INT_HandleExpSpecialUnary(x, 'T') != 0) return;
  const bool negative = IsNegative(*x);
  FL48 a = *x;
  FL48_Abs(&a);
  FL48 base;
  if (FL48_IsGreater(&a, &FL48_AtanLim1) != 0) {
    base = FL48_PiH;
    a = Reciprocal(a);
    Negate(a);
  } else if (FL48_IsGreater(&a, &FL48_AtanLim2) != 0) {
    base = FL48_PiH;
    FL48_AddExp(&base, -1);
    FL48 sum = a;
    FL48_Add(&sum, &FL48_One);
    FL48_Sub(&a, &FL48_One);
    FL48_Div(&a, &sum);
  } else {
    FL48_SetUnderflow(&base);
  }
  const FL48 t = OddRational(a, Product(a, a), FL48_AtanCofN, 4, FL48_AtanCofD, 5);
  FL48_Add(&base, &t);
  *x = base;
  if (negative) Negate(*x);
}

void FL48_Sin360(FL48* x) { InDegrees(x, FL48_Sin); }
void FL48_Cos360(FL48* x) { InDegrees(x, FL48_Cos); }
void FL48_Tan360(FL48* x) { InDegrees(x, FL48_Tan); }
void FL48_Asin360(FL48* x) { ToDegrees(x, FL48_Asin); }
void FL48_Acos360(FL48* x) { ToDegrees(x, FL48_Acos); }
void FL48_Atan360(FL48* x) { ToDegrees(x, FL48_Atan); }

}  // extern "C"
