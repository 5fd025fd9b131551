// Real ARM programs, built by the PC tool chain for a controller running in a
// child process, downloaded and run over TCP. The child's main thread
// watches the controller and prints what the test cannot see from outside:
// the I/O and program threads and the programs' reports.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ControllerProcess.h"
#include "ProgramCommands.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"
#include "motoriolib/MotorIOLibSim.h"

#include "../programs/ProgramParts.h"

namespace {

const std::string kPrograms = KAVRI_TEST_PROGRAMS_DIR;

shm_if_s* Area() { return MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX); }

// The child's main thread after KavriLib_Init; never returns.
[[noreturn]] void Monitor() {
  auto* report = reinterpret_cast<int32_t*>(reinterpret_cast<uint8_t*>(Area()) + TEST_REPORT_OFFSET);
  int last = -1;
  for (;; usleep(5000)) {
    bool io = MotorIOLib_ThreadIsRunning(), program = ProgThreadRunning.load();
    if (io * 2 + program != last) printf("monitor io=%d prog=%d\n", io, program);
    last = io * 2 + program;
    MotorIOLibSim_SetInput(TEST_SEEN_RUNNING_INPUT, last == 3 ? TEST_SEEN_RUNNING_VALUE : -1);
    if (std::atomic_ref<int32_t>(report[0]).load() == TEST_REPORT_MARK) {
      // One call, so that no other thread's line lands inside it.
      std::string line = "report";
      for (int32_t i = 0; i < std::min<int32_t>(report[1], TEST_REPORT_MAX); ++i)
        line += " " + std::to_string(report[2 + i]);
      printf("%s\n", line.c_str());
      std::atomic_ref<int32_t>(report[0]).store(0);
    }
  }
}

class ProgramRun : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/kavri-programs-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    controller_ = std::make_unique<ControllerProcess>(ControllerConfig{.afterInit = Monitor});
    ASSERT_TRUE(controller_->WaitUntilListening()) << controller_->Stderr();
  }
  void TearDown() override {
    link_.reset();
    controller_.reset();
    EXPECT_EQ(system(("rm -rf " + dir_).c_str()), 0);
  }

  // The controller drops a connection that stays silent for 5 s, as one may
  // while the test waits or the tool chain runs: each step connects anew.
  LinkClient& Link() {
    link_.reset();
    link_ = std::make_unique<LinkClient>("127.0.0.1", controller_->port(), 60);
    return *link_;
  }

  std::vector<uint8_t> Build(std::vector<std::string> sources) {
    ProgramBuildOptions options;
    for (std::string& source : sources) options.sources.push_back(kPrograms + "/" + source);
    options.output = dir_ + "/image";
    options.includeDir = DefaultProgramIncludeDir();
    BuildProgram(options, QueryLinkInfo(Link()));
    std::ifstream file(options.output, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  }

  void Run(std::vector<std::string> sources) {
    std::vector<uint8_t> image = Build(std::move(sources));  // connects on its own first
    DownloadImage(Link(), image, "program", true);
    ASSERT_TRUE(StartProgram(Link()));
  }

  // Waits for `text` on the controller's output after position `from`;
  // the position after it, or npos.
  size_t WaitForLine(const std::string& text, size_t from = 0) {
    size_t found = std::string::npos;
    WaitFor([&] { return (found = controller_->Stdout().find(text, from)) != std::string::npos; });
    return found == std::string::npos ? found : found + text.size();
  }

  // The values of the first whole report line after `from`: the line may
  // reach the test in pieces, so its end is waited for too.
  std::vector<int32_t> WaitForReport(size_t from = 0) {
    size_t at = WaitForLine("report", from), end = std::string::npos;
    std::string out;
    if (at != std::string::npos)
      WaitFor([&] { return (end = (out = controller_->Stdout()).find('\n', at)) != std::string::npos; });
    std::istringstream line(end == std::string::npos ? "" : out.substr(at, end - at));
    std::vector<int32_t> values;
    for (int32_t value; line >> value;) values.push_back(value);
    return values;
  }

  std::string dir_;
  std::unique_ptr<ControllerProcess> controller_;
  std::unique_ptr<LinkClient> link_;
};

TEST_F(ProgramRun, ExitCodeEndsTheProgramAndDownloadMode) {
  Run({"ExitCode.c"});
  size_t running = WaitForLine("monitor io=1 prog=1");
  ASSERT_NE(running, std::string::npos) << controller_->Stdout();
  std::vector<int32_t> report = WaitForReport();
  ASSERT_EQ(report.size(), 5u);
  EXPECT_GE(report[0], 25) << "slices run";
  EXPECT_EQ(report[1] | report[2], 0) << "32- and 64-bit division by zero give 0";
  EXPECT_GT(report[3], 12) << "image size";
  EXPECT_EQ(report[4], 0) << "words behind the code that are not the prefill";
  size_t ended = WaitForLine("Program terminated with code 42\n", running);
  ASSERT_NE(ended, std::string::npos) << controller_->Stdout();
  EXPECT_NE(WaitForLine("Program thread terminated with code 0\n", ended), std::string::npos);
  // Only the program thread stops the I/O threads after the program's own end.
  EXPECT_NE(WaitForLine("monitor io=0 prog=0", running), std::string::npos) << controller_->Stdout();
}

// Every slot once, stubs included: the same code linked into the test gives
// the reference results, results[slot - 1], and some are worked by hand.
TEST_F(ProgramRun, ServicesAnswerAsTheLibraryDoesInProcess) {
  Run({"AllServices.c", "AllServicesMain.c"});
  std::vector<int32_t> fromProgram = WaitForReport(), inProcess(ALL_SERVICES_RESULTS);
  ASSERT_EQ(fromProgram.size(), inProcess.size()) << controller_->Stdout() << controller_->Stderr();
  CallAllServices(Area(), inProcess.data());
  // The update answer depends on whether the display took the last frame.
  EXPECT_TRUE(fromProgram[58] == 0 || fromProgram[58] == 1);
  fromProgram[58] = inProcess[58];
  EXPECT_EQ(fromProgram, inProcess);
  const std::pair<int, int32_t> documented[] = {{0, 1},  {2, 1},  {7, 0},  {17, 25}, {24, 1}, {25, 0}, {26, 1},
                                                {27, 1}, {28, 0}, {29, 1}, {39, 1},  {41, 1}, {42, 0}, {54, 0},
                                                {59, -25}};
  for (auto [index, value] : documented) EXPECT_EQ(fromProgram[index], value) << "result " << index;
  EXPECT_TRUE(WaitForLine("Displaydata=") != std::string::npos);
}

}  // namespace
