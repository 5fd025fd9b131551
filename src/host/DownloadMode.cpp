// The threads of download mode and the I/O cycle callback that runs the
// downloaded program, one time slice per call of its entry.
#include "host/DownloadMode.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "host/KavriRates.h"
#include "host/ThreadStop.h"
#include "kavri/Camera.h"
#include "kavri/DisplayWidgets.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace kavri {

std::atomic<bool> ProgThreadAlive{false};

namespace {

using ProgramEntry = int32_t (*)();

bool ProgramOrCameraRunning() {
  return ProgThreadRunning.load(std::memory_order_acquire) || CameraThreadRunning.load(std::memory_order_acquire);
}

}  // namespace

}  // namespace kavri

extern "C" {

int StartThreadsDownloadMode(void) {
  using namespace kavri;
  // The previous program thread may still be stopping the I/O threads and
  // the camera; a new program started now would be stopped by it.
  if (!WaitUntilCleared(ProgThreadAlive)) {
    fprintf(stderr, "ERROR previous program thread has not ended\n");
    return 0;
  }
  ProgThreadTerminate.store(false, std::memory_order_release);
  uint8_t* runEnd = DataAreaRun + KAVRI_AREA_SIZE;
  printf("Clear cache %p to %p\n", static_cast<void*>(DataAreaRun), static_cast<void*>(runEnd));
  __builtin___clear_cache(reinterpret_cast<char*>(DataAreaRun), reinterpret_cast<char*>(runEnd));
  // Raised before the thread exists, so that a stop that follows at once
  // waits for the thread instead of missing it.
  ProgThreadAlive.store(true, std::memory_order_release);
  ProgThreadRunning.store(true, std::memory_order_release);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  int created = pthread_create(&ThreadKavri, &attributes, DownloadModeKavriThread, nullptr);
  pthread_attr_destroy(&attributes);
  if (created != 0) {
    ProgThreadRunning.store(false, std::memory_order_release);
    ProgThreadAlive.store(false, std::memory_order_release);
    fprintf(stderr, "ERROR creating thread\n");
    return 0;
  }
  MotorIOLib_StartThreads();
  MotorIOLib_SetCallbackIO(KavriDownloadIOCallback);
  StartThreadDisplay();
  return 1;
}

int StopThreadsDownloadMode(bool stopIO) {
  using namespace kavri;
  ProgThreadTerminate.store(true, std::memory_order_release);
  CameraThreadTerminate.store(true, std::memory_order_release);
  DisplayThreadTerminate.store(true, std::memory_order_release);
  if (!WaitWhile(ProgramOrCameraRunning)) {
    fprintf(stderr, "Timeout terminating IO, Prog or Camera Thread");
    return 0;
  }
  if (stopIO) MotorIOLib_StopThreads();
  StopThreadDisplay();
  // A slice that never returns holds the I/O thread for good; its code
  // must then neither be overwritten nor have a second program started
  // beside it.
  if (stopIO && MotorIOLib_ThreadIsRunning()) {
    fprintf(stderr, "ERROR I/O threads did not stop: a program time slice does not return\n");
    return 0;
  }
  return 1;
}

void* DownloadModeKavriThread(void*) {
  using namespace kavri;
  puts("Program thread started");
  ProgThreadRunning.store(true, std::memory_order_release);
  while (!ProgThreadTerminate.load(std::memory_order_acquire)) usleep(kStopPollMilliseconds * 1000);
  printf("Program thread terminated with code %d\n", 0);
  // Cleared before the I/O threads are stopped: a program that ends itself
  // waits for this flag on the I/O thread.
  ProgThreadRunning.store(false, std::memory_order_release);
  MotorIOLib_StopThreads();
  CameraThreadTerminate.store(true, std::memory_order_release);
  ProgThreadAlive.store(false, std::memory_order_release);
  return nullptr;
}

int StartDownloadFromFile(const char* path) {
  FILE* file = fopen(path, "rb");
  if (!file) return 0;
  memset(DataAreaRun, 0, KAVRI_AREA_SIZE);
  fprintf(stderr, "Reading flash file %s\n", path);
  size_t size = fread(DataAreaRun, 1, KAVRI_AREA_SIZE, file);
  int result = 0;
  if (size > 0) {
    fprintf(stderr, "Starting flash file %s (%zu bytes)\n", path, size);
    if (StartThreadsDownloadMode()) {
      puts("Started Download program from file");
      result = 1;
    } else {
      fprintf(stderr, "Error starting flash file %s (%zu bytes)\n", path, size);
    }
  }
  fclose(file);
  return result;
}

bool KavriDownloadIOCallback(shm_if_s*, int) {
  using namespace kavri;
  RateIOSecond.fetch_add(1, std::memory_order_relaxed);
  ReportRatesIfDue();
  // Once a stop was asked for, the program is not entered again, even if
  // the I/O library calls once more before its threads end.
  if (ProgThreadTerminate.load(std::memory_order_acquire)) return false;
  auto entry = reinterpret_cast<ProgramEntry>(DataAreaRun + kEntryOffset);
  for (int slice = 0; slice < kSlicesPerCycle; ++slice) {
    int32_t result = entry();
    if (result != kCallAgain) {
      printf("Program terminated with code %d\n", result);
      // Not the I/O threads: this is one of them. The program thread
      // stops them when it ends.
      StopThreadsDownloadMode(false);
      return false;
    }
  }
  return true;
}

}  // extern "C"
