// A PC that goes away after any byte of any command: the server serves the
// next PC, and what the half command leaves behind follows one rule. Only a
// download cut inside its code changes anything (no program is startable
// until the next whole download); online mode and the transfer area are as
// they were, and no descriptor or thread is left over.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ControllerProcess.h"
#include "OpenFds.h"
#include "ProgramImage.h"
#include "TestClient.h"
#include "WaitFor.h"
#include "host/KavriState.h"
#include "kavri/LinkProtocol.h"
#include "kavri/MotorIOLib.h"

namespace {

int32_t EndAtOnce() { return 1; }

// What the controller holds, as its own probe thread sees it.
struct ControllerState {
  bool downloadValid;
  bool online;
  bool cameraServer;
  uint32_t areaLow;   // checksums of the transfer area's first 1024 bytes
  uint32_t areaHigh;  // and of the rest
  int openFds;
  bool operator==(const ControllerState&) const = default;
};

constexpr int kDisplayPointer = 464;  // the stand-in's own pointer, 8 bytes, left alone

uint32_t Checksum(const uint8_t* bytes, int from, int to) {
  uint32_t sum = 0;
  for (int i = from; i < to; ++i) sum = sum * 31 + bytes[i];
  return sum;
}

// Answers the test through two pipes: 'F' fills the transfer area with a
// pattern, 'S' reports the state.
void ServeProbe(int requests, int replies) {
  std::thread([requests, replies] {
    auto* area = reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
    char request;
    while (read(requests, &request, 1) == 1) {
      if (request == 'F')
        for (int i = 0; i < KAVRI_TRANS_AREA_SIZE; ++i)
          if (i < kDisplayPointer || i >= kDisplayPointer + 8) area[i] = uint8_t(i * 7 + 3);
      ControllerState state{DataAreaDownloadValid.load(), OnlineModeActive.load(), CameraServerThreadRunning.load(),
                            Checksum(area, 0, KAVRI_TRANS_AREA_CLEAR_SIZE),
                            Checksum(area, KAVRI_TRANS_AREA_CLEAR_SIZE, KAVRI_TRANS_AREA_SIZE), CountOpenFds()};
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

template <typename Packet>
std::vector<uint8_t> Bytes(const Packet& packet) {
  const auto* start = reinterpret_cast<const uint8_t*>(&packet);
  return std::vector<uint8_t>(start, start + sizeof packet);
}

std::vector<uint8_t> Bare(uint32_t code) { return Bytes(xoIF2013Command_Base{code}); }

struct CommandRow {
  const char* name;
  std::vector<uint8_t> bytes;
  size_t invalidatesFrom;  // a cut at or after this many bytes leaves no startable program
};

constexpr size_t kNever = SIZE_MAX;

std::vector<CommandRow> EveryCommand(const std::vector<uint8_t>& download) {
  return {
      {"query status", Bare(KavriCmdQueryStatus), kNever},
      {"get memory layout", Bare(KavriCmdGetMemoryLayout), kNever},
      {"get lib adresses", Bare(KavriCmdGetLibAddresses), kNever},
      {"download code", download, sizeof(xoIF2013Command_DownloadCode)},
      {"start code", Bare(KavriCmdStartCode), kNever},
      {"stop code", Bare(KavriCmdStopCode), kNever},
      {"start online", Bytes(xoIF2013Command_StartOnline{KavriCmdStartOnline, "robot"}), kNever},
      {"update config", Bytes(xoIF2013Command_UpdateConfig{KavriCmdUpdateConfig, 3}), kNever},
      {"io exchange", Bytes(xoIF2013Command_IoExchange{KavriCmdIoExchange, {512}}), kNever},
      {"stop online", Bare(KavriCmdStopOnline), kNever},
      {"start camera online", Bytes(xoIF2013Command_StartCameraOnline{KavriCmdStartCameraOnline, 64, 48, 30, 50}),
       kNever},
      {"stop camera online", Bare(KavriCmdStopCameraOnline), kNever},
  };
}

// In online mode every closed connection clears the first 1024 bytes of the
// area, the status query's included; only the rest must be as it was.
// Descriptors are checked on their own: the count may include one that a
// thread of the controller holds for a moment.
ControllerState Comparable(ControllerState state, bool online) {
  if (online) state.areaLow = 0;
  state.openFds = 0;
  return state;
}

void CutEveryCommandAtEveryByte(bool online) {
  Controller controller;
  ASSERT_TRUE(controller.process().WaitUntilListening()) << controller.process().Stderr();
  const std::vector<uint8_t> download = DownloadCommandBytes("cut", true, ImageJumpingTo(EndAtOnce));
  ASSERT_TRUE(controller.Complete(download, sizeof(xoIF2013Reply_Base)));
  if (online) {
    ASSERT_TRUE(controller.Complete(Bytes(xoIF2013Command_StartOnline{KavriCmdStartOnline, "pc"}),
                                    sizeof(xoIF2013Reply_Base)));
  }
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
      ASSERT_TRUE(controller.Complete(Bare(KavriCmdQueryStatus), sizeof(xoIF2013Reply_QueryStatus)))
          << "the next PC is not served: " << controller.process().Stderr();
      ASSERT_TRUE(controller.ProbeSettled('S', state));
      ControllerState expected = before;
      expected.downloadValid = cut < row.invalidatesFrom;
      EXPECT_EQ(Comparable(state, online), Comparable(expected, online))
          << "valid " << state.downloadValid << " online " << state.online << " camera server "
          << state.cameraServer;
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

TEST(Disconnect, InOnlineModeTheModeAndTheAreaBeyondTheOutputsSurviveEveryCut) {
  CutEveryCommandAtEveryByte(true);
}

}  // namespace
