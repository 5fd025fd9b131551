// A 4 MiB download over loopback against a bare server that takes the same
// bytes and answers the same 4: the ratio is what the controller's own path
// (prefill, per-read log line) costs on top of the network stack. And the
// time from the start code reply to the program's first time slice, against
// one I/O cycle.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>

#include "ControllerProcess.h"
#include "ProgramImage.h"
#include "PairedTiming.h"
#include "TestClient.h"
#include "kavri/LinkProtocol.h"
#include "motoriolib/MotorIOLibSim.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void RunSinkServer(int listener, size_t commandSize) {
  // The controller's server raises its priority the same way; on a busy
  // machine the comparison is otherwise one of priorities.
  if (nice(-10) == -1) perror("nice");
  // Reads as the controller does: into one buffer the size of the code,
  // each read asking for all that is missing.
  std::vector<uint8_t> buffer(commandSize);
  const uint32_t reply = KavriReplyDownloadCode;
  for (;;) {
    int fd = accept(listener, nullptr, nullptr);
    for (;;) {
      size_t total = 0;
      while (total < commandSize) {
        ssize_t count = read(fd, buffer.data() + total, commandSize - total);
        if (count <= 0) break;
        total += static_cast<size_t>(count);
      }
      if (total < commandSize || write(fd, &reply, sizeof reply) != sizeof reply) break;
    }
    close(fd);
  }
}

double TransferSeconds(TestClient& client, const std::vector<uint8_t>& command) {
  auto start = Clock::now();
  client.Send(command.data(), command.size());
  if (client.Receive(4).size() != 4) abort();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void BM_Download4MiBAgainstRawTransfer(benchmark::State& state) {
  ControllerProcess controller;
  if (!controller.WaitUntilListening()) return state.SkipWithError("controller did not start");
  std::vector<uint8_t> code(KAVRI_AREA_SIZE);
  for (size_t i = 0; i < code.size(); ++i) code[i] = static_cast<uint8_t>(i * 2654435761u >> 24);
  const std::vector<uint8_t> command = DownloadCommandBytes("bench", true, code);
  int sinkPort = 0, listener = -1;
  while (listener < 0) listener = ListenOnLoopback(sinkPort = FindFreePort());
  pid_t sink = fork();
  if (sink == 0) RunSinkServer(listener, command.size());
  close(listener);
  TestClient download(controller.port());
  TestClient raw(sinkPort);
  const PairedSeconds seconds = TimeInTurns(
      state, [&] { return TransferSeconds(download, command); }, [&] { return TransferSeconds(raw, command); });
  EndReference(sink);
  state.counters["download_ms"] = 1e3 * seconds.measured / seconds.iterations;
  state.counters["raw_ms"] = 1e3 * seconds.reference / seconds.iterations;
  state.counters["download_MiB_per_s"] = seconds.iterations * 4 / seconds.measured;
  state.counters["raw_over_download"] = seconds.reference / seconds.measured;
}

// Shared with the forked controller: when the program's first slice ran.
std::atomic<int64_t>* firstSliceNanoseconds;

int64_t NowNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

int32_t RecordFirstSlice() {
  int64_t expected = 0;
  firstSliceNanoseconds->compare_exchange_strong(expected, NowNanoseconds());
  return 0x7FFF;
}

void BM_StartReplyToFirstSlice(benchmark::State& state) {
  void* shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  firstSliceNanoseconds = new (shared) std::atomic<int64_t>(0);
  ControllerProcess controller;
  if (!controller.WaitUntilListening()) return state.SkipWithError("controller did not start");
  TestClient client(controller.port());
  const std::vector<uint8_t> command = DownloadCommandBytes("bench", true, ImageJumpingTo(RecordFirstSlice));
  TransferSeconds(client, command);
  double fromReply = 0, fromRequest = 0;
  for (auto _ : state) {
    // The previous run is stopped outside the timing, so that only the
    // start itself is measured.
    state.PauseTiming();
    client.SendWord(KavriCmdStopCode);
    if (client.Receive(4).size() != 4) abort();
    firstSliceNanoseconds->store(0);
    state.ResumeTiming();
    int64_t sent = NowNanoseconds();
    client.SendWord(KavriCmdStartCode);
    if (client.Receive(sizeof(xoIF2013Reply_StartCode)).size() != sizeof(xoIF2013Reply_StartCode)) abort();
    int64_t replied = NowNanoseconds();
    if (!WaitFor([] { return firstSliceNanoseconds->load() != 0; }, std::chrono::seconds(10)))
      return state.SkipWithError("the program never ran");
    fromReply += double(firstSliceNanoseconds->load() - replied);
    fromRequest += double(firstSliceNanoseconds->load() - sent);
  }
  munmap(shared, 4096);
  double iterations = static_cast<double>(state.iterations());
  state.counters["reply_to_slice_ms"] = fromReply / iterations / 1e6;
  state.counters["request_to_slice_ms"] = fromRequest / iterations / 1e6;
  state.counters["request_to_slice_in_cycles"] = fromRequest / iterations / 1e6 / MOTORIOLIB_SIM_CYCLE_MS;
}

BENCHMARK(BM_Download4MiBAgainstRawTransfer)->MinTime(2.0)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StartReplyToFirstSlice)->MinTime(2.0)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
