// What the browser panel costs a controller: how long a program's display
// update takes to leave the server as an event, against the I/O cycle period
// measured in the same run, and the panel's CPU time with one browser
// attached, as a share of one core.
//
// A program stand-in runs on the I/O library's cycle: every tenth cycle it
// draws a number and asks for a display update, and it changes an output.
// The same program runs first without the panel, then with the panel and one
// event stream reading on loopback; the difference in the process' CPU time,
// less the reading thread's own, is the panel's.
#include <httplib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DisplayWatcher.h"
#include "PanelHost.h"
#include "kavri/MotorIOLib.h"
#include "kavri/TextGrph.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kRun = std::chrono::seconds(10);
constexpr uint32_t kCyclesPerDraw = 10;

std::atomic<uint32_t> cycles{0};
std::atomic<bool> recordDraws{false};
std::mutex drawMutex;  // the bench's own bookkeeping, not a hand-over of the library
std::vector<Clock::time_point> draws;

bool Program(shm_if_s* area, int) {
  const uint32_t cycle = cycles.fetch_add(1, std::memory_order_relaxed);
  if (cycle == 0) TextGrph_Intl(area);
  std::atomic_ref<uint16_t>(area->OutputValues[0]).store(uint16_t(cycle), std::memory_order_relaxed);
  if (cycle % kCyclesPerDraw) return true;
  uint8_t digits[8];
  for (int i = 7, n = int(cycle); i >= 0; --i, n /= 10) digits[i] = uint8_t('0' + n % 10);
  TextGrph_ClearHome();
  TextGrph_GotoXY(32, 28);
  TextGrph_PrintArrayUC(digits, 8);
  if (TextGrph_Update() == 0 && recordDraws.load(std::memory_order_relaxed)) {
    std::lock_guard lock(drawMutex);
    draws.push_back(Clock::now());
  }
  return true;
}

double ProcessCpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double ThreadCpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return double(t.tv_sec) + t.tv_nsec / 1e9;
}

double Seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

}  // namespace

int main() {
  MotorIOLib_SetCallbackIO(Program);
  MotorIOLib_StartThreads();

  // Without the panel.
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const uint32_t cycles0 = cycles.load();
  const double cpu0 = ProcessCpuSeconds();
  const auto start0 = Clock::now();
  std::this_thread::sleep_for(kRun);
  const double wall0 = Seconds(Clock::now() - start0);
  const double baseShare = (ProcessCpuSeconds() - cpu0) / wall0;
  const uint32_t baseCycles = cycles.load() - cycles0;
  const double cycleMs = 1000 * wall0 / double(baseCycles);

  // With the panel and one reader.
  StartDisplayWatcher(PanelDisplayFrame);
  const int port = StartPanel("127.0.0.1", 0);
  if (port < 0) return 1;
  std::atomic<bool> stop{false};
  std::vector<Clock::time_point> received;
  double readerCpu = 0;
  const double cpu1 = ProcessCpuSeconds();
  const auto start1 = Clock::now();
  recordDraws = true;
  std::thread reader([&] {
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(10);
    client.Get("/events", [&](const char* data, size_t size) {
      const auto now = Clock::now();
      for (std::string_view text(data, size); text.find("event: display\n") != std::string_view::npos;
           text.remove_prefix(text.find("event: display\n") + 1))
        received.push_back(now);
      return !stop.load();
    });
    readerCpu = ThreadCpuSeconds();
  });
  std::this_thread::sleep_for(kRun);
  stop = true;
  reader.join();  // the next display event ends its read within a tenth of a second
  const double wall1 = Seconds(Clock::now() - start1);
  const double panelShare = (ProcessCpuSeconds() - cpu1 - readerCpu) / wall1 - baseShare;
  recordDraws = false;

  std::vector<double> latencies;
  {
    std::lock_guard lock(drawMutex);
    for (auto drawn : draws) {
      auto first = std::lower_bound(received.begin(), received.end(), drawn);
      if (first != received.end()) latencies.push_back(1000 * Seconds(*first - drawn));
    }
  }
  printf("I/O cycle period: %.2f ms (%u cycles in %.1f s)\n", cycleMs, baseCycles, wall0);
  printf("display update to event received on loopback, %zu updates: median %.2f ms (p10 %.2f, p90 %.2f) = %.2f "
         "cycles\n",
         latencies.size(), Percentile(latencies, 0.5), Percentile(latencies, 0.1), Percentile(latencies, 0.9),
         Percentile(latencies, 0.5) / cycleMs);
  printf("panel CPU with one stream: %.2f %% of one core (process %.2f %% without the panel; reader's %.2f %% "
         "left out)\n",
         100 * panelShare, 100 * baseShare, 100 * readerCpu / wall1);
  MotorIOLib_StopThreads();
  FlushPanelOutput();
  fflush(nullptr);
  _exit(0);  // the panel's threads live as long as the process, as in the host
}
