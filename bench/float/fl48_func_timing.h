// Timing of a batch body in thread CPU time, so that other processes on the
// machine do not land in the figures; the best of a few rounds is kept.
#ifndef KAVRI_BENCH_FL48_FUNC_TIMING_H
#define KAVRI_BENCH_FL48_FUNC_TIMING_H

#include <time.h>

#include <algorithm>

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

}  // namespace fl48bench

#endif  // KAVRI_BENCH_FL48_FUNC_TIMING_H
