// The PC tool as a user meets it: its command line, and controllers that
// misbehave. Each failure must reach the user as a clear message and the
// documented exit code, never as a hang or a half-read answer.
#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "PcToolHarness.h"
#include "ProgramCommands.h"
#include "kavri/LinkProtocol.h"

void AddInfoCommands(CLI::App& app, PcContext& context);
void AddProgramCommands(CLI::App& app, PcContext& context);

namespace {

std::vector<uint8_t> StatusReply(const char* type, uint32_t version, uint32_t code = KavriReplyQueryStatus) {
  xoIF2013Reply_QueryStatus status{};
  status.code = code;
  memcpy(status.controllerType, type, strlen(type));
  status.systemVersion = version;
  auto* bytes = reinterpret_cast<const uint8_t*>(&status);
  return {bytes, bytes + sizeof status};
}

enum class Controller { Answers, StaysSilent, Refuses };

// The controller reads the command word, then answers with `reply` (possibly
// nothing) and closes, or keeps silent until the PC gives up; or it is not
// there: its port is bound but does not listen, so no one else takes it.
ToolRun StatusFrom(Controller kind, const std::vector<uint8_t>& reply, std::vector<std::string> words) {
  int bound = kind == Controller::Refuses ? BindLoopback(0) : -1;
  ScriptedController controller([&](int fd) {
    uint32_t word;
    if (ReadExactly(fd, &word, sizeof word) && kind == Controller::Answers) WriteBytes(fd, reply.data(), reply.size());
    while (kind == Controller::StaysSilent && read(fd, &word, sizeof word) > 0) {
    }
  });
  int port = bound >= 0 ? BoundPort(bound) : controller.port();
  words.insert(words.begin(), {"--port", std::to_string(port), "--timeout", "1"});
  ToolRun run = RunTool(AddInfoCommands, words);
  if (bound >= 0) close(bound);
  return run;
}

TEST(PcTool, ControllersAnswerIsReportedOrItsFaultNamedWithExitCode1) {
  std::vector<uint8_t> halfReply = StatusReply("QV2013", 0);
  halfReply.resize(10);
  const struct {
    const char* name;
    std::vector<uint8_t> reply;
    Controller kind;
    std::vector<std::string> words;
    int exitCode;
    const char* out;  // all of standard output
    const char* err;  // part of standard error
  } cases[] = {
      {"text", StatusReply("QV\"2013", 0x04010500), Controller::Answers, {"status"}, 0,
       "Controller:           QV\"2013\nSystem version:       4.1.5.0\nSystem version word:  0x04010500\n", ""},
      {"json after the command", StatusReply("QV\"2013", 0x04010500), Controller::Answers, {"status", "--json"}, 0,
       "{\"controller\":\"QV\\\"2013\",\"systemVersion\":\"4.1.5.0\",\"systemVersionWord\":67175680}\n", ""},
      {"closes in the middle of the reply", halfReply, Controller::Answers, {"status"}, 1, "",
       "closed the connection instead of answering"},
      {"answers with another reply code", StatusReply("QV2013", 0, KavriReplyGetMemoryLayout), Controller::Answers,
       {"status"}, 1, "", "answered the status command with reply code 0x5170c53b, expected 0xbac9723e"},
      {"does not answer", {}, Controller::StaysSilent, {"status"}, 1, "", "did not answer the status command in time"},
      {"is not there", {}, Controller::Refuses, {"status"}, 1, "",
       "kavri-pc: cannot connect to the controller at 127.0.0.1:"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ToolRun run = StatusFrom(c.kind, c.reply, c.words);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
    EXPECT_EQ(run.out, c.out);
    EXPECT_TRUE(Contains(run.err, c.err)) << run.err;
  }
}

TEST(PcTool, CommandLineMistakesExitWith2AndHelpWith0) {
  const struct {
    std::vector<std::string> words;
    int exitCode;
    const char* message;  // in standard error for mistakes, in standard output for help
  } cases[] = {
      {{"frobnicate"}, 2, "unknown command 'frobnicate'"}, {{}, 2, "subcommand is required"},
      {{"--port", "65536", "status"}, 2, "--port"},        {{"--port", "0", "status"}, 2, "--port"},
      {{"--port", "80x", "status"}, 2, "not a whole number"}, {{"--port", " 80", "status"}, 2, "not a whole number"},
      {{"--port", "99999999999999999999", "status"}, 2, "not a whole number"},
      {{"--timeout", "0", "status"}, 2, "--timeout"},      {{"status", "extra"}, 2, "extra"},
      {{"--help"}, 0, "layout"}, {{"status", "--help"}, 0, "controller type and system version"},
  };
  for (const auto& c : cases) {
    std::string line;
    for (const std::string& word : c.words) line += word + " ";
    SCOPED_TRACE(line);
    ToolRun run = RunTool(AddInfoCommands, c.words);
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_TRUE(Contains(c.exitCode ? run.err : run.out, c.message)) << run.out << run.err;
  }
}

// kavri-pc's program commands against a scripted controller: what goes over
// the wire, what the user reads, and the exit codes.
ToolRun Tool(std::vector<std::string> words, int port = 1, FILE* out = nullptr) {
  words.insert(words.begin(), {"--port", std::to_string(port), "--timeout", "30"});
  return RunTool(AddProgramCommands, words, out);
}

// Reads one download command and its code, answers it; then, if `start`,
// answers one start command with `started`.
struct DownloadScript {
  xoIF2013Command_DownloadCode command{};
  std::vector<uint8_t> code;
  uint32_t startCommand = 0;
  void Serve(int fd, bool start, uint32_t started = 1) {
    if (!ReadExactly(fd, &command, sizeof command)) return;
    code.resize(std::min<uint32_t>(command.codeSize, 1 << 20));
    if (!ReadExactly(fd, code.data(), code.size())) return;
    WriteWords(fd, {KavriReplyDownloadCode});
    if (start && ReadExactly(fd, &startCommand, 4)) WriteWords(fd, {KavriReplyStartCode, started});
  }
};

// What the other end of a pseudo-terminal shows after a download wrote to it.
std::string DownloadOnATerminal(const std::string& image, int port) {
  int controlling, terminal;
  if (openpty(&controlling, &terminal, nullptr, nullptr, nullptr) != 0) return "no pseudo-terminal";
  termios raw{};
  tcgetattr(terminal, &raw);
  cfmakeraw(&raw);  // no newline translation
  tcsetattr(terminal, TCSANOW, &raw);
  FILE* out = fdopen(terminal, "w");
  ToolRun run = Tool({"download", image}, port, out);
  fclose(out);
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(controlling, buffer, sizeof buffer)) > 0;) text.append(buffer, count);
  close(controlling);
  return run.exitCode == 0 ? text : run.err;
}

class ProgramCommands : public ::testing::Test {
 protected:
  void SetUp() override { WriteImage(100); }
  void TearDown() override { unlink(image_.c_str()); }
  void WriteImage(size_t size) {
    std::ofstream file(image_, std::ios::binary);
    for (size_t i = 0; i < size; ++i) file.put(static_cast<char>(i));
  }
  std::string image_ = "/tmp/kavri-cli-" + std::to_string(getpid()) + ".img";
};

TEST_F(ProgramCommands, DownloadAndRunSendTheImageWithItsNameAndFlag) {
  struct Case {
    std::vector<std::string> words;
    const char* name;
    uint8_t ramOnly;
    uint32_t startCommand;
    const char* out;
  } cases[] = {
      {{"download"}, "kavri-cli-", 0, 0, "Sent 100 of 100 bytes\n"},
      {{"download", "--name", "blink", "--ram"}, "blink", 1, 0, "RAM only:    yes\n"},
      {{"--json", "run", "--ram"}, "kavri-cli-", 1, KavriCmdStartCode, "\"started\":1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words.back());
    DownloadScript script;
    ToolRun run;
    {
      ScriptedController controller([&](int fd) { script.Serve(fd, c.startCommand != 0); });
      std::vector<std::string> words = c.words;
      words.insert(words.begin() + (c.words[0] == "--json" ? 2 : 1), image_);
      run = Tool(words, controller.port());
    }
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(script.command.code, KavriCmdDownloadCode);
    EXPECT_EQ(std::string(script.command.fileName).rfind(c.name, 0), 0u) << script.command.fileName;
    EXPECT_EQ(script.command.ramOnly, c.ramOnly);
    ASSERT_EQ(script.code.size(), 100u);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(script.code[i], i);
    EXPECT_EQ(script.startCommand, c.startCommand);
    EXPECT_TRUE(Contains(run.out, c.out)) << run.out;
  }
}

TEST_F(ProgramCommands, ProgressIsABarOnATerminalAndALinePerTenthElsewhere) {
  WriteImage(1 << 20);
  for (bool terminal : {true, false}) {
    SCOPED_TRACE(terminal ? "terminal" : "file");
    DownloadScript script;
    std::string out;
    {
      ScriptedController controller([&](int fd) { script.Serve(fd, false); });
      int port = controller.port();
      out = terminal ? DownloadOnATerminal(image_, port) : Tool({"download", image_}, port).out;
    }
    std::string bar = "\r[##" + std::string(38, ' ') + "]   6% 65536/1048576 bytes";
    std::string full = "\r[" + std::string(40, '#') + "] 100% 1048576/1048576 bytes\n";
    EXPECT_EQ(std::count(out.begin(), out.end(), '\r'), terminal ? 16 : 0) << out;
    EXPECT_EQ(Contains(out, bar) && Contains(out, full), terminal) << out;
    size_t lines = 0;
    for (size_t at = 0; (at = out.find("Sent ", at)) != std::string::npos; ++at) ++lines;
    EXPECT_EQ(lines, terminal ? 0u : 10u) << out;
    EXPECT_EQ(Contains(out, "Sent 1048576 of 1048576 bytes\n"), !terminal);
  }
}

TEST_F(ProgramCommands, LibtableNamesEverySlot) {
  ScriptedController controller([](int fd) {
    uint32_t word;
    if (!ReadExactly(fd, &word, 4) || word != KavriCmdGetMemoryLayout) return;
    WriteWords(fd, {KavriReplyGetMemoryLayout, 0x40000000, 0x400000, 0x3f000000, 0x2400});
    if (!ReadExactly(fd, &word, 4) || word != KavriCmdGetLibAddresses) return;
    std::vector<uint32_t> table = {KavriReplyGetLibAddresses};
    for (uint32_t slot = 1; slot < KAVRI_LIB_ADDRESS_SLOTS; ++slot) table.push_back(0x10000000 + slot);
    WriteWords(fd, table);
  });
  ToolRun run = Tool({"libtable", "--json"}, controller.port());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_TRUE(Contains(run.out, "{\"BluetoothGetSelfRadioCallNumber\":268435457,")) << run.out;
  EXPECT_TRUE(Contains(run.out, "\"DisplaySetup\":268435463,"));
  EXPECT_TRUE(Contains(run.out, "\"TextGrph_Update\":268435515}"));
}

TEST_F(ProgramCommands, RefusalsNameTheirReasonAndExitCode) {
  std::string big = image_ + ".big", full = image_ + ".full";
  std::ofstream(big, std::ios::binary).seekp(0x400000).put(1);
  std::ofstream(full, std::ios::binary).seekp(0x3fffff).put(1);
  struct Case {
    std::vector<std::string> words;
    int exitCode;
    const char* message;
    bool controller;  // a controller that holds no download answers the start
  } cases[] = {
      {{"download", image_ + ".none"}, 1, "cannot open the image", false},
      {{"download", big}, 1, "more than the 4 MiB run area", false},
      {{"download", image_, "--name", std::string(67, 'n')}, 2, "at most 66 characters", false},
      // At the limits nothing is refused: the tool goes on to connect.
      {{"download", full}, 1, "cannot connect to the controller", false},
      {{"download", image_, "--name", std::string(66, 'n')}, 1, "cannot connect to the controller", false},
      {{"start"}, 1, "holds no downloaded program", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    ToolRun run;
    if (c.controller) {
      ScriptedController controller([](int fd) {
        uint32_t word;
        if (ReadExactly(fd, &word, 4) && word == KavriCmdStartCode) WriteWords(fd, {KavriReplyStartCode, 0});
      });
      run = Tool(c.words, controller.port());
    } else {
      run = Tool(c.words);  // port 1: nothing listens there, nothing may connect
    }
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_TRUE(Contains(run.err, c.message)) << run.err;
  }
  unlink(big.c_str());
  unlink(full.c_str());
}

}  // namespace
