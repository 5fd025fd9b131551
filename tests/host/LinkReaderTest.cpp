// The link reads ahead of the current command: commands sent back to back are
// each answered, the code behind a download is the download's, and a command
// in two pieces is still refused.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "ControllerProcess.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

namespace {

using Bytes = std::vector<uint8_t>;

template <typename Packet>
Bytes operator+(Bytes bytes, const Packet& packet) {
  const auto* first = reinterpret_cast<const uint8_t*>(&packet);
  bytes.insert(bytes.end(), first, first + sizeof packet);
  return bytes;
}
Bytes operator+(Bytes bytes, const Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
  return bytes;
}

TEST(LinkReadAhead, CommandsInOneWriteAreServedInTurnAndSplitOnesRefused) {
  const xoIF2013Command_IoExchange exchange{KavriCmdIoExchange, {7}};
  xoIF2013Command_UpdateConfig config{};  // longer than a read at a command's start takes
  config.code = KavriCmdUpdateConfig;
  config.configId = 42;
  const xoIF2013Command_DownloadCode download{KavriCmdDownloadCode, 1, "r.bin", 40};
  const Bytes stopOnline = Bytes{} + KavriCmdStopOnline, stopCode = Bytes{} + KavriCmdStopCode;
  const struct {
    const char* name;
    Bytes sent;
    std::vector<std::pair<uint32_t, size_t>> replies;  // code and size
    const char* logged;
    size_t refusedAfter = 0;  // bytes sent before the refusal, the rest after it
  } cases[] = {
      {"bare command, exchange", stopOnline + exchange, {{KavriReplyStopOnline, 4}, {KavriReplyIoExchange, 80}}, "IR"},
      {"exchange, update config", Bytes{} + exchange + config, {{KavriReplyIoExchange, 80}, {KavriReplyUpdateConfig, 4}},
       "id=42"},
      {"bare command, download and its code", stopCode + download + Bytes(40, 0xE7),
       {{KavriReplyStopCode, 4}, {KavriReplyDownloadCode, 4}}, "Received 40 bytes, total 40 bytes"},
      {"exchange in two pieces", Bytes{} + exchange, {}, "", 24},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ControllerProcess controller;
    ASSERT_TRUE(controller.WaitUntilListening()) << controller.Stderr();
    TestClient pc(controller.port(), 10);
    pc.Send(c.sent.data(), c.refusedAfter ? c.refusedAfter : c.sent.size());
    if (c.refusedAfter) {
      EXPECT_TRUE(controller.WaitForStderr("ERROR received illegal command packet (length<56)\n"));
      pc.Send(c.sent.data() + c.refusedAfter, c.sent.size() - c.refusedAfter);
      EXPECT_TRUE(pc.WaitForClose());
      continue;
    }
    for (const auto& [code, size] : c.replies) {
      Bytes reply = pc.Receive(size);
      ASSERT_EQ(reply.size(), size) << controller.Stderr() << controller.Stdout();
      EXPECT_EQ(memcmp(reply.data(), &code, sizeof code), 0);
    }
    EXPECT_TRUE(controller.WaitForStdout(c.logged)) << controller.Stdout();
    EXPECT_EQ(controller.Stderr(), "");
  }
}

}  // namespace
