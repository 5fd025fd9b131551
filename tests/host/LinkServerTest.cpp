// The PC link server seen from a PC: a real TCP client on loopback talking
// to a controller in a child process.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "ControllerProcess.h"
#include "DebugFlagBits.h"
#include "TestClient.h"
#include "host/KavriState.h"
#include "kavri/LinkProtocol.h"
#include "kavri/MotorIOLib.h"

namespace {

template <typename Record>
Record As(const std::vector<uint8_t>& bytes) {
  Record record{};
  EXPECT_EQ(bytes.size(), sizeof record);
  memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
  return record;
}

std::vector<uint8_t> QueryStatus(int port) {
  TestClient client(port);
  client.SendWord(KavriCmdQueryStatus);
  return client.Receive(sizeof(xoIF2013Reply_QueryStatus));
}

class LinkServer : public ::testing::Test {
 protected:
  void Start(ControllerConfig config = {}) {
    controller_ = std::make_unique<ControllerProcess>(std::move(config));
    ASSERT_TRUE(controller_->WaitUntilListening()) << controller_->Stderr();
  }
  int port() const { return controller_->port(); }
  std::unique_ptr<ControllerProcess> controller_;
};

struct VersionCase {
  const char* name;
  std::optional<std::string> fileText;
  uint32_t reported;
  const char* startLine;
};

TEST_F(LinkServer, StatusReplyCarriesTypeAndClampedSystemVersion) {
  const VersionCase cases[] = {
      {"newer system is reported as the newest known", "5.0.0.0\n", 0x04010500, "System V 5.0.0.0\n"},
      {"older system as it is", "4.0.2.1", 0x04000201, "System V 4.0.2.1\n"},
      {"exactly the newest known", "4.1.5.0", 0x04010500, "System V 4.1.5.0\n"},
      {"missing numbers read as 0", "4.2", 0x04010500, "System V 4.2.0.0\n"},
      {"no file gives the default", std::nullopt, 0x04010000, "Cannot open /etc/sysversion\n"},
  };
  for (const VersionCase& c : cases) {
    SCOPED_TRACE(c.name);
    Start({.sysVersion = c.fileText});
    std::vector<uint8_t> reply = QueryStatus(port());
    ASSERT_EQ(reply.size(), 24u);
    uint8_t expected[24] = {0x3e, 0x72, 0xc9, 0xba, 'Q', 'V', '2', '0', '1', '3'};
    memcpy(expected + 20, &c.reported, 4);
    EXPECT_EQ(0, memcmp(reply.data(), expected, 24));
    EXPECT_NE(controller_->Stdout().find(c.startLine), std::string::npos) << controller_->Stdout();
    EXPECT_TRUE(controller_->WaitForStdout("Received query status command\n"));
  }
}

TEST_F(LinkServer, InitPrintsVersionsAndFormatsTheirTexts) {
  Start({.sysVersion = "4.2.3.1", .afterInit = [] {
           printf("texts %s %s %08x\n", KavriGetAppVerStr(), KavriGetSysVerStr(), SysVersion);
         }});
  EXPECT_TRUE(controller_->WaitForStdout("texts 4.1.5.0 4.2.3.1 04020301\n")) << controller_->Stdout();
  EXPECT_EQ(controller_->Stdout().rfind("KavriLib V 4.1.5.0\nSystem V 4.2.3.1\n", 0), 0u);
  EXPECT_NE(controller_->Stdout().find("main thread new nice value = "), std::string::npos);
}

TEST_F(LinkServer, MemoryLayoutNamesRunAreaAndTransferArea) {
  Start();
  TestClient client(port());
  client.SendWord(KavriCmdGetMemoryLayout);
  auto reply = As<xoIF2013Reply_MemoryLayout>(client.Receive(sizeof(xoIF2013Reply_MemoryLayout)));
  EXPECT_EQ(reply.code, KavriReplyGetMemoryLayout);
  // A forked controller shares the parent's addresses; on the controller's
  // 32-bit target these are the full addresses.
  EXPECT_EQ(reply.runAreaAddress, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(DataAreaRun)));
  EXPECT_EQ(reply.runAreaSize, 0x400000u);
  EXPECT_EQ(reply.transAreaAddress,
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX))));
  EXPECT_EQ(reply.transAreaSize, 0x2400u);
  EXPECT_EQ(DataAreaDownload, DataAreaRun + KAVRI_AREA_SIZE);
}

struct FramingCase {
  const char* name;
  uint32_t word;
  const char* message;
};

TEST_F(LinkServer, UnknownCommandClosesTheConnectionAndTheNextPcIsServed) {
  const FramingCase cases[] = {
      {"unknown command code", 0x12345678, "ERROR received illegal command (0x12345678)"},
      {"a reply code sent as a command", KavriReplyQueryStatus, "ERROR received illegal command (0xbac9723e)"},
  };
  Start();
  for (const FramingCase& c : cases) {
    SCOPED_TRACE(c.name);
    TestClient client(port());
    client.SendWord(c.word);
    EXPECT_TRUE(client.WaitForClose());
    EXPECT_TRUE(controller_->WaitForStderr(c.message)) << controller_->Stderr();
    EXPECT_EQ(QueryStatus(port()).size(), 24u);
  }
}

TEST_F(LinkServer, CommandWordSplitOverTwoSegmentsIsRejected) {
  Start();
  TestClient client(port());
  ASSERT_TRUE(controller_->WaitForStdout("Accepted connection request from 127.0.0.1\n"));
  const uint8_t word[4] = {0x9a, 0x21, 0x21, 0xdc};
  client.Send(word, 2);
  EXPECT_TRUE(controller_->WaitForStderr("ERROR received illegal command packet (length<4)\n"));
  client.Send(word + 2, 2);
  EXPECT_TRUE(client.WaitForClose());
  EXPECT_EQ(controller_->Stdout().find("Received query status command"), std::string::npos);
}

TEST_F(LinkServer, SecondPcIsServedAfterTheFirstCloses) {
  Start();
  auto first = std::make_unique<TestClient>(port());
  first->SendWord(KavriCmdQueryStatus);
  EXPECT_EQ(first->Receive(24).size(), 24u);
  TestClient second(port());
  second.SendWord(KavriCmdQueryStatus);  // waits in the backlog
  first.reset();
  EXPECT_EQ(second.Receive(24).size(), 24u);
  EXPECT_TRUE(controller_->WaitForStdout("Closing connection from 127.0.0.1\n"));
}

TEST_F(LinkServer, SilentPcIsDroppedAfterTheReadTimeout) {
  Start();
  TestClient client(port());
  EXPECT_TRUE(client.WaitForClose());
  EXPECT_TRUE(controller_->WaitForStderr("ERROR received illegal command packet (length<4)\n"));
  EXPECT_EQ(QueryStatus(port()).size(), 24u);
}

TEST_F(LinkServer, RatesLineIsPrintedToTheDebugFileUnderBitZero) {
  Start({.debugFlags = debugflag::kRates});
  TestClient client(port());
  bool printed = WaitFor([&] {
    client.SendWord(KavriCmdQueryStatus);
    client.Receive(24);
    return controller_->DebugOutput().find("0 IOs/s, 0 trans/s, 0 frames/s, 0 frames/s requested\n") !=
           std::string::npos;
  });
  EXPECT_TRUE(printed) << controller_->DebugOutput();
}

// Runs in the controller: online mode is on and its outputs are set; a
// watcher reports when the host heard of the end and the outputs are cleared.
void EnterOnlineModeWithOutputs() {
  OnlineModeActive = true;
  memset(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), 0x5A, KAVRI_TRANS_AREA_CLEAR_SIZE + 1);
  KavriLib_SetProgramInfoCallback([](KavriLib_ProgramInfo* info) {
    printf("host heard state %d name %s\n", info->state, info->name ? info->name : "null");
  });
  std::thread([] {
    auto* area = reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
    WaitFor([&] { return area[KAVRI_TRANS_AREA_CLEAR_SIZE - 1] == 0; });
    printf("cleared %d, kept %d, online %d\n", area[0] == 0, area[KAVRI_TRANS_AREA_CLEAR_SIZE] == 0x5A,
           KavriLib_CheckOnlineProgramActive());
  }).detach();
}

TEST_F(LinkServer, ClosingDuringOnlineModeTellsTheHostAndClearsTheOutputs) {
  Start({.afterInit = EnterOnlineModeWithOutputs});
  { TestClient client(port()); }
  EXPECT_TRUE(controller_->WaitForStdout("host heard state 1 name null\n"));
  EXPECT_TRUE(controller_->WaitForStdout("cleared 1, kept 1, online 1\n")) << controller_->Stdout();
}

TEST_F(LinkServer, SecondControllerOnTheSamePortEndsWithStatusOne) {
  Start();
  ControllerProcess twin({.port = port()});
  EXPECT_EQ(twin.WaitForExit(), 1);
  EXPECT_NE(twin.Stderr().find("ERROR calling bind. Do you try to run KavriApp or service twice?\n"),
            std::string::npos);
}

}  // namespace
