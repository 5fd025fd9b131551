// The once-a-second rates line of the I/O cycle, with a native function in
// place of the program's entry: what it prints into the debug file, when,
// and how the counters and the start of the second move.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "DebugFlagBits.h"
#include "ProgramImage.h"
#include "host/DownloadMode.h"
#include "kavri/Camera.h"

extern "C" int DebugFlags;
extern "C" FILE* DebugFile;

namespace {

int32_t SliceDone() { return 0x7FFF; }

// The wall clock as the controller counts it: milliseconds, wrapping at 32 bits.
uint32_t NowMs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000);
}

struct RatesCase {
  const char* what;
  int flags;
  uint32_t behindMs;  // how far the current second started in the past
  int cycles;
  std::string lines;
  uint32_t advancedMs;  // how far the start of the second moved
  int32_t ioCountAfter;
};

TEST(IOCycleRates, RatesLineIsPrintedOncePerSecondUnderBit0) {
  const std::string first = "7 IOs/s, 2 trans/s, 3 frames/s, 4 frames/s requested\n";
  const std::string caughtUp = "1 IOs/s, 0 trans/s, 0 frames/s, 0 frames/s requested\n";
  const RatesCase cases[] = {
      {"other bits only: silent, the counters grow", ~debugflag::kRates & 0x1FF, 5000, 3, "", 0, 9},
      {"second not over yet", debugflag::kRates, 0, 2, "", 0, 8},
      {"a second over: one line, counters reset", debugflag::kRates, 1000, 2, first, 1000, 1},
      {"late: one line per cycle until caught up", debugflag::kRates, 3100, 4,
       first + caughtUp + caughtUp, 3000, 1},
  };
  MakeRunAreaExecutable();
  InstallEntry(SliceDone);
  ProgThreadTerminate = false;
  for (const RatesCase& c : cases) {
    SCOPED_TRACE(c.what);
    char* text = nullptr;
    size_t length = 0;
    FILE* debug = open_memstream(&text, &length);
    ASSERT_NE(debug, nullptr);
    DebugFile = debug;
    DebugFlags = c.flags;
    RateIOSecond = 6, RateTransferSecond = 2, CameraFrameCountSecond = 3, CameraFrameRequestCountSecond = 4;
    uint32_t start = NowMs() - c.behindMs;
    RateLastTime = static_cast<int32_t>(start);
    for (int cycle = 0; cycle < c.cycles; ++cycle) EXPECT_TRUE(KavriDownloadIOCallback(nullptr, 9));
    DebugFlags = 0;
    DebugFile = stdout;
    fclose(debug);
    EXPECT_EQ(std::string(text, length), c.lines);
    free(text);
    EXPECT_EQ(static_cast<uint32_t>(RateLastTime.load()) - start, c.advancedMs);
    EXPECT_EQ(RateIOSecond, c.ioCountAfter);
  }
}

}  // namespace
