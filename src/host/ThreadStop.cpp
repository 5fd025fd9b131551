#include "host/ThreadStop.h"

namespace kavri {

bool WaitUntilCleared(const std::atomic<bool>& running) {
  return WaitWhile([&running] { return running.load(std::memory_order_acquire); });
}

}  // namespace kavri
