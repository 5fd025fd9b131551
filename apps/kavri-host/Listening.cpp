#include "Listening.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <thread>

namespace {

// Far above what the host and the library open; /proc is avoided because
// the emulator the armhf build runs under shows it only in part.
constexpr int kHighestFd = 1024;

bool ListensOn(int fd, int port) {
  struct stat status;
  if (fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
  int listening = 0;
  socklen_t length = sizeof listening;
  if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || !listening) return false;
  sockaddr_in address{};
  length = sizeof address;
  return getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 && address.sin_family == AF_INET &&
         ntohs(address.sin_port) == port;
}

}  // namespace

bool ProcessListensOn(int port) {
  for (int fd = 0; fd < kHighestFd; ++fd)
    if (ListensOn(fd, port)) return true;
  return false;
}

bool WaitUntilListening(int port, std::chrono::milliseconds bound) {
  auto deadline = std::chrono::steady_clock::now() + bound;
  while (!ProcessListensOn(port)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}
