// Flash files: downloaded images kept in the program library folder.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/DownloadMode.h"
#include "host/KavriState.h"

namespace kavri {

namespace {

// The name comes from a remote PC: it may name a file in the library
// folder, never a path that leads out of it.
bool StaysInLibrary(const char* name) {
  return name[0] != '\0' && strcmp(name, ".") != 0 && strcmp(name, "..") != 0 && !strchr(name, '/');
}

bool WriteAll(int fd, const uint8_t* bytes, size_t size) {
  while (size > 0) {
    ssize_t written = write(fd, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

// Written beside the old file and renamed over it, so that a failure or a
// crash part way leaves the previous program whole.
bool ReplaceFile(const char* path, const uint8_t* code, size_t size) {
  std::string temporary = std::string(path) + ".part";
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) return false;
  bool written = WriteAll(fd, code, size) && fsync(fd) == 0;
  int savedError = errno;
  if (close(fd) != 0 && written) {
    written = false;
    savedError = errno;
  }
  if (written && rename(temporary.c_str(), path) == 0) return true;
  if (written) savedError = errno;
  unlink(temporary.c_str());
  errno = savedError;
  return false;
}

}  // namespace

void WriteFlashFile(const char* name, const uint8_t* code, size_t size) {
  if (!StaysInLibrary(name)) {
    fprintf(stderr, "ERROR flash file name \"%s\" is not a plain file name, no flash file written\n", name);
    return;
  }
  char path[kFlashPathSize];
  snprintf(path, sizeof path, "%s%s", DownloadDataPath, name);
  if (strlen(path) >= kFlashPathSize - 1) {
    printf("Flash file name to long %s (%s)\n", path, strerror(errno));
    return;
  }
  fprintf(stderr, "Writing flash file %s\n", path);
  if (!ReplaceFile(path, code, size)) fprintf(stderr, "Error writing flash file %s (%s)\n", path, strerror(errno));
}

}  // namespace kavri
