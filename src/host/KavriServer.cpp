// The PC link server: one PC at a time, one command after the other.
#include "host/KavriServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/KavriRates.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace kavri {

namespace {

// Network order; written once by KavriLib_Init before any listener exists.
std::atomic<uint32_t> ListenAddress{htonl(INADDR_ANY)};

// What the connection's last read brought beyond the command it was for. A
// read at a command's start takes whatever is queued, up to the size of the
// download command: an exchange then costs one read, commands the PC sent
// back to back are kept for their turn, and the code behind a download is
// never reached, so the download reads it from the socket itself. Per thread,
// as only the server thread serves connections.
struct ReadAheadBuffer {
  int fd = -1;
  size_t begin = 0;
  size_t end = 0;
  uint8_t bytes[sizeof(xoIF2013Command_DownloadCode)];
};
thread_local ReadAheadBuffer ReadAhead;

ssize_t ReadOrTimeOut(int fd, void* buffer, size_t length, int flags) {
  ssize_t received = flags ? recv(fd, buffer, length, flags) : read(fd, buffer, length);
  // An expired receive time-out means the PC sent nothing: a short read.
  if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  return received;
}

size_t TakeReadAhead(int fd, void* buffer, size_t length) {
  ReadAheadBuffer& ahead = ReadAhead;
  if (ahead.fd != fd) return 0;
  size_t count = std::min(length, ahead.end - ahead.begin);
  memcpy(buffer, ahead.bytes + ahead.begin, count);
  ahead.begin += count;
  return count;
}

// A piece of a command that must have arrived with it. When part of it was
// read ahead, the rest is only what is queued now, as the one read a command
// gets would have returned; when none was, that one read is made.
ssize_t ReadCommandPiece(int fd, void* buffer, size_t length) {
  size_t taken = TakeReadAhead(fd, buffer, length);
  if (taken == length) return static_cast<ssize_t>(taken);
  ssize_t received = ReadOrTimeOut(fd, static_cast<uint8_t*>(buffer) + taken, length - taken, taken ? MSG_DONTWAIT : 0);
  if (received < 0) return received;
  return static_cast<ssize_t>(taken) + received;
}

ssize_t ReadCommandWord(int fd, xoIF2013Command_Base* command) {
  ReadAheadBuffer& ahead = ReadAhead;
  if (ahead.begin == ahead.end) {
    ahead.begin = ahead.end = 0;
    ssize_t received = ReadOrTimeOut(fd, ahead.bytes, sizeof ahead.bytes, 0);
    if (received <= 0) return received;
    ahead.end = static_cast<size_t>(received);
  }
  return ReadCommandPiece(fd, command, sizeof *command);
}

[[noreturn]] void FailServer(const char* message) {
  fputs(message, stderr);
  exit(1);
}

void RaisePriority() {
  printf("main thread old nice value = %d\n", nice(0));
  printf("main thread new nice value = %d\n", nice(-10));
}

// Downloaded code is linked for the run area's address, so that area must
// become executable exactly where it is.
void MapRunAreaExecutable() {
  void* wanted = DataAreaRun;
  void* mapped = mmap(wanted, KAVRI_AREA_SIZE, PROT_READ | PROT_WRITE | PROT_EXEC,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
  if (mapped != wanted) {
    fprintf(stderr, "ERROR mapping data buffer, %p!=%p, err=%s, \n", mapped, wanted, strerror(errno));
    exit(1);
  }
}

void PrintPeerLine(const char* format, const sockaddr_in& peer) {
  auto* bytes = reinterpret_cast<const uint8_t*>(&peer.sin_addr.s_addr);
  printf(format, bytes[0], bytes[1], bytes[2], bytes[3]);
}

// Reads and runs commands until one fails or the PC goes away.
void RunCommandLoop(int fd) {
  for (;;) {
    ReportRatesIfDue();
    xoIF2013Command_Base command{};
    ssize_t received = ReadCommandWord(fd, &command);
    if (received < 0) {
      fprintf(stderr, "ERROR calling read\n");
      return;
    }
    if (received < static_cast<ssize_t>(sizeof command)) {
      fprintf(stderr, "ERROR received illegal command packet (length<4)\n");
      return;
    }
    const LinkCommand* handler = FindLinkCommand(command.code);
    if (!handler) {
      fprintf(stderr, "ERROR received illegal command (0x%8.8x)", command.code);
      return;
    }
    if (handler->logLine) puts(handler->logLine);
    if (!handler->handle(fd, &command)) return;
  }
}

// Online mode outlives the connection; the host hears of it and the outputs
// are cleared so the machine does not keep moving without its PC.
void CloseOnlineModeConnection() {
  if (!OnlineModeActive.load(std::memory_order_acquire)) return;
  KavriNotifyProgramInfo(nullptr, KavriProgramOnlineStopped);
  memset(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), 0, KAVRI_TRANS_AREA_CLEAR_SIZE);
}

void ServeConnection(int fd, const sockaddr_in& peer) {
  printf("\n");
  SetSocketTimeouts(fd);
  PrintPeerLine("Accepted connection request from %d.%d.%d.%d\n", peer);
  RateLastTime.store(NowMilliseconds(), std::memory_order_relaxed);
  // Every reply is one write; the PC waits for it, so it goes out at once.
  int noDelay = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
  ReadAhead = {fd};
  RunCommandLoop(fd);
  ReadAhead = {};
  PrintPeerLine("Closing connection from %d.%d.%d.%d\n", peer);
  close(fd);
  CloseOnlineModeConnection();
}

}  // namespace

void SetSocketTimeouts(int fd) {
  timeval timeout{kSocketTimeoutSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

bool ChooseListenAddress(const char* text) {
  if (!text || !*text) {
    ListenAddress.store(htonl(INADDR_ANY), std::memory_order_relaxed);
    return true;
  }
  in_addr parsed{};
  if (inet_pton(AF_INET, text, &parsed) != 1) {
    fprintf(stderr, "ERROR bind address \"%s\" is not an IPv4 address such as 127.0.0.1\n", text);
    return false;
  }
  ListenAddress.store(parsed.s_addr, std::memory_order_relaxed);
  return true;
}

int CreateListeningSocket(int port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) FailServer("ERROR calling socket\n");
  int reuse = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  SetSocketTimeouts(fd);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ListenAddress.load(std::memory_order_relaxed);
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
    FailServer("ERROR calling bind. Do you try to run KavriApp or service twice?\n");
  if (listen(fd, 1) < 0) FailServer("ERROR calling listen\n");
  return fd;
}

ssize_t ReadOnce(int fd, void* buffer, size_t length) {
  size_t taken = TakeReadAhead(fd, buffer, length);
  if (taken) return static_cast<ssize_t>(taken);
  return ReadOrTimeOut(fd, buffer, length, 0);
}

bool WriteReply(int fd, const void* reply, size_t length) {
  // No SIGPIPE: a PC that vanished is a failed write, not a dead controller.
  ssize_t written = send(fd, reply, length, MSG_NOSIGNAL);
  if (written < 0 || static_cast<size_t>(written) != length) {
    fprintf(stderr, "ERROR calling write\n");
    return false;
  }
  return true;
}

}  // namespace kavri

extern "C" {

void* KavriServerThread(void*) {
  kavri::RaisePriority();
  int listener = kavri::CreateListeningSocket(KavriServerPort);
  kavri::MapRunAreaExecutable();
  for (;;) {
    sockaddr_in peer{};
    socklen_t peerLength = sizeof peer;
    int fd = accept(listener, reinterpret_cast<sockaddr*>(&peer), &peerLength);
    if (fd < 0) continue;
    kavri::ServeConnection(fd, peer);
  }
}

// Deliberately a single read: the PC sends each command in one write, and
// an extension split over two segments is rejected.
bool ReadCommandExtension(int fd, xoIF2013Command_Base* command, xoIF2013Command_Base* buffer, unsigned length) {
  memset(buffer, 0, length);
  memcpy(buffer, command, sizeof *command);
  unsigned rest = length - sizeof *command;
  ssize_t received = kavri::ReadCommandPiece(fd, reinterpret_cast<uint8_t*>(buffer) + sizeof *command, rest);
  if (received < 0) {
    fprintf(stderr, "ERROR calling read\n");
    return false;
  }
  if (static_cast<unsigned>(received) < rest) {
    fprintf(stderr, "ERROR received illegal command packet (length<%d)\n", rest);
    return false;
  }
  return true;
}

int accept_timeout(int fd, sockaddr* address, unsigned* address_length, int seconds, int microseconds) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval timeout{seconds, microseconds};
  if (select(fd + 1, &readable, nullptr, nullptr, &timeout) <= 0) return -1;
  return accept(fd, address, reinterpret_cast<socklen_t*>(address_length));
}

}  // extern "C"
