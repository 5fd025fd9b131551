#include "PanelServer.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "CliNumber.h"

extern const char kPanelPage[];  // the page, embedded by the build

namespace {

// An event stream that saw nothing for this long sends a comment, which is
// how a browser that went away is noticed and its thread given back.
constexpr auto kStreamHeartbeat = std::chrono::seconds(1);

PanelReply Reply(int status, std::string body) { return {status, "text/plain; charset=utf-8", std::move(body) + "\n"}; }

// A whole number argument, clipped to [low, high]; nullopt with `error` set
// when it is missing or not a number.
std::optional<long long> Argument(const PanelRequest& request, const char* name, long long low, long long high,
                                  PanelReply& error) {
  auto found = request.params.find(name);
  long long value = 0;
  if (found == request.params.end()) {
    error = Reply(400, std::string("missing argument ") + name);
    return std::nullopt;
  }
  if (!ParseWholeNumber(found->second, value)) {
    error = Reply(400, std::string(name) + " must be a whole number");
    return std::nullopt;
  }
  return std::clamp(value, low, high);
}

PanelReply Touch(const PanelDevices& devices, const PanelRequest& request) {
  auto kind = request.params.find("kind");
  if (kind == request.params.end()) return Reply(400, "missing argument kind");
  void (*inject)(int, int) = kind->second == "press"     ? devices.press
                             : kind->second == "move"    ? devices.move
                             : kind->second == "release" ? devices.release
                                                         : nullptr;
  if (kind->second != "press" && kind->second != "move" && kind->second != "release")
    return Reply(400, "kind must be press, move or release");
  if (!inject) return Reply(501, "this widget library takes no touches");
  PanelReply error;
  // A finger dragged off the picture stays on its edge, as on the glass.
  auto x = Argument(request, "x", 0, kPanelScreenWidth - 1, error);
  if (!x) return error;
  auto y = Argument(request, "y", 0, kPanelScreenHeight - 1, error);
  if (!y) return error;
  inject(int(*x), int(*y));
  return Reply(200, "ok");
}

PanelReply Input(PanelState& state, const PanelDevices& devices, const PanelRequest& request) {
  PanelReply error;
  auto number = request.params.find("channel");
  long long channel = 0;
  if (number == request.params.end()) return Reply(400, "missing argument channel");
  if (!ParseWholeNumber(number->second, channel) || channel < 1 || channel > kPanelChannels)
    return Reply(404, "channel must be 1 to 8");
  if (!devices.setInput) return Reply(501, "this I/O library takes no forced inputs");
  auto value = request.params.find("value");
  int32_t forced = -1;
  if (value == request.params.end() || value->second != "hardware") {
    auto clipped = Argument(request, "value", 0, 0xFFFF, error);
    if (!clipped) return error;
    forced = int32_t(*clipped);
  }
  devices.setInput(int(channel - 1), forced);
  state.SetForced(int(channel - 1), forced);
  return Reply(200, "ok");
}

PanelReply Screen(const PanelDevices& devices) {
  if (!devices.copyScreen) return Reply(501, "this widget library takes no pictures");
  std::vector<uint32_t> pixels(size_t(kPanelScreenWidth) * kPanelScreenHeight);
  devices.copyScreen(pixels.data());
  // Plain RGB bytes: the page puts them on a canvas as they are.
  PanelReply reply{200, "application/octet-stream", {}};
  reply.body.reserve(pixels.size() * 3);
  for (uint32_t pixel : pixels) {
    reply.body += char(pixel >> 16);
    reply.body += char(pixel >> 8);
    reply.body += char(pixel);
  }
  return reply;
}

}  // namespace

PanelReply HandlePanelRequest(PanelState& state, const PanelDevices& devices, const PanelRequest& request) {
  const std::string& path = request.path;
  const bool get = request.method == "GET" || request.method == "HEAD";
  const bool post = request.method == "POST";
  const bool known = path == "/" || path == "/state" || path == "/screen" || path == "/camera.jpg" ||
                     path == "/touch" || path == "/input";
  if (!known) return Reply(404, "no such page: " + path);
  if (request.body.size() > kPanelMaxBody) return Reply(413, "requests here carry no body");
  const bool wantsPost = path == "/touch" || path == "/input";
  if (wantsPost ? !post : !get) return Reply(405, std::string("use ") + (wantsPost ? "POST" : "GET") + " for " + path);
  if (path == "/") return {200, "text/html; charset=utf-8", kPanelPage};
  if (path == "/state") return {200, "application/json", state.SnapshotJson()};
  if (path == "/screen") return Screen(devices);
  if (path == "/camera.jpg") {
    auto jpeg = state.CameraJpeg();
    if (!jpeg) return Reply(404, "the camera has sent no frame");
    return {200, "image/jpeg", std::string(jpeg->begin(), jpeg->end())};
  }
  if (path == "/touch") return Touch(devices, request);
  return Input(state, devices, request);
}

struct PanelServer::Impl {
  PanelState& state;
  PanelDevices devices;
  httplib::Server http;
  std::thread thread;
  std::atomic<int> streams{0};

  void Stream(httplib::Response& response) {
    if (streams.fetch_add(1) >= kPanelMaxStreams) {
      streams.fetch_sub(1);
      response.status = 503;
      response.set_content("too many open panels\n", "text/plain; charset=utf-8");
      return;
    }
    response.set_header("Cache-Control", "no-store");
    auto cursor = std::make_shared<PanelCursor>();
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, cursor](size_t, httplib::DataSink& sink) {
          if (state.Closed()) return false;
          std::string events = state.NextEvents(*cursor, kStreamHeartbeat);
          if (events.empty()) events = ": still here\n\n";
          return !state.Closed() && sink.write(events.data(), events.size());
        },
        [this](bool) { streams.fetch_sub(1); });
  }

  void Route(const httplib::Request& request, httplib::Response& response) {
    PanelReply reply = HandlePanelRequest(state, devices, {request.method, request.path, request.params, request.body});
    response.status = reply.status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(std::move(reply.body), reply.contentType.c_str());
  }
};

PanelServer::PanelServer(PanelState& state, PanelDevices devices) : impl_(new Impl{state, devices, {}, {}}) {
  Impl& impl = *impl_;
  auto route = [&impl](const httplib::Request& request, httplib::Response& response) { impl.Route(request, response); };
  impl.http.new_task_queue = [] { return new httplib::ThreadPool(kPanelMaxStreams + 4); };
  impl.http.set_payload_max_length(kPanelMaxBody);
  impl.http.set_read_timeout(5);
  impl.http.set_write_timeout(5);
  impl.http.Get("/events", [&impl](const httplib::Request&, httplib::Response& response) { impl.Stream(response); });
  impl.http.Get(".*", route);
  impl.http.Post(".*", route);
  impl.http.Put(".*", route);
  impl.http.Patch(".*", route);
  impl.http.Delete(".*", route);
  impl.http.Options(".*", route);
}

PanelServer::~PanelServer() { Stop(); }

int PanelServer::Start(const std::string& address, int port) {
  Impl& impl = *impl_;
  int bound = port;
  if (port == 0)
    bound = impl.http.bind_to_any_port(address);
  else if (!impl.http.bind_to_port(address, port))
    bound = -1;
  if (bound <= 0) {
    fprintf(stderr, "kavri-host: cannot serve the panel on %s port %d\n", address.c_str(), port);
    return -1;
  }
  impl.thread = std::thread([&impl] { impl.http.listen_after_bind(); });
  return bound;
}

void PanelServer::Stop() {
  if (!impl_->thread.joinable()) return;
  impl_->state.Close();
  impl_->http.stop();
  impl_->thread.join();
}
