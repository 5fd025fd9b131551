/* Runs until the controller has seen it running, then a few slices more, and
 * ends with exit code 42. Reports how many slices it ran, what a division by
 * zero gave, its own size, and the words behind its image that differ from
 * the prefill: breakpoints up to 2 MiB, zeros above. */
#include "TestReport.h"

extern uint8_t KavriImageHead[];
extern uint8_t KavriImageEnd[];

static int32_t slices;
static int32_t slicesAfterSeen;
static volatile int32_t zero;

int32_t KavriSlice(void) {
  ++slices;
  if (!TestSeenRunning() || ++slicesAfterSeen < 25) return KAVRI_CALL_AGAIN;
  const uint32_t* area = (const uint32_t*)KavriImageHead;
  uint32_t size = (uint32_t)(KavriImageEnd - KavriImageHead);
  int32_t report[5] = {slices, slices / zero, (int32_t)((int64_t)slices / (int64_t)zero), (int32_t)size, 0};
  for (uint32_t word = (size + 3) / 4; word < 0x400000 / 4; ++word)
    report[4] += area[word] != (word < 0x200000 / 4 ? 0xe1200070 : 0);
  TestReport(report, 5);
  return 42;
}
