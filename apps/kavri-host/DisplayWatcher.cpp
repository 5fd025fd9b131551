#include "DisplayWatcher.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "kavri/shm_if.h"

namespace {

using TakeDisplayFrame = int (*)(uint8_t* frame);

// Looked up at run time: on the controller the maker's I/O library, which has
// no such call, stands where our stand-in does.
TakeDisplayFrame FindTakeDisplayFrame() {
  return reinterpret_cast<TakeDisplayFrame>(dlsym(RTLD_DEFAULT, "MotorIOLibSim_TakeDisplayFrame"));
}

}  // namespace

bool StartDisplayWatcher(std::function<void(const uint8_t* frame)> show) {
  TakeDisplayFrame take = FindTakeDisplayFrame();
  if (!take) {
    fprintf(stderr, "kavri-host: this I/O library cannot hand out display frames; no display shown\n");
    return false;
  }
  std::thread([take, show] {
    uint8_t frame[KAVRI_DISPLAY_BUFFER_SIZE];
    for (;;) {
      if (take(frame)) show(frame);
      // One I/O cycle: a frame reaches the panel no later than the next
      // cycle after the program asked for it.
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }).detach();
  return true;
}
