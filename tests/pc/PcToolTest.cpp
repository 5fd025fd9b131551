// The PC tool against controllers that misbehave: each failure must reach
// the user as a clear message, never as a hang or a half-read answer.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "ControllerProcess.h"
#include "LinkClient.h"
#include "PcCommands.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

namespace {

// A one-connection server that reads the command word and then answers
// with `reply` (possibly nothing) and closes, or keeps silent.
class ScriptedController {
 public:
  ScriptedController(std::vector<uint8_t> reply, bool staySilent)
      : port_(FindFreePort()), listener_(ListenOnLoopback(port_)) {
    thread_ = std::thread([this, reply = std::move(reply), staySilent] {
      int fd = accept(listener_, nullptr, nullptr);
      uint32_t word;
      if (read(fd, &word, sizeof word) == sizeof word && !staySilent)
        if (write(fd, reply.data(), reply.size()) < 0) perror("scripted reply");
      while (staySilent && read(fd, &word, sizeof word) > 0) {
      }  // until the PC gives up
      close(fd);
    });
  }
  ~ScriptedController() {
    thread_.join();
    close(listener_);
  }
  int port() const { return port_; }

 private:
  int port_;
  int listener_;
  std::thread thread_;
};

std::vector<uint8_t> Bytes(const void* data, size_t length) {
  auto* bytes = static_cast<const uint8_t*>(data);
  return {bytes, bytes + length};
}

struct MisbehaviourCase {
  const char* name;
  std::vector<uint8_t> reply;
  bool staySilent;
  const char* message;
};

TEST(PcTool, MisbehavingControllerGivesAClearError) {
  xoIF2013Reply_QueryStatus wrongCode{};
  wrongCode.code = KavriReplyGetMemoryLayout;
  xoIF2013Reply_QueryStatus status{};
  status.code = KavriReplyQueryStatus;
  const MisbehaviourCase cases[] = {
      {"closes without a reply", {}, false, "closed the connection instead of answering the status command"},
      {"closes in the middle of the reply", Bytes(&status, 10), false, "closed the connection instead of answering"},
      {"answers with another reply code", Bytes(&wrongCode, sizeof wrongCode), false,
       "answered the status command with reply code 0x5170c53b, expected 0xbac9723e"},
      {"does not answer", {}, true, "did not answer the status command in time"},
  };
  for (const MisbehaviourCase& c : cases) {
    SCOPED_TRACE(c.name);
    ScriptedController controller(c.reply, c.staySilent);
    LinkClient link("127.0.0.1", controller.port(), 1);
    try {
      PcCommands().front().run(link);
      ADD_FAILURE() << "no error";
    } catch (const LinkError& error) {
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
    }
  }
}

TEST(PcTool, NoControllerIsNamedInTheError) {
  int port = FindFreePort();
  try {
    LinkClient link("127.0.0.1", port, 1);
    ADD_FAILURE() << "connected to nothing";
  } catch (const LinkError& error) {
    EXPECT_EQ(std::string(error.what()).rfind("cannot connect to the controller at 127.0.0.1:" + std::to_string(port), 0), 0u)
        << error.what();
  }
}

TEST(PcTool, StatusReportReadsAsTextAndAsJson) {
  xoIF2013Reply_QueryStatus status{};
  status.code = KavriReplyQueryStatus;
  memcpy(status.controllerType, "QV\"2013", 7);
  status.systemVersion = 0x04010500;
  ScriptedController controller(Bytes(&status, sizeof status), false);
  LinkClient link("127.0.0.1", controller.port(), 5);
  Report report = PcCommands().front().run(link);
  EXPECT_EQ(report.AsText(),
            "Controller:           QV\"2013\n"
            "System version:       4.1.5.0\n"
            "System version word:  0x04010500\n");
  EXPECT_EQ(report.AsJson(),
            "{\"controller\": \"QV\\\"2013\", \"systemVersion\": \"4.1.5.0\", \"systemVersionWord\": 67175680}\n");
}

}  // namespace
