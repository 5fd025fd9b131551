// The controller's motor and I/O library: the interface this library imports.
// On the controller the maker's library provides it; elsewhere our stand-in.
#ifndef KAVRI_MOTORIOLIB_H
#define KAVRI_MOTORIOLIB_H

#include "kavri/shm_if.h"

#ifndef __cplusplus
#include <stdbool.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef bool (*MotorIOLib_CallbackIO)(shm_if_s* area, int index);

void MotorIOLib_StartThreads(void);
void MotorIOLib_StopThreads(void);
bool MotorIOLib_ThreadIsRunning(void);
void MotorIOLib_SetCallbackIO(MotorIOLib_CallbackIO callback);
shm_if_s* MotorIOLib_GetTransArea(int index);
bool MotorIOLib_DoTransfer(shm_if_s* area, int index);

#ifdef __cplusplus
}
#endif

#endif
