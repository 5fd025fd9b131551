// Touch-screen pages: the widget description that downloaded code builds in
// its own data, the call that hands it over, and the display thread that
// turns it into widgets. The records are a binary interface with 32-bit ARM
// code (4-byte pointers).
#ifndef KAVRI_DISPLAYWIDGETS_H
#define KAVRI_DISPLAYWIDGETS_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

extern "C" {

enum DisplayWidgetType {
  DisplayWidgetTypeButton = 0,
  DisplayWidgetTypeSlider = 1,
  DisplayWidgetTypeText = 2,
  DisplayWidgetTypeRect = 3,
  DisplayWidgetTypeLine = 4,
};

// Header of every description. Coordinates are program units: 128 across and
// 64 down fill a page.
typedef struct DisplayWidgetBase {
  int32_t type;
  struct DisplayWidgetBase* next;
  int32_t page;
  int32_t unused;
  int32_t x;
  int32_t y;
  int32_t w;
  int32_t h;
} DisplayWidgetBase;

// Push or toggle button. The zero-terminated label follows the record.
typedef struct DisplayWidgetButton {
  DisplayWidgetBase base;
  uint8_t toggle;
  uint8_t unused1;
  int16_t initialState;  // toggles: 0 up, 1 down reporting valueLeft, else down reporting valueRight
  int16_t valueLeft;
  int16_t valueRight;
  int16_t* valueVar;
  int16_t* changedVar;
  uint8_t* changeFlag;
  uint32_t unused2;
  char text[4];
} DisplayWidgetButton;

// Horizontal when w > h, else vertical.
typedef struct DisplayWidgetSlider {
  DisplayWidgetBase base;
  int16_t minimum;
  int16_t maximum;
  int16_t initialValue;
  int16_t sliderOption;  // handed to the widget library unchanged
  int16_t* valueVar;
  int16_t* changedVar;
  uint8_t* changeFlag;
} DisplayWidgetSlider;

// lines x columns 16-bit character codes, line after line; shown again
// whenever the program sets textChangedVar non-zero.
typedef struct DisplayWidgetText {
  DisplayWidgetBase base;
  int32_t columns;
  int32_t lines;
  uint16_t* chars;
  int16_t* textChangedVar;
} DisplayWidgetText;

typedef struct DisplayWidgetLine {
  DisplayWidgetBase base;
  int16_t x1;
  int16_t y1;
  int16_t x2;
  int16_t y2;
} DisplayWidgetLine;

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(DisplayWidgetBase, type) == 0, "type offset");
static_assert(offsetof(DisplayWidgetBase, next) == 4, "next offset");
static_assert(offsetof(DisplayWidgetBase, page) == 8, "page offset");
static_assert(offsetof(DisplayWidgetBase, x) == 16, "x offset");
static_assert(offsetof(DisplayWidgetBase, y) == 20, "y offset");
static_assert(offsetof(DisplayWidgetBase, w) == 24, "w offset");
static_assert(offsetof(DisplayWidgetBase, h) == 28, "h offset");
static_assert(sizeof(DisplayWidgetBase) == 32, "header size");

static_assert(offsetof(DisplayWidgetButton, toggle) == 32, "toggle offset");
static_assert(offsetof(DisplayWidgetButton, initialState) == 34, "initialState offset");
static_assert(offsetof(DisplayWidgetButton, valueLeft) == 36, "valueLeft offset");
static_assert(offsetof(DisplayWidgetButton, valueRight) == 38, "valueRight offset");
static_assert(offsetof(DisplayWidgetButton, valueVar) == 40, "button valueVar offset");
static_assert(offsetof(DisplayWidgetButton, changedVar) == 44, "button changedVar offset");
static_assert(offsetof(DisplayWidgetButton, changeFlag) == 48, "button changeFlag offset");
static_assert(offsetof(DisplayWidgetButton, text) == 56, "text offset");

static_assert(offsetof(DisplayWidgetSlider, minimum) == 32, "minimum offset");
static_assert(offsetof(DisplayWidgetSlider, maximum) == 34, "maximum offset");
static_assert(offsetof(DisplayWidgetSlider, initialValue) == 36, "initialValue offset");
static_assert(offsetof(DisplayWidgetSlider, sliderOption) == 38, "sliderOption offset");
static_assert(offsetof(DisplayWidgetSlider, valueVar) == 40, "slider valueVar offset");
static_assert(offsetof(DisplayWidgetSlider, changedVar) == 44, "slider changedVar offset");
static_assert(offsetof(DisplayWidgetSlider, changeFlag) == 48, "slider changeFlag offset");

static_assert(offsetof(DisplayWidgetText, columns) == 32, "columns offset");
static_assert(offsetof(DisplayWidgetText, lines) == 36, "lines offset");
static_assert(offsetof(DisplayWidgetText, chars) == 40, "chars offset");
static_assert(offsetof(DisplayWidgetText, textChangedVar) == 44, "textChangedVar offset");

static_assert(offsetof(DisplayWidgetLine, x1) == 32, "x1 offset");
static_assert(offsetof(DisplayWidgetLine, y1) == 34, "y1 offset");
static_assert(offsetof(DisplayWidgetLine, x2) == 36, "x2 offset");
static_assert(offsetof(DisplayWidgetLine, y2) == 38, "y2 offset");
#endif

// The TrueType file of the button font, opened by the first display thread
// that builds a page. Defaults to the controller's
// "/usr/share/fonts/liberation/LiberationMono-Bold.ttf"; a host or a test
// may point it elsewhere before starting a program.
extern const char* DisplayFontFile;

// The description and the program's 16-bit current-page variable, as handed
// over by DisplaySetup; both forgotten when the display thread ends.
extern std::atomic<DisplayWidgetBase*> DisplayData;
extern std::atomic<int16_t*> DisplayId;

extern pthread_t ThreadDisplay;
extern std::atomic<bool> DisplayThreadRunning;
extern std::atomic<bool> DisplayThreadTerminate;

// Entry point for downloaded code: stores the description and the page
// variable for the display thread.
void DisplaySetup(DisplayWidgetBase* data, short* currentDisplay);

// Start and stop of the display thread; 1 on success, 0 on failure.
int StartThreadDisplay(void);
int StopThreadDisplay(void);

void* DisplayThread(void* unused);

}  // extern "C"

#endif
