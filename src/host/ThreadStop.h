// The one stop protocol of every worker thread: the stopper raises the
// thread's terminate flag and polls its running flag.
#ifndef KAVRI_HOST_THREADSTOP_H
#define KAVRI_HOST_THREADSTOP_H

#include <atomic>
#include <chrono>
#include <thread>

namespace kavri {

inline constexpr int kStopPollMilliseconds = 10;
inline constexpr int kStopPollCount = 100;

// Polls `running` every 10 ms, at most 100 times; true once it is clear.
bool WaitUntilCleared(const std::atomic<bool>& running);

// The same poll for a condition over several flags.
template <typename StillRunning>
bool WaitWhile(StillRunning stillRunning) {
  for (int poll = 0; poll < kStopPollCount; ++poll) {
    if (!stillRunning()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(kStopPollMilliseconds));
  }
  return !stillRunning();
}

}  // namespace kavri

#endif
