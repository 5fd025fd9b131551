#include "host/KavriRates.h"

#include <sys/time.h>

#include "kavri/Camera.h"  // the frame counters
#include "host/KavriState.h"

namespace kavri {

int32_t NowMilliseconds() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<int32_t>(static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000));
}

void ReportRatesIfDue() {
  if (!(DebugFlags & kDebugRates)) return;
  uint32_t elapsed = static_cast<uint32_t>(NowMilliseconds()) -
                     static_cast<uint32_t>(RateLastTime.load(std::memory_order_relaxed));
  if (elapsed < 1000) return;
  fprintf(DebugFile, "%d IOs/s, %d trans/s, %d frames/s, %d frames/s requested\n",
          RateIOSecond.load(std::memory_order_relaxed), RateTransferSecond.load(std::memory_order_relaxed),
          CameraFrameCountSecond.load(std::memory_order_relaxed),
          CameraFrameRequestCountSecond.load(std::memory_order_relaxed));
  fflush(stdout);  // standard output, not DebugFile: kept as the controller always did
  RateIOSecond.store(0, std::memory_order_relaxed);
  RateTransferSecond.store(0, std::memory_order_relaxed);
  CameraFrameCountSecond.store(0, std::memory_order_relaxed);
  CameraFrameRequestCountSecond.store(0, std::memory_order_relaxed);
  // Advance by exactly one second so that a late report is followed by
  // quicker ones until the count has caught up.
  RateLastTime.fetch_add(1000, std::memory_order_relaxed);
}

}  // namespace kavri
