// The capture thread: opens and configures the camera, maps a small ring of
// driver buffers, decodes every frame and runs the analysis chain over the
// current and the previous frame. One straight sequence of steps with one
// teardown path; every device call goes through the camera device seam.
#include "kavri/Camera.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kavri/KavriLib.h"

extern "C" {

int32_t CameraFrameWidth = 320;
int32_t CameraFrameHeight = 240;
int32_t CameraFrameRate = 15;
int32_t CameraPowerlineFreq = 50;

int32_t CameraDeviceHandle = -1;
CameraBuffer* CameraBuffers = nullptr;
uint32_t CameraBufferCount = 0;
bool CameraHasPreviousBuffer = false;
struct v4l2_buffer CameraPreviousBuffer = {};

std::atomic<uint32_t> CameraFrameCount{0};
std::atomic<int32_t> CameraFrameCountSecond{0};
std::atomic<int32_t> CameraFrameRequestCountSecond{0};

pthread_t CameraThread;
std::atomic<bool> CameraThreadRunning{false};
std::atomic<bool> CameraThreadTerminate{false};

}  // extern "C"

namespace {

constexpr uint32_t kRequestedBufferCount = 3;
constexpr int kFrameWaitSeconds = 10;
constexpr uint32_t kSlowCaptureMs = 250;
constexpr int kDebugListFormats = 128;
constexpr int kDebugBufferTrace = 256;
constexpr int kDebugRecordFrames = 16;

// Bytes allocated for each decoded image, the room the decoder may fill.
size_t decodedRoom = 0;

const CameraDeviceOps& Device() { return *CameraGetDeviceOps(); }

// Steps report with the errno as it stands, which for some steps is the one
// an earlier call left behind.
void ReportCameraError(const char* step) {
  int error = errno;
  fprintf(stderr, "Camera Error at %s error %d, %s\n", step, error, strerror(error));
}

void PrintStatusLine(char letter) {
  int error = errno;
  fprintf(stderr, "Camera error status %c error %d, %s\n", letter, error, strerror(error));
}

int DeviceIoctl(unsigned long request, void* arg) {
  int result;
  do {
    result = Device().ioctl(CameraDeviceHandle, request, arg);
  } while (result == -1 && errno == EINTR);
  return result;
}

uint32_t WallClockMs() {
  timeval now;
  gettimeofday(&now, nullptr);
  return uint32_t(now.tv_sec) * 1000u + uint32_t(now.tv_usec / 1000);
}

bool CameraOpenDevice() {
  const char* path = CameraGetDevicePath();
  struct stat info;
  if (Device().stat(path, &info) == -1) {
    ReportCameraError("stat camera device");
    return false;
  }
  if (!S_ISCHR(info.st_mode)) {
    ReportCameraError("stat: not a device");
    return false;
  }
  CameraDeviceHandle = Device().open(path, O_RDWR | O_NONBLOCK);
  if (CameraDeviceHandle == -1) {
    ReportCameraError("open");
    return false;
  }
  return true;
}

void ListFrameIntervals(uint32_t pixelFormat, uint32_t width, uint32_t height) {
  v4l2_frmivalenum interval{};
  interval.pixel_format = pixelFormat;
  interval.width = width;
  interval.height = height;
  for (; DeviceIoctl(VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0; ++interval.index) {
    printf("    Rate type=%d %d/%d\n", int(interval.type), int(interval.discrete.numerator),
           int(interval.discrete.denominator));
    if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) break;
  }
}

void ListFrameSizes(uint32_t pixelFormat) {
  v4l2_frmsizeenum size{};
  size.pixel_format = pixelFormat;
  for (; DeviceIoctl(VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
    printf("  Size type=%d width=%d height=%d\n", int(size.type), int(size.discrete.width),
           int(size.discrete.height));
    ListFrameIntervals(pixelFormat, size.discrete.width, size.discrete.height);
  }
}

void CameraListFormats() {
  v4l2_fmtdesc format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  for (; DeviceIoctl(VIDIOC_ENUM_FMT, &format) == 0; ++format.index) {
    printf("Format type=%d flags=%d desc=%s 4cc=%4.4s\n", int(format.type), int(format.flags),
           reinterpret_cast<const char*>(format.description), reinterpret_cast<const char*>(&format.pixelformat));
    ListFrameSizes(format.pixelformat);
  }
}

bool CheckCapabilities() {
  v4l2_capability capability{};
  if (DeviceIoctl(VIDIOC_QUERYCAP, &capability) == -1) {
    ReportCameraError("VIDIOC_QUERYCAP");
    return false;
  }
  if (!(capability.capabilities & V4L2_CAP_VIDEO_CAPTURE)) {
    ReportCameraError("VIDIOC_QUERYCAP, not V4L2_CAP_VIDEO_CAPTURE");
    return false;
  }
  if (!(capability.capabilities & V4L2_CAP_STREAMING)) {
    ReportCameraError("VIDIOC_QUERYCAP, not V4L2_CAP_STREAMING");
    return false;
  }
  return true;
}

// The driver's answer is only checked; the settings keep what was asked.
bool SetFormat() {
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  format.fmt.pix.width = uint32_t(CameraFrameWidth);
  format.fmt.pix.height = uint32_t(CameraFrameHeight);
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
  format.fmt.pix.field = V4L2_FIELD_INTERLACED;
  if (DeviceIoctl(VIDIOC_S_FMT, &format) == -1) {
    ReportCameraError("VIDIOC_S_FMT");
    return false;
  }
  PrintStatusLine('B');
  const v4l2_pix_format& answer = format.fmt.pix;
  if (answer.bytesperline != 0 && answer.bytesperline < answer.width * 2) {
    fprintf(stderr, "bytesperline %d < %d", int(answer.bytesperline), int(answer.width * 2));
    ReportCameraError("VIDIOC_S_FMT, bytesperline wrong");
    return false;
  }
  PrintStatusLine('C');
  if (answer.sizeimage < answer.bytesperline * answer.height) {
    ReportCameraError("VIDIOC_S_FMT, sizeimage wrong");
    return false;
  }
  PrintStatusLine('D');
  return true;
}

bool SetFrameRate() {
  v4l2_streamparm parameters{};
  parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  parameters.parm.capture.timeperframe.numerator = 1;
  parameters.parm.capture.timeperframe.denominator = uint32_t(CameraFrameRate);
  if (DeviceIoctl(VIDIOC_S_PARM, &parameters) != 0) {
    ReportCameraError("VIDIOC_S_PARM");
    return false;
  }
  return true;
}

// Controls are a nicety: a camera without them still captures.
void SetControl(uint32_t id, int32_t value) {
  v4l2_control control{};
  control.id = id;
  control.value = value;
  if (DeviceIoctl(VIDIOC_S_CTRL, &control) == -1) ReportCameraError("VIDIOC_S_CTRL");
}

void ReleaseEntry(CameraBuffer& entry) {
  if (entry.mapped != MAP_FAILED && entry.mapped && Device().munmap(entry.mapped, entry.mappedLength) == -1)
    ReportCameraError("munmap");
  free(entry.decoded);
  entry = CameraBuffer{};
}

bool MapBuffer(uint32_t index) {
  v4l2_buffer buffer{};
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  buffer.index = index;
  if (DeviceIoctl(VIDIOC_QUERYBUF, &buffer) == -1) {
    ReportCameraError("VIDIOC_QUERYBUF");
    return false;
  }
  printf("Camera Buffer length = %d\n", int(buffer.length));
  CameraBuffer& entry = CameraBuffers[index];
  entry.mappedLength = buffer.length;
  entry.mapped = Device().mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, CameraDeviceHandle,
                               off_t(buffer.m.offset));
  entry.decodedLength = uint32_t(CameraFrameWidth) * uint32_t(CameraFrameHeight) * 2;
  entry.decoded = decodedRoom ? static_cast<unsigned char*>(malloc(decodedRoom)) : nullptr;
  if (decodedRoom == 0) errno = EINVAL;
  if (entry.mapped == MAP_FAILED || !entry.decoded) {
    ReportCameraError("mmap");
    ReleaseEntry(entry);
    return false;
  }
  ++CameraBufferCount;
  return true;
}

bool CameraAllocateBuffers() {
  puts("CameraAllocateBuffers");
  CameraHasPreviousBuffer = false;
  v4l2_requestbuffers request{};
  request.count = kRequestedBufferCount;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  if (DeviceIoctl(VIDIOC_REQBUFS, &request) == -1) {
    ReportCameraError("VIDIOC_REQBUFS");
    return false;
  }
  // One buffer is always held back as the previous frame, so two would leave
  // the driver a single one to fill.
  if (request.count < kRequestedBufferCount) {
    ReportCameraError("VIDIOC_REQBUFS, buffer count<2");
    return false;
  }
  CameraBuffers = static_cast<CameraBuffer*>(calloc(request.count, sizeof(CameraBuffer)));
  if (!CameraBuffers) {
    ReportCameraError("Allocate Buffers");
    return false;
  }
  CameraBufferCount = 0;
  decodedRoom = CameraDecodedAllocation(CameraFrameWidth, CameraFrameHeight);
  for (uint32_t index = 0; index < request.count; ++index)
    if (!MapBuffer(index)) return false;
  return true;
}

bool QueueBuffer(v4l2_buffer buffer) {
  if (DeviceIoctl(VIDIOC_QBUF, &buffer) == -1) {
    ReportCameraError("VIDIOC_QBUF");
    return false;
  }
  return true;
}

bool StartStreaming() {
  for (uint32_t index = 0; index < CameraBufferCount; ++index) {
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    if (!QueueBuffer(buffer)) return false;
  }
  v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (DeviceIoctl(VIDIOC_STREAMON, &type) == -1) {
    ReportCameraError("VIDIOC_STREAMON");
    return false;
  }
  return true;
}

bool WaitForFrame() {
  uint32_t started = WallClockMs();
  int ready;
  do {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(CameraDeviceHandle, &readable);
    timeval timeout{kFrameWaitSeconds, 0};
    ready = Device().select(CameraDeviceHandle + 1, &readable, nullptr, nullptr, &timeout);
  } while (ready == -1 && errno == EINTR);
  if (ready == -1) {
    ReportCameraError("select");
    return false;
  }
  if (ready == 0) {
    ReportCameraError("select timeout");
    return false;
  }
  uint32_t took = WallClockMs() - started;
  if (took > kSlowCaptureMs) printf("Camera Frame Capture Took %u ms!\n", took);
  return true;
}

bool GiveBack(const v4l2_buffer& buffer) {
  if (QueueBuffer(buffer)) return true;
  puts("Camera thread terminating");
  return false;
}

// The byte count of the compressed frame is applied to the decoded image, as
// the recording has always been; it stays within the decoded image.
void RecordFrame(const CameraBuffer& entry, uint32_t bytesUsed) {
  if (!(DebugFlags & kDebugRecordFrames) || !CameraFile) return;
  fwrite(entry.decoded, 1, std::min(bytesUsed, entry.decodedLength), CameraFile);
}

void AnalyseFrame(const CameraBuffer& entry, uint32_t bytesUsed) {
  CameraFrameCountSecond.fetch_add(1, std::memory_order_relaxed);
  CameraFrameCount.fetch_add(1, std::memory_order_relaxed);
  RecordFrame(entry, bytesUsed);
  const CameraBuffer& previous = CameraBuffers[CameraPreviousBuffer.index];
  CameraRunAnalysis(CameraAnalysisData, entry.decoded, previous.decoded, static_cast<unsigned char*>(entry.mapped),
                    int(bytesUsed));
}

[[noreturn]] void FailBufferIndexCheck() {
  fprintf(stderr, "CameraGetAndProcessFrame: Assertion `buffer.index < CameraBufferCount' failed.\n");
  abort();
}

// One turn of the capture loop; false ends the loop.
bool CameraGetAndProcessFrame() {
  if (!WaitForFrame()) return false;
  v4l2_buffer buffer{};
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  if (DeviceIoctl(VIDIOC_DQBUF, &buffer) == -1) {
    ReportCameraError(errno == EAGAIN ? "VIDIOC_DQBUF EAGAIN" : "VIDIOC_DQBUF");
    puts("Camera thread terminating");
    return false;
  }
  if (!(buffer.index < CameraBufferCount)) FailBufferIndexCheck();
  if (DebugFlags & kDebugBufferTrace)
    fprintf(DebugFile, "Buffer %d, previous buffer %d\n", int(buffer.index), int(CameraPreviousBuffer.index));
  const CameraBuffer& entry = CameraBuffers[buffer.index];
  uint32_t bytesUsed = std::min(buffer.bytesused, entry.mappedLength);
  if (!xoProJpegDec(static_cast<unsigned char*>(entry.mapped), int(bytesUsed), entry.decoded, int(decodedRoom)))
    return GiveBack(buffer);
  if (CameraHasPreviousBuffer) {
    AnalyseFrame(entry, bytesUsed);
    if (!GiveBack(CameraPreviousBuffer)) return false;
  }
  // The current buffer stays dequeued: its image is the next turn's previous frame.
  CameraPreviousBuffer = buffer;
  CameraHasPreviousBuffer = true;
  return true;
}

void CameraCaptureLoop() {
  while (!CameraThreadTerminate.load()) {
    if (!CameraGetAndProcessFrame()) return;
  }
  puts("Camera thread terminating");
}

void CameraStopCapture() {
  puts("CameraStopCapture");
  v4l2_buf_type type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (DeviceIoctl(VIDIOC_STREAMOFF, &type) == -1) ReportCameraError("VIDIOC_STREAMOFF");
  CameraUninitAnalysis(CameraAnalysisData);
}

void CameraCapture() {
  CameraInitAnalysis(CameraAnalysisData, CameraFrameWidth, CameraFrameHeight);
  puts("CameraStartCapture");
  CameraFrameCountSecond.store(0);
  CameraFrameCount.store(0);
  if (StartStreaming()) CameraCaptureLoop();
  CameraStopCapture();
}

// The table is cleared too: a later start that fails early must not walk
// buffers that are already gone.
void CameraFreeBuffers() {
  puts("CameraFreeBuffers");
  CameraHasPreviousBuffer = false;
  for (uint32_t index = 0; index < CameraBufferCount; ++index) ReleaseEntry(CameraBuffers[index]);
  free(CameraBuffers);
  CameraBuffers = nullptr;
  CameraBufferCount = 0;
  if (Device().close(CameraDeviceHandle) == -1) ReportCameraError("close");
  CameraDeviceHandle = -1;
}

}  // namespace

extern "C" {

int CameraInit(void) {
  puts("CameraInit");
  if (!CheckCapabilities()) return 0;
  errno = 0;
  PrintStatusLine('A');
  if (!SetFormat() || !SetFrameRate()) return 0;
  SetControl(V4L2_CID_POWER_LINE_FREQUENCY, CameraPowerlineFreq == 60 ? V4L2_CID_POWER_LINE_FREQUENCY_60HZ
                                                                        : V4L2_CID_POWER_LINE_FREQUENCY_50HZ);
  SetControl(V4L2_CID_SHARPNESS, 0);
  return 1;
}

void* CameraThreadFunc(void*) {
  puts("Camera thread started");
  CameraThreadRunning.store(true);
  puts("CameraOpenDevice");
  if (CameraOpenDevice()) {
    if (DebugFlags & kDebugListFormats) CameraListFormats();
    if (CameraInit() && CameraAllocateBuffers()) CameraCapture();
    CameraFreeBuffers();
  }
  puts("Camera thread terminated");
  fflush(stdout);
  CameraThreadRunning.store(false);
  return nullptr;
}

}  // extern "C"
