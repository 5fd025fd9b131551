/* Work that runs both as a downloaded program and linked into the test
 * itself, so that the two can be compared result for result. */
#ifndef KAVRI_TEST_PROGRAMPARTS_H
#define KAVRI_TEST_PROGRAMPARTS_H

#include <kavri-program/KavriProgram.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FL48_TEXT_RESULTS 13
/* FL48 arithmetic printed with text graphics into the area's display. */
void DrawFl48Text(shm_if_s* area, int32_t results[FL48_TEXT_RESULTS]);

/* One call of every service, in slot order; results[slot - 1] is what that
 * call answered or left behind. */
#define ALL_SERVICES_RESULTS 59
void CallAllServices(shm_if_s* area, int32_t results[ALL_SERVICES_RESULTS]);

#ifdef __cplusplus
}
#endif

#endif
