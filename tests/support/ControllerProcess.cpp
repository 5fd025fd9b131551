#include "ControllerProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "kavri/KavriLib.h"
#include "kavri/MotorIOLib.h"

namespace {

std::string MakeTempDirectory() {
  char pattern[] = "/tmp/kavri-test-XXXXXX";
  const char* made = mkdtemp(pattern);
  if (!made) {
    perror("mkdtemp");
    abort();
  }
  return made;
}

void RedirectTo(const std::string& path, int fd) {
  int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(file, fd);
  close(file);
}

[[noreturn]] void RunChild(const ControllerConfig& config, const std::string& directory, int port) {
  RedirectTo(directory + "/stdout", STDOUT_FILENO);
  RedirectTo(directory + "/stderr", STDERR_FILENO);
  setvbuf(stdout, nullptr, _IONBF, 0);
  static std::string versionPath = directory + "/sysversion";
  if (config.sysVersion) std::ofstream(versionPath) << *config.sysVersion;
  SysVersionFile = versionPath.c_str();
  DebugFlags = config.debugFlags;
  DebugFile = fopen((directory + "/debug").c_str(), "w");
  setvbuf(DebugFile, nullptr, _IONBF, 0);
  KavriServerPort = port;
  if (!KavriLib_Init()) _exit(3);
  if (config.afterInit) config.afterInit();
  for (;;) pause();
}

}  // namespace

ControllerProcess::ControllerProcess(ControllerConfig config)
    : directory_(MakeTempDirectory()), port_(config.port ? config.port : FindFreePort()) {
  MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX);  // so that parent and child share its address
  fflush(nullptr);
  child_ = fork();
  if (child_ == 0) RunChild(config, directory_, port_);
}

ControllerProcess::~ControllerProcess() {
  if (child_ > 0 && !exited_) {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  std::string command = "rm -rf " + directory_;
  if (system(command.c_str()) != 0) fprintf(stderr, "cannot remove %s\n", directory_.c_str());
}

bool ControllerProcess::WaitUntilListening() {
  return WaitFor([&] { return PortIsListening(port_) || waitpid(child_, nullptr, WNOHANG) != 0; }) &&
         PortIsListening(port_);
}

std::string ControllerProcess::Stdout() const { return ReadWholeFile(directory_ + "/stdout"); }
std::string ControllerProcess::Stderr() const { return ReadWholeFile(directory_ + "/stderr"); }
std::string ControllerProcess::DebugOutput() const { return ReadWholeFile(directory_ + "/debug"); }

bool ControllerProcess::WaitForStdout(const std::string& text) const {
  return WaitFor([&] { return Stdout().find(text) != std::string::npos; });
}

bool ControllerProcess::WaitForStderr(const std::string& text) const {
  return WaitFor([&] { return Stderr().find(text) != std::string::npos; });
}

int ControllerProcess::WaitForExit() {
  int status = 0;
  if (waitpid(child_, &status, 0) != child_) return -1;
  exited_ = true;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int FindFreePort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}

// Reads the kernel's socket table rather than connecting, so that probing
// leaves no trace in the server's log.
bool PortIsListening(int port) {
  std::ifstream table("/proc/net/tcp");
  std::string line;
  char wanted[16];
  snprintf(wanted, sizeof wanted, ":%04X ", port);
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string slot, local, remote, state;
    fields >> slot >> local >> remote >> state;
    if (state == "0A" && (local + " ").find(wanted) != std::string::npos) return true;
  }
  return false;
}

bool WaitFor(const std::function<bool()>& ready, std::chrono::milliseconds bound) {
  auto deadline = std::chrono::steady_clock::now() + bound;
  while (!ready()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}
