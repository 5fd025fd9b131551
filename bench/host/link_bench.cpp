// Status queries per second over loopback, against a bare TCP server that
// answers the same 4 bytes with the same 24 bytes: the ratio is what the
// controller's own path costs on top of the network stack. It is measured
// with the controller's standard output buffered, as a service's is, and
// unbuffered, as the tests keep it (two writes to a file per command).
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "ControllerProcess.h"
#include "PairedTiming.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

namespace {

constexpr size_t kReplySize = sizeof(xoIF2013Reply_QueryStatus);

// The controller's link thread raises its priority (nice -10); the echo
// server does the same, or on a busy machine the ratio measures who the
// scheduler prefers rather than what either does per command.
[[noreturn]] void RunEchoServer(int listener) {
  if (nice(-10) == -1) perror("echo server nice");
  uint8_t reply[kReplySize] = {};
  for (;;) {
    int fd = accept(listener, nullptr, nullptr);
    uint32_t word;
    while (read(fd, &word, sizeof word) == sizeof word) {
      if (write(fd, reply, sizeof reply) != sizeof reply) break;
    }
    close(fd);
  }
}

double RoundTripSeconds(TestClient& client) {
  auto start = std::chrono::steady_clock::now();
  client.SendWord(KavriCmdQueryStatus);
  if (client.Receive(kReplySize).size() != kReplySize) abort();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_StatusQueryAgainstEcho(benchmark::State& state) {
  const bool buffered = state.range(0) != 0;
  state.SetLabel(buffered ? "log buffered, as in service" : "log unbuffered, as the tests keep it");
  ControllerProcess controller({.bufferedOutput = buffered});
  if (!controller.WaitUntilListening()) {
    state.SkipWithError("controller did not start");
    return;
  }
  // Bound before the fork on a port of the kernel's choice: nothing can take it.
  int listener = ListenOnLoopback(0);
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &length);
  const int echoPort = ntohs(bound.sin_port);
  pid_t echo = fork();
  if (echo == 0) RunEchoServer(listener);
  close(listener);
  TestClient statusClient(controller.port());
  TestClient echoClient(echoPort);
  const PairedSeconds seconds = TimeInTurns(
      state, [&] { return RoundTripSeconds(statusClient); }, [&] { return RoundTripSeconds(echoClient); });
  EndReference(echo);
  state.counters["status_us"] = 1e6 * seconds.measured / seconds.iterations;
  state.counters["echo_us"] = 1e6 * seconds.reference / seconds.iterations;
  state.counters["status_per_s"] = seconds.iterations / seconds.measured;
  state.counters["ratio"] = seconds.measured / seconds.reference;
}

BENCHMARK(BM_StatusQueryAgainstEcho)->Arg(1)->Arg(0)->MinTime(2.0)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
