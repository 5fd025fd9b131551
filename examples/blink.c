/* Blinks outputs 1 to 4 in turn, half a second each, and shows which one is
 * on. The controller calls KavriSlice up to ten times per 10 ms I/O cycle, so
 * the program counts time in slices and never waits inside one. */
#include <kavri-program/KavriProgram.h>

#define SLICES_PER_STEP 500 /* 50 cycles of 10 slices: half a second */

static uint32_t slices;
static int shown = -1;

int32_t KavriSlice(void) {
  int step = (int)(slices++ / SLICES_PER_STEP) % 4;
  if (step == shown) return KAVRI_CALL_AGAIN;
  shown = step;

  for (int output = 0; output < 4; ++output) KavriTransArea.OutputValues[output] = output == step ? 512 : 0;
  if (slices == 1) TextGrph_Intl(&KavriTransArea);
  static const uint8_t text[] = "Output 1 on";
  uint8_t line[sizeof text - 1];
  for (unsigned i = 0; i < sizeof line; ++i) line[i] = text[i];
  line[7] = (uint8_t)('1' + step);
  TextGrph_GotoXY(20, 28);
  TextGrph_PrintArrayUC(line, (int32_t)sizeof line);
  TextGrph_Update();
  return KAVRI_CALL_AGAIN;
}
