// The PC link server and the socket helpers the library's servers share.
#ifndef KAVRI_HOST_KAVRISERVER_H
#define KAVRI_HOST_KAVRISERVER_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "kavri/LinkProtocol.h"

extern "C" {

void* KavriServerThread(void* argument);
bool ReadCommandExtension(int fd, xoIF2013Command_Base* command, xoIF2013Command_Base* buffer, unsigned length);
int accept_timeout(int fd, sockaddr* address, unsigned* address_length, int seconds, int microseconds);

}

namespace kavri {

inline constexpr int kSocketTimeoutSeconds = 5;

// Takes the host's bind address for every later listener: null or empty is
// any address. Prints why and returns false if it is not dotted IPv4.
bool ChooseListenAddress(const char* text);
// Socket, options, bind to the chosen address and listen with a backlog of 1;
// a failure ends the process with status 1, as a server that cannot listen
// has no purpose.
int CreateListeningSocket(int port);
void SetSocketTimeouts(int fd);
// One read, or the bytes the link read ahead of the current command if there
// are any; a receive time-out counts as nothing received.
ssize_t ReadOnce(int fd, void* buffer, size_t length);
// One write of the whole reply; prints the error and returns false if short.
bool WriteReply(int fd, const void* reply, size_t length);

// A command of the PC link: its code, the line printed on receipt (null when
// the handler prints its own), and the handler, which returns false to close
// the connection.
struct LinkCommand {
  uint32_t code;
  const char* logLine;
  bool (*handle)(int fd, xoIF2013Command_Base* command);
};

const LinkCommand* FindLinkCommand(uint32_t code);

}  // namespace kavri

#endif
