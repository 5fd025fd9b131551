#include "camera_devices/FakeCamera.h"

#include <linux/videodev2.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kavri/CameraDevice.h"

namespace camera_devices {
namespace {

constexpr int kFakeFd = 42;
constexpr uint32_t kOffsetShift = 20;  // buffer index << shift is its mapping offset
constexpr uint32_t kUnlimitedGrant = 32;
constexpr size_t kCompressedSlack = 64 * 1024;  // tiny pictures still have JPEG headers
constexpr size_t kEventLimit = 4096;              // a simulated camera may run for days

struct FormatEntry {
  uint32_t pixelFormat;
  const char* description;
  uint32_t flags;
};
constexpr FormatEntry kFormats[] = {
    {V4L2_PIX_FMT_MJPEG, "Motion-JPEG", V4L2_FMT_FLAG_COMPRESSED},
    {V4L2_PIX_FMT_YUYV, "YUYV 4:2:2", 0},
};
constexpr uint32_t kSizes[][2] = {{320, 240}, {640, 480}};
constexpr uint32_t kFramesPerSecond[] = {30, 15};

FakeCamera& Instance() {
  static FakeCamera camera;
  return camera;
}

int FakeStat(const char* path, struct stat* info) { return Instance().DoStat(path, info); }
int FakeOpen(const char* path, int flags) { return Instance().DoOpen(path, flags); }
int FakeIoctl(int fd, unsigned long request, void* arg) { return Instance().DoIoctl(fd, request, arg); }
void* FakeMmap(void*, size_t length, int, int, int fd, off_t offset) { return Instance().DoMmap(length, fd, offset); }
int FakeMunmap(void* address, size_t length) { return Instance().DoMunmap(address, length); }
int FakeSelect(int fdCount, fd_set* readFds, fd_set*, fd_set*, struct timeval* timeout) {
  return Instance().DoSelect(fdCount, readFds, timeout);
}
int FakeClose(int fd) { return Instance().DoClose(fd); }

const CameraDeviceOps fakeOps = {FakeStat, FakeOpen, FakeIoctl, FakeMmap, FakeMunmap, FakeSelect, FakeClose};

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

FakeCamera& FakeCamera::Install() {
  FakeCamera& camera = Instance();
  camera.Reset();
  CameraSetDeviceOps(&fakeOps);
  return camera;
}

void FakeCamera::Uninstall() { CameraSetDeviceOps(nullptr); }

void FakeCamera::Reset() {
  std::lock_guard lock(mutex_);
  pending_.clear();
  source_ = nullptr;
  paced_ = stalled_ = badIndexOnce_ = open_ = streaming_ = starved_ = false;
  openCount_ = closeCount_ = 0;
  timeoutScale_ = 1.0;
  frameDelay_ = std::chrono::milliseconds(0);
  nextFrameDue_ = {};
  failures_.clear();
  characterDevice_ = true;
  capabilities_ = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
  grantCount_ = kUnlimitedGrant;
  answerBytesPerLine_ = answerSizeImage_ = 0;
  width_ = height_ = framesPerSecond_ = 0;
  controls_.clear();
  buffers_.clear();
  queue_.clear();
  sequence_ = 0;
  events_.clear();
}

void FakeCamera::PushFrame(Bytes frame) {
  std::lock_guard lock(mutex_);
  pending_.push_back(std::move(frame));
  starved_ = false;
  changed_.notify_all();
}

void FakeCamera::SetFrameSource(FrameSource source) {
  std::lock_guard lock(mutex_);
  source_ = std::move(source);
  starved_ = false;
  changed_.notify_all();
}

void FakeCamera::PaceFromFrameRate(bool paced) {
  std::lock_guard lock(mutex_);
  paced_ = paced;
}

void FakeCamera::Stall(bool stalled) {
  std::lock_guard lock(mutex_);
  stalled_ = stalled;
  starved_ = starved_ && stalled;
  changed_.notify_all();
}

void FakeCamera::ScaleSelectTimeout(double scale) {
  std::lock_guard lock(mutex_);
  timeoutScale_ = scale;
}

void FakeCamera::DelayEachFrame(std::chrono::milliseconds delay) {
  std::lock_guard lock(mutex_);
  frameDelay_ = delay;
}

void FakeCamera::FailStep(FakeStep step, int error, int skip) {
  std::lock_guard lock(mutex_);
  failures_[step] = {error, skip};
}

void FakeCamera::SetCharacterDevice(bool isCharacterDevice) {
  std::lock_guard lock(mutex_);
  characterDevice_ = isCharacterDevice;
}

void FakeCamera::SetCapabilities(uint32_t capabilities) {
  std::lock_guard lock(mutex_);
  capabilities_ = capabilities;
}

void FakeCamera::GrantBuffers(uint32_t count) {
  std::lock_guard lock(mutex_);
  grantCount_ = count;
}

void FakeCamera::AnswerFormat(uint32_t bytesPerLine, uint32_t sizeImage) {
  std::lock_guard lock(mutex_);
  answerBytesPerLine_ = bytesPerLine;
  answerSizeImage_ = sizeImage;
}

void FakeCamera::ReportBadIndexOnce() {
  std::lock_guard lock(mutex_);
  badIndexOnce_ = true;
}

bool FakeCamera::IsOpen() const {
  std::lock_guard lock(mutex_);
  return open_;
}

int FakeCamera::OpenCount() const {
  std::lock_guard lock(mutex_);
  return openCount_;
}

int FakeCamera::CloseCount() const {
  std::lock_guard lock(mutex_);
  return closeCount_;
}

int FakeCamera::MappedBufferCount() const {
  std::lock_guard lock(mutex_);
  return int(std::count_if(buffers_.begin(), buffers_.end(), [](const Buffer& b) { return b.mapped; }));
}

int FakeCamera::QueuedBufferCount() const {
  std::lock_guard lock(mutex_);
  return int(queue_.size());
}

bool FakeCamera::IsStreaming() const {
  std::lock_guard lock(mutex_);
  return streaming_;
}

uint32_t FakeCamera::FramesServed() const {
  std::lock_guard lock(mutex_);
  return sequence_;
}

std::vector<std::string> FakeCamera::Events() const {
  std::lock_guard lock(mutex_);
  return {events_.begin(), events_.end()};
}

uint32_t FakeCamera::RequestedWidth() const {
  std::lock_guard lock(mutex_);
  return width_;
}

uint32_t FakeCamera::RequestedHeight() const {
  std::lock_guard lock(mutex_);
  return height_;
}

uint32_t FakeCamera::RequestedFrameInterval() const {
  std::lock_guard lock(mutex_);
  return framesPerSecond_;
}

int32_t FakeCamera::ControlValue(uint32_t id) const {
  std::lock_guard lock(mutex_);
  auto found = controls_.find(id);
  return found == controls_.end() ? -1 : found->second;
}

bool FakeCamera::WaitUntilStarved(std::chrono::milliseconds bound) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, bound, [this] { return starved_; });
}

// Called with the lock held; sets errno when the step is to fail now.
bool FakeCamera::Fails(FakeStep step) {
  auto found = failures_.find(step);
  if (found == failures_.end()) return false;
  if (found->second.second > 0) {
    --found->second.second;
    return false;
  }
  errno = found->second.first;
  failures_.erase(found);
  return true;
}

bool FakeCamera::FrameAvailable() const { return !stalled_ && (!pending_.empty() || source_); }

bool FakeCamera::ReadyLocked(std::chrono::steady_clock::time_point now) const {
  return streaming_ && !queue_.empty() && FrameAvailable() && (!paced_ || now >= nextFrameDue_);
}

void FakeCamera::Note(std::string event) {
  events_.push_back(std::move(event));
  if (events_.size() > kEventLimit) events_.pop_front();
}

uint32_t FakeCamera::BufferLength() const { return uint32_t(size_t(width_) * height_ * 2 + kCompressedSlack); }

int FakeCamera::DoStat(const char*, struct stat* info) {
  std::lock_guard lock(mutex_);
  if (Fails(FakeStep::Stat)) return -1;
  memset(info, 0, sizeof *info);
  info->st_mode = characterDevice_ ? (S_IFCHR | 0660) : (S_IFREG | 0644);
  return 0;
}

int FakeCamera::DoOpen(const char*, int) {
  std::lock_guard lock(mutex_);
  if (Fails(FakeStep::Open)) return -1;
  if (open_) return Fail(EBUSY);
  open_ = true;
  ++openCount_;
  Note("OPEN");
  return kFakeFd;
}

int FakeCamera::DoClose(int fd) {
  std::lock_guard lock(mutex_);
  if (fd != kFakeFd || !open_) return Fail(EBADF);
  // Like the system call, a failing close still releases the descriptor.
  open_ = false;
  ++closeCount_;
  Note("CLOSE");
  return Fails(FakeStep::Close) ? -1 : 0;
}

int FakeCamera::DoIoctl(int fd, unsigned long request, void* arg) {
  std::lock_guard lock(mutex_);
  if (fd != kFakeFd || !open_) return Fail(EBADF);
  return HandleIoctl(request, arg);
}

int FakeCamera::HandleIoctl(unsigned long request, void* arg) {
  switch (request) {
    case VIDIOC_QUERYCAP: return QueryCapability(arg);
    case VIDIOC_ENUM_FMT: return EnumerateFormat(arg);
    case VIDIOC_ENUM_FRAMESIZES: return EnumerateSize(arg);
    case VIDIOC_ENUM_FRAMEINTERVALS: return EnumerateInterval(arg);
    case VIDIOC_S_FMT: return SetFormat(arg);
    case VIDIOC_S_PARM: return SetParameters(arg);
    case VIDIOC_S_CTRL: return SetControl(arg);
    case VIDIOC_REQBUFS: return RequestBuffers(arg);
    case VIDIOC_QUERYBUF: return QueryBuffer(arg);
    case VIDIOC_QBUF: return Queue(arg);
    case VIDIOC_DQBUF: return Dequeue(arg);
    case VIDIOC_STREAMON: return Stream(true);
    case VIDIOC_STREAMOFF: return Stream(false);
    default: return Fail(ENOTTY);
  }
}

int FakeCamera::QueryCapability(void* arg) {
  if (Fails(FakeStep::QueryCap)) return -1;
  auto* capability = static_cast<v4l2_capability*>(arg);
  memset(capability, 0, sizeof *capability);
  strcpy(reinterpret_cast<char*>(capability->driver), "fakecam");
  strcpy(reinterpret_cast<char*>(capability->card), "Fake camera");
  capability->capabilities = capabilities_;
  capability->device_caps = capabilities_;
  return 0;
}

int FakeCamera::EnumerateFormat(void* arg) {
  auto* format = static_cast<v4l2_fmtdesc*>(arg);
  if (format->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || format->index >= std::size(kFormats)) return Fail(EINVAL);
  const FormatEntry& entry = kFormats[format->index];
  format->flags = entry.flags;
  format->pixelformat = entry.pixelFormat;
  strcpy(reinterpret_cast<char*>(format->description), entry.description);
  return 0;
}

int FakeCamera::EnumerateSize(void* arg) {
  auto* size = static_cast<v4l2_frmsizeenum*>(arg);
  if (size->index >= std::size(kSizes)) return Fail(EINVAL);
  size->type = V4L2_FRMSIZE_TYPE_DISCRETE;
  size->discrete.width = kSizes[size->index][0];
  size->discrete.height = kSizes[size->index][1];
  return 0;
}

int FakeCamera::EnumerateInterval(void* arg) {
  auto* interval = static_cast<v4l2_frmivalenum*>(arg);
  if (interval->index >= std::size(kFramesPerSecond)) return Fail(EINVAL);
  interval->type = V4L2_FRMIVAL_TYPE_DISCRETE;
  interval->discrete.numerator = 1;
  interval->discrete.denominator = kFramesPerSecond[interval->index];
  return 0;
}

int FakeCamera::SetFormat(void* arg) {
  if (Fails(FakeStep::SetFormat)) return -1;
  v4l2_pix_format& pix = static_cast<v4l2_format*>(arg)->fmt.pix;
  width_ = pix.width;
  height_ = pix.height;
  pix.bytesperline = answerBytesPerLine_;
  pix.sizeimage = answerSizeImage_ ? answerSizeImage_ : width_ * height_ * 2;
  return 0;
}

int FakeCamera::SetParameters(void* arg) {
  if (Fails(FakeStep::SetParm)) return -1;
  v4l2_fract& perFrame = static_cast<v4l2_streamparm*>(arg)->parm.capture.timeperframe;
  framesPerSecond_ = perFrame.numerator ? perFrame.denominator / perFrame.numerator : 0;
  return 0;
}

int FakeCamera::SetControl(void* arg) {
  if (Fails(FakeStep::SetCtrl)) return -1;
  auto* control = static_cast<v4l2_control*>(arg);
  controls_[control->id] = control->value;
  return 0;
}

int FakeCamera::RequestBuffers(void* arg) {
  if (Fails(FakeStep::ReqBufs)) return -1;
  auto* request = static_cast<v4l2_requestbuffers*>(arg);
  request->count = std::min(request->count, grantCount_);
  buffers_.assign(request->count, Buffer{});
  for (Buffer& buffer : buffers_) buffer.memory.resize(BufferLength());
  queue_.clear();
  return 0;
}

int FakeCamera::QueryBuffer(void* arg) {
  if (Fails(FakeStep::QueryBuf)) return -1;
  auto* buffer = static_cast<v4l2_buffer*>(arg);
  if (buffer->index >= buffers_.size()) return Fail(EINVAL);
  buffer->length = uint32_t(buffers_[buffer->index].memory.size());
  buffer->m.offset = buffer->index << kOffsetShift;
  return 0;
}

void* FakeCamera::DoMmap(size_t length, int fd, off_t offset) {
  std::lock_guard lock(mutex_);
  if (Fails(FakeStep::Mmap)) return MAP_FAILED;
  size_t index = size_t(offset) >> kOffsetShift;
  if (fd != kFakeFd || index >= buffers_.size() || length > buffers_[index].memory.size()) {
    errno = EINVAL;
    return MAP_FAILED;
  }
  buffers_[index].mapped = true;
  return buffers_[index].memory.data();
}

int FakeCamera::DoMunmap(void* address, size_t) {
  std::lock_guard lock(mutex_);
  if (Fails(FakeStep::Munmap)) return -1;
  for (Buffer& buffer : buffers_) {
    if (buffer.mapped && buffer.memory.data() == address) {
      buffer.mapped = false;
      return 0;
    }
  }
  return Fail(EINVAL);
}

int FakeCamera::Queue(void* arg) {
  if (Fails(FakeStep::QBuf)) return -1;
  auto* buffer = static_cast<v4l2_buffer*>(arg);
  if (buffer->index >= buffers_.size() || buffers_[buffer->index].queued) return Fail(EINVAL);
  buffers_[buffer->index].queued = true;
  queue_.push_back(buffer->index);
  Note("QBUF " + std::to_string(buffer->index));
  changed_.notify_all();
  return 0;
}

int FakeCamera::Dequeue(void* arg) {
  if (Fails(FakeStep::DqBuf)) return -1;
  if (!ReadyLocked(std::chrono::steady_clock::now())) return Fail(EAGAIN);
  uint32_t index = queue_.front();
  queue_.erase(queue_.begin());
  Buffer& target = buffers_[index];
  target.queued = false;
  Bytes frame;
  if (!pending_.empty()) {
    frame = std::move(pending_.front());
    pending_.erase(pending_.begin());
  } else {
    frame = source_(sequence_, int(width_), int(height_));
  }
  size_t used = std::min(frame.size(), target.memory.size());
  std::copy_n(frame.begin(), used, target.memory.begin());

  auto* buffer = static_cast<v4l2_buffer*>(arg);
  buffer->index = badIndexOnce_ ? uint32_t(buffers_.size()) : index;
  badIndexOnce_ = false;
  buffer->bytesused = uint32_t(used);
  buffer->flags = V4L2_BUF_FLAG_MAPPED | V4L2_BUF_FLAG_DONE;
  buffer->field = V4L2_FIELD_NONE;
  buffer->sequence = sequence_++;
  buffer->length = uint32_t(target.memory.size());
  buffer->m.offset = index << kOffsetShift;
  if (paced_ && framesPerSecond_)
    nextFrameDue_ = std::chrono::steady_clock::now() + std::chrono::microseconds(1000000 / framesPerSecond_);
  Note("DQBUF " + std::to_string(index));
  return 0;
}

int FakeCamera::Stream(bool on) {
  if (Fails(on ? FakeStep::StreamOn : FakeStep::StreamOff)) return -1;
  streaming_ = on;
  if (!on) {
    // Stopping the stream takes every buffer back from the driver.
    for (uint32_t index : queue_) buffers_[index].queued = false;
    queue_.clear();
  }
  Note(on ? "STREAMON" : "STREAMOFF");
  changed_.notify_all();
  return 0;
}

int FakeCamera::DoSelect(int fdCount, fd_set* readFds, struct timeval* timeout) {
  std::unique_lock lock(mutex_);
  if (Fails(FakeStep::Select)) return -1;
  if (fdCount <= kFakeFd || !FD_ISSET(kFakeFd, readFds)) return Fail(EINVAL);
  auto start = std::chrono::steady_clock::now();
  // No time-out means waiting for good; an hour stands in for that.
  auto limit = timeout ? std::chrono::microseconds(int64_t(timeout->tv_sec) * 1000000 + timeout->tv_usec)
                       : std::chrono::microseconds(std::chrono::hours(1));
  auto deadline = start + std::chrono::duration_cast<std::chrono::microseconds>(limit * timeoutScale_);
  auto earliest = start + frameDelay_;
  for (;;) {
    auto now = std::chrono::steady_clock::now();
    if (ReadyLocked(now) && now >= earliest) break;
    if (now >= deadline) {
      starved_ = false;
      FD_ZERO(readFds);
      return 0;
    }
    if (!FrameAvailable() && !starved_) {
      starved_ = true;
      changed_.notify_all();
    }
    auto wake = deadline;
    if (now < earliest) wake = std::min(wake, earliest);
    if (paced_ && nextFrameDue_ > now) wake = std::min(wake, nextFrameDue_);
    changed_.wait_until(lock, wake);
  }
  starved_ = false;
  return 1;
}

}  // namespace camera_devices
