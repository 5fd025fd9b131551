// Text graphics operations against a memset of the whole 1024-byte display
// buffer in the same run: the cost of touching every byte once.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>

#include "kavri/MotorIOLib.h"
#include "kavri/TextGrph.h"

namespace {

constexpr int kRepeat = 256;

template <class Pass>
double NsPerCall(Pass&& pass) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRepeat; ++i) pass(i);
  const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
  return elapsed.count() / kRepeat;
}

// Each round times kRepeat calls of the operation and kRepeat memsets of the
// buffer; the counters are the means over the rounds.
template <class Operation>
void CompareWithMemset(benchmark::State& state, Operation&& operation) {
  TextGrph_Intl(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
  uint8_t* buffer = TextGrph_Origin();
  double operationNs = 0, memsetNs = 0;
  int rounds = 0;
  for (auto _ : state) {
    operationNs += NsPerCall(operation);
    memsetNs += NsPerCall([buffer](int i) {
      memset(buffer, i, KAVRI_DISPLAY_BUFFER_SIZE);
      benchmark::ClobberMemory();
    });
    benchmark::DoNotOptimize(buffer);
    ++rounds;
  }
  state.counters["op_ns"] = operationNs / rounds;
  state.counters["memset_ns"] = memsetNs / rounds;
  state.counters["x_memset"] = operationNs / memsetNs;
}

void PrintStrg16(benchmark::State& state) {
  CompareWithMemset(state, [](int) {
    TextGrph_CarriageReturn();
    TextGrph_PrintStrg("Speed 42 cm/s ok");
    benchmark::ClobberMemory();
  });
}

void ClearHome(benchmark::State& state) {
  CompareWithMemset(state, [](int) {
    TextGrph_ClearHome();
    benchmark::ClobberMemory();
  });
}

// 100 pixels: 99 steps along x, 35 rows down.
void DrawLine100(benchmark::State& state) {
  CompareWithMemset(state, [](int) {
    TextGrph_GotoXY(10, 5);
    TextGrph_DrawLine(109, 40);
    benchmark::ClobberMemory();
  });
}

BENCHMARK(PrintStrg16);
BENCHMARK(ClearHome);
BENCHMARK(DrawLine100);

}  // namespace

BENCHMARK_MAIN();
