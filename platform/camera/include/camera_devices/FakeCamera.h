// A scriptable Video4Linux2 device behind the camera seam: it answers every
// request the capture thread makes, serves Motion-JPEG frames into its
// buffers, and can grant fewer buffers, fail any single step, stall, or
// report what happened to it. One device per process.
#ifndef CAMERA_DEVICES_FAKECAMERA_H
#define CAMERA_DEVICES_FAKECAMERA_H

#include <sys/select.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "camera_devices/JpegFrames.h"

namespace camera_devices {

// The device calls that can be made to fail.
enum class FakeStep {
  Stat,
  Open,
  QueryCap,
  SetFormat,
  SetParm,
  SetCtrl,
  ReqBufs,
  QueryBuf,
  Mmap,
  QBuf,
  StreamOn,
  Select,
  DqBuf,
  StreamOff,
  Munmap,
  Close,
};

class FakeCamera {
 public:
  using FrameSource = std::function<Bytes(uint32_t sequence, int width, int height)>;

  // Puts a fresh device behind the camera seam and returns it.
  static FakeCamera& Install();
  // Gives the seam back to the system calls.
  static void Uninstall();

  // Frames are served in the order pushed; when none is left, the source (if
  // any) makes the next one, and without a source the device stalls.
  void PushFrame(Bytes frame);
  void SetFrameSource(FrameSource source);
  // Frames no more often than the interval the capture thread asked for.
  void PaceFromFrameRate(bool paced);
  // Holds every frame back until released; select then waits (see below).
  void Stall(bool stalled);
  // select waits this fraction of the time-out it is given (1 = real time).
  void ScaleSelectTimeout(double scale);
  // Each wait in select takes at least this long.
  void DelayEachFrame(std::chrono::milliseconds delay);

  // Call number `skip` + 1 of the step fails with the errno.
  void FailStep(FakeStep step, int error, int skip = 0);
  void SetCharacterDevice(bool isCharacterDevice);
  void SetCapabilities(uint32_t capabilities);
  void GrantBuffers(uint32_t count);
  // Overrides of the driver's answer to the format request; 0 keeps the default.
  void AnswerFormat(uint32_t bytesPerLine, uint32_t sizeImage);
  // The next dequeue names a buffer index the driver never granted.
  void ReportBadIndexOnce();

  // What happened, for tests.
  bool IsOpen() const;
  int OpenCount() const;  // opens and closes since Install
  int CloseCount() const;
  int MappedBufferCount() const;
  int QueuedBufferCount() const;
  bool IsStreaming() const;
  uint32_t FramesServed() const;
  // The latest few thousand of "OPEN", "QBUF 1", "DQBUF 1", "STREAMON", ...
  std::vector<std::string> Events() const;
  uint32_t RequestedWidth() const;
  uint32_t RequestedHeight() const;
  uint32_t RequestedFrameInterval() const;  // denominator of the time per frame
  int32_t ControlValue(uint32_t id) const;  // -1 when never set
  // Waits until the capture thread waits in select with no frame to serve.
  bool WaitUntilStarved(std::chrono::milliseconds bound);

  // The seam's operations, for the table.
  int DoStat(const char* path, struct stat* info);
  int DoOpen(const char* path, int flags);
  int DoIoctl(int fd, unsigned long request, void* arg);
  void* DoMmap(size_t length, int fd, off_t offset);
  int DoMunmap(void* address, size_t length);
  int DoSelect(int fdCount, fd_set* readFds, struct timeval* timeout);
  int DoClose(int fd);

 private:
  struct Buffer {
    Bytes memory;
    bool mapped = false;
    bool queued = false;
  };

  void Reset();
  bool Fails(FakeStep step);
  bool FrameAvailable() const;
  bool ReadyLocked(std::chrono::steady_clock::time_point now) const;
  int HandleIoctl(unsigned long request, void* arg);
  int QueryCapability(void* arg);
  int EnumerateFormat(void* arg);
  int EnumerateSize(void* arg);
  int EnumerateInterval(void* arg);
  int SetFormat(void* arg);
  int SetParameters(void* arg);
  int SetControl(void* arg);
  int RequestBuffers(void* arg);
  int QueryBuffer(void* arg);
  int Queue(void* arg);
  int Dequeue(void* arg);
  int Stream(bool on);
  void Note(std::string event);
  uint32_t BufferLength() const;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Bytes> pending_;
  FrameSource source_;
  bool paced_ = false;
  bool stalled_ = false;
  double timeoutScale_ = 1.0;
  std::chrono::milliseconds frameDelay_{0};
  std::chrono::steady_clock::time_point nextFrameDue_{};
  std::map<FakeStep, std::pair<int, int>> failures_;  // step: errno, calls to let pass
  bool characterDevice_ = true;
  uint32_t capabilities_ = 0;
  uint32_t grantCount_ = 0;
  uint32_t answerBytesPerLine_ = 0;
  uint32_t answerSizeImage_ = 0;
  bool badIndexOnce_ = false;
  bool open_ = false;
  int openCount_ = 0;
  int closeCount_ = 0;
  bool streaming_ = false;
  bool starved_ = false;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint32_t framesPerSecond_ = 0;
  std::map<uint32_t, int32_t> controls_;
  std::vector<Buffer> buffers_;
  std::vector<uint32_t> queue_;
  uint32_t sequence_ = 0;
  std::deque<std::string> events_;
};

}  // namespace camera_devices

#endif
