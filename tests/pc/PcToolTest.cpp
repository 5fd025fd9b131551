// The PC tool as a user meets it: its command line, and controllers that
// misbehave. Each failure must reach the user as a clear message and the
// documented exit code, never as a hang or a half-read answer.
#include <gtest/gtest.h>

#include <cstring>

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
  words.insert(words.begin(), {"--port", std::to_string(bound >= 0 ? BoundPort(bound) : controller.port()), "--timeout", "1"});
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
      {"closes without a reply", {}, Controller::Answers, {"status"}, 1, "",
       "closed the connection instead of answering the status command"},
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

}  // namespace
