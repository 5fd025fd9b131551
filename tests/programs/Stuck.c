/* A slice that never returns: the controller cannot take the cycle back. */
#include "TestReport.h"

int32_t KavriSlice(void) {
  KavriTransArea.OutputValues[1] = 77;
  for (;;) __asm__ volatile("" ::: "memory");
}
