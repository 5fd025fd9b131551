// The display thread at rest, and the way from a finger to the program.
//
// IdlePage: CPU time of the display thread while a built page with a text
// window waits for the program, as a share of one core, against a bare
// thread that only sleeps the same 50 ms steps.
// PressToVariable: an injected press until the program's change flag is set,
// against a send_uev round trip (a queued call setting a flag) in the same run.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "display/VekWidgets.h"
#include "kavri/DisplayWidgets.h"
#include "sdlwidgets/SDLWidgets.h"
#include "sdlwidgets/SDLWidgetsSim.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Program {
  DisplayWidgetButton button{};
  char more[16]{};  // the label runs on past the record's own bytes
  DisplayWidgetText text{};
  uint16_t chars[2 * 10]{};
  int16_t textChanged = 0;
  int16_t value = 0, changed = 0;
  uint8_t flag = 0;
  int16_t page = 0;

  Program() {
    button.base = DisplayWidgetBase{DisplayWidgetTypeButton, &text.base, 0, 0, 4, 4, 60, 12};
    button.valueLeft = button.valueRight = 1;
    button.valueVar = &value, button.changedVar = &changed, button.changeFlag = &flag;
    button.text[0] = 'G', button.text[1] = 'o';
    text.base = DisplayWidgetBase{DisplayWidgetTypeText, nullptr, 0, 0, 4, 20, 100, 20};
    text.columns = 10, text.lines = 2, text.chars = chars, text.textChangedVar = &textChanged;
    for (uint16_t& c : chars) c = 'x';
  }
};

double ThreadCpuSeconds(pthread_t thread) {
  clockid_t clock;
  timespec t{};
  if (pthread_getcpuclockid(thread, &clock) != 0 || clock_gettime(clock, &t) != 0) return 0;
  return t.tv_sec + t.tv_nsec * 1e-9;
}

// Starts the display on a fresh program; stops it when it goes.
class RunningDisplay {
 public:
  RunningDisplay() {
    struct stat st;
    if (stat(DisplayFontFile, &st) != 0) DisplayFontFile = "/usr/share/fonts/truetype/liberation/LiberationMono-Bold.ttf";
    const uint32_t loops = DisplayPageLoops.load();
    DisplaySetup(&program.button.base, &program.page);
    StartThreadDisplay();
    // Built once the page loop has run and the page's redraw is done.
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (DisplayPageLoops.load(std::memory_order_acquire) == loops && Clock::now() < deadline) usleep(1000);
    SDLWidgetsSim_WaitIdle(5000);
  }
  ~RunningDisplay() { StopThreadDisplay(); }
  Program program;
};

void IdlePage(benchmark::State& state) {
  RunningDisplay display;
  double displayShare = 0, sleeperShare = 0;
  int rounds = 0;
  for (auto _ : state) {
    std::atomic<bool> stop{false};
    std::thread sleeper([&] {
      while (!stop.load()) usleep(50000);
    });
    const double displayStart = ThreadCpuSeconds(ThreadDisplay);
    const double sleeperStart = ThreadCpuSeconds(sleeper.native_handle());
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    displayShare += (ThreadCpuSeconds(ThreadDisplay) - displayStart) / wall;
    sleeperShare += (ThreadCpuSeconds(sleeper.native_handle()) - sleeperStart) / wall;
    stop.store(true);
    sleeper.join();
    ++rounds;
  }
  state.counters["display_core_pct"] = 100 * displayShare / rounds;
  state.counters["sleeper_core_pct"] = 100 * sleeperShare / rounds;
  state.counters["x_sleeper"] = sleeperShare > 0 ? displayShare / sleeperShare : 0;
}

std::atomic<bool> roundTripDone{false};
void MarkDone(WinBase*, void*) { roundTripDone.store(true, std::memory_order_release); }

template <class Poll>
bool SpinUntil(Poll poll) {
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  while (!poll())
    if (Clock::now() > deadline) return false;
  return true;
}

void PressToVariable(benchmark::State& state) {
  RunningDisplay display;
  std::atomic_ref<uint8_t> flag(display.program.flag);
  double pressNs = 0, roundTripNs = 0;
  int rounds = 0;
  for (auto _ : state) {
    flag.store(0);
    auto start = Clock::now();
    SDLWidgetsSim_Press(20, 64 + 30);
    if (!SpinUntil([&] { return flag.load(std::memory_order_acquire) != 0; })) state.SkipWithError("no report");
    pressNs += std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    SDLWidgetsSim_Release(20, 64 + 30);
    SDLWidgetsSim_WaitIdle(5000);

    roundTripDone.store(false);
    start = Clock::now();
    send_uev(MarkDone, nullptr, nullptr);
    if (!SpinUntil([] { return roundTripDone.load(std::memory_order_acquire); })) state.SkipWithError("no call");
    roundTripNs += std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    SDLWidgetsSim_WaitIdle(5000);
    ++rounds;
  }
  state.counters["press_us"] = pressNs / rounds / 1000;
  state.counters["send_uev_us"] = roundTripNs / rounds / 1000;
  state.counters["x_send_uev"] = pressNs / roundTripNs;
}

}  // namespace

BENCHMARK(IdlePage)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(PressToVariable)->Iterations(200)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
