// kavri-host: the host application of a controller. Sets the library's
// ports and paths, hears of program state changes and runs until SIGINT or
// SIGTERM.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "DisplayWatcher.h"
#include "HostOptions.h"
#include "Listening.h"
#include "TouchScreen.h"
#ifdef KAVRI_HOST_PANEL
#include "PanelHost.h"
#endif
#include "camera_devices/SimCamera.h"
#include "DisplayImage.h"
#include "kavri/CameraDevice.h"
#include "kavri/KavriLib.h"

extern "C" {
int DebugFlags = 0;
FILE* DebugFile = nullptr;
}

namespace {

// _exit skips the leak check a sanitized build makes at exit; it is made
// here instead, with the library's threads still holding what they hold.
bool LeaksFound() {
#if defined(__SANITIZE_ADDRESS__)
  return __lsan_do_recoverable_leak_check() != 0;
#else
  return false;
#endif
}

const char* ProgramStateText(int32_t state) {
  static const char* const texts[] = {
      "online mode started",        "online mode stopped",        "downloaded (RAM only)",
      "downloaded (flash file)",    "start requested",            "display built",
      "display ended",              "stopped",
  };
  return state >= 0 && state < static_cast<int32_t>(sizeof texts / sizeof *texts) ? texts[state] : "unknown state";
}

void PrintProgramInfo(KavriLib_ProgramInfo* info) {
  printf("kavri-host: program %s%s%s: %s (state %d)\n", info->name ? "\"" : "", info->name ? info->name : "-",
         info->name ? "\"" : "", ProgramStateText(info->state), info->state);
#ifdef KAVRI_HOST_PANEL
  PanelProgramInfo(info->name, info->state, ProgramStateText(info->state));
#endif
}

FILE* OpenOrComplain(const std::string& path, const char* mode, const char* what) {
  FILE* file = fopen(path.c_str(), mode);
  if (!file) fprintf(stderr, "kavri-host: cannot open %s %s: %s\n", what, path.c_str(), strerror(errno));
  return file;
}

bool MakeProgramDirectory(const std::string& path) {
  if (mkdir(path.c_str(), 0755) == 0 || errno == EEXIST) return true;
  fprintf(stderr, "kavri-host: cannot create program directory %s: %s\n", path.c_str(), strerror(errno));
  return false;
}

bool ConfigureLibrary(const HostOptions& options) {
  DebugFlags = options.debugFlags;
  DebugFile = stdout;
  if (!options.debugFile.empty()) {
    if (!(DebugFile = OpenOrComplain(options.debugFile, "a", "debug file"))) return false;
    // The library flushes only standard output; a debug file is read while
    // the controller runs.
    setvbuf(DebugFile, nullptr, _IOLBF, 0);
  }
  if (!options.cameraFile.empty() && !(CameraFile = OpenOrComplain(options.cameraFile, "wb", "camera file")))
    return false;
  if (!options.sysVersionFile.empty()) SysVersionFile = options.sysVersionFile.c_str();
  if (!MakeProgramDirectory(options.programs)) return false;
  if (!options.bindAddress.empty()) KavriBindAddress = options.bindAddress.c_str();
  KavriServerPort = options.port;
  CameraServerPort = options.cameraPort;
  if (options.camera == "sim")
    SimCamera_Install();
  else
    CameraUseDevice(options.camera.c_str());
  KavriLib_SetProgramLibraryPath(options.programs.c_str());
  KavriLib_SetProgramInfoCallback(PrintProgramInfo);
  ChooseDisplayFont();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int exitCode = 0;
  std::optional<HostOptions> options = ParseHostOptions(argc, argv, exitCode);
  if (!options) return exitCode;
  setvbuf(stdout, nullptr, _IOLBF, 0);  // people and scripts watch the log live

  // Every thread the library starts inherits this mask, so the signals
  // reach only the sigwait below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  if (!ConfigureLibrary(*options)) return 1;
  const bool panel = options->webPort >= 0;
  if (panel) {
#ifdef KAVRI_HOST_PANEL
    // Before the library's first line, so that the panel's log has it too.
    if (StartPanel(options->webBind, options->webPort) < 0) return 1;
#else
    fprintf(stderr, "kavri-host: this build has no browser panel (built without cpp-httplib); --web ignored\n");
#endif
  }
  if (!options->displayImage.empty() || panel)
    StartDisplayWatcher([path = options->displayImage](const uint8_t* frame) {
      if (!path.empty()) WriteDisplayImage(frame, path.c_str());
#ifdef KAVRI_HOST_PANEL
      PanelDisplayFrame(frame);
#endif
    });
  if (!options->screenImage.empty()) StartScreenWatcher(options->screenImage);
  if (!KavriLib_Init()) return 1;
  // The server thread binds on its own and ends the process if it cannot;
  // until it listens there is nothing true to announce.
  if (WaitUntilListening(options->port, std::chrono::seconds(60)))
    printf("kavri-host: PC link on port %d, camera stream on port %d, programs in %s, camera %s\n", options->port,
           options->cameraPort, options->programs.c_str(), options->camera.c_str());

  int received = 0;
  sigwait(&stopSignals, &received);
  printf("kavri-host: %s received, stopping\n", strsignal(received));
  KavriLib_Terminate();
  // The library's threads (capture, servers, I/O cycle) may still be running
  // and have no stop call: ending without the static destructors keeps them
  // from touching objects torn down under them. Open files are flushed here
  // and closed by the system.
  fflush(nullptr);
#ifdef KAVRI_HOST_PANEL
  FlushPanelOutput();
#endif
  _exit(LeaksFound() ? 1 : 0);
}
