// The PC tool as a user meets it: its command line, and controllers that
// misbehave. Each failure must reach the user as a clear message and the
// documented exit code, never as a hang or a half-read answer.
#include <gtest/gtest.h>

#include <cstring>

#include "LoopbackPort.h"
#include "PcToolHarness.h"
#include "kavri/LinkProtocol.h"

void AddInfoCommands(CLI::App& app, PcContext& context);

namespace {

std::vector<uint8_t> StatusReply(const char* type, uint32_t version, uint32_t code = KavriReplyQueryStatus) {
  xoIF2013Reply_QueryStatus status{};
  status.code = code;
  memcpy(status.controllerType, type, strlen(type));
  status.systemVersion = version;
  auto* bytes = reinterpret_cast<const uint8_t*>(&status);
  return {bytes, bytes + sizeof status};
}

// Reads the command word, then answers with `reply` (possibly nothing) and
// closes, or keeps silent until the PC gives up.
ToolRun StatusFrom(std::vector<uint8_t> reply, bool staySilent, std::vector<std::string> words) {
  ScriptedController controller([&](int fd) {
    uint32_t word;
    if (ReadExactly(fd, &word, sizeof word) && !staySilent) WriteBytes(fd, reply.data(), reply.size());
    while (staySilent && read(fd, &word, sizeof word) > 0) {
    }
  });
  words.insert(words.begin(), {"--port", std::to_string(controller.port()), "--timeout", "1"});
  return RunTool(AddInfoCommands, words);
}

TEST(PcTool, ControllersAnswerIsReportedOrItsFaultNamedWithExitCode1) {
  std::vector<uint8_t> halfReply = StatusReply("QV2013", 0);
  halfReply.resize(10);
  const struct {
    const char* name;
    std::vector<uint8_t> reply;
    bool staySilent;
    std::vector<std::string> words;
    int exitCode;
    const char* out;  // all of standard output
    const char* err;  // part of standard error
  } cases[] = {
      {"text", StatusReply("QV\"2013", 0x04010500), false, {"status"}, 0,
       "Controller:           QV\"2013\nSystem version:       4.1.5.0\nSystem version word:  0x04010500\n", ""},
      {"json after the command", StatusReply("QV\"2013", 0x04010500), false, {"status", "--json"}, 0,
       "{\"controller\":\"QV\\\"2013\",\"systemVersion\":\"4.1.5.0\",\"systemVersionWord\":67175680}\n", ""},
      {"closes without a reply", {}, false, {"status"}, 1, "",
       "closed the connection instead of answering the status command"},
      {"closes in the middle of the reply", halfReply, false, {"status"}, 1, "",
       "closed the connection instead of answering"},
      {"answers with another reply code", StatusReply("QV2013", 0, KavriReplyGetMemoryLayout), false, {"status"}, 1,
       "", "answered the status command with reply code 0x5170c53b, expected 0xbac9723e"},
      {"does not answer", {}, true, {"status"}, 1, "", "did not answer the status command in time"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ToolRun run = StatusFrom(c.reply, c.staySilent, c.words);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
    EXPECT_EQ(run.out, c.out);
    EXPECT_TRUE(Contains(run.err, c.err)) << run.err;
  }
}

TEST(PcTool, NoControllerIsNamedInTheError) {
  // Bound but not listening: connections are refused, and no one else can
  // take the port while the test holds it.
  int port = 0;
  int fd = BindLoopbackPort(port);
  ASSERT_GE(fd, 0);
  ToolRun run = RunTool(AddInfoCommands, {"--port", std::to_string(port), "status"});
  close(fd);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.err.rfind("kavri-pc: cannot connect to the controller at 127.0.0.1:" + std::to_string(port), 0), 0u)
      << run.err;
}

TEST(PcTool, CommandLineMistakesExitWith2AndHelpWith0) {
  const struct {
    std::vector<std::string> words;
    int exitCode;
    const char* message;  // in standard error for mistakes, in standard output for help
  } cases[] = {
      {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
      {{}, 2, "subcommand is required"},
      {{"--port", "65536", "status"}, 2, "--port"},
      {{"--port", "0", "status"}, 2, "--port"},
      {{"--port", "80x", "status"}, 2, "not a whole number"},
      {{"--port", " 80", "status"}, 2, "not a whole number"},
      {{"--port", "99999999999999999999", "status"}, 2, "not a whole number"},
      {{"--timeout", "0", "status"}, 2, "--timeout"},
      {{"status", "extra"}, 2, "extra"},
      {{"--help"}, 0, "layout"},
      {{"status", "--help"}, 0, "controller type and system version"},
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

}  // namespace
