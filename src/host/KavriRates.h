// The once-a-second rates line shared by the server and the I/O cycle.
#ifndef KAVRI_HOST_KAVRIRATES_H
#define KAVRI_HOST_KAVRIRATES_H

#include <cstdint>

namespace kavri {

inline constexpr int kDebugRates = 1;

// Wall clock in milliseconds, wrapping at 32 bits.
int32_t NowMilliseconds();
// Under debug bit 0: prints and resets the four rate counters once a second.
void ReportRatesIfDue();

}  // namespace kavri

#endif
