// Whether this process has a socket listening on a TCP port. The library's
// server thread binds and listens on its own; the host watches for it before
// saying where the controller can be reached.
#ifndef KAVRI_HOST_LISTENING_H
#define KAVRI_HOST_LISTENING_H

#include <chrono>

bool ProcessListensOn(int port);
// Polls every 10 ms until ProcessListensOn(port) or `bound` has passed.
bool WaitUntilListening(int port, std::chrono::milliseconds bound);

#endif
