// The host calls, the service stubs and the framing helpers, in process:
// none of these needs the server thread.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "ControllerProcess.h"
#include "host/KavriServer.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace {

TEST(HostInterface, ProgramLibraryPathKeepsOnlyTheLatestCopy) {
  std::string first = "/first/";
  KavriLib_SetProgramLibraryPath(first.c_str());
  first[1] = 'X';  // the library holds its own copy
  EXPECT_STREQ(DownloadDataPath, "/first/");
  KavriLib_SetProgramLibraryPath("/second/");
  EXPECT_STREQ(DownloadDataPath, "/second/");
  KavriLib_SetProgramLibraryPath(nullptr);
  EXPECT_EQ(DownloadDataPath, nullptr);
}

TEST(HostInterface, DownloadProgramIsActiveOnlyWhileTheIoThreadsRun) {
  ProgThreadRunning = true;
  EXPECT_FALSE(KavriLib_CheckDownloadProgramActive());
  MotorIOLib_StartThreads();
  EXPECT_TRUE(KavriLib_CheckDownloadProgramActive());
  ProgThreadRunning = false;
  EXPECT_FALSE(KavriLib_CheckDownloadProgramActive());
  MotorIOLib_StopThreads();
}

TEST(HostInterface, StateQueriesFollowTheirFlags) {
  OnlineModeActive = true;
  DataAreaDownloadValid = false;
  EXPECT_TRUE(KavriLib_CheckOnlineProgramActive());
  EXPECT_FALSE(KavriLib_CheckDownloadProgramStartable());
  OnlineModeActive = false;
  DataAreaDownloadValid = true;
  EXPECT_FALSE(KavriLib_CheckOnlineProgramActive());
  EXPECT_TRUE(KavriLib_CheckDownloadProgramStartable());
  DataAreaDownloadValid = false;
}

TEST(HostInterface, StoppingTheServerThreadIsANoOpThatSucceeds) {
  EXPECT_EQ(StopThreadKavriServer(), 1);
  EXPECT_TRUE(KavriServerThreadTerminate);
}

TEST(HostInterface, ProgramInfoReachesTheCallbackWhileOneIsSet) {
  static std::vector<std::pair<std::string, int>> heard;
  KavriLib_SetProgramInfoCallback([](KavriLib_ProgramInfo* info) {
    heard.emplace_back(info->name ? info->name : "(null)", info->state);
  });
  KavriNotifyProgramInfo("blink", KavriProgramDownloadedFlash);
  KavriNotifyProgramInfo(nullptr, KavriProgramStopped);
  KavriLib_SetProgramInfoCallback(nullptr);
  KavriNotifyProgramInfo("unheard", KavriProgramStartReceived);
  const std::vector<std::pair<std::string, int>> expected = {{"blink", 3}, {"(null)", 7}};
  EXPECT_EQ(heard, expected);
}

TEST(HostInterface, ServiceStubsAnswerAsDocumented) {
  EXPECT_FALSE(CheckTimeSliceCanContinue(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX)));
  EXPECT_EQ(BluetoothSendMessage(), 1);
  EXPECT_EQ(BluetoothGetSelfRadioCallNumber(), 1);
  EXPECT_EQ(I2C_Write(), 1);
  EXPECT_EQ(I2C_Read(), 1);
  BluetoothMaintenance();
  BluetoothSetReceiveCallback();
  BluetoothSetup();
  I2C_Setup();
}

class CommandExtension : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0); }
  void TearDown() override {
    close(fds_[0]);
    if (fds_[1] >= 0) close(fds_[1]);
  }
  int server() const { return fds_[0]; }
  void PcWrites(const void* bytes, size_t length) { ASSERT_EQ(write(fds_[1], bytes, length), ssize_t(length)); }
  void PcCloses() {
    close(fds_[1]);
    fds_[1] = -1;
  }
  int fds_[2] = {-1, -1};
};

TEST_F(CommandExtension, WholeExtensionInOneWriteFollowsTheCommandWord) {
  xoIF2013Command_Base word{KavriCmdStartCameraOnline};
  const int32_t body[4] = {640, 480, 30, 50};
  PcWrites(body, sizeof body);
  xoIF2013Command_StartCameraOnline command;
  memset(&command, 0xAA, sizeof command);
  ASSERT_TRUE(ReadCommandExtension(server(), &word, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command));
  EXPECT_EQ(command.code, KavriCmdStartCameraOnline);
  EXPECT_EQ(command.width, 640);
  EXPECT_EQ(command.powerlineFreq, 50);
}

TEST_F(CommandExtension, ShortOrMissingExtensionIsRejectedAndTheBufferZeroed) {
  xoIF2013Command_Base word{KavriCmdDownloadCode};
  const uint8_t part[10] = {1, 'a', 'b'};
  PcWrites(part, sizeof part);
  PcCloses();
  xoIF2013Command_DownloadCode command;
  memset(&command, 0xAA, sizeof command);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(ReadCommandExtension(server(), &word, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command));
  EXPECT_FALSE(ReadCommandExtension(server(), &word, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR received illegal command packet (length<72)\n"
            "ERROR received illegal command packet (length<72)\n");
  EXPECT_EQ(command.code, KavriCmdDownloadCode);
  EXPECT_EQ(command.codeSize, 0u);  // nothing of an earlier command survives
}

TEST(AcceptTimeout, GivesUpWhenNoPcConnectsAndAcceptsOneThatDoes) {
  int listener = kavri::CreateListeningSocket(0);  // the kernel's choice: no other test can hold it
  sockaddr_in peer{};
  socklen_t boundLength = sizeof peer;
  getsockname(listener, reinterpret_cast<sockaddr*>(&peer), &boundLength);
  const uint16_t port = ntohs(peer.sin_port);
  unsigned length = sizeof peer;
  EXPECT_EQ(accept_timeout(listener, reinterpret_cast<sockaddr*>(&peer), &length, 0, 50000), -1);
  int pc = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(pc, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  int accepted = accept_timeout(listener, reinterpret_cast<sockaddr*>(&peer), &length, 30, 0);
  EXPECT_GE(accepted, 0);
  close(accepted);
  close(pc);
  close(listener);
}

}  // namespace
