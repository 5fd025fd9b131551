// Online mode's costs, each against a reference measured in the same run:
// - I/O exchanges per second over loopback against bare round trips of the
//   same sizes (60 bytes out, 80 back) to a server that only echoes them;
// - frames the camera server delivers per frame captured by the simulated
//   camera at 640 x 480 and 30 frames per second, with a PC that answers at
//   once and with one that needs 50 ms a frame, and the camera server's own
//   CPU time per frame.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "ControllerProcess.h"
#include "LinkHandlerCall.h"
#include "PairedTiming.h"
#include "TestClient.h"
#include "camera_devices/SimCamera.h"
#include "host/CameraServer.h"
#include "host/KavriState.h"
#include "host/OnlineMode.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"
#include "kavri/LinkProtocol.h"

namespace {

constexpr size_t kCommandSize = sizeof(xoIF2013Command_IoExchange);
constexpr size_t kReplySize = sizeof(xoIF2013Reply_IoExchange);

// At the controller's link priority and with its socket option, so that a
// busy machine favours neither and the replies leave the same way.
[[noreturn]] void RunEchoServer(int listener) {
  if (nice(-10) == -1) perror("nice");
  uint8_t command[kCommandSize];
  uint8_t reply[kReplySize] = {};
  for (;;) {
    int fd = accept(listener, nullptr, nullptr);
    int noDelay = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    while (read(fd, command, sizeof command) == sizeof command)
      if (write(fd, reply, sizeof reply) != sizeof reply) break;
    close(fd);
  }
}

double RoundTripSeconds(TestClient& client, const xoIF2013Command_IoExchange& command) {
  auto start = std::chrono::steady_clock::now();
  client.Send(&command, sizeof command);
  if (client.Receive(kReplySize).size() != kReplySize) abort();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Arg 1: the controller's log buffered, as a host writing it to a file has
// it; Arg 0: unbuffered, a write per call that prints (the tests' setting).
void BM_IoExchangeAgainstBareRoundTrip(benchmark::State& state) {
  ControllerProcess controller({.bufferedOutput = state.range(0) != 0});
  if (!controller.WaitUntilListening()) {
    state.SkipWithError("controller did not start");
    return;
  }
  // Listening before the fork, on the port the kernel picked: no other
  // process can take it in between, and the client need not wait.
  int listener = ListenOnLoopback(0);
  sockaddr_in bound{};
  socklen_t boundLength = sizeof bound;
  if (listener < 0 || getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &boundLength) != 0) {
    if (listener >= 0) close(listener);
    state.SkipWithError("echo server cannot listen");
    return;
  }
  const int echoPort = ntohs(bound.sin_port);
  pid_t echo = fork();
  if (echo == 0) RunEchoServer(listener);
  close(listener);
  TestClient exchangeClient(controller.port());
  TestClient echoClient(echoPort);
  xoIF2013Command_IoExchange command{KavriCmdIoExchange, {100, 200}};
  const PairedSeconds seconds =
      TimeInTurns(state, [&] { return RoundTripSeconds(exchangeClient, command); },
                  [&] { return RoundTripSeconds(echoClient, command); });
  EndReference(echo);
  state.counters["exchange_us"] = 1e6 * seconds.measured / seconds.iterations;
  state.counters["bare_us"] = 1e6 * seconds.reference / seconds.iterations;
  state.counters["exchanges_per_s"] = seconds.iterations / seconds.measured;
  state.counters["bare_per_s"] = seconds.iterations / seconds.reference;
  state.counters["rate_ratio"] = seconds.reference / seconds.measured;  // goal: at least 0.8
}

BENCHMARK(BM_IoExchangeAgainstBareRoundTrip)->Arg(1)->Arg(0)->MinTime(2.0)->UseRealTime()->Unit(benchmark::kMicrosecond);

double ThreadCpuSeconds(pthread_t thread) {
  clockid_t clock;
  timespec used{};
  if (pthread_getcpuclockid(thread, &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
  return double(used.tv_sec) + double(used.tv_nsec) * 1e-9;
}

// state.range(0): milliseconds the PC spends on each frame before answering.
void BM_CameraFramesDeliveredPerCaptured(benchmark::State& state) {
  auto pcDelay = std::chrono::milliseconds(state.range(0));
  SimCamera_Install();
  CameraServerPort = FindFreePort();
  xoIF2013Command_StartCameraOnline start{KavriCmdStartCameraOnline, 640, 480, 30, 50};
  if (CallLinkHandlerForCode(kavri::HandleStartCameraOnline, &start, sizeof start) != KavriReplyStartCameraOnline) {
    state.SkipWithError("camera online did not start");
    return;
  }
  WaitFor([] { return PortIsListening(CameraServerPort); });
  TestClient pc(CameraServerPort, 10);
  pthread_t server = ThreadCameraServer;
  uint32_t capturedBefore = 0, capturedAtLast = 0;
  double cpuBefore = 0;
  int64_t delivered = 0, waiting = 0;
  int waitingAtFirst = 0, heldAtLast = 0;
  bool first = true;
  for (auto _ : state) {
    std::vector<uint8_t> head = pc.Receive(sizeof(KavriCameraFrameHeader));
    KavriCameraFrameHeader header{};
    if (head.size() != sizeof header) {
      state.SkipWithError("stream ended");
      break;
    }
    memcpy(&header, head.data(), sizeof header);
    if (pc.Receive(header.size).size() != header.size) {
      state.SkipWithError("frame cut short");
      break;
    }
    // What the capture thread has analysed, and what still sits in the
    // buffers, as each frame arrives: the first and last of these bound the
    // window in which frames are counted.
    capturedAtLast = CameraFrameCount.load();
    heldAtLast = CameraAnalysisDeliverFrame_Inst.Full(0).load() + CameraAnalysisDeliverFrame_Inst.Full(1).load();
    if (first) {  // counted from the first frame on: capture start-up is not the stream's cost
      capturedBefore = capturedAtLast;
      waitingAtFirst = header.backlog;
      cpuBefore = ThreadCpuSeconds(server);
      first = false;
    } else {
      ++delivered;
      waiting += header.backlog;
    }
    std::this_thread::sleep_for(pcDelay);
    pc.SendWord(KavriCameraFrameAck);
  }
  uint32_t captured = capturedAtLast - capturedBefore;
  double cpu = ThreadCpuSeconds(server) - cpuBefore;
  xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
  CallLinkHandlerForCode(kavri::HandleStopCameraOnline, &stop, sizeof stop);
  WaitFor([] { return !CameraThreadRunning.load(); });
  state.counters["captured"] = captured;
  state.counters["delivered"] = double(delivered);
  state.counters["delivered_per_captured"] = captured ? double(delivered) / captured : 0;
  // Frames the capture thread dropped: those analysed in the window, less
  // those delivered, less those still held at its end, plus the one that was
  // already waiting (analysed before the window) when it opened.
  state.counters["dropped"] = double(int64_t(captured) - delivered - heldAtLast + waitingAtFirst);
  state.counters["mean_backlog"] = delivered ? double(waiting) / double(delivered) : 0;
  state.counters["server_cpu_us_per_frame"] = delivered ? 1e6 * cpu / double(delivered) : 0;
}

BENCHMARK(BM_CameraFramesDeliveredPerCaptured)
    ->Arg(0)
    ->Arg(50)
    ->Iterations(150)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
