#include "DisplayWatcher.h"

#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "DisplayImage.h"
#include "kavri/shm_if.h"

namespace {

using TakeDisplayFrame = int (*)(uint8_t* frame);

// Looked up at run time: on the controller the maker's I/O library, which has
// no such call, stands where our stand-in does.
TakeDisplayFrame FindTakeDisplayFrame() {
  return reinterpret_cast<TakeDisplayFrame>(dlsym(RTLD_DEFAULT, "MotorIOLibSim_TakeDisplayFrame"));
}

}  // namespace

bool StartDisplayWatcher(const std::string& path) {
  TakeDisplayFrame take = FindTakeDisplayFrame();
  if (!take) {
    fprintf(stderr, "kavri-host: this I/O library cannot hand out display frames; --display-image ignored\n");
    return false;
  }
  std::thread([take, path] {
    uint8_t frame[KAVRI_DISPLAY_BUFFER_SIZE];
    for (;;) {
      if (take(frame)) WriteDisplayImage(frame, path.c_str());
      std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a display's refresh
    }
  }).detach();
  return true;
}
