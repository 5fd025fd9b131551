// The host's library path and the framing helper, in process: neither needs
// the server thread.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "host/KavriServer.h"
#include "host/KavriState.h"

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

// One read: what a single write of the PC brings is the whole extension, a
// short one is refused, and nothing of an earlier command survives in the buffer.
TEST(CommandExtension, WholeExtensionIsTakenAndAShortOneRefusedWithTheBufferZeroed) {
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  xoIF2013Command_Base camera{KavriCmdStartCameraOnline};
  const int32_t body[4] = {640, 480, 30, 50};
  ASSERT_EQ(write(fds[1], body, sizeof body), ssize_t(sizeof body));
  xoIF2013Command_StartCameraOnline whole;
  memset(&whole, 0xAA, sizeof whole);
  EXPECT_TRUE(ReadCommandExtension(fds[0], &camera, reinterpret_cast<xoIF2013Command_Base*>(&whole), sizeof whole));
  EXPECT_EQ(memcmp(&whole, &camera, 4) | memcmp(&whole.width, body, sizeof body), 0);

  xoIF2013Command_Base download{KavriCmdDownloadCode};
  const uint8_t part[10] = {1, 'a', 'b'};
  ASSERT_EQ(write(fds[1], part, sizeof part), ssize_t(sizeof part));
  close(fds[1]);
  xoIF2013Command_DownloadCode command;
  memset(&command, 0xAA, sizeof command);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(ReadCommandExtension(fds[0], &download, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command));
  EXPECT_FALSE(ReadCommandExtension(fds[0], &download, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR received illegal command packet (length<72)\n"
            "ERROR received illegal command packet (length<72)\n");
  EXPECT_EQ(command.code, KavriCmdDownloadCode);
  EXPECT_EQ(command.codeSize, 0u);
  close(fds[0]);
}

}  // namespace
