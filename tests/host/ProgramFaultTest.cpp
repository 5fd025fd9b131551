// A program that ends, returns something that is not "call again", or is
// stopped, at any slice of any cycle: it is never entered again, download
// mode winds down completely, and the next program starts. Programs are
// native functions behind the run area's entry, driven by the I/O cycle.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>

#include "ProgramImage.h"
#include "WaitFor.h"
#include "host/DownloadMode.h"
#include "kavri/Camera.h"
#include "kavri/MotorIOLib.h"

namespace {

std::atomic<int> calls{0};
std::atomic<int> endAtCall{0};  // 0: never ends on its own
std::atomic<int32_t> endValue{0};
std::atomic<int> holdAtCall{0};  // that call does not return until released
std::atomic<bool> released{false};

int32_t Entry() {
  int call = calls.fetch_add(1) + 1;
  if (call == holdAtCall.load()) WaitFor([] { return released.load(); });
  return call == endAtCall.load() ? endValue.load() : kavri::kCallAgain;
}

bool DownloadModeOver() {
  return WaitFor([] { return !kavri::ProgThreadAlive && !ProgThreadRunning && !MotorIOLib_ThreadIsRunning(); });
}

enum class Fault { Ends, Stopped };

struct ProgramCase {
  const char* name;
  Fault fault;
  int cycle, slice;  // where, counted from 1
  int32_t value;     // what the entry returns there, if it ends
};

class ProgramFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeRunAreaExecutable();
    InstallEntry(Entry);
  }
  void TearDown() override {
    released = true;
    EXPECT_TRUE(WaitFor([] { return StopThreadsDownloadMode(true) == 1; }));
    EXPECT_TRUE(DownloadModeOver());
  }
  static void Reset() {
    calls = endAtCall = holdAtCall = 0;
    released = false;
    CameraThreadTerminate = false;
  }
};

TEST_F(ProgramFaults, ProgramEndingOrStoppedAtAnySliceIsNeverEnteredAgain) {
  const ProgramCase cases[] = {
      {"exit 0 in the first slice", Fault::Ends, 1, 1, 0},
      {"exit 3 in the last slice of a cycle", Fault::Ends, 1, 10, 3},
      {"call again but one", Fault::Ends, 2, 5, 0x7FFE},
      {"call again in the high half too", Fault::Ends, 3, 1, 0x17FFF},
      {"call again negated", Fault::Ends, 2, 10, -0x7FFF},
      {"most negative", Fault::Ends, 4, 7, INT32_MIN},
      {"stopped in the first slice", Fault::Stopped, 1, 1, 0},
      {"stopped in a middle slice", Fault::Stopped, 2, 5, 0},
      {"stopped in the last slice", Fault::Stopped, 3, 10, 0},
  };
  for (const ProgramCase& c : cases) {
    SCOPED_TRACE(c.name);
    Reset();
    const int at = (c.cycle - 1) * kavri::kSlicesPerCycle + c.slice;
    int expectedCalls = at;
    testing::internal::CaptureStdout();
    if (c.fault == Fault::Ends) {
      endAtCall = at;
      endValue = c.value;
      ASSERT_EQ(StartThreadsDownloadMode(), 1);
    } else {
      holdAtCall = at;
      ASSERT_EQ(StartThreadsDownloadMode(), 1);
      ASSERT_TRUE(WaitFor([at] { return calls >= at; }));
      // The host's abort, from its own thread, while the slice runs; the
      // cycle it is in is finished, no further one begins.
      std::atomic<int> stopped{-1};
      std::thread host([&stopped] { stopped = KavriLib_AbortDownloadProgram(); });
      EXPECT_TRUE(WaitFor([] { return ProgThreadTerminate.load(); }));
      released = true;
      host.join();
      EXPECT_EQ(stopped, 1);
      expectedCalls = c.cycle * kavri::kSlicesPerCycle;
    }
    EXPECT_TRUE(DownloadModeOver());
    std::string printed = testing::internal::GetCapturedStdout();
    const std::string ended = "Program terminated with code " + std::to_string(c.value) + "\n";
    EXPECT_EQ(printed.find(ended) != std::string::npos, c.fault == Fault::Ends) << printed;
    EXPECT_NE(printed.find("Program thread terminated with code 0\n"), std::string::npos) << printed;
    EXPECT_TRUE(CameraThreadTerminate.load());
    EXPECT_EQ(calls, expectedCalls);
    // An I/O library that calls once more after the end still finds no program.
    EXPECT_FALSE(KavriDownloadIOCallback(nullptr, KAVRI_TRANS_AREA_INDEX));
    EXPECT_EQ(calls, expectedCalls);

    // The next program starts and runs as if nothing had happened.
    Reset();
    ASSERT_EQ(StartThreadsDownloadMode(), 1);
    EXPECT_TRUE(WaitFor([] { return calls >= 2 * kavri::kSlicesPerCycle; }));
    EXPECT_EQ(KavriLib_AbortDownloadProgram(), 1);
    EXPECT_TRUE(DownloadModeOver());
  }
}

}  // namespace
