// Online mode's commands: what they put into the transfer area and what they
// answer. The handlers run in this process on one end of a socket pair, with
// the I/O library stand-in.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "LinkHandlerCall.h"
#include "host/OnlineMode.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"
#include "motoriolib/MotorIOLibSim.h"

namespace {

uint8_t* Area() { return reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX)); }

uint16_t Le16(const uint8_t* bytes) { return uint16_t(bytes[0] | bytes[1] << 8); }
void PutLe16(uint8_t* bytes, uint16_t value) {
  bytes[0] = uint8_t(value);
  bytes[1] = uint8_t(value >> 8);
}

struct HeardInfo {
  std::string name;
  int state;
};
std::vector<HeardInfo> heard;
void RecordInfo(KavriLib_ProgramInfo* info) { heard.push_back({info->name ? info->name : "(null)", info->state}); }

class OnlineCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    memcpy(saved_, Area(), sizeof saved_);
    heard.clear();
    KavriLib_SetProgramInfoCallback(RecordInfo);
  }
  void TearDown() override {
    for (int channel = 0; channel < MOTORIOLIB_SIM_CHANNELS; ++channel) MotorIOLibSim_SetInput(channel, -1);
    memcpy(Area(), saved_, sizeof saved_);
    KavriLib_SetProgramInfoCallback(nullptr);
    OnlineModeActive = false;
  }

  // A pattern in the area's bytes that no command writes by chance, or
  // zeros; the display pointer of the stand-in stays as it is.
  void FillArea(bool pattern = true) {
    for (int offset = 0; offset < KAVRI_TRANS_AREA_SIZE; ++offset)
      if (offset < 464 || offset >= 472) Area()[offset] = pattern ? uint8_t(offset * 7 + 3) : 0;
  }
  std::vector<uint8_t> RunCaptured(LinkHandler handler, const void* packet, size_t length, std::string& printed) {
    ::testing::internal::CaptureStdout();
    std::vector<uint8_t> reply = CallLinkHandler(handler, packet, length);
    fflush(stdout);
    printed = ::testing::internal::GetCapturedStdout();
    return reply;
  }

  uint8_t saved_[KAVRI_TRANS_AREA_SIZE];
};

std::vector<uint8_t> ReplyCode(uint32_t code) {
  std::vector<uint8_t> bytes(4);
  memcpy(bytes.data(), &code, 4);
  return bytes;
}

// A run of 16-bit fields as the protocol documents it, in packet and area.
struct Span {
  const char* name;
  int packetOffset;
  int areaOffset;
  int count;
  bool lowByteOnly;
};

TEST_F(OnlineCommand, ExchangeMovesEveryFieldBetweenPacketAndAreaAndNothingElse) {
  const Span toArea[] = {
      {"outputs at 4", 4, 332, 8, false},        {"low bytes at 20", 20, 328, 4, true},
      {"outputs at 28", 28, 348, 8, false},      {"values at 44", 44, 320, 4, false},
      {"values at 52", 52, 834, 3, false},
  };
  const Span toReply[] = {
      {"inputs 252", 4, 252, 8, false},  {"inputs 268", 20, 268, 8, false}, {"values 320", 36, 320, 4, false},
      {"values 312", 44, 312, 4, false}, {"value 832", 52, 832, 1, false},
  };
  FillArea();
  uint8_t command[60] = {};
  uint32_t code = KavriCmdIoExchange;
  memcpy(command, &code, 4);
  std::vector<uint8_t> expected(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
  for (int row = 0; row < int(std::size(toArea)); ++row) {
    const Span& span = toArea[row];
    for (int i = 0; i < span.count; ++i) {
      // A high byte that differs from the low one shows which byte went where.
      uint16_t value = uint16_t((row + 1) << 12 | (i + 1) << 8 | (row * 16 + i + 0x41));
      PutLe16(command + span.packetOffset + 2 * i, value);
      if (span.lowByteOnly)
        expected[span.areaOffset + i] = uint8_t(value);
      else
        PutLe16(&expected[span.areaOffset + 2 * i], value);
    }
  }
  for (int channel = 0; channel < 8; ++channel) {
    MotorIOLibSim_SetInput(channel, 0x5100 + channel);
    PutLe16(&expected[252 + 2 * channel], uint16_t(0x5100 + channel));
  }
  // Infrared flag words: record k flag j set when k + j is even, by its high
  // byte only, so that a flag read as one byte is caught.
  uint8_t flagBytes[5] = {};
  for (int k = 0; k < 5; ++k)
    for (int j = 0; j < 4; ++j) {
      bool set = (k + j) % 2 == 0;
      PutLe16(Area() + 696 + 32 * k + 2 * j, set ? 0x0100 : 0);
      PutLe16(&expected[696 + 32 * k + 2 * j], set ? 0x0100 : 0);
      if (set) flagBytes[k] |= uint8_t(1 << j);
    }

  std::string printed;
  std::vector<uint8_t> reply = RunCaptured(kavri::HandleIoExchange, command, sizeof command, printed);

  for (int offset = 0; offset < KAVRI_TRANS_AREA_SIZE; ++offset) {
    if (offset >= 464 && offset < 472) continue;
    ASSERT_EQ(Area()[offset], expected[offset]) << "area offset " << offset;
  }
  ASSERT_EQ(reply.size(), 80u);
  EXPECT_EQ(std::vector<uint8_t>(reply.begin(), reply.begin() + 4), ReplyCode(KavriReplyIoExchange));
  for (const Span& span : toReply) {
    SCOPED_TRACE(span.name);
    for (int i = 0; i < span.count; ++i)
      EXPECT_EQ(Le16(&reply[span.packetOffset + 2 * i]), Le16(&expected[span.areaOffset + 2 * i])) << i;
  }
  for (int k = 0; k < 5; ++k) {
    for (int j = 0; j < 4; ++j) EXPECT_EQ(reply[54 + 5 * k + j], expected[672 + 32 * k + 6 * j]) << k << j;
    EXPECT_EQ(reply[54 + 5 * k + 4], flagBytes[k]) << "flags of record " << k;
  }
  EXPECT_EQ(reply[79], 0);
  EXPECT_EQ(printed.rfind("IR ", 0), 0u) << printed;
}

TEST_F(OnlineCommand, ExchangeLogsTheInfraredRecordsItReports) {
  FillArea(false);
  Area()[672] = 5;
  PutLe16(Area() + 698, 1);
  Area()[672 + 32 * 4 + 18] = 200;
  PutLe16(Area() + 696 + 32 * 4 + 6, 9);
  xoIF2013Command_IoExchange command{KavriCmdIoExchange};
  std::string printed;
  std::vector<uint8_t> reply = RunCaptured(kavri::HandleIoExchange, &command, sizeof command, printed);
  ASSERT_EQ(reply.size(), 80u);
  EXPECT_EQ(printed,
            "IR   5  0  0  0 2   0  0  0  0 0   0  0  0  0 0   0  0  0  0 0   0  0  0200 8\n");
}

TEST_F(OnlineCommand, UpdateConfigStoresTheIdsLowByteAndTheBlock) {
  const struct {
    int32_t id;
    uint8_t stored;
  } cases[] = {{0x105, 5}, {-1, 0xFF}, {0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.id);
    FillArea();
    std::vector<uint8_t> before(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
    xoIF2013Command_UpdateConfig command{KavriCmdUpdateConfig, c.id};
    auto* bytes = reinterpret_cast<uint8_t*>(&command);
    for (int i = 8; i < 96; ++i) bytes[i] = uint8_t(0x80 + i);
    const uint8_t motor[4] = {1, 200, 3, 4};
    const int32_t input[8] = {10, 11, 12, 13, 14, 15, 16, -17}, counter[4] = {-1, 20, 30, 40};
    memcpy(command.motor, motor, sizeof motor);
    memcpy(command.input, input, sizeof input);
    memcpy(command.counter, counter, sizeof counter);
    std::string printed;
    EXPECT_EQ(RunCaptured(kavri::HandleUpdateConfig, &command, sizeof command, printed),
              ReplyCode(KavriReplyUpdateConfig));
    EXPECT_EQ(Area()[75], c.stored);
    EXPECT_EQ(0, memcmp(Area() + 164, bytes + 8, 88));
    EXPECT_EQ(Area()[74], before[74]);
    EXPECT_EQ(Area()[76], before[76]);
    EXPECT_EQ(Area()[163], before[163]);
    EXPECT_EQ(Area()[252], before[252]);
    EXPECT_EQ(printed, "Received update config command, id=" + std::to_string(c.id) +
                           "\nM:1 200 3 4, I:10 11 12 13 14 15 16 -17, c:-1 20 30 40\n");
  }
}

// Start clears the outputs and tells the host the full name; stop clears
// them only once the PC has its reply.
TEST_F(OnlineCommand, StartAndStopOnlineClearTheOutputsAndTellTheHost) {
  for (bool pcListens : {true, false}) {
    SCOPED_TRACE(pcListens ? "reply written" : "reply cannot be written");
    heard.clear();
    FillArea();
    xoIF2013Command_StartOnline start{KavriCmdStartOnline};
    memset(start.programName, 'n', sizeof start.programName);  // no terminator
    EXPECT_EQ(CallLinkHandler(kavri::HandleStartOnline, &start, sizeof start), ReplyCode(KavriReplyStartOnline));
    EXPECT_TRUE(KavriLib_CheckOnlineProgramActive());
    for (int offset = 0; offset < KAVRI_TRANS_AREA_CLEAR_SIZE; ++offset) ASSERT_EQ(Area()[offset], 0) << offset;
    EXPECT_EQ(Area()[KAVRI_TRANS_AREA_CLEAR_SIZE], uint8_t(KAVRI_TRANS_AREA_CLEAR_SIZE * 7 + 3));
    FillArea();
    std::vector<uint8_t> before(Area(), Area() + KAVRI_TRANS_AREA_SIZE);
    xoIF2013Command_Base stop{KavriCmdStopOnline};
    bool accepted = false;
    std::vector<uint8_t> reply = CallLinkHandler(kavri::HandleStopOnline, &stop, sizeof stop, &accepted, !pcListens);
    EXPECT_EQ(accepted, pcListens);
    EXPECT_FALSE(KavriLib_CheckOnlineProgramActive());
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0].name, std::string(64, 'n'));
    EXPECT_EQ(heard[0].state, KavriProgramOnlineStarted);
    EXPECT_EQ(heard[1].name, "(null)");
    EXPECT_EQ(heard[1].state, KavriProgramOnlineStopped);
    if (pcListens) {
      EXPECT_EQ(reply, ReplyCode(KavriReplyStopOnline));
      for (int offset = 0; offset < KAVRI_TRANS_AREA_CLEAR_SIZE; ++offset) ASSERT_EQ(Area()[offset], 0) << offset;
    } else {
      EXPECT_EQ(0, memcmp(Area(), before.data(), KAVRI_TRANS_AREA_SIZE));
    }
  }
}

}  // namespace
