// A controller in a process of its own: the library's server thread lives
// until its process ends and a failed bind ends the process, so every
// server scenario forks a child that runs KavriLib_Init and then waits.
#ifndef KAVRI_TESTS_CONTROLLERPROCESS_H
#define KAVRI_TESTS_CONTROLLERPROCESS_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "WaitFor.h"

struct ControllerConfig {
  std::optional<std::string> sysVersion;  // contents of the version file; none: no file
  // Standard output fully buffered, as a service's is when it goes to a file;
  // tests leave it unbuffered so that they can watch it line by line.
  bool bufferedOutput = false;
  // Runs in the child before KavriLib_Init, e.g. to set a host variable.
  std::function<void()> beforeInit;
  // Runs in the child after KavriLib_Init, e.g. to print library state.
  std::function<void()> afterInit;
};

class ControllerProcess {
 public:
  explicit ControllerProcess(ControllerConfig config = {});
  ~ControllerProcess();
  ControllerProcess(const ControllerProcess&) = delete;
  ControllerProcess& operator=(const ControllerProcess&) = delete;

  int port() const { return port_; }
  // True once the child's server listens; false if the child ended first.
  bool WaitUntilListening();
  std::string Stdout() const;
  std::string Stderr() const;
  // Waits until the child's stdout or stderr holds `text`.
  bool WaitForStdout(const std::string& text) const;
  bool WaitForStderr(const std::string& text) const;
  // Waits for the child to end on its own; its exit status, or -1.
  int WaitForExit();

 private:
  void Start();
  void Exited(int status);

  ControllerConfig config_;
  std::string directory_;
  int port_ = 0;
  pid_t child_ = -1;
  bool exited_ = false;
  int exitStatus_ = -1;
};

// A free TCP port on loopback, as the kernel hands them out.
int FindFreePort();
bool PortIsListening(int port);
// The local address of the socket listening on `port` as the kernel shows
// it ("0100007F" for 127.0.0.1, "00000000" for any); empty if none listens.
std::string ListeningAddressHex(int port);
std::string ReadWholeFile(const std::string& path);

#endif
