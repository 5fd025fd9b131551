// Widget descriptions as a program hands them to DisplaySetup: up to eight
// records of any type, fields and list order chosen by the fuzzer (a list
// may loop back on itself), built into pages by the display thread on the
// stand-in widget library, shown, touched, and torn down again.
//
// What the program owns is valid, as in a program that compiles: every
// variable pointer names a variable of its own, a text window's characters
// are lines x columns entries when both are in the range the library shows,
// and a button's label may run to the end of its record's room unterminated.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "FuzzInput.h"
#include "display/VekWidgets.h"
#include "kavri/DisplayWidgets.h"
#include "sdlwidgets/SDLWidgetsSim.h"

namespace {

constexpr int kMostRecords = 8;
constexpr int kMostTouches = 4;
constexpr size_t kRecordRoom = sizeof(DisplayWidgetButton) + kDisplayMaxLabel + 1;

// The program's memory for one input, each piece its own allocation so that
// an access past one is caught.
struct Program {
  std::vector<std::unique_ptr<uint8_t[]>> records;
  std::vector<std::unique_ptr<int16_t>> vars;
  std::vector<std::unique_ptr<uint8_t>> flags;
  std::vector<std::unique_ptr<uint16_t[]>> texts;
  int16_t page = 0;

  int16_t* Var() {
    vars.emplace_back(new int16_t(0));
    return vars.back().get();
  }
  uint8_t* Flag() {
    flags.emplace_back(new uint8_t(0));
    return flags.back().get();
  }
  // A button's or slider's variables.
  template <class Description>
  void Bind(Description* d) {
    d->valueVar = Var();
    d->changedVar = Var();
    d->changeFlag = Flag();
  }
};

void MakeValid(DisplayWidgetBase* d, Program& program) {
  switch (d->type) {
    case DisplayWidgetTypeButton:
      program.Bind(reinterpret_cast<DisplayWidgetButton*>(d));
      break;
    case DisplayWidgetTypeSlider:
      program.Bind(reinterpret_cast<DisplayWidgetSlider*>(d));
      break;
    case DisplayWidgetTypeText: {
      auto* text = reinterpret_cast<DisplayWidgetText*>(d);
      bool shown = text->lines >= 0 && text->lines <= kDisplayMaxTextLines && text->columns >= 0 &&
                   text->columns <= kDisplayMaxTextColumns;
      size_t count = shown ? size_t(text->lines) * size_t(text->columns) : 0;
      program.texts.emplace_back(new uint16_t[count + 1]);
      for (size_t i = 0; i <= count; ++i) program.texts.back()[i] = uint16_t('A' + i % 26);
      // The header's unused word chooses a window without characters.
      text->chars = (d->unused & 1) ? nullptr : program.texts.back().get();
      text->textChangedVar = program.Var();
      break;
    }
  }
}

// The deadlines catch a hang, not slowness: a long run at the lowest
// priority on a busy machine may wait many seconds for a few milliseconds
// of CPU.
constexpr auto kHang = std::chrono::seconds(120);

bool WaitForLoops(uint32_t until) {
  auto deadline = std::chrono::steady_clock::now() + kHang;
  while (DisplayPageLoops.load(std::memory_order_acquire) < until) {
    if (!DisplayThreadRunning.load() || std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

bool WaitUntilEnded() {
  auto deadline = std::chrono::steady_clock::now() + kHang;
  while (DisplayThreadRunning.load()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!freopen("/dev/null", "w", stdout)) return 1;
  struct stat info;
  if (stat(DisplayFontFile, &info) != 0) DisplayFontFile = "/usr/share/fonts/truetype/liberation/LiberationMono-Bold.ttf";
  // Each input waits for page-loop passes; at the controller's 50 ms most of
  // an input's time would be sleep.
  DisplayStepMicroseconds.store(1000);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  Program program;
  int count = int(in.Below(kMostRecords)) + 1;
  std::vector<int> nextOf(count);
  for (int i = 0; i < count; ++i) {
    program.records.emplace_back(new uint8_t[kRecordRoom]);
    uint8_t* record = program.records.back().get();
    for (size_t b = 0; b < kRecordRoom; ++b) record[b] = in.Take<uint8_t>();
    auto* d = reinterpret_cast<DisplayWidgetBase*>(record);
    d->type = int32_t(uint32_t(d->type) % 6);  // 5: a type no widget has
    // Mostly the next record in order, sometimes one earlier: a loop.
    uint8_t link = in.Take<uint8_t>();
    nextOf[i] = link < 200 ? i + 1 : link % count;
    MakeValid(d, program);
  }
  for (int i = 0; i < count; ++i) {
    auto* d = reinterpret_cast<DisplayWidgetBase*>(program.records[i].get());
    d->next = nextOf[i] < count ? reinterpret_cast<DisplayWidgetBase*>(program.records[nextOf[i]].get()) : nullptr;
  }
  program.page = in.Take<int16_t>();

  uint32_t loops = DisplayPageLoops.load();
  DisplaySetup(reinterpret_cast<DisplayWidgetBase*>(program.records[0].get()), &program.page);
  FUZZ_CHECK(StartThreadDisplay() == 1);
  // Built and shown, or ended for want of a font.
  if (WaitForLoops(loops + 1)) {
    int touches = int(in.Below(kMostTouches + 1));
    for (int t = 0; t < touches; ++t) {
      int x = in.Take<uint8_t>() % 240, y = in.Take<uint16_t>() % 320;
      SDLWidgetsSim_Press(x, y);
      SDLWidgetsSim_Move(x + in.Take<int8_t>(), y + in.Take<int8_t>());
      SDLWidgetsSim_Release(x, y);
    }
    // Another page, and every text window told to refresh.
    std::atomic_ref<int16_t>(program.page).store(in.Take<int16_t>());
    for (auto& var : program.vars) std::atomic_ref<int16_t>(*var).store(1);
    FUZZ_CHECK(WaitForLoops(DisplayPageLoops.load() + 1));
  }
  // The stop protocol gives up after 1 s, which a starved machine may
  // overrun even for eight widgets; what must hold is that the thread ends.
  if (!StopThreadDisplay()) FUZZ_CHECK(WaitUntilEnded());
  // Handlers queued on the widget library's thread may still name the
  // program's variables.
  FUZZ_CHECK(SDLWidgetsSim_WaitIdle(std::chrono::milliseconds(kHang).count()));
  return 0;
}
