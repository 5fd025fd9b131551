// The camera server: one thread run serves one PC. It lends the capture
// thread two buffers through the library's frame-delivery record and sends
// each delivered frame behind a 20-byte header written into the space in
// front of the buffer, so header and frame leave in one write, uncopied.
#include "host/CameraServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "host/KavriServer.h"
#include "host/ThreadStop.h"
#include "kavri/Camera.h"
#include "host/KavriState.h"

namespace kavri {

namespace {

constexpr int kAcceptSeconds = 5;
constexpr int kAckSeconds = 5;
constexpr int kPollMilliseconds = 10;
constexpr size_t kHeaderSize = sizeof(KavriCameraFrameHeader);

// One connection's worth of resources; all of it goes in the clean-up.
struct Session {
  int listener = -1;
  int connection = -1;
  sockaddr_in peer{};
  uint8_t* blocks[2] = {};
};

CameraAnalysisDeliverFrame& Record() { return CameraAnalysisDeliverFrame_Inst; }

bool Terminating() { return CameraServerThreadTerminate.load(std::memory_order_acquire); }

void SleepPoll() { usleep(kPollMilliseconds * 1000); }

void PrintPeerLine(const char* format, const sockaddr_in& peer) {
  auto* bytes = reinterpret_cast<const uint8_t*>(&peer.sin_addr.s_addr);
  printf(format, bytes[0], bytes[1], bytes[2], bytes[3]);
}

void LowerPriority() {
  printf("Camera server old nice value = %d\n", nice(0));
  printf("Camera server new nice value = %d\n", nice(1000));
}

enum class Readable { Yes, TimedOut, Terminated };

// Waits in short slices, so that a stop request is heard within one slice
// even while the PC takes its time. The window is wall-clock time: at the
// lowest priority on a busy controller a slice may last much longer.
Readable WaitReadable(int fd, int seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  do {
    if (Terminating()) return Readable::Terminated;
    pollfd watched{fd, POLLIN, 0};
    if (poll(&watched, 1, kPollMilliseconds) > 0) return Readable::Yes;
  } while (std::chrono::steady_clock::now() < deadline);
  return Readable::TimedOut;
}

// The buffers and capacity are published before enabled: a capture thread
// that sees enabled also sees where to copy and how much fits. The record was
// initialised before capture started; initialising it again here would clear
// a writing flag the running capture thread has just raised, and the clean-up
// could then free a buffer under its copy.
bool LendBuffers(Session& session) {
  int64_t width = CameraFrameWidth, height = CameraFrameHeight;
  if (width < 1 || height < 1 || width > kCameraServerMaxSide || height > kCameraServerMaxSide) {
    fprintf(stderr, "ERROR camera server frame size %dx%d out of range\n", CameraFrameWidth, CameraFrameHeight);
    return false;
  }
  int32_t capacity = static_cast<int32_t>(width * height * 2);
  CameraAnalysisDeliverFrame& record = Record();
  for (uint8_t*& block : session.blocks) {
    block = static_cast<uint8_t*>(malloc(kHeaderSize + size_t(capacity)));
    if (!block) {
      fprintf(stderr, "ERROR allocating camera server buffers\n");
      return false;
    }
  }
  std::atomic_ref<int32_t>(record.capacity).store(capacity, std::memory_order_release);
  for (int which = 0; which < 2; ++which)
    std::atomic_ref<uint8_t*>(record.buffer[which]).store(session.blocks[which] + kHeaderSize, std::memory_order_release);
  record.SetEnabled(true);
  return true;
}

// Stops the capture thread storing, waits out a copy under way, then takes
// the buffers back.
void ReclaimBuffers(Session& session) {
  CameraAnalysisDeliverFrame& record = Record();
  record.SetEnabled(false);
  while (record.IsWriting()) SleepPoll();
  for (int which = 0; which < 2; ++which) {
    std::atomic_ref<uint8_t*>(record.buffer[which]).store(nullptr, std::memory_order_relaxed);
    free(session.blocks[which]);
    session.blocks[which] = nullptr;
  }
}

bool AcceptPc(Session& session) {
  Readable ready = WaitReadable(session.listener, kAcceptSeconds);
  socklen_t length = sizeof session.peer;
  if (ready == Readable::Yes)
    session.connection = accept(session.listener, reinterpret_cast<sockaddr*>(&session.peer), &length);
  if (session.connection < 0) {
    if (ready != Readable::Terminated) fprintf(stderr, "\nCameraServer: ERROR calling accept\n");
    return false;
  }
  SetSocketTimeouts(session.connection);
  PrintPeerLine("Accepted camera server connection request from %d.%d.%d.%d\n", session.peer);
  return !Terminating();
}

// Waits for the buffer the consumer takes next; -1 on a stop request.
int WaitForFullBuffer() {
  CameraAnalysisDeliverFrame& record = Record();
  int which = std::atomic_ref<int32_t>(record.readIndex).load(std::memory_order_relaxed) & 1;
  while (!record.Full(which).load(std::memory_order_acquire)) {
    if (Terminating()) return -1;
    SleepPoll();
  }
  return which;
}

bool SendFrame(Session& session, int which) {
  CameraAnalysisDeliverFrame& record = Record();
  int32_t size = std::atomic_ref<int32_t>(record.size[which]).load(std::memory_order_relaxed);
  int backlog = record.Full(0).load(std::memory_order_relaxed) + record.Full(1).load(std::memory_order_relaxed) - 1;
  KavriCameraFrameHeader header{KavriCameraFrameMagic,
                                backlog,
                                static_cast<uint16_t>(CameraFrameWidth),
                                static_cast<uint16_t>(CameraFrameHeight),
                                static_cast<uint32_t>(std::atomic_ref<int32_t>(record.capacity).load()),
                                static_cast<uint32_t>(size)};
  uint8_t* block = session.blocks[which];
  memcpy(block, &header, kHeaderSize);
  size_t length = kHeaderSize + size_t(size);
  clock_t started = clock();
  ssize_t written = send(session.connection, block, length, MSG_NOSIGNAL);
  if (written < 0 || size_t(written) != length) {
    fprintf(stderr, "ERROR calling write, %d of %d bytes written in %d ticks\n", int(length), int(written),
            int(clock() - started));
    return false;
  }
  // The index moves on before the flag drops: the capture thread may refill
  // the buffer the moment it sees the flag clear.
  std::atomic_ref<int32_t>(record.readIndex).store(1 - which, std::memory_order_relaxed);
  record.Full(which).store(0, std::memory_order_release);
  return true;
}

bool ReceiveAck(Session& session) {
  Readable ready = WaitReadable(session.connection, kAckSeconds);
  if (ready == Readable::Terminated) return false;
  uint32_t ack = 0;
  // Without an answer in time the read finds nothing and fails, as a read
  // with the connection's own time-out would.
  ssize_t received = recv(session.connection, &ack, sizeof ack, ready == Readable::Yes ? 0 : MSG_DONTWAIT);
  if (received < 0) {
    fprintf(stderr, "ERROR calling read in camera server\n");
    return false;
  }
  if (received < static_cast<ssize_t>(sizeof ack)) {
    fprintf(stderr, "ERROR received illegal command packet (length<4) in camera server\n");
    return false;
  }
  if (ack != KavriCameraFrameAck) {
    fprintf(stderr, "ERROR received illegal command (0x%8.8x) in camera server", ack);
    return false;
  }
  return true;
}

void StreamFrames(Session& session) {
  for (;;) {
    int which = WaitForFullBuffer();
    if (which < 0) return;
    CameraFrameRequestCountSecond.fetch_add(1, std::memory_order_relaxed);
    if (!SendFrame(session, which) || !ReceiveAck(session) || Terminating()) return;
  }
}

void CleanUp(Session& session) {
  PrintPeerLine("Closing camera server connection from %d.%d.%d.%d\n", session.peer);
  if (session.connection >= 0) close(session.connection);
  close(session.listener);
  ReclaimBuffers(session);
}

}  // namespace

}  // namespace kavri

extern "C" {

void* CameraServerThread(void*) {
  puts("Camera Server Thread started");
  CameraServerThreadRunning.store(true, std::memory_order_release);
  kavri::LowerPriority();
  kavri::Session session;
  session.listener = kavri::CreateListeningSocket(CameraServerPort);
  if (kavri::LendBuffers(session) && kavri::AcceptPc(session)) kavri::StreamFrames(session);
  kavri::CleanUp(session);
  puts("Camera Server Thread terminated");
  CameraServerThreadRunning.store(false, std::memory_order_release);
  return nullptr;
}

int StartThreadCameraServer(void) {
  // Two servers would share one delivery record and one port.
  if (CameraServerThreadRunning.load(std::memory_order_acquire) && !StopThreadCameraServer()) {
    fprintf(stderr, "ERROR camera server still running, not restarted\n");
    return 0;
  }
  CameraServerThreadTerminate.store(false, std::memory_order_release);
  // Raised before the thread exists, so that a stop right after this call
  // waits for the thread instead of missing it.
  CameraServerThreadRunning.store(true, std::memory_order_release);
  if (pthread_create(&ThreadCameraServer, nullptr, CameraServerThread, nullptr) != 0) {
    CameraServerThreadRunning.store(false, std::memory_order_release);
    fprintf(stderr, "ERROR creating camera server thread\n");
    return 0;
  }
  // Nobody joins the server; its end is seen through its running flag.
  pthread_detach(ThreadCameraServer);
  return 1;
}

int StopThreadCameraServer(void) {
  CameraServerThreadTerminate.store(true, std::memory_order_release);
  if (!kavri::WaitUntilCleared(CameraServerThreadRunning)) {
    fprintf(stderr, "Timeout terminating camera server thread");
    return 0;
  }
  return 1;
}

}  // extern "C"
