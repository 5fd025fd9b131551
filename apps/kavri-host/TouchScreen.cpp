#include "TouchScreen.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "kavri/DisplayWidgets.h"

namespace {

const char* const kDebianDisplayFont = "/usr/share/fonts/truetype/liberation/LiberationMono-Bold.ttf";

bool Exists(const char* path) {
  struct stat st;
  return stat(path, &st) == 0;
}

}  // namespace

void ChooseDisplayFont() {
  if (!Exists(DisplayFontFile) && Exists(kDebianDisplayFont)) DisplayFontFile = kDebianDisplayFont;
}

bool StartScreenWatcher(const std::string& path) {
  // Looked up at run time: the maker's widget library has no such calls.
  using Changes = uint32_t (*)();
  using SavePng = int (*)(const char*);
  auto changes = reinterpret_cast<Changes>(dlsym(RTLD_DEFAULT, "SDLWidgetsSim_ScreenChanges"));
  auto save = reinterpret_cast<SavePng>(dlsym(RTLD_DEFAULT, "SDLWidgetsSim_SavePng"));
  if (!changes || !save) {
    fprintf(stderr, "kavri-host: this widget library cannot take pictures; --screen-image ignored\n");
    return false;
  }
  std::thread([changes, save, path] {
    uint32_t saved = changes() - 1;  // the first look writes the screen as it is
    for (;;) {
      const uint32_t now = changes();
      if (now != saved && save(path.c_str())) saved = now;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a display's refresh
    }
  }).detach();
  return true;
}
