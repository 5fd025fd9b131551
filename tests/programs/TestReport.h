/* How test programs hand results to the test: int32 values in the transfer
 * area from byte 1032 on, announced by a count at 1028 and a mark at 1024
 * written last. The controller's monitor prints them and clears the mark.
 * The bytes lie beyond the part the controller clears at every start. */
#ifndef KAVRI_TEST_REPORT_H
#define KAVRI_TEST_REPORT_H

#include <kavri-program/KavriProgram.h>

#define TEST_REPORT_MARK 0x54504552 /* "REPT" */
#define TEST_REPORT_MAX 200
/* The monitor sets this input while it sees the program running. */
#define TEST_SEEN_RUNNING_INPUT 7
#define TEST_SEEN_RUNNING_VALUE 1234

static inline void TestReport(const int32_t* values, int32_t count) {
  volatile int32_t* words = (volatile int32_t*)((uint8_t*)&KavriTransArea + 1024);
  for (int32_t i = 0; i < count; ++i) words[2 + i] = values[i];
  words[1] = count;
  __sync_synchronize();
  words[0] = TEST_REPORT_MARK;
}

static inline int TestSeenRunning(void) {
  return ((volatile uint16_t*)KavriTransArea.InputValues)[TEST_SEEN_RUNNING_INPUT] == TEST_SEEN_RUNNING_VALUE;
}

#endif
