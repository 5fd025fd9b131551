// A plain TCP client on loopback, as a PC would connect.
#ifndef KAVRI_TESTS_TESTCLIENT_H
#define KAVRI_TESTS_TESTCLIENT_H

#include <cstdint>
#include <string>
#include <vector>

class TestClient {
 public:
  // Connects to 127.0.0.1:port; receive calls give up after `timeoutSeconds`.
  explicit TestClient(int port, int timeoutSeconds = 60);
  ~TestClient();
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  void Send(const void* bytes, size_t length);
  void SendWord(uint32_t word) { Send(&word, sizeof word); }
  // Reads up to `length` bytes, fewer only if the server closed or timed out.
  std::vector<uint8_t> Receive(size_t length);
  // True if the server closed the connection (reads end of stream).
  bool WaitForClose();

 private:
  int fd_ = -1;
};

// A TCP socket bound to 127.0.0.1:port (0: a free one), not listening, so
// connections to it are refused; -1 on failure.
int BindLoopback(int port, bool reuse = false);
int BoundPort(int fd);
// A listening socket on 127.0.0.1:port with a backlog of 1, for stand-in
// servers in tests and benchmarks; -1 on failure.
int ListenOnLoopback(int port);

#endif
