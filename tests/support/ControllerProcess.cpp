#include "ControllerProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "TestClient.h"
#include "kavri/KavriLib.h"
#include "kavri/MotorIOLib.h"

namespace {

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string MakeTempDirectory() {
  char pattern[] = "/tmp/kavri-test-XXXXXX";
  if (!mkdtemp(pattern)) perror("mkdtemp"), abort();
  return pattern;
}

void RedirectTo(const std::string& path, int fd) {
  int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  dup2(file, fd);
  close(file);
}

[[noreturn]] void RunChild(const ControllerConfig& config, const std::string& directory, int port) {
  RedirectTo(directory + "/stdout", STDOUT_FILENO);
  RedirectTo(directory + "/stderr", STDERR_FILENO);
  if (!config.bufferedOutput) setvbuf(stdout, nullptr, _IONBF, 0);
  static std::string versionPath = directory + "/sysversion";
  if (config.sysVersion) std::ofstream(versionPath) << *config.sysVersion;
  SysVersionFile = versionPath.c_str();
  KavriServerPort = port;
  if (config.beforeInit) config.beforeInit();
  if (!KavriLib_Init()) _exit(3);
  if (config.afterInit) config.afterInit();
  for (;;) pause();
}

struct ListeningSocket {
  std::string local;  // address:port in hexadecimal, as the kernel shows it
  std::string inode;
};

// The socket listening on `port`, from the kernel's table; empty if none.
ListeningSocket FindListening(int port) {
  std::ifstream table("/proc/net/tcp");
  std::string line;
  char wanted[16];
  snprintf(wanted, sizeof wanted, ":%04X ", port);
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
    fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode;
    if (state == "0A" && (local + " ").find(wanted) != std::string::npos) return {local, inode};
  }
  return {};
}

// Whether the socket listening on `port` is one of `pid`'s: another test's
// controller may hold the same port for a moment.
bool ListensOn(pid_t pid, int port) {
  const std::string inode = FindListening(port).inode;
  if (inode.empty()) return false;
  const std::string wanted = "socket:[" + inode + "]";
  const std::string fds = "/proc/" + std::to_string(pid) + "/fd";
  DIR* dir = opendir(fds.c_str());
  if (!dir) return false;
  bool found = false;
  char target[64];
  while (dirent* entry = readdir(dir)) {
    ssize_t n = readlinkat(dirfd(dir), entry->d_name, target, sizeof target - 1);
    if (n > 0 && std::string(target, size_t(n)) == wanted) found = true;
  }
  closedir(dir);
  return found;
}

constexpr int kPortAttempts = 20;

}  // namespace

ControllerProcess::ControllerProcess(ControllerConfig config)
    : config_(std::move(config)), directory_(MakeTempDirectory()) {
  MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX);  // so that parent and child share its address
  Start();
}

void ControllerProcess::Start() {
  port_ = FindFreePort();
  exited_ = false;
  fflush(nullptr);
  child_ = fork();
  if (child_ == 0) RunChild(config_, directory_, port_);
}

ControllerProcess::~ControllerProcess() {
  if (child_ > 0 && !exited_) {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  std::string command = "rm -rf " + directory_;
  if (system(command.c_str()) != 0) fprintf(stderr, "cannot remove %s\n", directory_.c_str());
}

// A free port found by the parent may be taken by a parallel test before the
// child binds it; the child then ends with the server's bind error, and is
// started again on another one.
bool ControllerProcess::WaitUntilListening() {
  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    int status = 0;
    bool ended = false;
    bool listening = WaitFor([&] {
      if (ListensOn(child_, port_)) return true;
      ended = waitpid(child_, &status, WNOHANG) == child_;
      return ended;
    });
    if (listening && !ended) return true;
    if (ended) Exited(status);
    if (!ended || !Contains(Stderr(), "ERROR calling bind")) return false;
    Start();
  }
  return false;
}

std::string ControllerProcess::Stdout() const { return ReadWholeFile(directory_ + "/stdout"); }
std::string ControllerProcess::Stderr() const { return ReadWholeFile(directory_ + "/stderr"); }

bool ControllerProcess::WaitForStdout(const std::string& text) const {
  return WaitFor([&] { return Contains(Stdout(), text); });
}
bool ControllerProcess::WaitForStderr(const std::string& text) const {
  return WaitFor([&] { return Contains(Stderr(), text); });
}

int ControllerProcess::WaitForExit() {
  int status = 0;
  if (!exited_ && waitpid(child_, &status, 0) == child_) Exited(status);
  return exited_ ? exitStatus_ : -1;
}

void ControllerProcess::Exited(int status) {
  exited_ = true;
  exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int FindFreePort() {
  int fd = BindLoopback(0);
  int port = BoundPort(fd);
  close(fd);
  return port;
}

// Reads the kernel's socket table rather than connecting, so that probing
// leaves no trace in the server's log.
bool PortIsListening(int port) { return !FindListening(port).inode.empty(); }

std::string ListeningAddressHex(int port) { return FindListening(port).local.substr(0, 8); }

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}
