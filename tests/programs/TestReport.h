/* Reporting from a test program (see ProgramParts.h). */
#ifndef KAVRI_TEST_REPORT_H
#define KAVRI_TEST_REPORT_H

#include <kavri-program/KavriProgram.h>

#include "ProgramParts.h"

static inline void TestReport(const int32_t* values, int32_t count) {
  volatile int32_t* words = (volatile int32_t*)((uint8_t*)&KavriTransArea + TEST_REPORT_OFFSET);
  for (int32_t i = 0; i < count; ++i) words[2 + i] = values[i];
  words[1] = count;
  __sync_synchronize();
  words[0] = TEST_REPORT_MARK;
}

static inline int TestSeenRunning(void) {
  return ((volatile uint16_t*)KavriTransArea.InputValues)[TEST_SEEN_RUNNING_INPUT] == TEST_SEEN_RUNNING_VALUE;
}

#endif
