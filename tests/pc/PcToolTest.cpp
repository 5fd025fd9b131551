// The PC tool as a user meets it: its command line, and controllers that
// misbehave. Each failure must reach the user as a clear message and the
// documented exit code, never as a hang or a half-read answer.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cstring>
#include <thread>

#include "LoopbackPort.h"
#include "PcContext.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

void AddInfoCommands(CLI::App& app, PcContext& context);

namespace {

// A one-connection server on a port of its own choosing: reads the command
// word, then answers with `reply` (possibly nothing) and closes, or keeps
// silent until the PC gives up.
class ScriptedController {
 public:
  ScriptedController(std::vector<uint8_t> reply, bool staySilent = false)
      : listener_(ListenOnLoopback(0)), port_(BoundPort(listener_)) {
    thread_ = std::thread([this, reply = std::move(reply), staySilent] {
      int fd = accept(listener_, nullptr, nullptr);
      if (fd < 0) return;  // nobody came: the destructor shut the listener
      timeval deadline{30, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
      uint32_t word;
      if (read(fd, &word, sizeof word) == sizeof word && !staySilent)
        if (write(fd, reply.data(), reply.size()) < 0) perror("scripted reply");
      while (staySilent && read(fd, &word, sizeof word) > 0) {
      }
      close(fd);
    });
  }
  ~ScriptedController() {
    shutdown(listener_, SHUT_RDWR);  // wakes an accept that nobody answers
    thread_.join();
    close(listener_);
  }
  int port() const { return port_; }

 private:
  int listener_;
  int port_;
  std::thread thread_;
};

std::vector<uint8_t> Bytes(const void* data, size_t length) {
  auto* bytes = static_cast<const uint8_t*>(data);
  return {bytes, bytes + length};
}

std::vector<uint8_t> StatusReply(const char* type, uint32_t version) {
  xoIF2013Reply_QueryStatus status{};
  status.code = KavriReplyQueryStatus;
  memcpy(status.controllerType, type, strlen(type));
  status.systemVersion = version;
  return Bytes(&status, sizeof status);
}

std::string ReadAll(FILE* file) {
  std::string text;
  rewind(file);
  char buffer[4096];
  while (size_t count = fread(buffer, 1, sizeof buffer, file)) text.append(buffer, count);
  fclose(file);
  return text;
}

struct ToolRun {
  int exitCode;
  std::string out;
  std::string err;
};

ToolRun RunTool(std::vector<std::string> words) {
  words.insert(words.begin(), "kavri-pc");
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  FILE* out = tmpfile();
  FILE* err = tmpfile();
  int code = RunPcTool(static_cast<int>(argv.size()), argv.data(),
                       [](CLI::App& app, PcContext& context) { AddInfoCommands(app, context); }, out, err);
  return {code, ReadAll(out), ReadAll(err)};
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

struct MisbehaviourCase {
  const char* name;
  std::vector<uint8_t> reply;
  bool staySilent;
  const char* message;
};

TEST(PcTool, MisbehavingControllerGivesAClearErrorAndExitCode1) {
  xoIF2013Reply_QueryStatus wrongCode{};
  wrongCode.code = KavriReplyGetMemoryLayout;
  std::vector<uint8_t> halfReply = StatusReply("QV2013", 0);
  halfReply.resize(10);
  const MisbehaviourCase cases[] = {
      {"closes without a reply", {}, false, "closed the connection instead of answering the status command"},
      {"closes in the middle of the reply", halfReply, false, "closed the connection instead of answering"},
      {"answers with another reply code", Bytes(&wrongCode, sizeof wrongCode), false,
       "answered the status command with reply code 0x5170c53b, expected 0xbac9723e"},
      {"does not answer", {}, true, "did not answer the status command in time"},
  };
  for (const MisbehaviourCase& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedController controller(c.reply, c.staySilent);
    ToolRun run = RunTool({"--port", std::to_string(controller.port()), "--timeout", "1", "status"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(Contains(run.err, c.message)) << run.err;
    EXPECT_EQ(run.out, "");
  }
}

TEST(PcTool, NoControllerIsNamedInTheError) {
  // Bound but not listening: connections are refused, and no one else can
  // take the port while the test holds it.
  int port = 0;
  int fd = BindLoopbackPort(port);
  ASSERT_GE(fd, 0);
  ToolRun run = RunTool({"--port", std::to_string(port), "status"});
  close(fd);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.err.rfind("kavri-pc: cannot connect to the controller at 127.0.0.1:" + std::to_string(port), 0), 0u)
      << run.err;
}

TEST(PcTool, StatusReportReadsAsTextAndAsJson) {
  {
    ScriptedController controller(StatusReply("QV\"2013", 0x04010500));
    ToolRun run = RunTool({"--port", std::to_string(controller.port()), "status"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "Controller:           QV\"2013\n"
              "System version:       4.1.5.0\n"
              "System version word:  0x04010500\n");
  }
  {
    ScriptedController controller(StatusReply("QV\"2013", 0x04010500));
    ToolRun run = RunTool({"status", "--json", "--port", std::to_string(controller.port())});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "{\"controller\":\"QV\\\"2013\",\"systemVersion\":\"4.1.5.0\",\"systemVersionWord\":67175680}\n");
  }
}

struct UsageCase {
  std::vector<std::string> words;
  int exitCode;
  const char* message;  // in standard error for usage errors, in standard output for help
};

TEST(PcTool, CommandLineMistakesExitWith2AndHelpWith0) {
  const UsageCase cases[] = {
      {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
      {{}, 2, "subcommand is required"},
      {{"--port", "65536", "status"}, 2, "--port"},
      {{"--port", "0", "status"}, 2, "--port"},
      {{"--port", "-80", "status"}, 2, "--port"},
      {{"--port", "80x", "status"}, 2, "not a whole number"},
      {{"--port", "0x", "status"}, 2, "not a whole number"},
      {{"--port", " 80", "status"}, 2, "not a whole number"},
      {{"--port", "99999999999999999999", "status"}, 2, "not a whole number"},
      {{"--timeout", "0", "status"}, 2, "--timeout"},
      {{"--frob", "status"}, 2, "--frob"},
      {{"status", "extra"}, 2, "extra"},
      {{"--help"}, 0, "layout"},
      {{"status", "--help"}, 0, "controller type and system version"},
  };
  for (const UsageCase& c : cases) {
    std::string line;
    for (const std::string& word : c.words) line += word + " ";
    SCOPED_TRACE(line);
    ToolRun run = RunTool(c.words);
    EXPECT_EQ(run.exitCode, c.exitCode);
    EXPECT_TRUE(Contains(c.exitCode ? run.err : run.out, c.message)) << run.out << run.err;
  }
}

}  // namespace
