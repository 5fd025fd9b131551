// The display thread: waits for the program's widget description, builds its
// pages and follows the program's page variable until asked to stop.
#include "kavri/DisplayWidgets.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/ThreadStop.h"
#include "kavri/KavriLib.h"

namespace {

constexpr useconds_t kDisplayStepMicroseconds = 50000;

}  // namespace

extern "C" {

const char* DisplayFontFile = "/usr/share/fonts/liberation/LiberationMono-Bold.ttf";
std::atomic<DisplayWidgetBase*> DisplayData{nullptr};
std::atomic<int16_t*> DisplayId{nullptr};
pthread_t ThreadDisplay;
std::atomic<bool> DisplayThreadRunning{false};
std::atomic<bool> DisplayThreadTerminate{false};

void DisplaySetup(DisplayWidgetBase* data, short* currentDisplay) {
  printf("Displaydata=%p, CurrentDisplay=%p\n", static_cast<void*>(data), static_cast<void*>(currentDisplay));
  DisplayId.store(currentDisplay);
  DisplayData.store(data);
}

void* DisplayThread(void*) {
  printf("Display thread started\n");
  DisplayThreadRunning.store(true);
  if (!DisplayThreadTerminate.load()) {
    while (!DisplayData.load() && !DisplayThreadTerminate.load()) usleep(kDisplayStepMicroseconds);
  }
  if (DisplayData.load()) {
    KavriNotifyProgramInfo(nullptr, KavriProgramDisplayBuilt);
    while (!DisplayThreadTerminate.load()) usleep(kDisplayStepMicroseconds);
    KavriNotifyProgramInfo(nullptr, KavriProgramDisplayEnded);
  }
  DisplayData.store(nullptr);
  DisplayId.store(nullptr);
  printf("Display thread terminated\n");
  DisplayThreadRunning.store(false);
  return nullptr;
}

int StartThreadDisplay(void) {
  DisplayThreadTerminate.store(false);
  // Raised before the thread exists, so that a stop right after this call
  // waits for the thread instead of missing it.
  DisplayThreadRunning.store(true);
  if (pthread_create(&ThreadDisplay, nullptr, DisplayThread, nullptr) != 0) {
    DisplayThreadRunning.store(false);
    fprintf(stderr, "ERROR creating display thread\n");
    return 0;
  }
  // Nobody joins the display thread; its end is seen through its running flag.
  pthread_detach(ThreadDisplay);
  return 1;
}

int StopThreadDisplay(void) {
  DisplayThreadTerminate.store(true);
  if (kavri::WaitUntilCleared(DisplayThreadRunning)) return 1;
  fprintf(stderr, "Timeout terminating display thread");
  return 0;
}

}  // extern "C"
