// FL48 operations against the hardware double operation (and, on 32-bit ARM,
// the compiler's soft-float routines) in the same run. Every operation is
// called the way downloaded code calls it: through a function, on records in
// memory; the hardware reference is the same shape, a non-inlined call that
// applies the double operation to its first argument.
#include <benchmark/benchmark.h>

#include <time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <random>
#include <vector>

#include "FL48LongDouble.h"
#include "kavri/FL48.h"

namespace {

constexpr int kCount = 4096;

struct Operands {
  std::vector<FL48> a, b, out;
  std::vector<double> da, db, dout;
  std::vector<int32_t> shorts, flags;
};

FL48 RandomNumber(std::mt19937& random, bool mayBeNegative) {
  uint16_t head = uint16_t(0x2000 + int(random() % 16) - 8);
  if (mayBeNegative && (random() & 1)) head |= FL48_SIGN_BIT;
  uint32_t mant = uint32_t(random()) | 0x80000000u;
  return FL48{head, {uint16_t(mant >> 16), uint16_t(mant)}};
}

// a is positive (Sqrt needs it), b has either sign, so that Add mixes real
// additions and subtractions with alignment shifts.
Operands MakeOperands() {
  Operands ops;
  std::mt19937 random(1234);
  for (int i = 0; i < kCount; ++i) {
    ops.a.push_back(RandomNumber(random, false));
    ops.b.push_back(RandomNumber(random, true));
    ops.da.push_back(double(fl48ld::Value(ops.a.back())));
    ops.db.push_back(double(fl48ld::Value(ops.b.back())));
    ops.shorts.push_back(int32_t(int16_t(random())));
  }
  ops.out.resize(kCount);
  ops.dout.resize(kCount);
  ops.flags.resize(kCount);
  return ops;
}

// Thread CPU time, so that other processes on a busy machine do not count.
double ThreadNs() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

template <class Pass>
double NsPerOperation(Pass&& pass) {
  double start = ThreadNs();
  pass();
  return (ThreadNs() - start) / kCount;
}

// The references keep their pointer arguments (no interprocedural rewrite
// that passes *b by value). The binary and comparison loops and every
// reference start on a cache line, as the library's fast entry points do, so
// that a change elsewhere in the program cannot move one side across a line
// and not the other.
#define KAVRI_REFERENCE __attribute__((noipa, aligned(64)))
#define KAVRI_LOOP __attribute__((noinline, aligned(64), optimize("align-loops=64")))
#define KAVRI_PASS inline __attribute__((always_inline))
KAVRI_REFERENCE void HardAdd(double* a, const double* b) { *a += *b; }
KAVRI_REFERENCE void HardMul(double* a, const double* b) { *a *= *b; }
KAVRI_REFERENCE void HardDiv(double* a, const double* b) { *a /= *b; }
KAVRI_REFERENCE void HardSqrt(double* a) { *a = std::sqrt(*a); }
KAVRI_REFERENCE void HardFromShort(double* a, int32_t n) { *a = double(int16_t(n)); }
KAVRI_REFERENCE int32_t HardLess(const double* a, const double* b) { return *a < *b; }
KAVRI_REFERENCE int32_t HardEqual(const double* a, const double* b) { return *a == *b; }

#if defined(__arm__)
extern "C" __attribute__((pcs("aapcs"))) double __aeabi_dadd(double, double);
extern "C" __attribute__((pcs("aapcs"))) double __aeabi_dmul(double, double);
extern "C" __attribute__((pcs("aapcs"))) double __aeabi_ddiv(double, double);
#define KAVRI_SOFT_FLOAT 1
#endif

// Where a loop sits relative to the function it calls moves its speed by up
// to a tenth on current x86 cores, whose instruction caches and predictors
// are indexed by address bits; an unrelated change can move a loop. So each
// loop is built at kPlacements offsets spread over a page (a jump over
// padding of a different length in each copy), and the figures are medians
// over the copies. Elsewhere all copies are the same code.
constexpr int kPlacements = 8;
constexpr int kPlacementStep = 9 * 64;

template <int Placement>
inline void PlaceLoop() {
#if defined(__x86_64__)
  asm volatile("jmp 1f\n\t.skip %c0, 0xcc\n1:" ::"i"(Placement * kPlacementStep));
#endif
}

using Pass = void (*)(Operands&);
template <size_t N>
using Passes = std::array<Pass, N>;

// One copy of a pass (inlined into it) at one placement.
template <Pass Body, int Placement>
KAVRI_LOOP void PlacedPass(Operands& ops) {
  PlaceLoop<Placement>();
  Body(ops);
}
template <Pass Body, int... P>
constexpr Passes<sizeof...(P)> AllPlacements(std::integer_sequence<int, P...>) {
  return {&PlacedPass<Body, P>...};
}
template <Pass Body>
constexpr Passes<kPlacements> Placed() {
  return AllPlacements<Body>(std::make_integer_sequence<int, kPlacements>());
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// One benchmark per operation: each round times every copy of the FL48 pass
// and of the reference pass over the same operands.
template <size_t N>
void Compare(benchmark::State& state, const Passes<N>& fl, const Passes<N>& hard, double (*soft)(Operands&) = nullptr) {
  Operands ops = MakeOperands();
  std::vector<double> flNs(N), hardNs(N);
  double softNs = 0;
  int rounds = 0;
  for (auto _ : state) {
    for (size_t p = 0; p < N; ++p) {
      flNs[p] += NsPerOperation([&] { fl[p](ops); });
      hardNs[p] += NsPerOperation([&] { hard[p](ops); });
    }
    if (soft) softNs += soft(ops);
    benchmark::DoNotOptimize(ops.out.data());
    benchmark::DoNotOptimize(ops.dout.data());
    benchmark::DoNotOptimize(ops.flags.data());
    benchmark::ClobberMemory();
    ++rounds;
  }
  for (size_t p = 0; p < N; ++p) {
    flNs[p] /= rounds;
    hardNs[p] /= rounds;
  }
  double fl48 = Median(flNs), reference = Median(hardNs);
  state.counters["fl48_ns"] = fl48;
  state.counters["double_ns"] = reference;
  state.counters["x_double"] = fl48 / reference;
  if (N > 1) {
    state.counters["fl48_ns_min"] = *std::min_element(flNs.begin(), flNs.end());
    state.counters["fl48_ns_max"] = *std::max_element(flNs.begin(), flNs.end());
    state.counters["double_ns_min"] = *std::min_element(hardNs.begin(), hardNs.end());
    state.counters["double_ns_max"] = *std::max_element(hardNs.begin(), hardNs.end());
  }
  if (soft) {
    softNs /= rounds;
    state.counters["softfloat_ns"] = softNs;
    state.counters["x_softfloat"] = fl48 / softNs;
  }
}

// The passes, one for FL48 and one for double, over the arrays named. The
// binary ones hold the array addresses in registers: otherwise the FL48 loop,
// whose callee the compiler cannot see, reloads them after every call while
// the reference loop, whose callee it can see, does not.
template <class T>
using Array = std::vector<T> Operands::*;

template <class T, void (*Op)(T*, const T*), Array<T> A, Array<T> B, Array<T> Out>
KAVRI_PASS void BinaryPass(Operands& ops) {
  const T *a = (ops.*A).data(), *b = (ops.*B).data();
  T* out = (ops.*Out).data();
  for (int i = 0; i < kCount; ++i) {
    T x = a[i];
    Op(&x, &b[i]);
    out[i] = x;
  }
}
template <class T, int32_t (*Op)(const T*, const T*), Array<T> A, Array<T> B>
KAVRI_PASS void PredicatePass(Operands& ops) {
  for (int i = 0; i < kCount; ++i) ops.flags[i] = Op(&(ops.*A)[i], &(ops.*B)[i]);
}

template <void (*Op)(FL48*, const FL48*)>
constexpr Pass FlBinary = BinaryPass<FL48, Op, &Operands::a, &Operands::b, &Operands::out>;
template <void (*Op)(double*, const double*)>
constexpr Pass HardBinary = BinaryPass<double, Op, &Operands::da, &Operands::db, &Operands::dout>;
template <int32_t (*Op)(const FL48*, const FL48*)>
constexpr Pass FlPredicate = PredicatePass<FL48, Op, &Operands::a, &Operands::b>;
template <int32_t (*Op)(const double*, const double*)>
constexpr Pass HardPredicate = PredicatePass<double, Op, &Operands::da, &Operands::db>;

#ifdef KAVRI_SOFT_FLOAT
template <double (*Op)(double, double)>
double SoftBinary(Operands& ops) {
  return NsPerOperation([&] {
    for (int i = 0; i < kCount; ++i) ops.dout[i] = Op(ops.da[i], ops.db[i]);
  });
}
#define KAVRI_SOFT(op) SoftBinary<op>
#else
#define KAVRI_SOFT(op) nullptr
#endif

void BM_Add(benchmark::State& state) {
  Compare(state, Placed<FlBinary<FL48_Add>>(), Placed<HardBinary<HardAdd>>(), KAVRI_SOFT(__aeabi_dadd));
}
void BM_Mul(benchmark::State& state) {
  Compare(state, Placed<FlBinary<FL48_Mul>>(), Placed<HardBinary<HardMul>>(), KAVRI_SOFT(__aeabi_dmul));
}
void BM_Div(benchmark::State& state) {
  Compare(state, Placed<FlBinary<FL48_Div>>(), Placed<HardBinary<HardDiv>>(), KAVRI_SOFT(__aeabi_ddiv));
}
void BM_Sqrt(benchmark::State& state) {
  Compare(state,
          Passes<1>{[](Operands& ops) {
            for (int i = 0; i < kCount; ++i) {
              FL48 x = ops.a[i];
              FL48_Sqrt(&x);
              ops.out[i] = x;
            }
          }},
          Passes<1>{[](Operands& ops) {
            for (int i = 0; i < kCount; ++i) {
              double x = ops.da[i];
              HardSqrt(&x);
              ops.dout[i] = x;
            }
          }});
}
void BM_ConvFromShort(benchmark::State& state) {
  Compare(state,
          Passes<1>{[](Operands& ops) {
            for (int i = 0; i < kCount; ++i) FL48_ConvFromShort(&ops.out[i], ops.shorts[i]);
          }},
          Passes<1>{[](Operands& ops) {
            for (int i = 0; i < kCount; ++i) HardFromShort(&ops.dout[i], ops.shorts[i]);
          }});
}
void BM_IsLess(benchmark::State& state) {
  Compare(state, Placed<FlPredicate<FL48_IsLess>>(), Placed<HardPredicate<HardLess>>());
}
void BM_IsEqual(benchmark::State& state) {
  Compare(state, Placed<FlPredicate<FL48_IsEqual>>(), Placed<HardPredicate<HardEqual>>());
}

BENCHMARK(BM_Add);
BENCHMARK(BM_Mul);
BENCHMARK(BM_Div);
BENCHMARK(BM_Sqrt);
BENCHMARK(BM_ConvFromShort);
BENCHMARK(BM_IsLess);
BENCHMARK(BM_IsEqual);

}  // namespace

BENCHMARK_MAIN();
