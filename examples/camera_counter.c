/* Counts camera frames and measures the brightness and colour in the middle
 * of the picture; shows the four numbers, fresh after every frame. The
 * library writes the results straight into the variables below and raises
 * `changed` once a frame has been analysed. */
#include <kavri-program/KavriProgram.h>

static int16_t frames;
static uint8_t changed;
static int16_t brightness, red, green, blue;

static CameraAnalysisColorField middle = {
    .base = {.type = CameraAnalysisTypeColorField},
    .x = 140, .y = 100, .w = 40, .h = 40,
    .brightnessVar = &brightness, .redVar = &red, .greenVar = &green, .blueVar = &blue,
};

/* The first counter of the chain also sets the capture: 320 x 240, 15 fps. */
static CameraAnalysisCounter counter = {
    .base = {.type = CameraAnalysisTypeCounter, .next = &middle.base, .width = 320, .height = 240},
    .frameRate = 15, .powerlineFreq = 50,
    .frameCounterVar = &frames, .changeVar = &changed,
};

static int started;

int32_t KavriSlice(void) {
  if (!started) {
    started = 1;
    TextGrph_Intl(&KavriTransArea);
    CameraSetup(&counter.base);
  }
  if (!changed) return KAVRI_CALL_AGAIN;
  changed = 0;

  static const uint8_t labels[4][7] = {"frames", "bright", "red   ", "green "};
  const int16_t values[4] = {frames, brightness, red, green};
  for (int32_t row = 0; row < 4; ++row) {
    TextGrph_GotoXY(8, 8 + 12 * row);
    TextGrph_PrintArrayUC(labels[row], 6);
    TextGrph_GotoXY(64, 8 + 12 * row);
    FL48 value;
    FL48_ConvFromShort(&value, values[row]);
    uint32_t wide[1 + 6];
    uint8_t text[6];
    FL48_ConvToTextRP(&value, FL_FORMAT_INTEGER(6), wide);
    for (int i = 0; i < 6; ++i) text[i] = (uint8_t)wide[1 + i];
    TextGrph_PrintArrayUC(text, 6);
  }
  TextGrph_Update();
  return KAVRI_CALL_AGAIN;
}
