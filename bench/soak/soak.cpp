// kavri-soak: runs a controller (kavri-host) through many cycles of what a PC
// does to it - download, start and stop a program; camera online with frames
// flowing; display pages built and torn down - and reports after every block
// of cycles what the controller holds: open descriptors, threads and
// resident memory (for an emulated controller also its own address space's
// share). With --check-flat it fails if descriptors or threads grew.
#include <signal.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "LinkClient.h"
#include "kavri/LinkProtocol.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kLinkTimeoutSeconds = 60;
constexpr auto kEventBound = std::chrono::seconds(60);

struct Options {
  std::string host;
  std::string runPrefix;  // e.g. the emulator for ARM binaries
  std::string pc;         // kavri-pc, to build --program
  std::string program;    // C source of the program to cycle; none: a built-in one
  int cycles = 1000;
  int cameraCycles = 1000;
  int displayCycles = 1000;  // with --program only
  int reportEvery = 100;
  bool checkFlat = false;
};

// The program used without --program: its entry returns "call again" at once.
std::vector<uint8_t> BuiltInImage() {
  constexpr size_t kEntryOffset = 12;
#if defined(__x86_64__)
  const uint8_t entry[] = {0xB8, 0xFF, 0x7F, 0x00, 0x00, 0xC3};  // mov eax, 0x7fff; ret
#elif defined(__arm__)
  const uint8_t entry[] = {0xFF, 0x0F, 0x07, 0xE3, 0x1E, 0xFF, 0x2F, 0xE1};  // movw r0, #0x7fff; bx lr
#else
#error "no built-in program for this processor"
#endif
  // Sized first and copied into: GCC 12 warns wrongly about an insert here.
  std::vector<uint8_t> image(kEntryOffset + sizeof entry, 0);
  memcpy(image.data() + kEntryOffset, entry, sizeof entry);
  return image;
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// Runs prefix + argv with output to `log`; returns the child's pid.
pid_t Spawn(const std::string& prefix, std::vector<std::string> argv, const fs::path& log) {
  std::vector<std::string> all = Words(prefix);
  all.insert(all.end(), argv.begin(), argv.end());
  pid_t child = fork();
  if (child == 0) {
    FILE* out = fopen(log.c_str(), "w");
    if (!out) _exit(127);
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(out), STDERR_FILENO);
    std::vector<char*> args;
    for (std::string& word : all) args.push_back(word.data());
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  return child;
}

bool Exited(pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == pid; }

// Counts appearances of lines in a log that only grows, reading each byte once.
class LogWatch {
 public:
  explicit LogWatch(fs::path path) : path_(std::move(path)) {}
  int Count(const std::string& text) {
    std::ifstream file(path_);
    file.seekg(offset_);
    std::string line;
    while (std::getline(file, line)) {
      if (file.eof()) break;  // a line still being written is read again next time
      offset_ += std::streamoff(line.size() + 1);
      for (auto& [watched, count] : counts_)
        if (line.find(watched) != std::string::npos) ++count;
    }
    for (auto& [watched, count] : counts_)
      if (watched == text) return count;
    counts_.push_back({text, 0});
    offset_ = 0;  // a new line to count: read everything again, once
    for (auto& [watched, count] : counts_) count = 0;
    return Count(text);
  }
  bool WaitForCount(const std::string& text, int count) {
    auto deadline = Clock::now() + kEventBound;
    while (Count(text) < count) {
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

 private:
  fs::path path_;
  std::streamoff offset_ = 0;
  std::vector<std::pair<std::string, int>> counts_;
};

struct Usage {
  int fds = -1, threads = -1;
  long rssKiB = -1;
  long guestKiB = -1;  // measured only for an emulated controller
};

// An emulated 32-bit controller's own memory is the lowest 4 GiB of the
// emulator's address space; above it lie the emulator's translated code and
// its own heap, which say nothing about the library.
long GuestResidentKiB(const fs::path& proc) {
  std::ifstream smaps(proc / "smaps");
  long kib = 0;
  bool guest = false;
  for (std::string line; std::getline(smaps, line);) {
    unsigned long long start = 0, end = 0;
    if (sscanf(line.c_str(), "%llx-%llx ", &start, &end) == 2)
      guest = end <= (1ULL << 32);
    else if (guest && line.rfind("Rss:", 0) == 0)
      kib += std::stol(line.substr(4));
  }
  return kib;
}

Usage Measure(pid_t pid, bool emulated) {
  Usage usage;
  std::error_code error;
  const fs::path proc = "/proc/" + std::to_string(pid);
  usage.fds = 0;
  for (auto entry = fs::directory_iterator(proc / "fd", error); !error && entry != fs::directory_iterator();
       entry.increment(error))
    ++usage.fds;
  std::ifstream status(proc / "status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("Threads:", 0) == 0) usage.threads = std::stoi(line.substr(8));
    if (line.rfind("VmRSS:", 0) == 0) usage.rssKiB = std::stol(line.substr(6));
  }
  if (emulated) usage.guestKiB = GuestResidentKiB(proc);
  return usage;
}

class Soak {
 public:
  explicit Soak(Options options) : options_(std::move(options)), work_(MakeWork()), log_(work_ / "host.log") {}
  ~Soak() {
    if (host_ > 0 && !Exited(host_)) kill(host_, SIGKILL), waitpid(host_, nullptr, 0);
    fs::remove_all(work_);
  }

  int Run() {
    if (!StartHost()) return Fail("the controller did not start");
    std::vector<uint8_t> image = options_.program.empty() ? BuiltInImage() : BuildProgram();
    if (image.empty()) return Fail("the program did not build");
    printf("phase     cycles  fds  threads  rss_kib%s\n", Emulated() ? "  guest_kib" : "");
    Report("start", 0);
    for (int cycle = 1; cycle <= options_.cycles; ++cycle) {
      if (!ProgramCycle(image, cycle)) return Fail("program cycle " + std::to_string(cycle));
      if (cycle % options_.reportEvery == 0) Report("program", cycle);
    }
    if (!options_.program.empty())
      for (int cycle = 1; cycle <= options_.displayCycles; ++cycle) {
        if (!DisplayCycle(options_.cycles + cycle)) return Fail("display cycle " + std::to_string(cycle));
        if (cycle % options_.reportEvery == 0) Report("display", cycle);
      }
    for (int cycle = 1; cycle <= options_.cameraCycles; ++cycle) {
      if (!CameraCycle()) return Fail("camera cycle " + std::to_string(cycle));
      if (cycle % options_.reportEvery == 0) Report("camera", cycle);
    }
    int status = StopHost();
    printf("controller ended with status %d\n", status);
    if (status != 0) return Fail("the controller did not end cleanly (a leak report ends it with 1)");
    return flatFailures_ ? Fail("descriptors or threads grew") : 0;
  }

 private:
  static fs::path MakeWork() {
    char pattern[] = "/tmp/kavri-soak-XXXXXX";
    return fs::path(mkdtemp(pattern));
  }

  int Fail(const std::string& what) {
    fprintf(stderr, "kavri-soak: FAILED: %s; the controller's log ends:\n", what.c_str());
    std::ifstream log(log_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    for (size_t i = lines.size() > 30 ? lines.size() - 30 : 0; i < lines.size(); ++i)
      fprintf(stderr, "  %s\n", lines[i].c_str());
    return 1;
  }

  // A port found free may be taken before the controller binds it; the
  // controller then ends, and another pair is tried.
  bool StartHost() {
    fs::create_directories(work_ / "programs");
    for (int attempt = 0; attempt < 20; ++attempt) {
      port_ = 20000 + int(Clock::now().time_since_epoch().count() % 12000);
      host_ = Spawn(options_.runPrefix,
                    {options_.host, "--port", std::to_string(port_), "--camera-port", std::to_string(port_ + 1),
                     "--programs", (work_ / "programs").string(), "--camera", "sim"},
                    log_);
      LogWatch watch(log_);
      auto deadline = Clock::now() + kEventBound;
      while (Clock::now() < deadline && !Exited(host_)) {
        if (watch.Count("PC link on port " + std::to_string(port_)) > 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
      if (!Exited(host_)) return false;
    }
    return false;
  }

  int StopHost() {
    kill(host_, SIGTERM);
    int status = 0;
    waitpid(host_, &status, 0);
    host_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::vector<uint8_t> BuildProgram() {
    const fs::path image = work_ / "program.img";
    pid_t pc = Spawn(options_.runPrefix,
                     {options_.pc, "--port", std::to_string(port_), "build", options_.program, "-o", image.string()},
                     work_ / "build.log");
    int status = 0;
    waitpid(pc, &status, 0);
    std::ifstream file(image, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
  }

  // Download, start, see the program run (and its page built), stop.
  bool ProgramCycle(const std::vector<uint8_t>& image, int cycle) {
    LinkClient link("127.0.0.1", port_, kLinkTimeoutSeconds);
    xoIF2013Command_DownloadCode download{KavriCmdDownloadCode, 1, "soak", uint32_t(image.size())};
    std::vector<uint8_t> command(sizeof download + image.size());
    memcpy(command.data(), &download, sizeof download);
    memcpy(command.data() + sizeof download, image.data(), image.size());
    link.Send(command.data(), command.size());
    xoIF2013Reply_Base downloaded;
    link.Receive(&downloaded, sizeof downloaded, KavriReplyDownloadCode, "download code");
    auto started = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_StartCode>({KavriCmdStartCode},
                                                                                 KavriReplyStartCode, "start code");
    if (started.started != 1) return false;
    if (!watch_.WaitForCount("Program thread started", cycle)) return false;
    if (!options_.program.empty() && !watch_.WaitForCount("display built", cycle)) return false;
    link.Exchange<xoIF2013Command_Base, xoIF2013Reply_Base>({KavriCmdStopCode}, KavriReplyStopCode, "stop code");
    return true;
  }

  // Start and stop of the program downloaded last: its page is built, then
  // torn down. `count` is how many pages were built before, this one included.
  bool DisplayCycle(int count) {
    LinkClient link("127.0.0.1", port_, kLinkTimeoutSeconds);
    auto started = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_StartCode>({KavriCmdStartCode},
                                                                                 KavriReplyStartCode, "start code");
    if (started.started != 1 || !watch_.WaitForCount("display built", count)) return false;
    link.Exchange<xoIF2013Command_Base, xoIF2013Reply_Base>({KavriCmdStopCode}, KavriReplyStopCode, "stop code");
    return watch_.WaitForCount("display ended", count);
  }

  // Camera online, two frames received and acknowledged, camera offline.
  bool CameraCycle() {
    LinkClient link("127.0.0.1", port_, kLinkTimeoutSeconds);
    link.Exchange<xoIF2013Command_StartCameraOnline, xoIF2013Reply_Base>(
        {KavriCmdStartCameraOnline, 160, 120, 30, 50}, KavriReplyStartCameraOnline, "start camera online");
    bool flowed = ReceiveFrames(2);
    link.Exchange<xoIF2013Command_Base, xoIF2013Reply_Base>({KavriCmdStopCameraOnline}, KavriReplyStopCameraOnline,
                                                           "stop camera online");
    return flowed;
  }

  // The server listens a moment after its reply: connecting is retried
  // until the bound.
  bool ReceiveFrames(int count) {
    auto deadline = Clock::now() + kEventBound;
    int fd = -1;
    while (fd < 0) {
      fd = ConnectLoopback(port_ + 1);
      if (fd < 0 && Clock::now() > deadline) return false;
      if (fd < 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    bool received = true;
    for (int frame = 0; frame < count && received; ++frame) {
      KavriCameraFrameHeader header{};
      std::vector<uint8_t> data;
      const uint32_t ack = KavriCameraFrameAck;
      received = ReceiveExactly(fd, &header, sizeof header) && header.magic == KavriCameraFrameMagic &&
                 (data.resize(header.size), ReceiveExactly(fd, data.data(), data.size())) &&
                 send(fd, &ack, sizeof ack, MSG_NOSIGNAL) == sizeof ack;
    }
    close(fd);
    return received;
  }

  static int ConnectLoopback(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close(fd);
      return -1;
    }
    timeval timeout{kLinkTimeoutSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    return fd;
  }

  static bool ReceiveExactly(int fd, void* buffer, size_t length) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    for (size_t done = 0; done < length;) {
      ssize_t count = recv(fd, bytes + done, length - done, 0);
      if (count <= 0) return false;
      done += size_t(count);
    }
    return true;
  }

  // Descriptors and threads of detached threads that are ending may lag a
  // moment behind a stop's reply; the block's figures are taken once they
  // settle at the first block's level, or after the bound.
  void Report(const char* phase, int cycles) {
    Usage usage = Measure(host_, Emulated());
    if (baseline_.fds >= 0) {
      auto deadline = Clock::now() + std::chrono::seconds(10);
      while ((usage.fds != baseline_.fds || usage.threads != baseline_.threads) && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        usage = Measure(host_, Emulated());
      }
      if (options_.checkFlat && (usage.fds > baseline_.fds || usage.threads > baseline_.threads)) ++flatFailures_;
    } else if (cycles > 0) {
      baseline_ = usage;
    }
    printf("%-8s %7d %4d %8d %8ld", phase, cycles, usage.fds, usage.threads, usage.rssKiB);
    if (Emulated()) printf(" %10ld", usage.guestKiB);
    printf("\n");
    fflush(stdout);
  }

  bool Emulated() const { return !options_.runPrefix.empty(); }

  Options options_;
  fs::path work_;
  fs::path log_;
  LogWatch watch_{log_};
  pid_t host_ = -1;
  int port_ = 0;
  Usage baseline_;
  int flatFailures_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Soaks a controller: many program, camera and display cycles, with its usage after each block.",
               "kavri-soak");
  app.add_option("--host", options.host, "kavri-host to run")->required();
  app.add_option("--run-prefix", options.runPrefix, "command that runs the host and kavri-pc (e.g. the emulator)");
  app.add_option("--pc", options.pc, "kavri-pc, to build --program for the controller");
  app.add_option("--program", options.program, "C program to cycle (ARM controllers); default: one built in");
  app.add_option("--cycles", options.cycles, "download, start and stop cycles")->check(CLI::Range(0, 1000000));
  app.add_option("--display-cycles", options.displayCycles, "start and stop cycles of --program, each building its page")
      ->check(CLI::Range(0, 1000000));
  app.add_option("--camera-cycles", options.cameraCycles, "camera online cycles")->check(CLI::Range(0, 1000000));
  app.add_option("--report-every", options.reportEvery, "cycles between reports")->check(CLI::Range(1, 1000000));
  app.add_flag("--check-flat", options.checkFlat, "fail if descriptors or threads grow after the first block");
  CLI11_PARSE(app, argc, argv);
  if (!options.program.empty() && options.pc.empty()) {
    fprintf(stderr, "kavri-soak: --program needs --pc to build it\n");
    return 2;
  }
  try {
    return Soak(options).Run();
  } catch (const LinkError& error) {
    fprintf(stderr, "kavri-soak: FAILED: %s\n", error.what());
    return 1;
  }
}
