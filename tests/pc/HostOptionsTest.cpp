// kavri-host's command line: numbers are decimal whatever their leading
// zeros, hex only after 0x; mistakes end with exit code 2.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "HostOptions.h"
#include "Listening.h"
#include "TestClient.h"

namespace {

std::optional<HostOptions> Parse(std::vector<std::string> words, int& exitCode) {
  words.insert(words.begin(), "kavri-host");
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  exitCode = -1;
  return ParseHostOptions(static_cast<int>(argv.size()), argv.data(), exitCode);
}

struct NumberCase {
  std::vector<std::string> words;
  int port, cameraPort, debugFlags;
};

TEST(HostOptions, NumbersReadAsDecimalOrHexAfter0x) {
  const NumberCase cases[] = {
      {{}, 65000, 65001, 0},
      {{"--port", "0x1f90", "--camera-port", "0010"}, 8080, 10, 0},
      {{"--debug-flags", "017"}, 65000, 65001, 17},
  };
  for (const NumberCase& c : cases) {
    SCOPED_TRACE(c.words.empty() ? "defaults" : c.words[1]);
    int exitCode;
    std::optional<HostOptions> options = Parse(c.words, exitCode);
    ASSERT_TRUE(options);
    EXPECT_EQ(options->port, c.port);
    EXPECT_EQ(options->cameraPort, c.cameraPort);
    EXPECT_EQ(options->debugFlags, c.debugFlags);
  }
}

TEST(HostOptions, MistakesExitWith2AndHelpWith0) {
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"--port", "65536"}, 2},  {{"--port", "0"}, 2},          {{"--port", "8o8o"}, 2},
      {{"--port"}, 2},           {{"--debug-flags", "-1"}, 2},  {{"--programs", ""}, 2},
      {{"--frob", "1"}, 2},      {{"stray"}, 2},                {{"--help"}, 0},
      {{"--bind", "localhost"}, 2}, {{"--bind", "300.1.1.1"}, 2}, {{"--bind", ""}, 2},
  };
  for (const auto& [words, expected] : cases) {
    SCOPED_TRACE(words[0] + (words.size() > 1 ? " " + words[1] : ""));
    int exitCode;
    EXPECT_FALSE(Parse(words, exitCode));
    EXPECT_EQ(exitCode, expected);
  }
}

// kavri-host announces the PC link only once the port really listens: a
// bound socket is not enough, and another port is not this one.
TEST(HostListening, OnlyAListeningSocketOnThePortCounts) {
  int fd = BindLoopback(0);
  ASSERT_GE(fd, 0);
  int port = BoundPort(fd);

  EXPECT_FALSE(WaitUntilListening(port, std::chrono::milliseconds(50))) << "bound only";
  ASSERT_EQ(listen(fd, 1), 0);
  EXPECT_TRUE(WaitUntilListening(port, std::chrono::seconds(10)));
  EXPECT_FALSE(ProcessListensOn(port == 65535 ? 1 : port + 1)) << "another port";
  close(fd);
  EXPECT_FALSE(ProcessListensOn(port)) << "closed";
}

}  // namespace
