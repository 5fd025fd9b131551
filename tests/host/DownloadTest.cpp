// Download, flash files, start and stop, in process: the command handlers
// talk to a PC on a socket pair, and programs are native functions behind
// the run area's entry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "ControllerProcess.h"
#include "ProgramImage.h"
#include "host/DownloadMode.h"
#include "kavri/Camera.h"
#include "kavri/MotorIOLib.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::mutex heardLock;
std::vector<std::pair<std::string, int>> heard;  // program-info calls of states 2, 3, 4, 7

void Hear(KavriLib_ProgramInfo* info) {
  if (info->state == KavriProgramDisplayBuilt || info->state == KavriProgramDisplayEnded) return;
  std::lock_guard<std::mutex> hold(heardLock);
  heard.emplace_back(info->name ? info->name : "null", info->state);
}

std::atomic<int> entryCalls{0};
std::atomic<int> exitAfter{0};      // the call that returns the exit code 3; 0: never
std::atomic<bool> holdSlice{false}; // the entry blocks while set

int32_t CountingEntry() {
  int call = entryCalls.fetch_add(1) + 1;
  WaitFor([] { return !holdSlice.load(); });
  return call == exitAfter.load() ? 3 : 0x7FFF;
}

xoIF2013Command_DownloadCode Extension(const std::string& name, size_t size, bool ramOnly = false) {
  xoIF2013Command_DownloadCode command{KavriCmdDownloadCode, ramOnly};
  memcpy(command.fileName, name.data(), std::min(name.size(), sizeof command.fileName));
  command.codeSize = static_cast<uint32_t>(size);
  return command;
}

class Programs : public ::testing::Test {
 protected:
  void SetUp() override {
    NewConnection();
    char pattern[] = "/tmp/kavri-download-XXXXXX";
    library_ = fs::path(mkdtemp(pattern)) / "library";
    fs::create_directory(library_);
    KavriLib_SetProgramLibraryPath((library_.string() + "/").c_str());
    KavriLib_SetProgramInfoCallback(Hear);
    heard.clear();
    entryCalls = 0;
    exitAfter = 0;
    MakeRunAreaExecutable();
  }
  void TearDown() override {
    holdSlice = false;
    EXPECT_TRUE(WaitFor([] { return StopThreadsDownloadMode(true) == 1; }));
    EXPECT_TRUE(WaitFor([] { return !kavri::ProgThreadAlive; }));
    KavriLib_SetProgramInfoCallback(nullptr);
    KavriLib_SetProgramLibraryPath(nullptr);
    DataAreaDownloadValid = false;
    CloseConnection();
    fs::remove_all(library_.parent_path());
  }
  // A receive time-out short enough for a test that the PC falls silent.
  void NewConnection() {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    timeval timeout{0, 200000};
    setsockopt(fds_[0], SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  }
  void CloseConnection() {
    close(fds_[0]);
    close(fds_[1]);
  }
  void PcSends(const void* bytes, size_t size) { ASSERT_EQ(write(fds_[1], bytes, size), ssize_t(size)); }
  void PcSendsExtension(const xoIF2013Command_DownloadCode& command) {
    PcSends(reinterpret_cast<const uint8_t*>(&command) + 4, sizeof command - 4);
  }
  void PcCloses() { shutdown(fds_[1], SHUT_WR); }
  bool Run(bool (*handler)(int, xoIF2013Command_Base*), uint32_t code) {
    xoIF2013Command_Base word{code};
    return handler(fds_[0], &word);
  }
  bool Download(const std::string& name, const std::vector<uint8_t>& code, bool ramOnly = false) {
    PcSendsExtension(Extension(name, code.size(), ramOnly));
    PcSends(code.data(), code.size());
    return Run(kavri::HandleDownloadCode, KavriCmdDownloadCode) && PcReceives(4).size() == 4;
  }
  // What the server wrote back, without waiting.
  std::vector<uint8_t> PcReceives(size_t size) {
    std::vector<uint8_t> bytes(size);
    ssize_t received = recv(fds_[1], bytes.data(), size, MSG_DONTWAIT);
    bytes.resize(received > 0 ? size_t(received) : 0);
    return bytes;
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

TEST_F(Programs, CodeLandsInAPrefilledAreaAndTheHostHearsOfIt) {
  std::vector<uint8_t> code(100);
  for (size_t i = 0; i < code.size(); ++i) code[i] = uint8_t(i * 7 + 1);
  testing::internal::CaptureStdout();
  ASSERT_TRUE(Download("blink", code, true));
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Received 100 bytes, total 100 bytes\n"));
  EXPECT_EQ(memcmp(DataAreaDownload, code.data(), code.size()), 0);
  size_t wrongWords = 0;
  for (size_t offset = 100; offset < 0x200000; offset += 4)
    wrongWords += memcmp(DataAreaDownload + offset, "\x70\x00\x20\xe1", 4) != 0;
  EXPECT_EQ(wrongWords, 0u);
  EXPECT_EQ(std::count(DataAreaDownload + 0x200000, DataAreaDownload + KAVRI_AREA_SIZE, 0), 0x200000);
  EXPECT_TRUE(DataAreaDownloadValid);
  EXPECT_TRUE(LibraryFiles().empty());
  EXPECT_EQ(heard, (decltype(heard){{"blink", KavriProgramDownloadedRam}}));
}

struct FailedDownload {
  const char* name;
  uint32_t codeSize;
  size_t extensionBytes;  // of 72
  size_t codeBytes;
  bool pcCloses;          // else it falls silent
  const char* message;
  bool validAfter;        // the earlier download stays startable
};

TEST_F(Programs, FailedDownloadClosesAndNeverLeavesHalfACodeStartable) {
  const FailedDownload cases[] = {
      {"code larger than the area", 0x400001, 72, 0, true, "ERROR code size 4194305 is larger than the download area (4194304 bytes)\n", true},
      {"extension cut short", 100, 10, 0, true, "ERROR received illegal command packet (length<72)\n", true},
      {"PC closes inside the code", 100, 72, 40, true, "ERROR connection closed or timed out after 40 of 100 code bytes\n", false},
      {"PC falls silent inside the code", 100, 72, 99, false, "ERROR connection closed or timed out after 99 of 100 code bytes\n", false},
  };
  for (const FailedDownload& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(Download("earlier", std::vector<uint8_t>(8, 0xAB), true));
    auto command = Extension("later", c.codeSize);
    PcSends(reinterpret_cast<uint8_t*>(&command) + 4, c.extensionBytes);
    PcSends(std::vector<uint8_t>(c.codeBytes, 0xCD).data(), c.codeBytes);
    if (c.pcCloses) PcCloses();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Run(kavri::HandleDownloadCode, KavriCmdDownloadCode));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_TRUE(PcReceives(4).empty());
    EXPECT_EQ(DataAreaDownloadValid, c.validAfter);
    EXPECT_EQ(DataAreaDownload[0], c.validAfter ? 0xAB : 0xCD);
    EXPECT_TRUE(LibraryFiles().empty());
    CloseConnection();
    NewConnection();
  }
}

struct FlashCase {
  const char* name;
  std::string fileName;
  bool ramOnly;
  std::vector<std::string> filesAfter;
  const char* message;  // on standard error, or "" for none
};

TEST_F(Programs, FlashFileIsWrittenOnlyAsAPlainNameInsideTheLibrary) {
  const std::string longest(67, 'n');
  const FlashCase cases[] = {
      {"plain name", "blink", false, {"blink"}, "Writing flash file "},
      {"name filling the whole field", longest, false, {longest}, "Writing flash file "},
      {"kept in RAM only", "blink", true, {}, ""},
      {"path out of the library", "../escaped", false, {}, "ERROR flash file name \"../escaped\" is not a plain file name"},
      {"path inside a folder", "sub/blink", false, {}, "is not a plain file name"},
      {"parent folder", "..", false, {}, "is not a plain file name"},
      {"the library itself", ".", false, {}, "is not a plain file name"},
      {"empty name", "", false, {}, "ERROR flash file name \"\" is not a plain file name"},
  };
  const std::vector<uint8_t> code = {1, 2, 3, 4, 5};
  for (const FlashCase& c : cases) {
    SCOPED_TRACE(c.name);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(Download(c.fileName, code, c.ramOnly));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.message));
    EXPECT_EQ(LibraryFiles(), c.filesAfter);
    for (const std::string& file : c.filesAfter)
      EXPECT_EQ(ReadWholeFile(library_ / file), std::string(code.begin(), code.end()));
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
  EXPECT_TRUE(DataAreaDownloadValid);
}

TEST_F(Programs, PathOf1023BytesWritesNoFileButTheDownloadSucceeds) {
  // A library folder whose path and the name "abcde" make `length` bytes.
  auto deepFolder = [&](size_t length) {
    return library_.string() + "/" + std::string(length - library_.string().size() - 2 - 5, 'd') + "/";
  };
  KavriLib_SetProgramLibraryPath(deepFolder(1023).c_str());
  testing::internal::CaptureStdout();
  ASSERT_TRUE(Download("abcde", {1}));
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              HasSubstr("Flash file name to long " + deepFolder(1023) + "abcde ("));
  KavriLib_SetProgramLibraryPath(deepFolder(1022).c_str());
  testing::internal::CaptureStderr();
  ASSERT_TRUE(Download("abcde", {1}));
  // Tried, and failed only because the folder does not exist.
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Error writing flash file " + deepFolder(1022)));
}

TEST_F(Programs, StartCodeWithoutADownloadStartsNothing) {
  ASSERT_TRUE(Run(kavri::HandleStartCode, KavriCmdStartCode));
  const uint32_t expected[] = {KavriReplyStartCode, 0};
  EXPECT_EQ(memcmp(PcReceives(8).data(), expected, 8), 0);
  EXPECT_FALSE(ProgThreadRunning);
  EXPECT_FALSE(MotorIOLib_ThreadIsRunning());
  EXPECT_EQ(heard, (decltype(heard){{"null", KavriProgramStartReceived}}));
  EXPECT_EQ(KavriLib_StartRamProgram(), 0);
}

TEST_F(Programs, StartedProgramRunsFromTheIoCycleUntilStopped) {
  ASSERT_TRUE(Download("counter", ImageJumpingTo(CountingEntry), true));
  auto* area = reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
  memset(area, 0x5A, KAVRI_TRANS_AREA_CLEAR_SIZE + 1);
  ASSERT_TRUE(Run(kavri::HandleStartCode, KavriCmdStartCode));
  const uint32_t started[] = {KavriReplyStartCode, 1};
  EXPECT_EQ(memcmp(PcReceives(8).data(), started, 8), 0);
  EXPECT_EQ(area[0] | area[KAVRI_TRANS_AREA_CLEAR_SIZE - 1], 0);
  EXPECT_EQ(area[KAVRI_TRANS_AREA_CLEAR_SIZE], 0x5A);
  EXPECT_TRUE(WaitFor([] { return entryCalls >= 30; }));
  EXPECT_TRUE(KavriLib_CheckDownloadProgramActive());
  ASSERT_TRUE(Run(kavri::HandleStopCode, KavriCmdStopCode));
  EXPECT_EQ(PcReceives(4).size(), 4u);
  int callsAtStop = entryCalls;
  EXPECT_EQ(callsAtStop % 10, 0);  // whole cycles of ten slices
  EXPECT_FALSE(KavriLib_CheckDownloadProgramActive());
  EXPECT_FALSE(MotorIOLib_ThreadIsRunning());
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(entryCalls, callsAtStop);
  EXPECT_EQ(heard, (decltype(heard){{"counter", 2}, {"null", 4}, {"null", 7}}));
}

TEST_F(Programs, ProgramThatReturnsAnExitCodeEndsDownloadModeAtOnce) {
  exitAfter = 25;
  InstallEntry(CountingEntry);
  testing::internal::CaptureStdout();
  ASSERT_EQ(StartThreadsDownloadMode(), 1);
  EXPECT_TRUE(WaitFor([] { return !kavri::ProgThreadAlive && !MotorIOLib_ThreadIsRunning(); }));
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(entryCalls, 25);
  EXPECT_THAT(out, HasSubstr("Program thread started\n"));
  EXPECT_THAT(out, HasSubstr("Program terminated with code 3\n"));
  EXPECT_THAT(out, HasSubstr("Program thread terminated with code 0\n"));
  EXPECT_FALSE(ProgThreadRunning);
  EXPECT_TRUE(CameraThreadTerminate);
}

struct CycleCase {
  const char* name;
  int exitAfter;
  bool stopAsked;
  int calls;
  bool keepCycling;
};

TEST_F(Programs, EachCycleRunsAtMostTenSlices) {
  const CycleCase cases[] = {
      {"program always wants more", 0, false, 10, true},
      {"program ends on its first slice", 1, false, 1, false},
      {"program ends on its fourth slice", 4, false, 4, false},
      {"stop already asked for", 0, true, 0, false},
  };
  InstallEntry(CountingEntry);
  for (const CycleCase& c : cases) {
    SCOPED_TRACE(c.name);
    entryCalls = 0;
    exitAfter = c.exitAfter;
    ProgThreadTerminate = c.stopAsked;
    int32_t cyclesBefore = RateIOSecond;
    EXPECT_EQ(KavriDownloadIOCallback(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), KAVRI_TRANS_AREA_INDEX),
              c.keepCycling);
    EXPECT_EQ(entryCalls, c.calls);
    EXPECT_EQ(RateIOSecond, cyclesBefore + 1);
  }
}

TEST_F(Programs, StopFailsWhileTheCameraThreadDoesNotEnd) {
  CameraThreadRunning = true;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Run(kavri::HandleStopCode, KavriCmdStopCode));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Timeout terminating IO, Prog or Camera Thread");
  EXPECT_TRUE(PcReceives(4).empty());
  EXPECT_TRUE(heard.empty());
  CameraThreadRunning = false;
}

TEST_F(Programs, SliceThatNeverReturnsKeepsTheRunAreaFromBeingReplaced) {
  ASSERT_TRUE(Download("stuck", ImageJumpingTo(CountingEntry)));
  holdSlice = true;
  ASSERT_EQ(KavriLib_StartRamProgram(), 1);
  ASSERT_TRUE(WaitFor([] { return entryCalls == 1; }));
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Run(kavri::HandleStartCode, KavriCmdStartCode));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("ERROR I/O threads did not stop: a program time slice does not return\n"));
  EXPECT_EQ(KavriLib_StartRamProgram(), 0);
  EXPECT_EQ(KavriLib_StartDownloadProgram((library_ / "stuck").c_str()), 0);
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
  EXPECT_EQ(KavriLib_StartDownloadProgram(path.c_str()), 0);
  EXPECT_EQ(KavriLib_StartRamProgram(), 0);
  OnlineModeActive = false;
}

}  // namespace
