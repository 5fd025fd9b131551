/* Runs until the controller has seen it running, then a few slices more, and
 * ends with exit code 42. Reports how many slices it ran, and what a division
 * by zero gave. */
#include "TestReport.h"

static int32_t slices;
static int32_t slicesAfterSeen;
static volatile int32_t zero;

int32_t KavriSlice(void) {
  ++slices;
  if (!TestSeenRunning() || ++slicesAfterSeen < 25) return KAVRI_CALL_AGAIN;
  int32_t report[3] = {slices, slices / zero, (int32_t)((int64_t)slices / (int64_t)zero)};
  TestReport(report, 3);
  return 42;
}
