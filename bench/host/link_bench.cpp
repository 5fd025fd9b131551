// Status queries per second over loopback, against a bare TCP server that
// answers the same 4 bytes with the same 24 bytes: the ratio is what the
// controller's own path costs on top of the network stack.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "ControllerProcess.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"

namespace {

constexpr size_t kReplySize = sizeof(xoIF2013Reply_QueryStatus);

[[noreturn]] void RunEchoServer(int port) {
  int listener = ListenOnLoopback(port);
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
  ControllerProcess controller;
  if (!controller.WaitUntilListening()) {
    state.SkipWithError("controller did not start");
    return;
  }
  int echoPort = FindFreePort();
  pid_t echo = fork();
  if (echo == 0) RunEchoServer(echoPort);
  WaitFor([&] { return PortIsListening(echoPort); });
  TestClient statusClient(controller.port());
  TestClient echoClient(echoPort);
  double statusSeconds = 0, echoSeconds = 0;
  for (auto _ : state) {
    statusSeconds += RoundTripSeconds(statusClient);
    echoSeconds += RoundTripSeconds(echoClient);
  }
  kill(echo, SIGKILL);
  waitpid(echo, nullptr, 0);
  double iterations = static_cast<double>(state.iterations());
  state.counters["status_us"] = 1e6 * statusSeconds / iterations;
  state.counters["echo_us"] = 1e6 * echoSeconds / iterations;
  state.counters["status_per_s"] = iterations / statusSeconds;
  state.counters["ratio"] = statusSeconds / echoSeconds;
}

BENCHMARK(BM_StatusQueryAgainstEcho)->MinTime(2.0)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
