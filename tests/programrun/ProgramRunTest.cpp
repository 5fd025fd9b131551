// Real ARM programs, built by the PC tool chain for a controller running in a
// child process, downloaded and run over TCP. The child's main thread
// watches the controller and prints what the test cannot see from outside:
// the host callbacks, the I/O and program threads, and the programs' reports.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ControllerProcess.h"
#include "ProgramCommands.h"
#include "host/KavriState.h"
#include "kavri/LinkProtocol.h"
#include "kavri/MotorIOLib.h"
#include "motoriolib/MotorIOLibSim.h"

#include "../programs/ProgramParts.h"

namespace {

const std::string kPrograms = KAVRI_TEST_PROGRAMS_DIR;

void PrintProgramInfo(KavriLib_ProgramInfo* info) {
  printf("callback state=%d name=%s\n", info->state, info->name ? info->name : "(null)");
}

int32_t* ReportWords(shm_if_s* area) { return reinterpret_cast<int32_t*>(reinterpret_cast<uint8_t*>(area) + TEST_REPORT_OFFSET); }

// The child's main thread after KavriLib_Init; never returns.
[[noreturn]] void Monitor(const std::string& dir) {
  KavriLib_SetProgramLibraryPath((dir + "/").c_str());
  KavriLib_SetProgramInfoCallback(PrintProgramInfo);
  shm_if_s* area = MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX);
  int32_t* report = ReportWords(area);
  int last = -1, lastOutput1 = 0;
  for (;;) {
    bool io = MotorIOLib_ThreadIsRunning(), program = ProgThreadRunning.load();
    int state = io * 2 + program;
    if (state != last) printf("monitor io=%d prog=%d\n", io, program);
    last = state;
    // Read from the area itself: a slice that never returns stops the
    // exchanges that would carry it to the simulated hardware.
    int output1 = std::atomic_ref<uint16_t>(area->OutputValues[1]).load(std::memory_order_relaxed);
    if (output1 != lastOutput1) printf("monitor output1=%d\n", output1);
    lastOutput1 = output1;
    MotorIOLibSim_SetInput(TEST_SEEN_RUNNING_INPUT, state == 3 ? TEST_SEEN_RUNNING_VALUE : -1);
    std::atomic_ref<int32_t> mark(report[0]);
    if (mark.load() == TEST_REPORT_MARK) {
      std::string line = "report";
      int32_t count = std::min<int32_t>(report[1], TEST_REPORT_MAX);
      for (int32_t i = 0; i < count; ++i) line += " " + std::to_string(report[2 + i]);
      printf("%s\n", line.c_str());
      mark.store(0);
    }
    std::ifstream request(dir + "/start-flash");
    std::string path;
    if (request >> path) {
      unlink((dir + "/start-flash").c_str());
      printf("start flash %s -> %d\n", path.c_str(), KavriLib_StartDownloadProgram(path.c_str()));
    }
    usleep(5000);
  }
}

class ProgramRun : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/kavri-programs-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    ControllerConfig config;
    config.afterInit = [dir = dir_] { Monitor(dir); };
    controller_ = std::make_unique<ControllerProcess>(config);
    ASSERT_TRUE(controller_->WaitUntilListening()) << controller_->Stderr();
  }
  void TearDown() override {
    link_.reset();
    controller_.reset();
    EXPECT_EQ(system(("rm -rf " + dir_).c_str()), 0);
  }

  // The controller drops a connection that stays silent for 5 s, as one may
  // while the test waits or the tool chain runs: each step connects anew.
  LinkClient& Reconnect() {
    link_.reset();
    link_ = std::make_unique<LinkClient>("127.0.0.1", controller_->port(), 60);
    return *link_;
  }

  std::vector<uint8_t> Build(std::vector<std::string> sources) {
    ProgramBuildOptions options;
    for (std::string& source : sources) options.sources.push_back(kPrograms + "/" + source);
    options.output = dir_ + "/image";
    options.includeDir = DefaultProgramIncludeDir();
    BuildProgram(options, QueryLinkInfo(Reconnect()));
    std::ifstream file(options.output, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  }

  void Run(std::vector<std::string> sources, const std::string& name = "program", bool ramOnly = true) {
    std::vector<uint8_t> image = Build(std::move(sources));
    DownloadImage(Reconnect(), image, name, ramOnly);
    ASSERT_TRUE(StartProgram(Reconnect()));
  }

  // Waits for `text` on the controller's output after position `from`;
  // returns the position after it, or npos.
  size_t WaitForLine(const std::string& text, size_t from = 0) {
    size_t found = std::string::npos;
    WaitFor([&] {
      found = controller_->Stdout().find(text, from);
      return found != std::string::npos;
    });
    return found == std::string::npos ? found : found + text.size();
  }

  std::vector<int32_t> WaitForReport() {
    size_t at = WaitForLine("report");
    std::vector<int32_t> values;
    if (at == std::string::npos) return values;
    std::string out = controller_->Stdout();
    std::istringstream line(out.substr(at, out.find('\n', at) - at));
    for (int32_t value; line >> value;) values.push_back(value);
    return values;
  }

  // The callbacks of states 2, 3, 4 and 7, in the order the host heard them.
  std::vector<std::string> DownloadCallbacks() {
    std::istringstream out(controller_->Stdout());
    std::vector<std::string> states;
    for (std::string line; std::getline(out, line);)
      if (line.rfind("callback state=", 0) == 0 && line.find("state=5") == std::string::npos &&
          line.find("state=6") == std::string::npos)
        states.push_back(line.substr(9));
    return states;
  }

  std::string dir_;
  std::unique_ptr<ControllerProcess> controller_;
  std::unique_ptr<LinkClient> link_;
};

TEST_F(ProgramRun, ExitCodeEndsTheProgramAndDownloadMode) {
  Run({"ExitCode.c"}, "exitcode", false);
  size_t running = WaitForLine("monitor io=1 prog=1");
  ASSERT_NE(running, std::string::npos) << controller_->Stdout();
  std::vector<int32_t> report = WaitForReport();
  ASSERT_EQ(report.size(), 3u);
  EXPECT_GE(report[0], 25) << "slices run";
  EXPECT_EQ(report[1], 0) << "32-bit division by zero";
  EXPECT_EQ(report[2], 0) << "64-bit division by zero";
  size_t ended = WaitForLine("Program terminated with code 42\n", running);
  ASSERT_NE(ended, std::string::npos) << controller_->Stdout();
  EXPECT_NE(WaitForLine("Program thread terminated with code 0\n", ended), std::string::npos);
  // Only the program thread stops the I/O threads after the program's own end.
  EXPECT_NE(WaitForLine("monitor io=0 prog=0", running), std::string::npos) << controller_->Stdout();

  StopProgram(Reconnect());
  WaitForLine("callback state=7");
  EXPECT_EQ(DownloadCallbacks(), (std::vector<std::string>{"state=3 name=exitcode", "state=4 name=(null)",
                                                            "state=7 name=(null)"}));
}

TEST_F(ProgramRun, Fl48AndTextGraphicsGiveWhatTheLibraryGivesInProcess) {
  Run({"Fl48Text.c", "Fl48TextMain.c"});
  std::vector<int32_t> fromProgram = WaitForReport();
  ASSERT_EQ(fromProgram.size(), size_t{FL48_TEXT_RESULTS}) << controller_->Stdout() << controller_->Stderr();

  std::vector<int32_t> inProcess(FL48_TEXT_RESULTS);
  DrawFl48Text(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), inProcess.data());
  EXPECT_EQ(fromProgram, inProcess);
  EXPECT_EQ(fromProgram[6], 10) << "(22/7)^2 rounded";
  EXPECT_EQ(fromProgram[7], -6) << "sqrt(2) - 7 rounded down";
  EXPECT_EQ(fromProgram[8], 1);
  EXPECT_EQ(fromProgram[9], 0);
  EXPECT_EQ(fromProgram[10], 1);
  EXPECT_NE(fromProgram[11], 0) << "nothing was drawn";
}

TEST_F(ProgramRun, EveryServiceSlotAnswersAsDocumented) {
  Run({"AllServices.c", "AllServicesMain.c"});
  std::vector<int32_t> fromProgram = WaitForReport();
  ASSERT_EQ(fromProgram.size(), size_t{ALL_SERVICES_RESULTS}) << controller_->Stdout() << controller_->Stderr();
  EXPECT_NE(controller_->Stdout().find("Displaydata="), std::string::npos);

  std::vector<int32_t> inProcess(ALL_SERVICES_RESULTS);
  CallAllServices(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), inProcess.data());
  // The update answer depends on whether the display took the last frame.
  EXPECT_TRUE(fromProgram[58] == 0 || fromProgram[58] == 1);
  fromProgram[58] = inProcess[58];
  EXPECT_EQ(fromProgram, inProcess);

  struct Documented {
    int slot;
    int32_t value;
  } documented[] = {{1, 1}, {3, 1}, {8, 0}, {18, 25}, {25, 1}, {26, 0}, {27, 1}, {28, 1},
                    {29, 0}, {30, 1}, {40, 1}, {42, 1}, {43, 0}, {55, 0}};
  for (const Documented& d : documented)
    EXPECT_EQ(fromProgram[d.slot - 1], d.value) << "slot " << d.slot;
}

TEST_F(ProgramRun, FlashFileIsWrittenAndStartedByTheHost) {
  std::vector<uint8_t> image = Build({"Forever.c"});
  DownloadImage(Reconnect(), image, "forever", false);
  std::ifstream flash(dir_ + "/forever", std::ios::binary);
  std::vector<uint8_t> stored((std::istreambuf_iterator<char>(flash)), std::istreambuf_iterator<char>());
  EXPECT_EQ(stored, image);

  std::ofstream(dir_ + "/start-flash") << dir_ + "/forever";
  EXPECT_NE(WaitForLine("start flash " + dir_ + "/forever -> 1"), std::string::npos) << controller_->Stdout();
  EXPECT_NE(WaitForLine("monitor io=1 prog=1"), std::string::npos);
  StopProgram(Reconnect());
  EXPECT_NE(WaitForLine("monitor io=0 prog=0", WaitForLine("monitor io=1 prog=1")), std::string::npos);
}

TEST_F(ProgramRun, StartBeforeAnyDownloadStartsNothing) {
  EXPECT_FALSE(StartProgram(Reconnect()));
  EXPECT_EQ(DownloadCallbacks(), std::vector<std::string>{"state=4 name=(null)"});
  EXPECT_EQ(controller_->Stdout().find("Program thread started"), std::string::npos);
  EXPECT_EQ(controller_->Stdout().find("monitor io=1"), std::string::npos);
}

TEST_F(ProgramRun, CodeIsSurroundedByThePrefill) {
  Run({"Prefill.c"});
  std::vector<int32_t> report = WaitForReport();
  ASSERT_EQ(report.size(), 3u) << controller_->Stdout() << controller_->Stderr();
  EXPECT_GT(report[0], 12);
  EXPECT_EQ(report[1], 0) << "words between the code and 2 MiB that are not breakpoints";
  EXPECT_EQ(report[2], 0) << "words above 2 MiB that are not zero";
}

TEST_F(ProgramRun, StopCodeStopsARunningProgram) {
  Run({"Forever.c"});
  size_t running = WaitForLine("monitor io=1 prog=1");
  ASSERT_NE(running, std::string::npos);
  StopProgram(Reconnect());
  EXPECT_NE(WaitForLine("monitor io=0 prog=0", running), std::string::npos);
  EXPECT_NE(WaitForLine("callback state=7"), std::string::npos);
  EXPECT_TRUE(StartProgram(Reconnect())) << "the download stays valid";
  EXPECT_NE(WaitForLine("monitor io=1 prog=1", running), std::string::npos);
}

// A slice that never returns keeps the I/O thread for good, on the controller
// as here: the stop fails with a message instead of hanging, and the
// controller serves the next connection.
TEST_F(ProgramRun, StuckSliceDoesNotHangTheController) {
  Run({"Stuck.c"});
  // Stopping before the first slice runs would stop cleanly.
  ASSERT_NE(WaitForLine("monitor output1=77"), std::string::npos);
  EXPECT_THROW(StopProgram(Reconnect()), LinkError);
  EXPECT_TRUE(controller_->WaitForStderr("did not end")) << controller_->Stderr();
  xoIF2013Command_Base status{KavriCmdQueryStatus};
  auto reply = Reconnect().Exchange<xoIF2013Command_Base, xoIF2013Reply_QueryStatus>(status, KavriReplyQueryStatus, "status");
  EXPECT_STREQ(reply.controllerType, KAVRI_CONTROLLER_TYPE);
}

}  // namespace
