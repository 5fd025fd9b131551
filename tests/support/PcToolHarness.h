// kavri-pc as tests run it: in process, its output captured, against a
// stand-in controller that plays its part of the protocol from a script.
#ifndef KAVRI_TESTS_PCTOOLHARNESS_H
#define KAVRI_TESTS_PCTOOLHARNESS_H

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "PcContext.h"
#include "TestClient.h"

inline bool ReadExactly(int fd, void* buffer, size_t length) {
  auto* bytes = static_cast<uint8_t*>(buffer);
  for (size_t done = 0; done < length;) {
    ssize_t count = read(fd, bytes + done, length - done);
    if (count <= 0) return false;
    done += static_cast<size_t>(count);
  }
  return true;
}

inline void WriteBytes(int fd, const void* bytes, size_t length) {
  if (write(fd, bytes, length) < 0) perror("stand-in controller reply");
}

inline void WriteWords(int fd, const std::vector<uint32_t>& words) { WriteBytes(fd, words.data(), words.size() * 4); }

// Serves one connection with `serve` on a loopback port of its own; reads
// give up after 30 s.
class ScriptedController {
 public:
  explicit ScriptedController(std::function<void(int fd)> serve)
      : listener_(ListenOnLoopback(0)), port_(BoundPort(listener_)) {
    thread_ = std::thread([this, serve = std::move(serve)] {
      int fd = accept(listener_, nullptr, nullptr);
      if (fd < 0) return;  // nobody came: the destructor shut the listener
      timeval deadline{30, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
      serve(fd);
      close(fd);
    });
  }
  ~ScriptedController() {
    shutdown(listener_, SHUT_RDWR);  // wakes an accept that nobody answers
    thread_.join();
    close(listener_);
  }
  ScriptedController(const ScriptedController&) = delete;
  ScriptedController& operator=(const ScriptedController&) = delete;
  int port() const { return port_; }

 private:
  int listener_;
  int port_;
  std::thread thread_;
};

struct ToolRun {
  int exitCode;
  std::string out, err;
};

inline std::string ReadAndClose(FILE* file) {
  rewind(file);
  std::string text;
  char buffer[4096];
  while (size_t count = fread(buffer, 1, sizeof buffer, file)) text.append(buffer, count);
  fclose(file);
  return text;
}

// Runs kavri-pc with the command groups `groups`; `out`, if given, takes
// standard output (and the result's `out` stays empty).
inline ToolRun RunTool(void (*groups)(CLI::App&, PcContext&), std::vector<std::string> words, FILE* out = nullptr) {
  words.insert(words.begin(), "kavri-pc");
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  FILE* captured = out ? out : tmpfile();
  FILE* err = tmpfile();
  int code = RunPcTool(static_cast<int>(argv.size()), argv.data(), groups, captured, err);
  return {code, out ? "" : ReadAndClose(captured), ReadAndClose(err)};
}

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

#endif
