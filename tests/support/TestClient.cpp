#include "TestClient.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace {

sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

int BindLoopback(int port, bool reuse) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  int on = 1;
  if (reuse) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = LoopbackAddress(port);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

int BoundPort(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

int ListenOnLoopback(int port) {
  int fd = BindLoopback(port, true);
  if (fd >= 0 && listen(fd, 1) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

TestClient::TestClient(int port, int timeoutSeconds) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = LoopbackAddress(port);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return;
  }
  timeval timeout{timeoutSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  fd_ = fd;
}

TestClient::~TestClient() {
  if (fd_ >= 0) close(fd_);
}

void TestClient::Send(const void* bytes, size_t length) {
  if (send(fd_, bytes, length, MSG_NOSIGNAL) != static_cast<ssize_t>(length)) perror("TestClient send");
}

std::vector<uint8_t> TestClient::Receive(size_t length) {
  std::vector<uint8_t> bytes(length);
  size_t received = 0;
  while (received < length) {
    ssize_t count = recv(fd_, bytes.data() + received, length - received, 0);
    if (count <= 0) break;
    received += static_cast<size_t>(count);
  }
  bytes.resize(received);
  return bytes;
}

bool TestClient::WaitForClose() {
  uint8_t byte;
  for (;;) {
    ssize_t count = recv(fd_, &byte, 1, 0);
    if (count == 0) return true;
    // A server that closes with bytes of ours unread resets the connection.
    if (count < 0) return errno == ECONNRESET;
  }
}
