// The display thread: waits for the program's widget description, builds its
// pages on the widget library and follows the program's page variable until
// asked to stop. What the user does comes back through the handlers, which
// run on the widget library's own thread.
#include "kavri/DisplayWidgets.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "display/VekWidgets.h"
#include "host/ThreadStop.h"
#include "host/KavriState.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kFontSize = 20;
constexpr uint32_t kTextColour = 0xFFFFFFFF;
constexpr int kSliderKnob = 24;

// Page windows sit below the screen's top 64 rows.
const Rect kPageRect(0, 64, 240, 256);

}  // namespace

// Styles, built once when the library is loaded.
AreaFillSolid xoTopWinBackground(0x0066CCFF);
StrokeDrawNull xoTopWindowBorder;
WinStyle xoTopWinStyle(&xoTopWinBackground, &xoTopWindowBorder);

AreaFillGradientAB xoButtonFill(0x5D9D57FF, 0x88BA67FF, 2, 0);
StrokeDraw3D xoButtonStroke(0xBBCCDEFF, 0x074382FF, 0x0066CCFF);
AreaFillSolid xoButtonFillDown(0x5D9D57FF);
StrokeDraw3D xoButtonStrokeDown(0x074382FF, 0xBBCCDEFF, 0x0066CCFF);
ButtonStyle xoButtonStyle(&xoButtonFill, &xoButtonStroke, &xoButtonFillDown, &xoButtonStrokeDown);

AreaFillSolid xoSlideFill(0x0066CCFF);
StrokeDraw3D xoSlideStroke(0xBBCCDEFF, 0x074382FF, 0x0066CCFF);
AreaFillGradientAB xoSliderFill(0x5D9D57FF, 0x88BA67FF, 2, 0);
StrokeDraw3D xoSliderStroke(0xBBCCDEFF, 0x074382FF, 0x0066CCFF);
StrokeDrawSimple xoSliderTickStroke(0x5298DFFF);
SliderStyle xoSliderStyle(&xoSlideFill, &xoSlideStroke, &xoSliderFill, &xoSliderStroke, &xoSliderTickStroke, nullptr);

AreaFillSolid xoTextFill(0x0066CCFF);
StrokeDrawNull xoTextStroke;
WinStyle xoTextStyle(&xoTextFill, &xoTextStroke);

AreaFillNull xoRectFill;
StrokeDrawSimple xoRectStroke(0xBBCCDEFF);
WinStyle xoRectStyle(&xoRectFill, &xoRectStroke);

BackgroundWin** DisplayPages = nullptr;
int DisplayPageCount = 0;
std::atomic<uint32_t> DisplayPageLoops{0};
std::atomic<uint32_t> DisplayStepMicroseconds{50000};

namespace {

// Kept from the first run to the end of the process.
TTF_Font* DisplayFont = nullptr;
RenderText* DisplayTextRenderer = nullptr;

// Program units to screen pixels, with the controller's 32-bit wrap-around.
int ScreenX(int32_t units) { return static_cast<int32_t>(static_cast<uint32_t>(units) * 15u) >> 3; }
int ScreenY(int32_t units) { return static_cast<int16_t>(static_cast<uint32_t>(units) * 4u); }

Rect ScreenRect(const DisplayWidgetBase* d) { return Rect(ScreenX(d->x), ScreenY(d->y), ScreenX(d->w), ScreenY(d->h)); }

// The program's variables are read and written while the program runs, so
// every access is atomic; the change marks go last so that a program that
// sees them also sees the value.
template <class T>
void StoreProgram(T* variable, T value, std::memory_order order = std::memory_order_relaxed) {
  if (variable) std::atomic_ref<T>(*variable).store(value, order);
}

template <class Description>
void Report(Description* d, int16_t value) {
  StoreProgram<int16_t>(d->valueVar, value);
  StoreProgram<int16_t>(d->changedVar, 1, std::memory_order_release);
  StoreProgram<uint8_t>(d->changeFlag, 1, std::memory_order_release);
}

template <class VekButtonClass>
void ReportButton(VekButtonClass* button, int x) {
  const int down = button->is_down() ? 1 : 0;
  if (down == button->lastState) return;
  int16_t value = 0;
  if (down) {
    const SDL_Rect r = button->screen_rect();
    value = x < r.x + r.w / 2 ? button->description->valueLeft : button->description->valueRight;
  }
  Report(button->description, value);
  button->lastState = down;
}

template <class VekSliderClass>
void ReportSlider(VekSliderClass* slider) {
  const int value = slider->get_value();
  if (value == slider->lastValue) return;
  Report(slider->description, static_cast<int16_t>(value));
  slider->lastValue = value;
}

// A button's label from the program, which may have forgotten its end.
LabelText* ButtonLabel(const DisplayWidgetButton* d) {
  char text[kDisplayMaxLabel + 1];
  const size_t n = strnlen(d->text, kDisplayMaxLabel);
  memcpy(text, d->text, n);
  text[n] = 0;
  return new LabelText(text, DisplayTextRenderer, 0, 0, nullptr);
}

void CopyProgramText(VekLabelWin* window) {
  const uint16_t* chars = window->description->chars;
  for (int line = 0; line < window->lineCount; ++line) {
    char* out = window->lines[line];
    for (int column = 0; column < window->columns; ++column)
      out[column] = chars ? static_cast<char>(chars[line * window->columns + column] & 0xFF) : 0;
    out[window->columns] = 0;
  }
}

// Complaints about a description are made once per build.
class BuildComplaints {
 public:
  void Say(unsigned kind, const char* format, int a, int b) {
    if (said_ & kind) return;
    said_ |= kind;
    fprintf(stderr, format, a, b);
  }
  void Say(unsigned kind, const char* format, int a) { Say(kind, format, a, 0); }

 private:
  unsigned said_ = 0;
};

enum : unsigned { kTooLong = 1, kBadPage = 2, kBadText = 4, kLoops = 8 };

// How many descriptions the display takes from the list: up to the first
// that comes round again (a list that loops back on itself would otherwise
// be built over and over to the widget limit, and take longer to tear down
// than a stop waits), and at most kDisplayMaxWidgets.
int CountDescriptions(const DisplayWidgetBase* list, BuildComplaints& complaints) {
  std::unordered_set<const DisplayWidgetBase*> seen;
  int count = 0;
  for (const DisplayWidgetBase* d = list; d; d = d->next, ++count) {
    if (count == kDisplayMaxWidgets) {
      complaints.Say(kTooLong, "ERROR display description longer than %d widgets: the rest is ignored\n",
                     kDisplayMaxWidgets);
      break;
    }
    if (!seen.insert(d).second) {
      complaints.Say(kLoops, "ERROR display description loops back after %d widgets: the rest is ignored\n", count);
      break;
    }
  }
  return count;
}

// Calls visit(description) for the first `count` descriptions that are on
// a page the display builds.
template <class Visit>
void ForEachDescription(DisplayWidgetBase* list, int count, BuildComplaints& complaints, Visit visit) {
  DisplayWidgetBase* d = list;
  for (int i = 0; i < count; ++i, d = d->next) {
    if (d->page < 0 || d->page > kDisplayMaxPage) {
      complaints.Say(kBadPage, "ERROR display widget on page %d ignored: pages are 0 to %d\n", d->page, kDisplayMaxPage);
      continue;
    }
    visit(d);
  }
}

void BuildButton(BackgroundWin* page, DisplayWidgetButton* d) {
  const Rect rect = ScreenRect(&d->base);
  if (!d->toggle) {
    new VekButton(page, rect, d, ButtonLabel(d));
    return;
  }
  auto* button = new VekToggleButton(page, rect, d, ButtonLabel(d), d->initialState != 0);
  if (d->initialState != 0) {
    Report(d, d->initialState == 1 ? d->valueLeft : d->valueRight);
    button->lastState = 1;
  }
}

void BuildSlider(BackgroundWin* page, DisplayWidgetSlider* d) {
  Slider* slider;
  if (d->base.w <= d->base.h)
    slider = new VekVSlider(page, ScreenRect(&d->base), d);
  else
    slider = new VekHSlider(page, ScreenRect(&d->base), d);
  slider->set_value(d->initialValue);
}

void BuildText(BackgroundWin* page, DisplayWidgetText* d, BuildComplaints& complaints) {
  auto* window = new VekLabelWin(page, ScreenRect(&d->base), d);
  if (window->lineCount == 0 && d->lines != 0 && d->columns != 0)
    complaints.Say(kBadText, "ERROR display text window of %d lines of %d columns shown empty\n", d->lines, d->columns);
  CopyProgramText(window);
  StoreProgram<int16_t>(d->textChangedVar, 0);
  window->set_label(new LabelMargin(new LabelTextMulti(window->lines, window->lineCount, DisplayTextRenderer, -100, 0),
                                    3, 0, 0, 0));
}

void BuildWidget(BackgroundWin* page, DisplayWidgetBase* d, BuildComplaints& complaints) {
  switch (d->type) {
    case DisplayWidgetTypeButton:
      BuildButton(page, reinterpret_cast<DisplayWidgetButton*>(d));
      break;
    case DisplayWidgetTypeSlider:
      BuildSlider(page, reinterpret_cast<DisplayWidgetSlider*>(d));
      break;
    case DisplayWidgetTypeText:
      BuildText(page, reinterpret_cast<DisplayWidgetText*>(d), complaints);
      break;
    case DisplayWidgetTypeRect:
      new StaticRect(page, &xoRectStyle, ScreenRect(d));
      break;
    case DisplayWidgetTypeLine: {
      auto* line = reinterpret_cast<DisplayWidgetLine*>(d);
      new StaticLine(page, &xoRectStyle, ScreenRect(d), Point(ScreenX(line->x1), ScreenY(line->y1)),
                     Point(ScreenX(line->x2), ScreenY(line->y2)));
      break;
    }
    default:
      break;
  }
}

bool OpenFontOnce() {
  if (DisplayFont) return true;
  DisplayFont = TTF_OpenFont(DisplayFontFile, kFontSize);
  if (!DisplayFont) {
    // The message names another file than the one tried; programs and
    // people have long known it this way.
    printf("Failed to create font %s in size %d\n", "/usr/share/fonts/liberation/LiberationSans-BoldItalic.ttf",
           kFontSize);
    return false;
  }
  DisplayTextRenderer = new RenderText(DisplayFont, kTextColour);
  return true;
}

void BuildPages(DisplayWidgetBase* list) {
  BuildComplaints complaints;
  const int count = CountDescriptions(list, complaints);
  int highest = 0;
  ForEachDescription(list, count, complaints, [&](DisplayWidgetBase* d) { highest = std::max(highest, d->page); });
  DisplayPageCount = highest + 1;
  DisplayPages = new BackgroundWin*[DisplayPageCount];
  WinBase* top = SDLWidgets_GetTopWin();
  for (int page = 0; page < DisplayPageCount; ++page) {
    DisplayPages[page] = new BackgroundWin(top, &xoTopWinStyle, kPageRect);
    DisplayPages[page]->hidden.store(true);
  }
  ForEachDescription(list, count, complaints,
                     [&](DisplayWidgetBase* d) { BuildWidget(DisplayPages[d->page], d, complaints); });
}

void RefreshChangedTexts(BackgroundWin* page) {
  for (WinBase* child : page->children()) {
    auto* window = dynamic_cast<VekLabelWin*>(child);
    if (!window || !window->description->textChangedVar) continue;
    if (std::atomic_ref<int16_t>(*window->description->textChangedVar).load(std::memory_order_acquire) == 0) continue;
    CopyProgramText(window);
    StoreProgram<int16_t>(window->description->textChangedVar, 0);
    send_uev(DoUpdateWinInSdlWidgetsTask, window, nullptr);
  }
}

void RunPageLoop() {
  const int highest = DisplayPageCount - 1;
  auto valid = [highest](int page) { return page >= 0 && page <= highest; };
  int shown = -1;
  while (!DisplayThreadTerminate.load()) {
    int16_t* pageVar = DisplayId.load();
    const int page = pageVar ? std::atomic_ref<int16_t>(*pageVar).load(std::memory_order_acquire) : -1;
    const bool changed = page != shown;
    if (changed) {
      if (valid(shown)) DisplayPages[shown]->hidden.store(true);
      if (valid(page)) DisplayPages[page]->hidden.store(false);
      shown = page;
    }
    if (valid(page)) {
      RefreshChangedTexts(DisplayPages[page]);
      if (changed) send_uev(DoUpdateWinInSdlWidgetsTask, DisplayPages[page], nullptr);
    }
    DisplayPageLoops.fetch_add(1, std::memory_order_release);
    usleep(DisplayStepMicroseconds.load(std::memory_order_relaxed));
  }
}

void DeletePages() {
  for (int page = 0; page < DisplayPageCount; ++page) delete DisplayPages[page];
  delete[] DisplayPages;
  DisplayPages = nullptr;
  DisplayPageCount = 0;
}

void EndDisplayThread() {
  // SDL keeps its error text per thread and frees it only for its own threads.
  SDL_TLSCleanup();
  DisplayData.store(nullptr);
  DisplayId.store(nullptr);
  printf("Display thread terminated\n");
  DisplayThreadRunning.store(false);
}

}  // namespace

VekButton::VekButton(WinBase* parent, const Rect& rect, DisplayWidgetButton* d, Label* label)
    : Button(parent, &xoButtonStyle, rect, label, ButtonHandler), description(d) {}
VekButton::~VekButton() = default;

VekToggleButton::VekToggleButton(WinBase* parent, const Rect& rect, DisplayWidgetButton* d, Label* label, bool down)
    : ToggleButton(parent, &xoButtonStyle, rect, label, ToggleButtonHandler, down), description(d) {}
VekToggleButton::~VekToggleButton() = default;

VekHSlider::VekHSlider(WinBase* parent, const Rect& rect, DisplayWidgetSlider* d)
    : HSlider(parent, &xoSliderStyle, rect, kSliderKnob, d->minimum, d->maximum, d->sliderOption, HSliderHandler),
      description(d) {}
VekHSlider::~VekHSlider() = default;

VekVSlider::VekVSlider(WinBase* parent, const Rect& rect, DisplayWidgetSlider* d)
    : VSlider(parent, &xoSliderStyle, rect, kSliderKnob, d->minimum, d->maximum, d->sliderOption, VSliderHandler),
      description(d) {}
VekVSlider::~VekVSlider() = default;

VekLabelWin::VekLabelWin(WinBase* parent, const Rect& rect, DisplayWidgetText* d)
    : LabelWin(parent, &xoTextStyle, rect, nullptr), description(d) {
  if (d->lines < 0 || d->lines > kDisplayMaxTextLines || d->columns < 0 || d->columns > kDisplayMaxTextColumns) return;
  lineCount = d->lines;
  columns = d->columns;
  lines = new char*[lineCount];
  text = new char[static_cast<size_t>(lineCount) * (columns + 1)];
  for (int line = 0; line < lineCount; ++line) lines[line] = text + line * (columns + 1);
}

VekLabelWin::~VekLabelWin() {
  delete[] lines;
  delete[] text;
}

void ButtonHandler(Button* widget, int x, int) { ReportButton(static_cast<VekButton*>(widget), x); }
void ToggleButtonHandler(Button* widget, int x, int) { ReportButton(static_cast<VekToggleButton*>(widget), x); }
void HSliderHandler(Slider* widget, int) { ReportSlider(static_cast<VekHSlider*>(widget)); }
void VSliderHandler(Slider* widget, int) { ReportSlider(static_cast<VekVSlider*>(widget)); }

void DoUpdateWinInSdlWidgetsTask(WinBase* window, void*) { window->redraw_update(); }

extern "C" {

const char* DisplayFontFile = "/usr/share/fonts/liberation/LiberationMono-Bold.ttf";
std::atomic<DisplayWidgetBase*> DisplayData{nullptr};
std::atomic<int16_t*> DisplayId{nullptr};
pthread_t ThreadDisplay;
std::atomic<bool> DisplayThreadRunning{false};
std::atomic<bool> DisplayThreadTerminate{false};

void DisplaySetup(DisplayWidgetBase* data, short* currentDisplay) {
  printf("Displaydata=%p, CurrentDisplay=%p\n", static_cast<void*>(data), static_cast<void*>(currentDisplay));
  DisplayId.store(currentDisplay);
  DisplayData.store(data);
}

void* DisplayThread(void*) {
  printf("Display thread started\n");
  DisplayThreadRunning.store(true);
  if (!DisplayThreadTerminate.load()) {
    while (!DisplayData.load() && !DisplayThreadTerminate.load())
      usleep(DisplayStepMicroseconds.load(std::memory_order_relaxed));
  }
  DisplayWidgetBase* list = DisplayData.load();
  if (!list) {
    EndDisplayThread();
    return nullptr;
  }
  KavriNotifyProgramInfo(nullptr, KavriProgramDisplayBuilt);
  if (!OpenFontOnce()) {
    EndDisplayThread();
    return nullptr;
  }
  BuildPages(list);
  RunPageLoop();
  DeletePages();
  KavriNotifyProgramInfo(nullptr, KavriProgramDisplayEnded);
  EndDisplayThread();
  return nullptr;
}

int StartThreadDisplay(void) {
  // A thread whose stop timed out may still be deleting its pages, which a
  // second thread would share; one never asked to stop is still serving.
  if (DisplayThreadRunning.load() &&
      (!DisplayThreadTerminate.load() || !kavri::WaitUntilCleared(DisplayThreadRunning))) {
    fprintf(stderr, "ERROR creating display thread\n");
    return 0;
  }
  DisplayThreadTerminate.store(false);
  // Raised before the thread exists, so that a stop right after this call
  // waits for the thread instead of missing it.
  DisplayThreadRunning.store(true);
  if (pthread_create(&ThreadDisplay, nullptr, DisplayThread, nullptr) != 0) {
    DisplayThreadRunning.store(false);
    fprintf(stderr, "ERROR creating display thread\n");
    return 0;
  }
  // Nobody joins the display thread; its end is seen through its running flag.
  pthread_detach(ThreadDisplay);
  return 1;
}

int StopThreadDisplay(void) {
  DisplayThreadTerminate.store(true);
  if (kavri::WaitUntilCleared(DisplayThreadRunning)) return 1;
  fprintf(stderr, "Timeout terminating display thread");
  return 0;
}

}  // extern "C"
