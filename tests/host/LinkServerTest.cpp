// The PC link server seen from a PC: a real TCP client on loopback talking
// to a controller in a child process; the address table it serves, where it
// listens and how it reads commands that arrive together.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "ControllerProcess.h"
#include "OpenFds.h"
#include "ProgramImage.h"
#include "TestClient.h"
#include "host/DownloadMode.h"
#include "host/KavriState.h"
#include "kavri/KavriLib.h"
#include "kavri/LinkProtocol.h"
#include "kavri/MotorIOLib.h"
#include "kavri/TextGrph.h"

namespace {

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

// Init prints the versions first; their texts are the host's to read.
TEST_F(LinkServer, InitPrintsVersionsAndMemoryLayoutNamesRunAreaAndTransferArea) {
  Start({.sysVersion = "4.2.3.1", .afterInit = [] {
           printf("texts %s %s %08x\n", KavriGetAppVerStr(), KavriGetSysVerStr(), SysVersion);
         }});
  EXPECT_TRUE(controller_->WaitForStdout("texts 4.1.5.0 4.2.3.1 04020301\n")) << controller_->Stdout();
  EXPECT_EQ(controller_->Stdout().rfind("KavriLib V 4.1.5.0\nSystem V 4.2.3.1\n", 0), 0u);
  TestClient client(port());
  client.SendWord(KavriCmdGetMemoryLayout);
  xoIF2013Reply_MemoryLayout reply{};
  std::vector<uint8_t> bytes = client.Receive(sizeof reply);
  ASSERT_EQ(bytes.size(), sizeof reply);
  memcpy(&reply, bytes.data(), sizeof reply);
  EXPECT_EQ(reply.code, KavriReplyGetMemoryLayout);
  // A forked controller shares the parent's addresses; on the controller's
  // 32-bit target these are the full addresses.
  EXPECT_EQ(reply.runAreaAddress, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(DataAreaRun)));
  EXPECT_EQ(reply.runAreaSize, 0x400000u);
  EXPECT_EQ(reply.transAreaAddress,
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX))));
  EXPECT_EQ(reply.transAreaSize, 0x2400u);
}

TEST_F(LinkServer, MalformedCommandClosesTheConnectionAndTheNextPcIsServed) {
  const struct {
    const char* name;
    std::vector<uint8_t> sent;
    const char* message;
  } cases[] = {
      {"unknown command code", {0x78, 0x56, 0x34, 0x12}, "ERROR received illegal command (0x12345678)"},
      {"silent PC, after the read time-out", {}, "ERROR received illegal command packet (length<4)\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Start();
    TestClient client(port());
    ASSERT_TRUE(controller_->WaitForStdout("Accepted connection request from 127.0.0.1\n"));
    client.Send(c.sent.data(), c.sent.size());
    EXPECT_TRUE(controller_->WaitForStderr(c.message)) << controller_->Stderr();
    EXPECT_TRUE(client.WaitForClose());
    EXPECT_EQ(QueryStatus(port()).size(), 24u);
  }
}

TEST_F(LinkServer, AddressTableReplyHoldsEveryServiceInItsFixedSlot) {
  Start();
  TestClient client(port());
  client.SendWord(KavriCmdGetLibAddresses);
  std::vector<uint8_t> reply = client.Receive(sizeof(xoIF2013Reply_LibAddresses));
  ASSERT_EQ(reply.size(), 240u);
  client.SendWord(KavriCmdQueryStatus);  // nothing of the table is left over before its reply
  EXPECT_EQ(client.Receive(4), std::vector<uint8_t>({0x3e, 0x72, 0xc9, 0xba}));
  uint32_t slots[KAVRI_LIB_ADDRESS_SLOTS];
  memcpy(slots, reply.data(), sizeof slots);
  EXPECT_EQ(slots[0], KavriReplyGetLibAddresses);
  // The forked controller shares this program's addresses.
  for (int slot = 1; slot < KAVRI_LIB_ADDRESS_SLOTS; ++slot)
    EXPECT_EQ(slots[slot], uint32_t(reinterpret_cast<uintptr_t>(kavri::kLibServices[slot - 1].address))) << slot;
  EXPECT_EQ(slots[59], uint32_t(reinterpret_cast<uintptr_t>(&TextGrph_Update)));
  EXPECT_TRUE(controller_->WaitForStdout("Received get lib adresses command\n"));
  // No two slots alike.
  std::sort(slots + 1, slots + KAVRI_LIB_ADDRESS_SLOTS);
  EXPECT_EQ(std::adjacent_find(slots + 1, slots + KAVRI_LIB_ADDRESS_SLOTS), slots + KAVRI_LIB_ADDRESS_SLOTS);
}

// Where the controller listens: every address by default, one address when
// the host names it, and a clear refusal of anything that is not an address.
TEST_F(LinkServer, ListensOnTheHostsAddressOrOnAll) {
  // The listening address as the kernel shows it.
  const std::pair<const char*, const char*> cases[] = {
      {nullptr, "00000000"}, {"", "00000000"}, {"127.0.0.1", "0100007F"}};
  for (const auto& [bindAddress, listening] : cases) {
    SCOPED_TRACE(bindAddress ? bindAddress : "(null)");
    Start({.beforeInit = [bind = bindAddress] { KavriBindAddress = bind; }});
    EXPECT_EQ(ListeningAddressHex(port()), listening);
    TestClient client(port());
    client.SendWord(KavriCmdQueryStatus);
    EXPECT_EQ(client.Receive(sizeof(xoIF2013Reply_QueryStatus)).size(), sizeof(xoIF2013Reply_QueryStatus));
  }
}

TEST(ListenAddress, NameThatIsNotAnAddressFailsInitWithoutListening) {
  for (const char* bad : {"localhost", "127.0.0.256", "::1", "1.2.3"}) {
    SCOPED_TRACE(bad);
    ControllerProcess controller({.beforeInit = [bad] { KavriBindAddress = bad; }});
    EXPECT_EQ(controller.WaitForExit(), 3);  // the child's code for a failed KavriLib_Init
    EXPECT_EQ(controller.Stderr(), "ERROR bind address \"" + std::string(bad) +
                                       "\" is not an IPv4 address such as 127.0.0.1\n");
    EXPECT_FALSE(PortIsListening(controller.port()));
  }
}

// The link reads ahead of the current command: commands sent back to back are
// each answered, the code behind a download is the download's, and a command
// in two pieces is still refused.
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

TEST_F(LinkServer, CommandsInOneWriteAreServedInTurnAndSplitOnesRefused) {
  const xoIF2013Command_IoExchange exchange{KavriCmdIoExchange, {7}};
  xoIF2013Command_UpdateConfig config{};  // longer than a read at a command's start takes
  config.code = KavriCmdUpdateConfig;
  config.configId = 42;
  const xoIF2013Command_DownloadCode download{KavriCmdDownloadCode, 1, "r.bin", 40};
  const Bytes stopCode = Bytes{} + KavriCmdStopCode;
  const struct {
    const char* name;
    Bytes sent;
    std::vector<std::pair<uint32_t, size_t>> replies;  // code and size
    const char* logged;
    size_t refusedAfter = 0;  // bytes sent before the refusal, the rest after it
  } cases[] = {
      {"exchange, update config", Bytes{} + exchange + config, {{KavriReplyIoExchange, 80}, {KavriReplyUpdateConfig, 4}},
       "id=42"},
      {"bare command, download and its code", stopCode + download + Bytes(40, 0xE7),
       {{KavriReplyStopCode, 4}, {KavriReplyDownloadCode, 4}}, "Received 40 bytes, total 40 bytes"},
      {"exchange in two pieces", Bytes{} + exchange, {}, "", 24},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Start();
    TestClient pc(port(), 10);
    pc.Send(c.sent.data(), c.refusedAfter ? c.refusedAfter : c.sent.size());
    if (c.refusedAfter) {
      EXPECT_TRUE(controller_->WaitForStderr("ERROR received illegal command packet (length<56)\n"));
      pc.Send(c.sent.data() + c.refusedAfter, c.sent.size() - c.refusedAfter);
      EXPECT_TRUE(pc.WaitForClose());
      continue;
    }
    for (const auto& [code, size] : c.replies) {
      Bytes reply = pc.Receive(size);
      ASSERT_EQ(reply.size(), size) << controller_->Stderr() << controller_->Stdout();
      EXPECT_EQ(memcmp(reply.data(), &code, sizeof code), 0);
    }
    EXPECT_TRUE(controller_->WaitForStdout(c.logged)) << controller_->Stdout();
    EXPECT_EQ(controller_->Stderr(), "");
  }
}

// A PC that goes away after any byte of any command: the server serves the
// next PC, and what the half command leaves behind follows one rule. Only a
// download cut inside its code changes anything (no program is startable
// until the next whole download); online mode and the transfer area are as
// they were, and no descriptor or thread is left over.
int32_t EndAtOnce() { return 1; }

// What the controller holds, as its own probe thread sees it.
struct ControllerState {
  bool downloadValid;
  bool online;
  bool cameraServer;
  uint32_t areaLow;   // checksums of the transfer area's first 1024 bytes
  uint32_t areaHigh;  // and of the rest
  int openFds;
  int onlineEnds;  // how often the host heard that online mode ended
  bool operator==(const ControllerState&) const = default;
};

constexpr int kDisplayPointer = 464;  // the stand-in's own pointer, 8 bytes, left alone

uint32_t Checksum(const uint8_t* bytes, int from, int to) {
  uint32_t sum = 0;
  for (int i = from; i < to; ++i) sum = sum * 31 + bytes[i];
  return sum;
}

std::atomic<int> onlineEndsHeard{0};

// Answers the test through two pipes: 'F' fills the transfer area with a
// pattern, 'S' reports the state.
void ServeProbe(int requests, int replies) {
  KavriLib_SetProgramInfoCallback([](KavriLib_ProgramInfo* info) {
    onlineEndsHeard += info->state == KavriProgramOnlineStopped;
  });
  std::thread([requests, replies] {
    auto* area = reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
    char request;
    while (read(requests, &request, 1) == 1) {
      if (request == 'F')
        for (int i = 0; i < KAVRI_TRANS_AREA_SIZE; ++i)
          if (i < kDisplayPointer || i >= kDisplayPointer + 8) area[i] = uint8_t(i * 7 + 3);
      ControllerState state{DataAreaDownloadValid.load(), OnlineModeActive.load(), CameraServerThreadRunning.load(),
                            Checksum(area, 0, KAVRI_TRANS_AREA_CLEAR_SIZE),
                            Checksum(area, KAVRI_TRANS_AREA_CLEAR_SIZE, KAVRI_TRANS_AREA_SIZE), CountOpenFds(),
                            onlineEndsHeard.load()};
      if (write(replies, &state, sizeof state) != sizeof state) return;
    }
  }).detach();
}

class Controller {
 public:
  Controller() {
    if (pipe(requests_) != 0 || pipe(replies_) != 0) abort();
    process_ = std::make_unique<ControllerProcess>(
        ControllerConfig{.afterInit = [this] { ServeProbe(requests_[0], replies_[1]); }});
  }
  // All four ends stay open here: a child started again for another port
  // needs its own.
  ~Controller() {
    for (int fd : {requests_[0], requests_[1], replies_[0], replies_[1]}) close(fd);
  }
  ControllerProcess& process() { return *process_; }
  int port() const { return process_->port(); }

  // The state once the server has finished with every earlier connection:
  // it accepts a new one only then, and reports it after its last close.
  bool ProbeSettled(char request, ControllerState& state) {
    TestClient idle(port());
    auto count = [](const std::string& text, const std::string& line) {
      size_t found = 0;
      for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) ++found;
      return found;
    };
    bool settled = WaitFor([&] {
      const std::string out = process_->Stdout();
      return count(out, "Accepted connection request") == count(out, "Closing connection from") + 1;
    });
    return settled && Probe(request, state);
  }
  // Nothing but a reply within the deadline counts.
  bool Probe(char request, ControllerState& state) {
    if (write(requests_[1], &request, 1) != 1) return false;
    pollfd ready{replies_[0], POLLIN, 0};
    return poll(&ready, 1, 60000) == 1 && read(replies_[0], &state, sizeof state) == sizeof state;
  }
  // Sends a whole command on its own connection and reads its reply.
  bool Complete(const std::vector<uint8_t>& command, size_t replyLength) {
    TestClient client(port());
    client.Send(command.data(), command.size());
    return client.Receive(replyLength).size() == replyLength;
  }

 private:
  int requests_[2], replies_[2];
  std::unique_ptr<ControllerProcess> process_;
};

struct CommandRow {
  const char* name;
  std::vector<uint8_t> bytes;
  size_t invalidatesFrom;  // a cut at or after this many bytes leaves no startable program
};

constexpr size_t kNever = SIZE_MAX;

std::vector<CommandRow> EveryCommand(const std::vector<uint8_t>& download) {
  return {
      {"query status", Bytes{} + KavriCmdQueryStatus, kNever},
      {"get memory layout", Bytes{} + KavriCmdGetMemoryLayout, kNever},
      {"get lib adresses", Bytes{} + KavriCmdGetLibAddresses, kNever},
      {"download code", download, sizeof(xoIF2013Command_DownloadCode)},
      {"start code", Bytes{} + KavriCmdStartCode, kNever},
      {"stop code", Bytes{} + KavriCmdStopCode, kNever},
      {"start online", Bytes{} + xoIF2013Command_StartOnline{KavriCmdStartOnline, "robot"}, kNever},
      {"update config", Bytes{} + xoIF2013Command_UpdateConfig{KavriCmdUpdateConfig, 3}, kNever},
      {"io exchange", Bytes{} + xoIF2013Command_IoExchange{KavriCmdIoExchange, {512}}, kNever},
      {"stop online", Bytes{} + KavriCmdStopOnline, kNever},
      {"start camera online", Bytes{} + xoIF2013Command_StartCameraOnline{KavriCmdStartCameraOnline, 64, 48, 30, 50},
       kNever},
      {"stop camera online", Bytes{} + KavriCmdStopCameraOnline, kNever},
  };
}

// Descriptors and the host's notices are checked on their own: the count may
// include one that a thread of the controller holds for a moment, and in
// online mode every connection, the status query's included, ends with one.
ControllerState Comparable(ControllerState state) {
  state.openFds = state.onlineEnds = 0;
  return state;
}

void CutEveryCommandAtEveryByte(bool online) {
  Controller controller;
  ASSERT_TRUE(controller.process().WaitUntilListening()) << controller.process().Stderr();
  const std::vector<uint8_t> download = DownloadCommandBytes("cut", true, ImageJumpingTo(EndAtOnce));
  ASSERT_TRUE(controller.Complete(download, sizeof(xoIF2013Reply_Base)));
  if (online) {
    ASSERT_TRUE(controller.Complete(Bytes{} + xoIF2013Command_StartOnline{KavriCmdStartOnline, "pc"},
                                    sizeof(xoIF2013Reply_Base)));
  }
  const std::vector<uint8_t> zeros(KAVRI_TRANS_AREA_CLEAR_SIZE);
  const uint32_t cleared = Checksum(zeros.data(), 0, KAVRI_TRANS_AREA_CLEAR_SIZE);
  ControllerState before;
  ASSERT_TRUE(controller.ProbeSettled('F', before));
  ASSERT_TRUE(before.downloadValid);
  ASSERT_EQ(before.online, online);

  for (const CommandRow& row : EveryCommand(download)) {
    ASSERT_EQ(row.bytes.size() > sizeof(xoIF2013Command_Base), row.bytes.size() != 4) << row.name;
    for (size_t cut = 0; cut < row.bytes.size(); ++cut) {
      SCOPED_TRACE(::testing::Message() << row.name << " cut after " << cut << " bytes");
      ControllerState state;
      ASSERT_TRUE(controller.ProbeSettled('F', state)) << controller.process().Stderr();
      { TestClient(controller.port()).Send(row.bytes.data(), cut); }
      ASSERT_TRUE(controller.Complete(Bytes{} + KavriCmdQueryStatus, sizeof(xoIF2013Reply_QueryStatus)))
          << "the next PC is not served: " << controller.process().Stderr();
      ASSERT_TRUE(controller.ProbeSettled('S', state));
      ControllerState expected = before;
      expected.downloadValid = cut < row.invalidatesFrom;
      // Closing a connection in online mode clears the outputs.
      expected.areaLow = online ? cleared : before.areaLow;
      EXPECT_EQ(Comparable(state), Comparable(expected))
          << "valid " << state.downloadValid << " online " << state.online << " camera server "
          << state.cameraServer;
      EXPECT_EQ(state.onlineEnds > before.onlineEnds, online);
      before.onlineEnds = state.onlineEnds;
      // A leaked descriptor never comes back; one held for a moment does.
      ASSERT_TRUE(WaitFor([&] { return controller.Probe('S', state) && state.openFds <= before.openFds; },
                          std::chrono::seconds(10)))
          << state.openFds << " descriptors open, " << before.openFds << " before";
      before.openFds = std::min(before.openFds, state.openFds);
      if (!state.downloadValid) {
        ASSERT_TRUE(controller.Complete(download, sizeof(xoIF2013Reply_Base)));
      }
    }
  }
  // A cut right after the extension is the one case where the code read starts.
  EXPECT_NE(controller.process().Stderr().find("ERROR connection closed or timed out after 0 of " +
                                               std::to_string(download.size() - 76) + " code bytes\n"),
            std::string::npos);
}

TEST(Disconnect, PcLeavingAfterAnyByteOfAnyCommandChangesOnlyWhatTheRulesSay) {
  CutEveryCommandAtEveryByte(false);
}

TEST(Disconnect, InOnlineModeEveryCutClearsTheOutputsTellsTheHostAndKeepsTheRest) {
  CutEveryCommandAtEveryByte(true);
}

}  // namespace
