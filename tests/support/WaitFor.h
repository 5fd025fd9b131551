// Waiting in tests: every wait has a deadline, and a missed one is a failure
// the caller reports, never a hang.
#ifndef KAVRI_TESTS_WAITFOR_H
#define KAVRI_TESTS_WAITFOR_H

#include <chrono>
#include <functional>
#include <thread>

// Polls `ready` every 10 ms until true or `bound` has passed.
inline bool WaitFor(const std::function<bool()>& ready, std::chrono::milliseconds bound = std::chrono::seconds(60)) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!ready()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

#endif
