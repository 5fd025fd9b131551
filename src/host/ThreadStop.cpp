#include "host/ThreadStop.h"

#include <chrono>
#include <thread>

namespace kavri {

bool WaitUntilCleared(const std::atomic<bool>& running) {
  for (int poll = 0; poll < kStopPollCount; ++poll) {
    if (!running.load(std::memory_order_acquire)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(kStopPollMilliseconds));
  }
  return !running.load(std::memory_order_acquire);
}

}  // namespace kavri
