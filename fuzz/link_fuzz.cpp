// The PC link: the fuzz input is the byte stream of one connection. The
// server's command loop runs over one end of a socket pair, the whole input
// already written to the other end and that end closed for writing, so a
// command that wants more bytes than came sees the PC hang up instead of
// waiting for its time-out.
//
// The run area is write-protected, so any write to it ends the run at once.
// Afterwards the transfer area must hold what it held before, except where a
// command of the stream may write; the flash files
// written must lie inside the program library folder, and the process holds
// as many descriptors as before. Every thread a command started is stopped
// again, so inputs do not affect each other.
//
// Not exercised: running a started program. On this machine the run area
// holds no code this process could execute, so a start code command always
// meets a download that is not valid and answers that nothing started.
#include <dirent.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "FuzzInput.h"
#include "host/CameraServer.h"
#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "host/KavriState.h"
#include "host/OnlineMode.h"
#include "kavri/Camera.h"
#include "kavri/CameraDevice.h"
#include "kavri/MotorIOLib.h"

namespace {

using AreaMask = std::bitset<KAVRI_TRANS_AREA_SIZE>;

std::vector<uint8_t> transAreaBefore;
std::string scratchFolder;  // holds the library folder and nothing else
std::string libraryFolder;

uint8_t* TransArea() { return reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX)); }

// No camera: capture started by camera online ends at its first step, and the
// camera server is what the command exercises.
int NoCamera(const char*, struct stat*) {
  errno = ENOENT;
  return -1;
}
CameraDeviceOps noCameraOps;

void MarkRange(AreaMask& mask, size_t from, size_t count) {
  for (size_t i = from; i < from + count && i < mask.size(); ++i) mask.set(i);
}

// Where each command may leave the transfer area changed.
void MarkWrites(uint32_t code, AreaMask& mask) {
  switch (code) {
    case KavriCmdStartOnline:
    case KavriCmdStopOnline:
      MarkRange(mask, 0, KAVRI_TRANS_AREA_CLEAR_SIZE);
      break;
    case KavriCmdUpdateConfig:
      mask.set(kavri::kAreaConfigId);
      MarkRange(mask, kavri::kAreaConfigBlock,
                sizeof(xoIF2013Command_UpdateConfig) - offsetof(xoIF2013Command_UpdateConfig, blockStart));
      break;
    case KavriCmdIoExchange:
      // The exchange with the simulated hardware may change any of it.
      mask.set();
      break;
  }
}

// Takes whatever replies are waiting, so the server's writes never block.
void DrainReplies(int fd) {
  uint8_t sink[4096];
  while (recv(fd, sink, sizeof sink, MSG_DONTWAIT) > 0) {
  }
}

// What the server's loop does for one connection, but with the start of a
// program left out (see the top of the file).
AreaMask ServeStream(int fd, int pcEnd) {
  AreaMask mayChange;
  for (;;) {
    xoIF2013Command_Base command{};
    if (kavri::ReadOnce(fd, &command, sizeof command) != static_cast<ssize_t>(sizeof command)) break;
    const kavri::LinkCommand* handler = kavri::FindLinkCommand(command.code);
    if (!handler) break;
    if (command.code == KavriCmdStartCode) DataAreaDownloadValid.store(false);
    MarkWrites(command.code, mayChange);
    bool keepGoing = handler->handle(fd, &command);
    DrainReplies(pcEnd);
    if (!keepGoing) break;
  }
  // The server clears the outputs when an online PC goes away.
  if (OnlineModeActive.load()) MarkRange(mayChange, 0, KAVRI_TRANS_AREA_CLEAR_SIZE);
  return mayChange;
}

// The stop protocol gives up after 1 s, which a busy machine can exceed;
// what must hold is that the thread ends.
bool Ended(const std::atomic<bool>& running) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (running.load()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

void StopEverything() {
  CameraSetup(nullptr);
  if (CameraServerThreadRunning.load()) StopThreadCameraServer();
  StopThreadsDownloadMode(true);
  FUZZ_CHECK(Ended(CameraThreadRunning) && Ended(CameraServerThreadRunning) && Ended(ProgThreadRunning));
  OnlineModeActive.store(false);
  DataAreaDownloadValid.store(false);
}

// Flash files land in the library folder as plain files and nowhere else;
// they are removed so that the folder stays small.
void CheckAndClearFlashFiles() {
  DIR* scratch = opendir(scratchFolder.c_str());
  FUZZ_CHECK(scratch);
  while (dirent* entry = readdir(scratch)) {
    std::string name = entry->d_name;
    FUZZ_CHECK(name == "." || name == ".." || name == "library");
  }
  closedir(scratch);
  DIR* library = opendir(libraryFolder.c_str());
  FUZZ_CHECK(library);
  while (dirent* entry = readdir(library)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    std::string path = libraryFolder + name;
    struct stat info;
    FUZZ_CHECK(lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode));
    FUZZ_CHECK(unlink(path.c_str()) == 0);
  }
  closedir(library);
}

int OpenDescriptors() {
  int count = 0;
  DIR* folder = opendir("/proc/self/fd");
  FUZZ_CHECK(folder);
  while (readdir(folder)) ++count;
  closedir(folder);
  return count;
}

void RemoveFolders() {
  CheckAndClearFlashFiles();
  rmdir(libraryFolder.c_str());
  rmdir(scratchFolder.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The handlers' progress lines would cost more than the handling.
  if (!freopen("/dev/null", "w", stdout)) return 1;
  // Flash files are synced: in memory that costs nothing.
  char folder[] = "/dev/shm/link_fuzz.XXXXXX";
  if (!mkdtemp(folder)) return 1;
  scratchFolder = folder;
  libraryFolder = scratchFolder + "/library/";
  if (mkdir(libraryFolder.c_str(), 0700) != 0) return 1;
  atexit(RemoveFolders);
  KavriLib_SetProgramLibraryPath(libraryFolder.c_str());
  // Any free port: several fuzzers may run at once.
  CameraServerPort = 0;
  noCameraOps = *CameraGetDeviceOps();
  noCameraOps.stat = NoCamera;
  CameraSetDeviceOps(&noCameraOps);
  // No command of a stream may write the run area (no start finds a valid
  // download here): a fault is cheaper than comparing 4 MiB per input.
  if (mprotect(DataAreaRun, KAVRI_AREA_SIZE, PROT_READ) != 0) return 1;
  for (size_t i = 0; i < KAVRI_TRANS_AREA_SIZE; ++i) TransArea()[i] = static_cast<uint8_t>(i * 37 + 1);
  transAreaBefore.assign(TransArea(), TransArea() + KAVRI_TRANS_AREA_SIZE);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int descriptorsBefore = OpenDescriptors();
  int ends[2];
  FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  int pcEnd = ends[0];
  int serverEnd = ends[1];
  // The whole stream must fit the pair's buffer before the server reads.
  int room = static_cast<int>(size) + 65536;
  setsockopt(pcEnd, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  setsockopt(serverEnd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  kavri::SetSocketTimeouts(serverEnd);
  if (size > 0) FUZZ_CHECK(send(pcEnd, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size));
  shutdown(pcEnd, SHUT_WR);

  AreaMask mayChange = ServeStream(serverEnd, pcEnd);
  close(serverEnd);
  close(pcEnd);
  StopEverything();

  uint8_t* area = TransArea();
  for (size_t i = 0; i < KAVRI_TRANS_AREA_SIZE; ++i) {
    if (!mayChange.test(i) && area[i] != transAreaBefore[i]) {
      fprintf(stderr, "transfer area byte %zu changed from %u to %u\n", i, transAreaBefore[i], area[i]);
      abort();
    }
  }
  memcpy(area, transAreaBefore.data(), KAVRI_TRANS_AREA_SIZE);
  CheckAndClearFlashFiles();
  FUZZ_CHECK(OpenDescriptors() == descriptorsBefore);
  return 0;
}
