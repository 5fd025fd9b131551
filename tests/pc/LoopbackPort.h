// Loopback ports a test holds for itself, so that parallel tests never race.
#ifndef KAVRI_TESTS_PC_LOOPBACKPORT_H
#define KAVRI_TESTS_PC_LOOPBACKPORT_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

inline int BoundPort(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

// A TCP socket bound to a free loopback port and not listening, so that
// connections to it are refused; -1 on failure.
inline int BindLoopbackPort(int& port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  port = BoundPort(fd);
  return fd;
}

#endif
