// The I/O library's transfer area, shared between the I/O library, this
// library and downloaded code. Only the fields this library touches are named;
// everything else belongs to the I/O library.
#ifndef KAVRI_SHM_IF_H
#define KAVRI_SHM_IF_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KAVRI_TRANS_AREA_SIZE 0x2400
#define KAVRI_TRANS_AREA_INDEX 9          // the only index this library passes
#define KAVRI_TRANS_AREA_CLEAR_SIZE 1024  // bytes zeroed at program start and online changes
#define KAVRI_DISPLAY_WIDTH 128
#define KAVRI_DISPLAY_HEIGHT 64
#define KAVRI_DISPLAY_BUFFER_SIZE (KAVRI_DISPLAY_WIDTH * KAVRI_DISPLAY_HEIGHT / 8)

// An address in the controller's 32-bit address space. The display buffer's
// address is such a field; on 64-bit builds the I/O library keeps the buffer
// below 4 GiB so that the field keeps its size and offset.
typedef uint32_t KavriAddr32;

typedef struct shm_if_s {
  uint8_t Reserved0[252];
  uint16_t InputValues[8];        // 252: the hardware's inputs after an exchange
  uint8_t Reserved268[332 - 268];
  uint16_t OutputValues[8];       // 332: the outputs sent at the next exchange
  uint8_t Reserved348[464 - 348];
  KavriAddr32 DisplayBuffer;      // 464: the 1024-byte display buffer
  uint16_t DisplayUpdateCounter;  // 468: non-zero while an update is pending
  uint16_t DisplayUpdateFlag;     // 470: raised to ask for an update
  uint8_t Reserved472[KAVRI_TRANS_AREA_SIZE - 472];
} shm_if_s;

#ifdef __cplusplus
static_assert(sizeof(shm_if_s) == KAVRI_TRANS_AREA_SIZE, "transfer area size");
static_assert(offsetof(shm_if_s, InputValues) == 252, "input values offset");
static_assert(offsetof(shm_if_s, OutputValues) == 332, "output values offset");
static_assert(offsetof(shm_if_s, DisplayBuffer) == 464, "display buffer pointer offset");
static_assert(offsetof(shm_if_s, DisplayUpdateCounter) == 468, "display update counter offset");
static_assert(offsetof(shm_if_s, DisplayUpdateFlag) == 470, "display update flag offset");

inline uint8_t* KavriDisplayBufferOf(shm_if_s* area) {
  return reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(area->DisplayBuffer));
}
}
#endif

#endif
