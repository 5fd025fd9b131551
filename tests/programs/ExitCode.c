/* Runs until the controller has seen it running, then a few slices more, and
 * ends with exit code 42. Reports how many slices it ran. */
#include "TestReport.h"

static int32_t slices;
static int32_t slicesAfterSeen;

int32_t KavriSlice(void) {
  ++slices;
  if (!TestSeenRunning() || ++slicesAfterSeen < 25) return KAVRI_CALL_AGAIN;
  TestReport(&slices, 1);
  return 42;
}
