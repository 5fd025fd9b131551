/* Looks at the run area behind its own image: the controller filled the lower
 * half of the download area with breakpoints and the upper half with zeros
 * before the download, and copied all of it. Reports its own size and the
 * words that differ from that pattern. */
#include "TestReport.h"

extern uint8_t KavriImageHead[];
extern uint8_t KavriImageEnd[];

int32_t KavriSlice(void) {
  const uint32_t* area = (const uint32_t*)KavriImageHead;
  uint32_t size = (uint32_t)(KavriImageEnd - KavriImageHead);
  int32_t wrongBreakpoints = 0, wrongZeros = 0;
  for (uint32_t word = (size + 3) / 4; word < 0x200000 / 4; ++word) wrongBreakpoints += area[word] != 0xe1200070;
  for (uint32_t word = 0x200000 / 4; word < 0x400000 / 4; ++word) wrongZeros += area[word] != 0;
  int32_t report[3] = {(int32_t)size, wrongBreakpoints, wrongZeros};
  TestReport(report, 3);
  return 0;
}
