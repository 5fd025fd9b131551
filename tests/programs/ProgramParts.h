/* What the test programs share with the test that runs them: work that runs
 * both as a downloaded program and linked into the test itself, so that the
 * two can be compared result for result, and how programs report. Kept free
 * of the program header so that the test, built with the library's headers,
 * can include it. */
#ifndef KAVRI_TEST_PROGRAMPARTS_H
#define KAVRI_TEST_PROGRAMPARTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct shm_if_s;

/* One call of every service, in slot order; results[slot - 1] is what that
 * call answered or left behind, and the last a conversion rounding down. */
#define ALL_SERVICES_RESULTS 60
void CallAllServices(struct shm_if_s* area, int32_t results[ALL_SERVICES_RESULTS]);

/* Reports: int32 values in the transfer area from byte 1032 on, announced by
 * a count at 1028 and a mark at 1024 written last; the controller's monitor
 * prints them and clears the mark. The bytes lie beyond the part the
 * controller clears at every start. */
#define TEST_REPORT_OFFSET 1024
#define TEST_REPORT_MARK 0x54504552 /* "REPT" */
#define TEST_REPORT_MAX 200
/* The monitor sets this input while it sees the program running. */
#define TEST_SEEN_RUNNING_INPUT 7
#define TEST_SEEN_RUNNING_VALUE 1234

#ifdef __cplusplus
}
#endif

#endif
