// Test and simulation interface of the I/O library stand-in: what a person
// at the bench would do to the hardware, and what a display would show.
#ifndef MOTORIOLIB_SIM_H
#define MOTORIOLIB_SIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MOTORIOLIB_SIM_CHANNELS 8
#define MOTORIOLIB_SIM_CYCLE_MS 10
// How long MotorIOLib_StopThreads waits for a cycle whose callback is still
// running; after that the thread is left as it is and keeps reporting that
// it runs, and MotorIOLib_StartThreads starts nothing until it has ended.
#define MOTORIOLIB_SIM_STOP_SECONDS 5

// Forces input `channel` to `value` from the next exchange on; a negative
// value returns the channel to its default, wired back from the same output.
void MotorIOLibSim_SetInput(int channel, int32_t value);
// The output value of `channel` as last sent to the hardware.
uint16_t MotorIOLibSim_GetOutput(int channel);
// Cycles the cycle thread has run since the process started.
uint32_t MotorIOLibSim_CycleCount(void);
// Exchanges performed, by the cycle thread and by MotorIOLib_DoTransfer.
uint32_t MotorIOLibSim_TransferCount(void);
// If the display-update flag is raised: copies the 1024-byte display buffer
// to `frame`, clears the flag and the update counter as a display would, and
// returns 1; otherwise returns 0 and leaves `frame` alone.
int MotorIOLibSim_TakeDisplayFrame(uint8_t* frame);

#ifdef __cplusplus
}
#endif

#endif
