/* A touch page with two buttons: "Count" adds one to a counter, "End" ends
 * the program with exit code 7. The display shows the counter and input 1;
 * output 2 follows input 1, so whoever forces the input sees the program
 * take it. */
#include <kavri-program/KavriProgram.h>

#define END_CODE 7

static int16_t page;
static int16_t countValue, countChanged;
static int16_t endValue, endChanged;
static uint8_t touched;

/* Page units: 128 across, 64 down; the page fills the screen below its top. */
static DisplayWidgetButton endButton = {
    {DisplayWidgetTypeButton, 0, 0, 0, 8, 36, 112, 20}, 0, 0, 0, 1, 1, &endValue, &endChanged, &touched, {0}, "End"};
static DisplayWidgetButton countButton = {
    {DisplayWidgetTypeButton, &endButton.base, 0, 0, 8, 8, 112, 20}, 0, 0, 0, 1, 1, &countValue, &countChanged,
    &touched, {0}, "Count"};

static int32_t started;
static int32_t count, countDown;
static int32_t shownCount = -1, shownInput = -1;

/* Right-aligned decimal digits into `text`. */
static void Digits(uint8_t* text, int width, int32_t value) {
  for (int i = width - 1; i >= 0; --i) {
    text[i] = (uint8_t)('0' + value % 10);
    value /= 10;
  }
}

static void Show(int32_t input) {
  uint8_t countLine[12] = {'C', 'o', 'u', 'n', 't', ' ', ' '};
  uint8_t inputLine[12] = {'I', 'n', 'p', 'u', 't', ' ', ' '};
  Digits(countLine + 7, 5, count);
  Digits(inputLine + 7, 5, input);
  TextGrph_ClearHome();
  TextGrph_GotoXY(8, 16);
  TextGrph_PrintArrayUC(countLine, 12);
  TextGrph_GotoXY(8, 36);
  TextGrph_PrintArrayUC(inputLine, 12);
}

int32_t KavriSlice(void) {
  if (!started) {
    started = 1;
    TextGrph_Intl(&KavriTransArea);
    DisplaySetup(&countButton.base, &page);
  }
  if (countChanged) {
    countChanged = 0;
    /* A push button reports while down and 0 when it comes up: one count a press. */
    if (countValue && !countDown) ++count;
    countDown = countValue != 0;
  }
  if (endChanged && endValue) return END_CODE;

  const int32_t input = KavriTransArea.InputValues[0];
  KavriTransArea.OutputValues[1] = (uint16_t)input;
  /* Drawn whenever something changed, until the display has taken it. */
  if (count != shownCount || input != shownInput) {
    Show(input);
    if (TextGrph_Update() == 0) {
      shownCount = count;
      shownInput = input;
    }
  }
  return KAVRI_CALL_AGAIN;
}
