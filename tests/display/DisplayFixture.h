// A program's widget description built in the test, handed to the display
// thread, and touches on the stand-in screen.
#ifndef KAVRI_TESTS_DISPLAYFIXTURE_H
#define KAVRI_TESTS_DISPLAYFIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <deque>
#include <vector>

#include "WaitFor.h"
#include "display/VekWidgets.h"
#include "kavri/DisplayWidgets.h"
#include "kavri/KavriLib.h"
#include "sdlwidgets/SDLWidgetsSim.h"

constexpr int kPageTop = 64;  // screen row of a page's top

// The font where the controller keeps it, else where Debian does.
inline const char* TestFontFile() {
  struct stat st;
  return stat(DisplayFontFile, &st) == 0 ? DisplayFontFile
                                         : "/usr/share/fonts/truetype/liberation/LiberationMono-Bold.ttf";
}

// What a widget writes back, as the program's variables.
struct ProgramVars {
  int16_t value = -1;
  int16_t changed = 0;
  uint8_t flag = 0;
  int16_t Value() const { return std::atomic_ref<const int16_t>(value).load(); }
  bool Reported() const { return std::atomic_ref<const uint8_t>(flag).load() != 0; }
  // Reported `v` since the last Clear.
  testing::AssertionResult Reports(int16_t v) const {
    if (Reported() && Value() == v) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "reported " << Reported() << ", value " << Value() << ", expected " << v;
  }
  void Clear() {
    std::atomic_ref<int16_t>(changed).store(0);
    std::atomic_ref<uint8_t>(flag).store(0);
  }
};

// Records live in blocks that never move; each is linked to the one before.
class DescriptionList {
 public:
  DisplayWidgetBase* head() { return blocks_.empty() ? nullptr : &blocks_.front().base; }

  DisplayWidgetButton* Button(int page, int x, int y, int w, int h, const char* text, ProgramVars& vars,
                              int16_t left = 11, int16_t right = 22, bool toggle = false, int16_t initial = 0) {
    auto* d = Add<DisplayWidgetButton>(DisplayWidgetTypeButton, page, x, y, w, h);
    d->toggle = toggle, d->initialState = initial, d->valueLeft = left, d->valueRight = right;
    Bind(d, vars);
    strcpy(reinterpret_cast<char*>(d) + offsetof(DisplayWidgetButton, text), text);
    return d;
  }
  DisplayWidgetSlider* Slider(int page, int x, int y, int w, int h, int16_t min, int16_t max, int16_t initial,
                              ProgramVars& vars) {
    auto* d = Add<DisplayWidgetSlider>(DisplayWidgetTypeSlider, page, x, y, w, h);
    d->minimum = min, d->maximum = max, d->initialValue = initial, d->sliderOption = 4;
    Bind(d, vars);
    return d;
  }
  DisplayWidgetText* Text(int page, int x, int y, int w, int h, int columns, int lines, uint16_t* chars,
                          int16_t* changed) {
    auto* d = Add<DisplayWidgetText>(DisplayWidgetTypeText, page, x, y, w, h);
    d->columns = columns, d->lines = lines, d->chars = chars, d->textChangedVar = changed;
    return d;
  }
  DisplayWidgetBase* Rect(int page, int x, int y, int w, int h) {
    return Add<DisplayWidgetBase>(DisplayWidgetTypeRect, page, x, y, w, h);
  }
  DisplayWidgetLine* Line(int page, int16_t x1, int16_t y1, int16_t x2, int16_t y2) {
    auto* d = Add<DisplayWidgetLine>(DisplayWidgetTypeLine, page, 0, 0, 128, 64);
    d->x1 = x1, d->y1 = y1, d->x2 = x2, d->y2 = y2;
    return d;
  }
  template <class Record>
  Record* Add(int type, int page, int x, int y, int w, int h) {
    Block& block = blocks_.emplace_back();
    if (blocks_.size() > 1) blocks_[blocks_.size() - 2].base.next = &block.base;
    block.base = DisplayWidgetBase{type, nullptr, page, 0, x, y, w, h};
    return reinterpret_cast<Record*>(&block);
  }

 private:
  union Block {
    DisplayWidgetBase base;
    unsigned char bytes[160];
    Block() : bytes{} {}
  };
  template <class Record>
  static void Bind(Record* d, ProgramVars& vars) {
    d->valueVar = &vars.value, d->changedVar = &vars.changed, d->changeFlag = &vars.flag;
  }
  std::deque<Block> blocks_;
};

class DisplayTest : public testing::Test {
 protected:
  void SetUp() override { DisplayFontFile = TestFontFile(); }

  void TearDown() override {
    EXPECT_EQ(StopThreadDisplay(), 1);
    EXPECT_TRUE(SDLWidgetsSim_WaitIdle(5000));
  }

  // Hands the list over and waits until the pages are built.
  void Start() {
    const uint32_t loops = DisplayPageLoops.load();
    DisplaySetup(list.head(), &page);
    ASSERT_EQ(StartThreadDisplay(), 1);
    ASSERT_TRUE(WaitFor([&] { return DisplayPageLoops.load(std::memory_order_acquire) > loops; }));
    ASSERT_TRUE(SDLWidgetsSim_WaitIdle(5000));
  }

  // Lets the page loop run `passes` more times, so that what it would do it has done.
  void LetLoopRun(uint32_t passes = 2) {
    const uint32_t until = DisplayPageLoops.load() + passes;
    ASSERT_TRUE(WaitFor([&] { return DisplayPageLoops.load(std::memory_order_acquire) >= until; }));
    ASSERT_TRUE(SDLWidgetsSim_WaitIdle(5000));
  }

  void SetPage(int16_t value) { std::atomic_ref<int16_t>(page).store(value); }
  static void Touch(void (*action)(int, int), int x, int y) {
    action(x, y);
    ASSERT_TRUE(SDLWidgetsSim_WaitIdle(5000));
  }
  static void Tap(int x, int y) { Touch(SDLWidgetsSim_Press, x, y), Touch(SDLWidgetsSim_Release, x, y); }
  WinBase* Widget(int pageIndex, size_t child) { return DisplayPages[pageIndex]->children().at(child); }

  DescriptionList list;
  int16_t page = 0;
};

#endif
