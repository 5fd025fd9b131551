// Download mode: the code download, flash files, the program thread, the
// per-cycle callback that runs the program, and the address table.
#ifndef KAVRI_HOST_DOWNLOADMODE_H
#define KAVRI_HOST_DOWNLOADMODE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kavri/LinkProtocol.h"
#include "kavri/shm_if.h"

extern "C" {

int StartThreadsDownloadMode(void);
int StopThreadsDownloadMode(bool stopIO);
void* DownloadModeKavriThread(void* unused);
int StartDownloadFromFile(const char* path);
bool KavriDownloadIOCallback(shm_if_s* area, int index);

}

namespace kavri {

inline constexpr uint32_t kBreakpointWord = 0xe1200070;  // BKPT #0
inline constexpr size_t kPrefilledBytes = 0x200000;
inline constexpr size_t kEntryOffset = 12;
inline constexpr int32_t kCallAgain = 0x7FFF;
inline constexpr int kSlicesPerCycle = 10;
inline constexpr size_t kFlashPathSize = 1024;

// Set while a program thread exists, from its creation to its very last
// act; its running flag is cleared earlier, before it stops the I/O
// threads, so this is what keeps a new program from starting under an old
// thread that is still ending.
extern std::atomic<bool> ProgThreadAlive;

// From `from` to the end of the download area: breakpoints in the lower
// half, zeros above, so a jump into code the download did not fill traps
// at once.
void PrefillDownloadArea(size_t from);

// Writes `size` bytes of `code` as the flash file `name` in the program
// library; prints what it did. A name that would leave the library folder
// writes nothing.
void WriteFlashFile(const char* name, const uint8_t* code, size_t size);

// One slot of the address table: a service's name and its entry.
struct LibService {
  const char* name;
  void (*address)();
};
inline constexpr int kLibServiceCount = KAVRI_LIB_ADDRESS_SLOTS - 1;
extern const LibService kLibServices[kLibServiceCount];

// Handlers of the PC link commands that load, start and stop programs.
bool HandleGetLibAddresses(int fd, xoIF2013Command_Base* command);
bool HandleDownloadCode(int fd, xoIF2013Command_Base* command);
bool HandleStartCode(int fd, xoIF2013Command_Base* command);
bool HandleStopCode(int fd, xoIF2013Command_Base* command);

}  // namespace kavri

#endif
