// The browser panel's HTTP side: one page, a stream of server-sent events
// and a few plain requests that press the touch screen and force inputs.
#ifndef KAVRI_HOST_PANEL_SERVER_H
#define KAVRI_HOST_PANEL_SERVER_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "PanelState.h"

// Where the panel acts on the simulated controller: the stand-ins' injection
// points. Null where the library in use has none; those requests get 501.
struct PanelDevices {
  void (*press)(int x, int y) = nullptr;
  void (*move)(int x, int y) = nullptr;
  void (*release)(int x, int y) = nullptr;
  void (*setInput)(int channel, int32_t value) = nullptr;  // channel from 0; value < 0: the hardware's
  void (*copyScreen)(uint32_t* pixels) = nullptr;         // 240 x 320, 0x00RRGGBB
};

constexpr int kPanelScreenWidth = 240;
constexpr int kPanelScreenHeight = 320;
// Our requests carry their arguments in the query; a body is never needed.
constexpr size_t kPanelMaxBody = 1024;
// Each open event stream holds one of the server's threads.
constexpr int kPanelMaxStreams = 4;

struct PanelRequest {
  std::string method;
  std::string path;
  std::multimap<std::string, std::string> params;
  std::string body;
};

struct PanelReply {
  int status = 200;
  std::string contentType = "text/plain; charset=utf-8";
  std::string body;
};

// Every request but the event stream, as a plain function of its request.
PanelReply HandlePanelRequest(PanelState& state, const PanelDevices& devices, const PanelRequest& request);

class PanelServer {
 public:
  PanelServer(PanelState& state, PanelDevices devices);
  ~PanelServer();
  // Binds to `address` and `port` (0: a free one) and serves on a thread of
  // its own; returns the bound port, or -1 after a line on standard error.
  int Start(const std::string& address, int port);
  // Ends the streams and the server and joins its thread.
  void Stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

#endif
