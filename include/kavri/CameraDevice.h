// The camera device seam: every device call of the capture thread goes
// through one table of operations, so that tests and the simulator can stand
// in for a Video4Linux2 device. The default table is the system calls.
#ifndef KAVRI_CAMERADEVICE_H
#define KAVRI_CAMERADEVICE_H

#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>

// The table's stat and mmap take the 64-bit struct stat and off_t, as the
// library is built: code that installs a table must be built the same way.
static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64, as the library is");

extern "C" {

#define CAMERA_DEFAULT_DEVICE_PATH "/dev/video0"

// Same contracts as the system calls of the same names: -1 (or MAP_FAILED)
// and errno on failure.
typedef struct CameraDeviceOps {
  int (*stat)(const char* path, struct stat* info);
  int (*open)(const char* path, int flags);
  int (*ioctl)(int fd, unsigned long request, void* arg);
  void* (*mmap)(void* address, size_t length, int protection, int flags, int fd, off_t offset);
  int (*munmap)(void* address, size_t length);
  int (*select)(int fdCount, fd_set* readFds, fd_set* writeFds, fd_set* exceptFds, struct timeval* timeout);
  int (*close)(int fd);
} CameraDeviceOps;

// Installs a table for the next capture start; null restores the system
// calls. The table must live as long as it is installed. Not while capturing.
void CameraSetDeviceOps(const CameraDeviceOps* ops);
const CameraDeviceOps* CameraGetDeviceOps(void);
// The device node the capture thread opens; null restores "/dev/video0".
// Longer paths than PATH_MAX - 1 are refused with an ERROR line.
void CameraSetDevicePath(const char* path);
const char* CameraGetDevicePath(void);
// A real device by path: the system calls on that node.
void CameraUseDevice(const char* path);

}  // extern "C"

#endif
