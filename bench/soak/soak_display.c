/* The program kavri-soak cycles on ARM controllers: a touch page of a
 * button, a slider and a text window, built once at start, and a line of
 * text on the small display. Every start builds the page, every stop tears
 * it down. */
#include <kavri-program/KavriProgram.h>

static int16_t page;
static int16_t pressed, level;
static uint8_t changed;
static uint16_t text[2 * 12];
static int16_t textChanged;

static DisplayWidgetText window = {
    .base = {.type = DisplayWidgetTypeText, .page = 0, .x = 10, .y = 200, .w = 220, .h = 60},
    .columns = 12, .lines = 2, .chars = text, .textChangedVar = &textChanged,
};
static DisplayWidgetSlider slider = {
    .base = {.type = DisplayWidgetTypeSlider, .next = &window.base, .page = 0, .x = 10, .y = 120, .w = 220, .h = 40},
    .minimum = 0, .maximum = 100, .initialValue = 50, .valueVar = &level, .changeFlag = &changed,
};
static DisplayWidgetButton button = {
    .base = {.type = DisplayWidgetTypeButton, .next = &slider.base, .page = 0, .x = 10, .y = 20, .w = 220, .h = 60},
    .valueLeft = 1, .valueRight = 2, .valueVar = &pressed, .changeFlag = &changed, .text = "soak",
};

static int started;

int32_t KavriSlice(void) {
  if (started) return KAVRI_CALL_AGAIN;
  started = 1;
  for (int i = 0; i < 12; ++i) text[i] = (uint16_t)"soak running"[i];
  textChanged = 1;
  DisplaySetup(&button.base, &page);
  TextGrph_Intl(&KavriTransArea);
  static const uint8_t line[] = "soak";
  uint8_t shown[sizeof line - 1];
  for (unsigned i = 0; i < sizeof shown; ++i) shown[i] = line[i];
  TextGrph_GotoXY(8, 8);
  TextGrph_PrintArrayUC(shown, (int32_t)sizeof shown);
  TextGrph_Update();
  return KAVRI_CALL_AGAIN;
}
