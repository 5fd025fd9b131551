// Timing of a batch body in thread CPU time, so that other processes on the
// machine do not land in the figures; the best of a few rounds is kept.
#ifndef KAVRI_BENCH_FL48_FUNC_TIMING_H
#define KAVRI_BENCH_FL48_FUNC_TIMING_H

#include <time.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

namespace fl48bench {

inline double ThreadCpuNs() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) * 1e9 + double(t.tv_nsec);
}

// ns per call of a body that makes callsPerBody calls.
template <typename Body>
double NsPerCall(Body body, int callsPerBody) {
  constexpr int kRepeats = 5;
  constexpr int kBodiesPerRepeat = 200;
  double best = 1e300;
  for (int r = 0; r < kRepeats; ++r) {
    const double start = ThreadCpuNs();
    for (int i = 0; i < kBodiesPerRepeat; ++i) body();
    best = std::min(best, (ThreadCpuNs() - start) / (double(kBodiesPerRepeat) * callsPerBody));
  }
  return best;
}

// Runs the FL48 batch as the benchmark's own loop, then times it and the
// reference batch in the same run and reports both and their ratio.
template <typename Fl48Body, typename ReferenceBody>
void ReportAgainstReference(benchmark::State& state, Fl48Body runFl48, ReferenceBody runReference, int callsPerBody,
                            const std::string& referenceName) {
  for (auto _ : state) runFl48();
  state.SetItemsProcessed(state.iterations() * callsPerBody);
  const double fl48Ns = NsPerCall(runFl48, callsPerBody);
  const double referenceNs = NsPerCall(runReference, callsPerBody);
  state.counters["fl48_ns"] = fl48Ns;
  state.counters[referenceName + "_ns"] = referenceNs;
  state.counters["ratio"] = fl48Ns / referenceNs;
}

}  // namespace fl48bench

#endif  // KAVRI_BENCH_FL48_FUNC_TIMING_H
