/* Never ends on its own; shows that it runs by counting cycles on output 0. */
#include "TestReport.h"

static uint16_t slices;

int32_t KavriSlice(void) {
  KavriTransArea.OutputValues[0] = (uint16_t)(++slices / 10);
  return KAVRI_CALL_AGAIN;
}
