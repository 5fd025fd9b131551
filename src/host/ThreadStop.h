// The one stop protocol of every worker thread: the stopper raises the
// thread's terminate flag and polls its running flag.
#ifndef KAVRI_HOST_THREADSTOP_H
#define KAVRI_HOST_THREADSTOP_H

#include <atomic>

namespace kavri {

inline constexpr int kStopPollMilliseconds = 10;
inline constexpr int kStopPollCount = 100;

// Polls `running` every 10 ms, at most 100 times; true once it is clear.
bool WaitUntilCleared(const std::atomic<bool>& running);

}  // namespace kavri

#endif
