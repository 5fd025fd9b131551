// The library's widgets: the widget library's classes, each holding the
// description it was built from and what it last reported to the program.
#ifndef KAVRI_DISPLAY_VEKWIDGETS_H
#define KAVRI_DISPLAY_VEKWIDGETS_H

#include <atomic>
#include <cstdint>

#include "kavri/DisplayWidgets.h"
#include "sdlwidgets/SDLWidgets.h"

class VekButton : public Button {
 public:
  VekButton(WinBase* parent, const Rect& rect, DisplayWidgetButton* description, Label* label);
  ~VekButton() override;
  DisplayWidgetButton* description;
  int lastState = 0;
};

class VekToggleButton : public ToggleButton {
 public:
  VekToggleButton(WinBase* parent, const Rect& rect, DisplayWidgetButton* description, Label* label, bool down);
  ~VekToggleButton() override;
  DisplayWidgetButton* description;
  int lastState = 0;
};

class VekHSlider : public HSlider {
 public:
  VekHSlider(WinBase* parent, const Rect& rect, DisplayWidgetSlider* description);
  ~VekHSlider() override;
  DisplayWidgetSlider* description;
  int lastValue = -32768;
};

class VekVSlider : public VSlider {
 public:
  VekVSlider(WinBase* parent, const Rect& rect, DisplayWidgetSlider* description);
  ~VekVSlider() override;
  DisplayWidgetSlider* description;
  int lastValue = -32768;
};

// lines (line pointers into text) and text (lineCount x (columns + 1) bytes).
// A window whose description has no sane size holds no lines.
class VekLabelWin : public LabelWin {
 public:
  VekLabelWin(WinBase* parent, const Rect& rect, DisplayWidgetText* description);
  ~VekLabelWin() override;
  DisplayWidgetText* description;
  int lineCount = 0;
  int columns = 0;
  char** lines = nullptr;
  char* text = nullptr;
};

// Called by the widget library on its event thread.
void ButtonHandler(Button* widget, int x, int y);
void ToggleButtonHandler(Button* widget, int x, int y);
void HSliderHandler(Slider* widget, int flag);
void VSliderHandler(Slider* widget, int flag);
void DoUpdateWinInSdlWidgetsTask(WinBase* window, void* unused);

// Largest sizes the display builds; see docs/SAFETY.md.
inline constexpr int kDisplayMaxWidgets = 4096;
inline constexpr int kDisplayMaxPage = 255;
inline constexpr int kDisplayMaxTextLines = 64;
inline constexpr int kDisplayMaxTextColumns = 256;
inline constexpr int kDisplayMaxLabel = 255;

// The pages of the running display thread: set before its first page-loop
// pass; DisplayPageLoops counts the passes (acquire it before reading the
// pages from another thread).
extern BackgroundWin** DisplayPages;
extern int DisplayPageCount;
extern std::atomic<uint32_t> DisplayPageLoops;
// The page loop's pause and the wait for a list, 50 ms on the controller;
// tests that start many displays shorten it.
extern std::atomic<uint32_t> DisplayStepMicroseconds;

#endif
