#include "CameraView.h"

#include "LinkClient.h"

#ifdef KAVRI_PC_HTTP_VIEW

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace {

const char kPage[] =
    "<!DOCTYPE html>\n<html><head><title>Controller camera</title>\n"
    "<style>body{background:#222;color:#ddd;font-family:sans-serif;text-align:center}"
    "img{max-width:95vw;image-rendering:pixelated;border:1px solid #555}</style></head>\n"
    "<body><h1>Controller camera</h1><img src=\"/stream\" alt=\"camera stream\"></body></html>\n";

const char kBoundary[] = "kavriframe";

}  // namespace

// The latest frame and its number; streams wait for a newer one. The lock
// is the tool's own, between its receiving loop and the HTTP threads.
struct CameraView::Server {
  httplib::Server http;
  std::thread thread;
  std::mutex mutex;
  std::condition_variable fresh;
  std::vector<uint8_t> frame;
  uint64_t number = 0;
  bool closing = false;

  // Sends each new frame as one part of the multipart reply.
  bool SendNext(uint64_t& shown, httplib::DataSink& sink) {
    std::vector<uint8_t> copy;
    {
      std::unique_lock<std::mutex> lock(mutex);
      fresh.wait_for(lock, std::chrono::seconds(1), [&] { return closing || number != shown; });
      if (closing) return false;
      if (number == shown) return true;  // nothing new; ask again
      shown = number;
      copy = frame;
    }
    std::string head = std::string("--") + kBoundary + "\r\nContent-Type: image/jpeg\r\nContent-Length: " +
                       std::to_string(copy.size()) + "\r\n\r\n";
    return sink.write(head.data(), head.size()) &&
           sink.write(reinterpret_cast<const char*>(copy.data()), copy.size()) && sink.write("\r\n", 2);
  }
};

CameraView::CameraView(int port, FILE* log) : server_(std::make_unique<Server>()) {
  Server& server = *server_;
  server.http.Get("/", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(kPage, "text/html");
  });
  server.http.Get("/stream", [&server](const httplib::Request&, httplib::Response& response) {
    auto shown = std::make_shared<uint64_t>(0);
    response.set_content_provider(std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
                                  [&server, shown](size_t, httplib::DataSink& sink) {
                                    return server.SendNext(*shown, sink);
                                  });
  });
  if (!server.http.bind_to_port("127.0.0.1", port))
    throw LinkError("cannot serve the camera view on 127.0.0.1:" + std::to_string(port));
  server.thread = std::thread([&server] { server.http.listen_after_bind(); });
  fprintf(log, "camera view at http://127.0.0.1:%d/\n", port);
}

CameraView::~CameraView() {
  {
    std::lock_guard<std::mutex> lock(server_->mutex);
    server_->closing = true;
  }
  server_->fresh.notify_all();
  server_->http.stop();
  server_->thread.join();
}

void CameraView::Publish(const std::vector<uint8_t>& jpeg) {
  {
    std::lock_guard<std::mutex> lock(server_->mutex);
    server_->frame = jpeg;
    ++server_->number;
  }
  server_->fresh.notify_all();
}

#else

struct CameraView::Server {};

CameraView::CameraView(int, FILE*) {
  throw LinkError("this kavri-pc was built without the camera view (cpp-httplib is not available for its target)");
}
CameraView::~CameraView() = default;
void CameraView::Publish(const std::vector<uint8_t>&) {}

#endif
