// What the browser panel shows: the latest display frame, the I/O values, the
// program's state, the last log lines and camera picture, each with a version
// number so that every event stream sends only what changed since it last
// looked. Written by the host's watchers, read by the HTTP threads; the lock
// is the host's own and never held while the library waits on anything.
#ifndef KAVRI_HOST_PANEL_STATE_H
#define KAVRI_HOST_PANEL_STATE_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

constexpr int kPanelChannels = 8;
constexpr int kPanelDisplayBytes = 1024;
constexpr size_t kPanelLogLines = 60;

struct PanelIo {
  std::array<uint16_t, kPanelChannels> outputs{};
  std::array<uint16_t, kPanelChannels> inputs{};
  std::array<int32_t, kPanelChannels> forced{-1, -1, -1, -1, -1, -1, -1, -1};  // -1: the hardware's
  bool operator==(const PanelIo&) const = default;
};

struct PanelProgram {
  std::string name;  // empty: none named yet
  int32_t state = -1;
  std::string stateText;
  bool running = false;
  bool online = false;
  std::optional<int32_t> exitCode;  // of the last program that ended by itself
  bool operator==(const PanelProgram&) const = default;
};

// Per stream: the versions it has sent.
struct PanelCursor {
  uint64_t display = 0, screen = 0, io = 0, program = 0, camera = 0, log = 0;
  std::chrono::steady_clock::time_point sent{};
};

class PanelState {
 public:
  PanelState() : displayVersion_(++clock_) {}  // a new page is sent the blank display too
  void SetDisplay(const uint8_t* frame);
  void SetScreenChanges(uint32_t changes);
  void SetIo(const std::array<uint16_t, kPanelChannels>& outputs, const std::array<uint16_t, kPanelChannels>& inputs);
  void SetForced(int channel, int32_t value);
  void ProgramInfo(const char* name, int32_t state, const char* stateText);
  void SetRunning(bool running);
  // One line of the host's output; recognises a program's end and its code.
  void AddLogLine(const std::string& line);
  // A camera frame as the capture thread received it (Motion-JPEG); null:
  // counted for the rate, the picture shown stays.
  void SetCameraFrame(const uint8_t* jpeg, size_t size);
  // Frames per second over the last second, recomputed by the host's ticker.
  void TickCameraRate(std::chrono::steady_clock::time_point now);

  // Waits up to `wait` for anything newer than `cursor`, then returns it as
  // server-sent events (empty if nothing came) and moves the cursor on.
  std::string NextEvents(PanelCursor& cursor, std::chrono::milliseconds wait);
  // Everything at once as JSON, for a page's first look and for scripts.
  std::string SnapshotJson();
  std::optional<std::vector<uint8_t>> CameraJpeg();
  PanelIo Io();
  // Wakes every waiting stream for good: the server is closing.
  void Close();
  bool Closed();

 private:
  std::string EventsLocked(PanelCursor& cursor);
  bool NewerLocked(const PanelCursor& cursor) const;
  void ChangedLocked(uint64_t& version);

  std::mutex mutex_;
  std::condition_variable changed_;
  bool closed_ = false;
  uint64_t clock_ = 0;  // versions come from one counter, so 0 means "never sent"
  std::array<uint8_t, kPanelDisplayBytes> display_{};
  uint64_t displayVersion_ = 0;
  uint32_t screenChanges_ = 0;
  uint64_t screenVersion_ = 0;
  PanelIo io_;
  uint64_t ioVersion_ = 0;
  PanelProgram program_;
  uint64_t programVersion_ = 0;
  std::vector<uint8_t> cameraFrame_;
  uint32_t cameraFrames_ = 0;      // since the last rate tick
  double cameraRate_ = 0;
  uint64_t cameraCount_ = 0;
  std::chrono::steady_clock::time_point rateTick_{};
  uint64_t cameraVersion_ = 0;
  std::deque<std::pair<uint64_t, std::string>> log_;  // version, line
};

#endif
