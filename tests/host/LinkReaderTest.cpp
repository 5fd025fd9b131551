// The link reads ahead of the current command: commands a PC sends back to
// back are each answered, the code behind a download is read by the download,
// and an extension that comes in two pieces is still refused.
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

struct Reply {
  uint32_t code;
  size_t size;
};

TEST(LinkReadAhead, CommandsInOneWriteAreServedInTurnAndSplitOnesRefused) {
  const xoIF2013Command_IoExchange exchange{KavriCmdIoExchange, {7}};
  const xoIF2013Command_Base stopOnline{KavriCmdStopOnline};
  xoIF2013Command_UpdateConfig config{};
  config.code = KavriCmdUpdateConfig;
  config.configId = 42;
  xoIF2013Command_DownloadCode download{KavriCmdDownloadCode, 1, "r.bin", 40};
  const xoIF2013Command_Base stopCode{KavriCmdStopCode};
  const Reply exchanged{KavriReplyIoExchange, sizeof(xoIF2013Reply_IoExchange)};
  const struct {
    const char* name;
    Bytes sent;
    std::vector<Reply> replies;
    const char* stdoutText;
    size_t refusedAfter = 0;  // bytes sent before the refusal, the rest after it
  } cases[] = {
      {"two exchanges", Bytes{} + exchange + exchange, {exchanged, exchanged}, "IR"},
      {"a bare command before an exchange", Bytes{} + stopOnline + exchange,
       {{KavriReplyStopOnline, 4}, exchanged}, "Received stop online command"},
      {"a command longer than what is read ahead, behind an exchange", Bytes{} + exchange + config,
       {exchanged, {KavriReplyUpdateConfig, 4}}, "id=42"},
      {"a download with its code, behind a bare command", Bytes{} + stopCode + download + Bytes(40, 0xE7),
       {{KavriReplyStopCode, 4}, {KavriReplyDownloadCode, 4}}, "Received 40 bytes, total 40 bytes"},
      {"an exchange whose extension comes in two pieces", Bytes{} + exchange, {}, nullptr, 24},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ControllerProcess controller;
    ASSERT_TRUE(controller.WaitUntilListening()) << controller.Stderr();
    TestClient pc(controller.port(), 10);
    if (c.refusedAfter) {
      pc.Send(c.sent.data(), c.refusedAfter);
      EXPECT_TRUE(controller.WaitForStderr("ERROR received illegal command packet (length<56)\n"))
          << controller.Stderr();
      pc.Send(c.sent.data() + c.refusedAfter, c.sent.size() - c.refusedAfter);
      EXPECT_TRUE(pc.WaitForClose());
      continue;
    }
    pc.Send(c.sent.data(), c.sent.size());
    for (const Reply& expected : c.replies) {
      Bytes reply = pc.Receive(expected.size);
      ASSERT_EQ(reply.size(), expected.size);
      uint32_t code;
      memcpy(&code, reply.data(), sizeof code);
      EXPECT_EQ(code, expected.code);
    }
    EXPECT_TRUE(controller.WaitForStdout(c.stdoutText)) << controller.Stdout();
    EXPECT_EQ(controller.Stderr(), "");
  }
}

}  // namespace
