// Download, flash files, start and stop, and the I/O cycle that runs the
// program, in process: the command handlers talk to a PC on a socket pair,
// and programs are native functions behind the run area's entry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "ControllerProcess.h"
#include "DebugFlagBits.h"
#include "ProgramImage.h"
#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "kavri/Camera.h"
#include "kavri/MotorIOLib.h"

extern "C" int DebugFlags;
extern "C" FILE* DebugFile;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Heard = std::vector<std::pair<std::string, int>>;

std::mutex heardLock;
Heard heard;  // program states 2, 3, 4 and 7 as the host heard them
std::atomic<int> entryCalls{0};
std::atomic<bool> holdSlice{false};  // the entry does not return while set

int32_t CountingEntry() {
  entryCalls.fetch_add(1);
  WaitFor([] { return !holdSlice.load(); });
  return 0x7FFF;
}

class Programs : public ::testing::Test {
 protected:
  void SetUp() override {
    Reconnect();
    char pattern[] = "/tmp/kavri-download-XXXXXX";
    library_ = fs::path(mkdtemp(pattern)) / "library";
    fs::create_directory(library_);
    KavriLib_SetProgramLibraryPath((library_.string() + "/").c_str());
    KavriLib_SetProgramInfoCallback([](KavriLib_ProgramInfo* info) {
      std::lock_guard<std::mutex> hold(heardLock);
      if (info->state != KavriProgramDisplayBuilt && info->state != KavriProgramDisplayEnded)
        heard.emplace_back(info->name ? info->name : "null", info->state);
    });
    MakeRunAreaExecutable();
  }
  void TearDown() override {
    holdSlice = false;
    EXPECT_TRUE(WaitFor([] { return StopThreadsDownloadMode(true) && !kavri::ProgThreadAlive; }));
    KavriLib_SetProgramInfoCallback(nullptr);
    KavriLib_SetProgramLibraryPath(nullptr);
    EXPECT_EQ(DownloadDataPath, nullptr);
    DataAreaDownloadValid = false;
    heard.clear();
    entryCalls = 0;
    close(fds_[0]);
    close(fds_[1]);
    fs::remove_all(library_.parent_path());
  }
  // A new PC, with a receive time-out short enough to test one that falls silent.
  void Reconnect() {
    if (fds_[0] >= 0) close(fds_[0]), close(fds_[1]);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    timeval timeout{0, 200000};
    setsockopt(fds_[0], SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  }
  // The download command after its code word, then `code`; the announced
  // size and the bytes of the extension sent may differ from the real ones.
  void PcSendsDownload(const std::string& name, const std::vector<uint8_t>& code, bool ramOnly = false,
                       uint32_t size = 0, size_t extensionBytes = 72) {
    std::vector<uint8_t> bytes = DownloadCommandBytes(name.c_str(), ramOnly, code);
    if (size) memcpy(&bytes[offsetof(xoIF2013Command_DownloadCode, codeSize)], &size, sizeof size);
    ASSERT_EQ(write(fds_[1], bytes.data() + 4, extensionBytes), ssize_t(extensionBytes));
    ASSERT_EQ(write(fds_[1], code.data(), code.size()), ssize_t(code.size()));
  }
  bool Run(bool (*handler)(int, xoIF2013Command_Base*)) {
    xoIF2013Command_Base word{0};  // the dispatcher already read and chose it
    return handler(fds_[0], &word);
  }
  bool Download(const std::string& name, const std::vector<uint8_t>& code, bool ramOnly = false) {
    PcSendsDownload(name, code, ramOnly);
    return Run(kavri::HandleDownloadCode) && Reply(4) == std::vector<uint32_t>{KavriReplyDownloadCode};
  }
  // What the server wrote back, without waiting.
  std::vector<uint32_t> Reply(size_t bytes) {
    std::vector<uint32_t> words(bytes / 4);
    ssize_t received = recv(fds_[1], words.data(), bytes, MSG_DONTWAIT);
    words.resize(received > 0 ? size_t(received) / 4 : 0);
    return words;
  }
  std::vector<std::string> LibraryFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(library_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
  int fds_[2] = {-1, -1};
  fs::path library_;
};

TEST_F(Programs, FailedDownloadClosesAndNeverLeavesHalfACodeStartable) {
  const struct {
    const char* name;
    uint32_t announced;
    size_t extensionBytes, codeBytes;
    bool pcCloses;  // else it falls silent
    const char* message;
    bool earlierKept;
  } cases[] = {
      {"one byte more than the area", 0x400001, 72, 0, true,
       "ERROR code size 4194305 is larger than the download area (4194304 bytes)\n", true},
      {"exactly the area is accepted and read", 0x400000, 72, 40, true,
       "ERROR connection closed or timed out after 40 of 4194304 code bytes\n", false},
      {"extension cut short", 100, 10, 0, true, "ERROR received illegal command packet (length<72)\n", true},
      {"PC falls silent inside the code", 100, 72, 99, false, "ERROR connection closed or timed out after 99 of 100 code bytes\n", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(Download("earlier", std::vector<uint8_t>(8, 0xAB), true));
    PcSendsDownload("later", std::vector<uint8_t>(c.codeBytes, 0xCD), false, c.announced, c.extensionBytes);
    if (c.pcCloses) shutdown(fds_[1], SHUT_WR);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Run(kavri::HandleDownloadCode));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_TRUE(Reply(4).empty());
    EXPECT_EQ(DataAreaDownloadValid, c.earlierKept);
    EXPECT_EQ(DataAreaDownload[0], c.earlierKept ? 0xAB : 0xCD);
    EXPECT_EQ(DataAreaDownload[c.codeBytes], c.earlierKept ? 0xAB : uint8_t("\x70\x00\x20\xe1"[c.codeBytes % 4]));
    EXPECT_TRUE(LibraryFiles().empty());
    Reconnect();
  }
}

TEST_F(Programs, FlashFileIsWrittenOnlyAsAPlainNameInsideTheLibrary) {
  const std::string longest(67, 'n');
  const struct {
    std::string fileName;
    bool ramOnly;
    std::vector<std::string> filesAfter;
    const char* message;  // on standard error
  } cases[] = {
      {"blink", false, {"blink"}, "Writing flash file "},
      {longest, false, {longest}, "Writing flash file "},  // no terminating zero in the field
      {"blink", true, {}, ""},
      {"../escaped", false, {}, "ERROR flash file name \"../escaped\" is not a plain file name, no flash file written\n"},
      {"..", false, {}, "is not a plain file name"},
      {".", false, {}, "is not a plain file name"},
      {"", false, {}, "ERROR flash file name \"\" is not a plain file name"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fileName);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(Download(c.fileName, {1, 2, 3}, c.ramOnly));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.message));
    EXPECT_EQ(LibraryFiles(), c.filesAfter);
    for (const std::string& file : c.filesAfter) EXPECT_EQ(ReadWholeFile(library_ / file), "\1\2\3");
    EXPECT_FALSE(fs::exists(library_.parent_path() / "escaped"));
    EXPECT_EQ(heard.back(), std::make_pair(c.fileName, c.ramOnly ? 2 : 3));
    fs::remove_all(library_);
    fs::create_directory(library_);
  }
}

TEST_F(Programs, FlashFileIsReplacedWholeOrKeptAsItWas) {
  ASSERT_TRUE(Download("prog", {'o', 'l', 'd'}));
  ASSERT_TRUE(Download("prog", {'n', 'e', 'w', '!'}));
  EXPECT_EQ(ReadWholeFile(library_ / "prog"), "new!");
  fs::create_directory(library_ / "prog.part");  // the next write cannot begin
  testing::internal::CaptureStderr();
  ASSERT_TRUE(Download("prog", {'l', 'o', 's', 't'}));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Error writing flash file " + (library_ / "prog").string()));
  EXPECT_EQ(ReadWholeFile(library_ / "prog"), "new!");
}

TEST_F(Programs, PathOf1023BytesWritesNoFileButTheDownloadSucceeds) {
  // A library folder whose path and the name "abcde" make `length` bytes.
  auto folder = [&](size_t length) {
    return library_.string() + "/" + std::string(length - library_.string().size() - 7, 'd') + "/";
  };
  KavriLib_SetProgramLibraryPath(folder(1023).c_str());
  testing::internal::CaptureStdout();
  ASSERT_TRUE(Download("abcde", {1}));
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Flash file name to long " + folder(1023) + "abcde ("));
  KavriLib_SetProgramLibraryPath(folder(1022).c_str());
  testing::internal::CaptureStderr();
  ASSERT_TRUE(Download("abcde", {1}));
  // Tried, and failed only because the folder does not exist.
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Error writing flash file " + folder(1022)));
}

TEST_F(Programs, StartCodeRunsTheLastDownloadFromTheIoCycleUntilStopped) {
  ASSERT_TRUE(Run(kavri::HandleStartCode));
  EXPECT_EQ(Reply(8), (std::vector<uint32_t>{KavriReplyStartCode, 0}));
  EXPECT_FALSE(ProgThreadRunning || MotorIOLib_ThreadIsRunning());
  ASSERT_TRUE(Download("counter", ImageJumpingTo(CountingEntry), true));
  auto* area = reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
  memset(area, 0x5A, KAVRI_TRANS_AREA_CLEAR_SIZE + 1);
  ASSERT_TRUE(Run(kavri::HandleStartCode));
  EXPECT_EQ(Reply(8), (std::vector<uint32_t>{KavriReplyStartCode, 1}));
  EXPECT_EQ(area[0] | area[KAVRI_TRANS_AREA_CLEAR_SIZE - 1], 0);
  EXPECT_EQ(area[KAVRI_TRANS_AREA_CLEAR_SIZE], 0x5A);
  EXPECT_TRUE(WaitFor([] { return entryCalls >= 30; }));
  EXPECT_TRUE(KavriLib_CheckDownloadProgramActive());
  ASSERT_TRUE(Run(kavri::HandleStopCode));
  EXPECT_EQ(Reply(4), (std::vector<uint32_t>{KavriReplyStopCode}));
  int callsAtStop = entryCalls;
  EXPECT_EQ(callsAtStop % 10, 0);  // whole cycles of ten slices
  EXPECT_FALSE(KavriLib_CheckDownloadProgramActive() || MotorIOLib_ThreadIsRunning());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(entryCalls, callsAtStop);
  EXPECT_EQ(heard, (Heard{{"null", 4}, {"counter", 2}, {"null", 4}, {"null", 7}}));
  ASSERT_TRUE(Run(kavri::HandleStartCode));  // a stop leaves the download startable
  EXPECT_EQ(Reply(8), (std::vector<uint32_t>{KavriReplyStartCode, 1}));
}

TEST_F(Programs, StopFailsWhileTheCameraThreadDoesNotEnd) {
  CameraThreadRunning = true;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Run(kavri::HandleStopCode));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Timeout terminating IO, Prog or Camera Thread");
  EXPECT_TRUE(Reply(4).empty() && heard.empty());
  CameraThreadRunning = false;
}

TEST_F(Programs, SliceThatNeverReturnsKeepsTheRunAreaFromBeingReplaced) {
  ASSERT_TRUE(Download("stuck", ImageJumpingTo(CountingEntry)));
  holdSlice = true;
  ASSERT_EQ(KavriLib_StartRamProgram(), 1);
  ASSERT_TRUE(WaitFor([] { return entryCalls == 1; }));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Run(kavri::HandleStartCode));
  EXPECT_FALSE(Run(kavri::HandleStopCode));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("ERROR I/O threads did not stop: a program time slice does not return\n"));
  EXPECT_TRUE(Reply(8).empty());
  EXPECT_EQ(KavriLib_StartRamProgram() + KavriLib_StartDownloadProgram((library_ / "stuck").c_str()), 0);
  holdSlice = false;
  EXPECT_TRUE(WaitFor([] { return !MotorIOLib_ThreadIsRunning(); }));
  EXPECT_EQ(KavriLib_StartRamProgram(), 1);
}

TEST_F(Programs, HostStartsFlashFilesAndAbortsThem) {
  ASSERT_TRUE(Download("counter", ImageJumpingTo(CountingEntry)));
  std::string path = library_ / "counter";
  testing::internal::CaptureStderr();
  ASSERT_EQ(KavriLib_StartDownloadProgram(path.c_str()), 1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Reading flash file " + path + "\nStarting flash file " + path + " (" +
                        std::to_string(ImageJumpingTo(CountingEntry).size()) + " bytes)\n"));
  EXPECT_TRUE(WaitFor([] { return entryCalls > 0; }));
  EXPECT_EQ(KavriLib_StartDownloadProgram(path.c_str()), 0);  // one program at a time
  EXPECT_EQ(KavriLib_AbortDownloadProgram(), 1);
  EXPECT_FALSE(KavriLib_CheckDownloadProgramActive());
  std::ofstream(library_ / "empty");
  EXPECT_EQ(KavriLib_StartDownloadProgram((library_ / "empty").c_str()), 0);
  EXPECT_EQ(KavriLib_StartDownloadProgram((library_ / "missing").c_str()), 0);
  OnlineModeActive = true;
  EXPECT_EQ(KavriLib_StartDownloadProgram(path.c_str()) + KavriLib_StartRamProgram(), 0);
  OnlineModeActive = false;
}

// A program that ends, returns something that is not "call again", or is
// stopped, at any slice of any cycle: it is never entered again, download
// mode winds down completely, and the next program starts.
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
      {"most negative", Fault::Ends, 4, 7, INT32_MIN},
      {"stopped in the first slice", Fault::Stopped, 1, 1, 0},
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

// The wall clock as the controller counts it: milliseconds, wrapping at 32 bits.
uint32_t NowMs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000);
}

// The once-a-second rates line of the I/O cycle: what it prints into the
// debug file, when, and how the counters and the start of the second move.
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
      {"a second over: one line, counters reset", debugflag::kRates, 1000, 2, first, 1000, 1},
      {"late: one line per cycle until caught up", debugflag::kRates, 3100, 4,
       first + caughtUp + caughtUp, 3000, 1},
  };
  MakeRunAreaExecutable();
  InstallEntry(CountingEntry);
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
