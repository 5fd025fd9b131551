#include "PanelHost.h"

#include <dlfcn.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "PanelServer.h"
#include "PanelState.h"
#include "kavri/CameraDevice.h"
#include "kavri/KavriLib.h"
#include "kavri/MotorIOLib.h"

namespace {

// Set once by StartPanel, then only read; the panel lives as long as the process.
std::atomic<PanelState*> panelState{nullptr};
PanelServer* panelServer = nullptr;  // kept where the leak check at exit finds it

template <typename Function>
Function Find(const char* name) {
  // Looked up at run time: the maker's libraries on the controller have none of these.
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

PanelDevices FindDevices() {
  PanelDevices devices;
  devices.press = Find<void (*)(int, int)>("SDLWidgetsSim_Press");
  devices.move = Find<void (*)(int, int)>("SDLWidgetsSim_Move");
  devices.release = Find<void (*)(int, int)>("SDLWidgetsSim_Release");
  devices.setInput = Find<void (*)(int, int32_t)>("MotorIOLibSim_SetInput");
  devices.copyScreen = Find<void (*)(uint32_t*)>("SDLWidgetsSim_CopyScreen");
  return devices;
}

// The host's standard output and error pass through pipes: each line still
// reaches the terminal or log file, and the panel keeps the last ones.
class OutputTee {
 public:
  bool Start(PanelState& state) {
    for (int i = 0; i < 2; ++i) {
      int fds[2];
      if (pipe(fds) != 0) return false;
      streams_[i].original = dup(i + 1);
      streams_[i].read = fds[0];
      fflush(i == 0 ? stdout : stderr);
      dup2(fds[1], i + 1);
      close(fds[1]);
    }
    thread_ = std::thread([this, &state] { Run(state); });
    return true;
  }

  // Puts the original descriptors back, which closes the pipes' writing
  // ends, and waits until what was in them has been passed on.
  void Finish() {
    if (!thread_.joinable()) return;
    fflush(nullptr);
    for (int i = 0; i < 2; ++i) dup2(streams_[i].original, i + 1);
    thread_.join();
  }

 private:
  struct Stream {
    int original = -1, read = -1;
    std::string partial;
  };

  void Run(PanelState& state) {
    char buffer[4096];
    int open = 2;
    while (open > 0) {
      pollfd fds[2] = {{streams_[0].read, POLLIN, 0}, {streams_[1].read, POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;
      for (int i = 0; i < 2; ++i) {
        Stream& stream = streams_[i];
        if (stream.read < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        ssize_t n = read(stream.read, buffer, sizeof buffer);
        if (n <= 0) {
          close(stream.read);
          stream.read = -1;
          --open;
          continue;
        }
        for (ssize_t done = 0; done < n;) {
          ssize_t w = write(stream.original, buffer + done, size_t(n - done));
          if (w <= 0) break;  // nowhere to write: the panel still sees the lines
          done += w;
        }
        Lines(state, stream, buffer, size_t(n));
      }
    }
  }

  static void Lines(PanelState& state, Stream& stream, const char* data, size_t size) {
    constexpr size_t kLongestLine = 1000;  // a line without end is cut, not kept growing
    for (size_t i = 0; i < size; ++i) {
      if (data[i] == '\n' || stream.partial.size() >= kLongestLine) {
        state.AddLogLine(stream.partial);
        stream.partial.clear();
        if (data[i] == '\n') continue;
      }
      stream.partial += data[i];
    }
  }

  std::array<Stream, 2> streams_;
  std::thread thread_;
};

OutputTee outputTee;

// The camera seam with a look at each dequeued frame. Only the capture
// thread calls it; the panel copies a frame at most this often.
constexpr auto kCameraCopyGap = std::chrono::milliseconds(100);

struct CameraTap {
  static constexpr int kMappings = 32;
  const CameraDeviceOps* inner = nullptr;
  std::mutex mutex;  // the capture thread's starts and stops may come from several threads in turn
  struct Mapping {
    void* address = nullptr;
    size_t length = 0;
    off_t offset = 0;
  };
  std::array<Mapping, kMappings> mappings;
  std::chrono::steady_clock::time_point lastCopy{};
};

CameraTap cameraTap;

int TapStat(const char* path, struct stat* info) { return cameraTap.inner->stat(path, info); }
int TapOpen(const char* path, int flags) { return cameraTap.inner->open(path, flags); }
int TapSelect(int n, fd_set* r, fd_set* w, fd_set* e, struct timeval* t) { return cameraTap.inner->select(n, r, w, e, t); }
int TapClose(int fd) { return cameraTap.inner->close(fd); }

void* TapMmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  void* mapped = cameraTap.inner->mmap(address, length, protection, flags, fd, offset);
  if (mapped == MAP_FAILED) return mapped;
  std::lock_guard lock(cameraTap.mutex);
  for (auto& m : cameraTap.mappings)
    if (!m.address) {
      m = {mapped, length, offset};
      break;
    }
  return mapped;
}

int TapMunmap(void* address, size_t length) {
  {
    std::lock_guard lock(cameraTap.mutex);
    for (auto& m : cameraTap.mappings)
      if (m.address == address) m = {};
  }
  return cameraTap.inner->munmap(address, length);
}

int TapIoctl(int fd, unsigned long request, void* arg) {
  int result = cameraTap.inner->ioctl(fd, request, arg);
  PanelState* state = panelState.load(std::memory_order_acquire);
  if (result != 0 || request != VIDIOC_DQBUF || !state) return result;
  const auto* buffer = static_cast<const v4l2_buffer*>(arg);
  std::lock_guard lock(cameraTap.mutex);
  const auto now = std::chrono::steady_clock::now();
  const bool copy = now - cameraTap.lastCopy >= kCameraCopyGap;
  for (const auto& m : cameraTap.mappings)
    if (m.address && m.offset == off_t(buffer->m.offset)) {
      // Only the frame's bytes that lie inside its mapping.
      const size_t used = std::min<size_t>(buffer->bytesused, m.length);
      if (copy) cameraTap.lastCopy = now;
      state->SetCameraFrame(copy ? static_cast<const uint8_t*>(m.address) : nullptr, used);
      break;
    }
  return result;
}

const CameraDeviceOps kTapOps = {TapStat, TapOpen, TapIoctl, TapMmap, TapMunmap, TapSelect, TapClose};

void InstallCameraTap() {
  cameraTap.inner = CameraGetDeviceOps();
  CameraSetDeviceOps(&kTapOps);
}

// Every I/O cycle: the transfer area's inputs and outputs, the screen's
// change count and whether a program runs.
void Sample(PanelState& state) {
  using ScreenChanges = uint32_t (*)();
  const auto screenChanges = Find<ScreenChanges>("SDLWidgetsSim_ScreenChanges");
  shm_if_s* area = MotorIOLib_GetTransArea(0);
  for (;;) {
    std::array<uint16_t, kPanelChannels> outputs, inputs;
    for (int i = 0; i < kPanelChannels; ++i) {
      // The area is shared memory with the program and the hardware side.
      outputs[i] = std::atomic_ref<uint16_t>(area->OutputValues[i]).load(std::memory_order_relaxed);
      inputs[i] = std::atomic_ref<uint16_t>(area->InputValues[i]).load(std::memory_order_relaxed);
    }
    state.SetIo(outputs, inputs);
    if (screenChanges) state.SetScreenChanges(screenChanges());
    state.SetRunning(KavriLib_CheckDownloadProgramActive());
    state.TickCameraRate(std::chrono::steady_clock::now());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

int StartPanel(const std::string& address, int port) {
  // Lives to the process' end, like the threads that use it.
  auto* state = new PanelState;
  panelServer = new PanelServer(*state, FindDevices());
  const int bound = panelServer->Start(address, port);
  if (bound < 0) return -1;
  // A browser that vanishes is a failed write, not the end of the controller.
  signal(SIGPIPE, SIG_IGN);
  outputTee.Start(*state);
  InstallCameraTap();
  panelState.store(state, std::memory_order_release);
  std::thread([state] { Sample(*state); }).detach();
  const bool v6 = address.find(':') != std::string::npos;
  printf("kavri-host: panel on http://%s%s%s:%d/\n", v6 ? "[" : "", address.c_str(), v6 ? "]" : "", bound);
  return bound;
}

void PanelProgramInfo(const char* name, int32_t state, const char* stateText) {
  if (PanelState* panel = panelState.load(std::memory_order_acquire)) panel->ProgramInfo(name, state, stateText);
}

void PanelDisplayFrame(const uint8_t* frame) {
  if (PanelState* panel = panelState.load(std::memory_order_acquire)) panel->SetDisplay(frame);
}

void FlushPanelOutput() { outputTee.Finish(); }
