// kavri-pc's program commands against a controller that plays its part of
// the protocol from a script: what goes over the wire, what the user reads,
// and the exit codes.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include "PcContext.h"
#include "ProgramCommands.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

void AddProgramCommands(CLI::App& app, PcContext& context);

namespace {

bool ReadExactly(int fd, void* buffer, size_t length) {
  auto* bytes = static_cast<uint8_t*>(buffer);
  for (size_t done = 0; done < length;) {
    ssize_t count = read(fd, bytes + done, length - done);
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

void WriteWords(int fd, std::vector<uint32_t> words) {
  if (write(fd, words.data(), words.size() * 4) < 0) perror("fake controller reply");
}

// Serves one connection with `serve`, on a port of its own.
class FakeController {
 public:
  explicit FakeController(std::function<void(int fd)> serve) : listener_(ListenOnLoopback(0)) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, serve = std::move(serve)] {
      int fd = accept(listener_, nullptr, nullptr);
      if (fd < 0) return;  // nobody came: the destructor shut the listener
      timeval deadline{30, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
      serve(fd);
      close(fd);
    });
  }
  ~FakeController() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  int port() const { return port_; }

 private:
  int listener_;
  int port_ = 0;
  std::thread thread_;
};

struct Outcome {
  int code;
  std::string out, err;
};

std::string Contents(FILE* file) {
  rewind(file);
  std::string text;
  for (int c; (c = fgetc(file)) != EOF;) text += static_cast<char>(c);
  fclose(file);
  return text;
}

// `terminal`, if given, takes standard output.
Outcome RunTool(std::vector<std::string> args, int port = 1, FILE* terminal = nullptr) {
  args.insert(args.begin(), {"kavri-pc", "--port", std::to_string(port), "--timeout", "30"});
  std::vector<const char*> argv;
  for (const std::string& arg : args) argv.push_back(arg.c_str());
  FILE* out = terminal ? terminal : tmpfile();
  FILE* err = tmpfile();
  int code = RunPcTool(static_cast<int>(argv.size()), argv.data(), AddProgramCommands, out, err);
  return {code, terminal ? "" : Contents(out), Contents(err)};
}

class ProgramCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    image_ = "/tmp/kavri-cli-" + std::to_string(getpid()) + ".img";
    std::ofstream file(image_, std::ios::binary);
    for (int i = 0; i < 100; ++i) file.put(static_cast<char>(i));
  }
  void TearDown() override { unlink(image_.c_str()); }

  // Reads one download command and its code, answers it.
  static void ServeDownload(int fd, xoIF2013Command_DownloadCode& command, std::vector<uint8_t>& code) {
    if (!ReadExactly(fd, &command, sizeof command)) return;
    code.resize(std::min<uint32_t>(command.codeSize, 1 << 20));
    if (ReadExactly(fd, code.data(), code.size())) WriteWords(fd, {KavriReplyDownloadCode});
  }

  std::string image_;
};

TEST_F(ProgramCommands, DownloadSendsTheImageWithItsNameAndFlag) {
  struct Case {
    std::vector<std::string> options;
    const char* name;
    uint8_t ramOnly;
  } cases[] = {
      {{}, "kavri-cli-", 0},
      {{"--name", "blink", "--ram"}, "blink", 1},
  };
  for (const Case& c : cases) {
    xoIF2013Command_DownloadCode command{};
    std::vector<uint8_t> code;
    Outcome outcome;
    {
      FakeController controller([&](int fd) { ServeDownload(fd, command, code); });
      std::vector<std::string> args = {"download", image_};
      args.insert(args.end(), c.options.begin(), c.options.end());
      outcome = RunTool(args, controller.port());
    }
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(command.code, KavriCmdDownloadCode);
    EXPECT_EQ(std::string(command.fileName).rfind(c.name, 0), 0u) << command.fileName;
    EXPECT_EQ(command.ramOnly, c.ramOnly);
    ASSERT_EQ(command.codeSize, 100u);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(code[i], i);
    // Not a terminal: plain progress lines.
    EXPECT_NE(outcome.out.find("Sent 100 of 100 bytes\n"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.out.find('\r'), std::string::npos);
  }
}

// What a pseudo-terminal's other end shows after the tool wrote to it.
std::string DownloadOnATerminal(const std::string& image, int port) {
  int controlling, terminal;
  if (openpty(&controlling, &terminal, nullptr, nullptr, nullptr) != 0) return "no pseudo-terminal";
  termios raw{};
  tcgetattr(terminal, &raw);
  cfmakeraw(&raw);  // no newline translation
  tcsetattr(terminal, TCSANOW, &raw);
  FILE* out = fdopen(terminal, "w");
  Outcome outcome = RunTool({"download", image}, port, out);
  fclose(out);
  std::string text;
  char buffer[4096];
  for (ssize_t count; (count = read(controlling, buffer, sizeof buffer)) > 0;) text.append(buffer, count);
  close(controlling);
  return outcome.code == 0 ? text : outcome.err;
}

TEST_F(ProgramCommands, ProgressIsABarOnATerminalAndATenthALineElsewhere) {
  {
    std::ofstream file(image_, std::ios::binary);
    file.seekp((1 << 20) - 1);
    file.put(1);
  }
  for (bool terminal : {true, false}) {
    SCOPED_TRACE(terminal ? "terminal" : "file");
    xoIF2013Command_DownloadCode command{};
    std::vector<uint8_t> code;
    std::string out;
    {
      FakeController controller([&](int fd) { ServeDownload(fd, command, code); });
      out = terminal ? DownloadOnATerminal(image_, controller.port()) : RunTool({"download", image_}, controller.port()).out;
    }
    std::string bar = "\r[##" + std::string(38, ' ') + "]   6% 65536/1048576 bytes";
    std::string full = "\r[" + std::string(40, '#') + "] 100% 1048576/1048576 bytes\n";
    EXPECT_EQ(std::count(out.begin(), out.end(), '\r'), terminal ? 16 : 0) << out;
    EXPECT_EQ(out.find(bar) != std::string::npos && out.find(full) != std::string::npos, terminal) << out;
    size_t lines = 0;
    for (size_t at = 0; (at = out.find("Sent ", at)) != std::string::npos; ++at) ++lines;
    EXPECT_EQ(lines, terminal ? 0u : 10u) << out;
    EXPECT_EQ(out.find("Sent 1048576 of 1048576 bytes\n") != std::string::npos, !terminal);
  }
}

TEST_F(ProgramCommands, RunDownloadsThenStartsOnOneConnection) {
  std::vector<uint32_t> commands;
  FakeController controller([&](int fd) {
    xoIF2013Command_DownloadCode command{};
    std::vector<uint8_t> code;
    ServeDownload(fd, command, code);
    commands.push_back(command.code);
    uint32_t word;
    if (!ReadExactly(fd, &word, 4)) return;
    commands.push_back(word);
    WriteWords(fd, {KavriReplyStartCode, 1});
  });
  Outcome outcome = RunTool({"--json", "run", image_}, controller.port());
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(commands, (std::vector<uint32_t>{KavriCmdDownloadCode, KavriCmdStartCode}));
  EXPECT_NE(outcome.out.find("\"started\":1"), std::string::npos) << outcome.out;
}

TEST_F(ProgramCommands, StartWithoutADownloadFailsVisibly) {
  FakeController controller([](int fd) {
    uint32_t word;
    if (ReadExactly(fd, &word, 4) && word == KavriCmdStartCode) WriteWords(fd, {KavriReplyStartCode, 0});
  });
  Outcome outcome = RunTool({"start"}, controller.port());
  EXPECT_EQ(outcome.code, 1);
  EXPECT_NE(outcome.err.find("holds no downloaded program"), std::string::npos) << outcome.err;
}

TEST_F(ProgramCommands, LibtableNamesEverySlot) {
  FakeController controller([](int fd) {
    uint32_t word;
    if (!ReadExactly(fd, &word, 4) || word != KavriCmdGetMemoryLayout) return;
    WriteWords(fd, {KavriReplyGetMemoryLayout, 0x40000000, 0x400000, 0x3f000000, 0x2400});
    if (!ReadExactly(fd, &word, 4) || word != KavriCmdGetLibAddresses) return;
    std::vector<uint32_t> table = {KavriReplyGetLibAddresses};
    for (uint32_t slot = 1; slot < KAVRI_LIB_ADDRESS_SLOTS; ++slot) table.push_back(0x10000000 + slot);
    WriteWords(fd, table);
  });
  Outcome outcome = RunTool({"libtable", "--json"}, controller.port());
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("{\"BluetoothGetSelfRadioCallNumber\":268435457,"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\"DisplaySetup\":268435463,"), std::string::npos);
  EXPECT_NE(outcome.out.find("\"TextGrph_Update\":268435515}"), std::string::npos);
}

TEST_F(ProgramCommands, BadImagesAndNamesAreRefusedBeforeConnecting) {
  std::string big = image_ + ".big";
  {
    std::ofstream file(big, std::ios::binary);
    file.seekp(0x400000);
    file.put(1);
  }
  struct Case {
    std::vector<std::string> args;
    int code;
    const char* message;
  } cases[] = {
      {{"download", image_ + ".none"}, 1, "cannot open the image"},
      {{"download", big}, 1, "more than the 4 MiB run area"},
      {{"download", image_, "--name", std::string(67, 'n')}, 2, "at most 66 characters"},
  };
  for (const Case& c : cases) {
    Outcome outcome = RunTool(c.args);  // port 1: nothing listens there
    EXPECT_EQ(outcome.code, c.code) << c.args[1];
    EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
  }
  unlink(big.c_str());
}

}  // namespace
