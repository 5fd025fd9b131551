#include "WaitFor.h"

#include <thread>

bool WaitFor(const std::function<bool()>& ready, std::chrono::milliseconds bound) {
  auto deadline = std::chrono::steady_clock::now() + bound;
  while (!ready()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}
