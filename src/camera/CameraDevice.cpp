// The camera device seam: the system calls by default, a test or simulated
// device when one is installed.
#include "kavri/CameraDevice.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

int SystemStat(const char* path, struct stat* info) { return ::stat(path, info); }
int SystemOpen(const char* path, int flags) { return ::open(path, flags, 0); }
int SystemIoctl(int fd, unsigned long request, void* arg) { return ::ioctl(fd, request, arg); }
void* SystemMmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  return ::mmap(address, length, protection, flags, fd, offset);
}
int SystemMunmap(void* address, size_t length) { return ::munmap(address, length); }
int SystemSelect(int fdCount, fd_set* readFds, fd_set* writeFds, fd_set* exceptFds, struct timeval* timeout) {
  return ::select(fdCount, readFds, writeFds, exceptFds, timeout);
}
int SystemClose(int fd) { return ::close(fd); }

const CameraDeviceOps systemOps = {SystemStat, SystemOpen, SystemIoctl, SystemMmap, SystemMunmap, SystemSelect, SystemClose};

std::atomic<const CameraDeviceOps*> installedOps{&systemOps};
char devicePath[PATH_MAX] = CAMERA_DEFAULT_DEVICE_PATH;

}  // namespace

extern "C" {

void CameraSetDeviceOps(const CameraDeviceOps* ops) { installedOps.store(ops ? ops : &systemOps); }

const CameraDeviceOps* CameraGetDeviceOps(void) { return installedOps.load(); }

void CameraSetDevicePath(const char* path) {
  if (!path) path = CAMERA_DEFAULT_DEVICE_PATH;
  if (strlen(path) >= sizeof devicePath) {
    fprintf(stderr, "ERROR camera device path too long: %s\n", path);
    return;
  }
  strcpy(devicePath, path);
}

const char* CameraGetDevicePath(void) { return devicePath; }

void CameraUseDevice(const char* path) {
  CameraSetDeviceOps(nullptr);
  CameraSetDevicePath(path);
}

}  // extern "C"
