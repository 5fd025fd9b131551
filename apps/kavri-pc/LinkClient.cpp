#include "LinkClient.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

std::string ErrorText() { return strerror(errno); }

int ConnectTo(const std::string& host, int port, const std::string& peer) {
  sockaddr_in address = ResolveIPv4(host, port);
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  std::string reason = ErrorText();
  if (fd >= 0) close(fd);
  throw LinkError("cannot connect to the controller at " + peer + ": " + reason);
}

}  // namespace

sockaddr_in ResolveIPv4(const std::string& host, int port) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int status = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (status != 0) throw LinkError("cannot resolve " + host + ": " + gai_strerror(status));
  sockaddr_in address;
  memcpy(&address, found->ai_addr, sizeof address);
  freeaddrinfo(found);
  return address;
}

LinkClient::LinkClient(const std::string& host, int port, int timeoutSeconds)
    : peer_(host + ":" + std::to_string(port)), fd_(ConnectTo(host, port, peer_)) {
  timeval timeout{timeoutSeconds, 0};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

LinkClient::~LinkClient() { close(fd_); }

void LinkClient::Send(const void* command, size_t length) {
  ssize_t written = send(fd_, command, length, MSG_NOSIGNAL);
  if (written < 0) throw LinkError("sending to " + peer_ + " failed: " + ErrorText());
  if (static_cast<size_t>(written) != length) throw LinkError("the controller at " + peer_ + " took only part of a command");
}

void LinkClient::Receive(void* reply, size_t length, uint32_t expectedCode, const char* what) {
  auto* bytes = static_cast<uint8_t*>(reply);
  size_t received = 0;
  while (received < length) {
    ssize_t count = recv(fd_, bytes + received, length - received, 0);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
      throw LinkError(std::string("the controller at ") + peer_ + " did not answer the " + what + " command in time");
    if (count < 0) throw LinkError("receiving from " + peer_ + " failed: " + ErrorText());
    if (count == 0)
      throw LinkError(std::string("the controller at ") + peer_ + " closed the connection instead of answering the " +
                      what + " command (see its log for the reason)");
    received += static_cast<size_t>(count);
  }
  uint32_t code;
  memcpy(&code, bytes, sizeof code);
  if (code != expectedCode) {
    char message[160];
    snprintf(message, sizeof message, "the controller answered the %s command with reply code 0x%08x, expected 0x%08x",
             what, code, expectedCode);
    throw LinkError(message);
  }
}
