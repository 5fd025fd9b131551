// Waiting in tests: every wait has a deadline, and a missed one is a failure
// the caller reports, never a hang.
#ifndef KAVRI_TESTS_WAITFOR_H
#define KAVRI_TESTS_WAITFOR_H

#include <chrono>
#include <functional>

// Polls `ready` every 10 ms until true or `bound` has passed.
bool WaitFor(const std::function<bool()>& ready, std::chrono::milliseconds bound = std::chrono::seconds(60));

#endif
