// The host benchmarks time the controller against a bare server doing the
// same transfer, in turns, so that load on the machine falls on both alike.
#ifndef KAVRI_BENCH_PAIREDTIMING_H
#define KAVRI_BENCH_PAIREDTIMING_H

#include <benchmark/benchmark.h>
#include <sys/wait.h>

#include <csignal>

struct PairedSeconds {
  double measured = 0;
  double reference = 0;
  double iterations = 0;
};

// One call of each per iteration; both return the seconds they took.
template <typename Measured, typename Reference>
PairedSeconds TimeInTurns(benchmark::State& state, Measured measured, Reference reference) {
  PairedSeconds seconds;
  for (auto _ : state) {
    seconds.measured += measured();
    seconds.reference += reference();
  }
  seconds.iterations = static_cast<double>(state.iterations());
  return seconds;
}

// Ends the reference server, a forked child.
inline void EndReference(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

#endif
