// Runs one PC link command handler in this process, as the server would after
// reading the code word: the body is sent on one end of a socket pair, the
// handler reads it from the other and answers there.
#ifndef KAVRI_TESTS_LINKHANDLERCALL_H
#define KAVRI_TESTS_LINKHANDLERCALL_H

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "kavri/LinkProtocol.h"

using LinkHandler = bool (*)(int fd, xoIF2013Command_Base* command);

// The reply bytes; `accepted` gets the handler's result. With `pcGone` the
// PC's end is closed before the handler runs, so its reply cannot be written.
inline std::vector<uint8_t> CallLinkHandler(LinkHandler handler, const void* packet, size_t length,
                                            bool* accepted = nullptr, bool pcGone = false) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return {};
  if (length > sizeof(xoIF2013Command_Base))
    (void)!send(ends[0], static_cast<const uint8_t*>(packet) + sizeof(xoIF2013Command_Base),
                length - sizeof(xoIF2013Command_Base), 0);
  if (pcGone) close(ends[0]);
  xoIF2013Command_Base code;
  memcpy(&code, packet, sizeof code);
  bool result = handler(ends[1], &code);
  if (accepted) *accepted = result;
  std::vector<uint8_t> reply(256);
  ssize_t received = pcGone ? -1 : recv(ends[0], reply.data(), reply.size(), MSG_DONTWAIT);
  reply.resize(received > 0 ? size_t(received) : 0);
  if (!pcGone) close(ends[0]);
  close(ends[1]);
  return reply;
}

// The reply code of a handler that answers with the code alone; 0 if none.
inline uint32_t CallLinkHandlerForCode(LinkHandler handler, const void* packet, size_t length) {
  std::vector<uint8_t> reply = CallLinkHandler(handler, packet, length);
  uint32_t code = 0;
  if (reply.size() == sizeof code) memcpy(&code, reply.data(), sizeof code);
  return code;
}

#endif
