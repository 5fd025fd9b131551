// kavri-pc camera: starts the controller's camera stream, receives and
// acknowledges its frames, and saves them as JPEG files or shows them live in
// a browser. Ctrl-C ends the stream and stops the camera.
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "CameraView.h"
#include "CliNumber.h"
#include "PcContext.h"
#include "kavri/LinkProtocol.h"

namespace {

using Clock = std::chrono::steady_clock;

// The controller listens for this long after answering the start.
constexpr auto kListenerWindow = std::chrono::seconds(5);
constexpr int kPollMs = 100;

volatile sig_atomic_t interrupted = 0;

struct CameraOptions {
  int width = 0, height = 0, fps = 0;
  int powerline = 50;
  int cameraPort = 65001;
  std::string saveDir;
  int count = 0;  // 0: until interrupted
  int servePort = 0;
};

struct Frame {
  KavriCameraFrameHeader header{};
  std::vector<uint8_t> data;
};

// The camera server's side of the connection: frames in, acknowledgements out.
class CameraStream {
 public:
  CameraStream(const std::string& host, int port, int timeoutSeconds)
      : peer_(host + ":" + std::to_string(port)), timeoutSeconds_(timeoutSeconds) {
    sockaddr_in address = ResolveIPv4(host, port);
    auto deadline = Clock::now() + kListenerWindow;
    for (;;) {
      fd_ = socket(AF_INET, SOCK_STREAM, 0);
      if (fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return;
      int error = errno;
      if (fd_ >= 0) close(fd_);
      fd_ = -1;
      if (Clock::now() > deadline || interrupted)
        throw LinkError("the camera server at " + peer_ + " did not accept within 5 s: " + strerror(error));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  ~CameraStream() {
    if (fd_ >= 0) close(fd_);
  }

  // False when the stream ended or the user interrupted.
  bool Next(Frame& frame) {
    if (!ReadAll(&frame.header, sizeof frame.header)) return false;
    if (frame.header.magic != KavriCameraFrameMagic) {
      char message[120];
      snprintf(message, sizeof message, "the camera server at %s sent a frame header with magic 0x%08x",
               peer_.c_str(), frame.header.magic);
      throw LinkError(message);
    }
    if (frame.header.size > frame.header.capacity)
      throw LinkError("the camera server at " + peer_ + " announced a frame larger than its buffers");
    frame.data.resize(frame.header.size);
    return ReadAll(frame.data.data(), frame.data.size());
  }

  void Acknowledge() {
    uint32_t ack = KavriCameraFrameAck;
    if (send(fd_, &ack, sizeof ack, MSG_NOSIGNAL) != sizeof ack)
      throw LinkError("the camera server at " + peer_ + " went away");
  }

 private:
  // Reads in short slices so that Ctrl-C is heard at once.
  bool ReadAll(void* target, size_t length) {
    auto* bytes = static_cast<uint8_t*>(target);
    size_t received = 0;
    auto deadline = Clock::now() + std::chrono::seconds(timeoutSeconds_);
    while (received < length) {
      if (interrupted) return false;
      pollfd watched{fd_, POLLIN, 0};
      int ready = poll(&watched, 1, kPollMs);
      if (ready == 0) {
        if (Clock::now() > deadline) throw LinkError("the camera server at " + peer_ + " sent no frame in time");
        continue;
      }
      if (ready < 0) continue;  // a signal; the loop looks at the flag
      ssize_t count = recv(fd_, bytes + received, length - received, 0);
      if (count <= 0) return false;
      received += size_t(count);
    }
    return true;
  }

  std::string peer_;
  int timeoutSeconds_;
  int fd_ = -1;
};

void SendToController(const PcContext& context, const void* command, size_t length, uint32_t replyCode,
                      const char* what) {
  LinkClient link = context.Connect();
  link.Send(command, length);
  xoIF2013Reply_Base reply{};
  link.Receive(&reply, sizeof reply, replyCode, what);
}

void SaveFrame(const std::string& directory, int number, const Frame& frame) {
  char name[32];
  snprintf(name, sizeof name, "/frame-%06d.jpg", number);
  std::string path = directory + name;
  FILE* file = fopen(path.c_str(), "wb");
  bool written = file && fwrite(frame.data.data(), 1, frame.data.size(), file) == frame.data.size();
  if (file && fclose(file) != 0) written = false;
  if (!written) throw LinkError("cannot write " + path + ": " + strerror(errno));
}

// Frames per second over the last second and the latest backlog.
class StreamMeter {
 public:
  explicit StreamMeter(const PcContext& context) : context_(context) {}

  void Count(const Frame& frame) {
    ++frames_;
    backlog_ = frame.header.backlog;
    auto now = Clock::now();
    double seconds = std::chrono::duration<double>(now - since_).count();
    if (seconds < 1.0) return;
    Show("progress", double(frames_ - framesThen_) / seconds);
    since_ = now;
    framesThen_ = frames_;
  }

  void Finish(const std::string& savedTo) {
    double seconds = std::chrono::duration<double>(Clock::now() - started_).count();
    if (context_.json) {
      nlohmann::ordered_json done = {{"reply", "camera"}, {"frames", frames_}, {"seconds", seconds}};
      if (!savedTo.empty()) done["saved"] = savedTo;
      fprintf(context_.out, "%s\n", done.dump().c_str());
    } else {
      fprintf(context_.out, "ok: %d frames in %.1f s%s%s\n", frames_, seconds, savedTo.empty() ? "" : ", saved in ",
              savedTo.c_str());
    }
    fflush(context_.out);
  }

 private:
  void Show(const char* what, double fps) {
    if (context_.json)
      fprintf(context_.out, "%s\n",
              nlohmann::ordered_json({{"reply", what}, {"frames", frames_}, {"fps", fps}, {"backlog", backlog_}})
                  .dump()
                  .c_str());
    else
      fprintf(context_.out, "%d frames, %.1f frames/s, backlog %d\n", frames_, fps, backlog_);
    fflush(context_.out);
  }

  const PcContext& context_;
  Clock::time_point started_ = Clock::now();
  Clock::time_point since_ = started_;
  int frames_ = 0;
  int framesThen_ = 0;
  int backlog_ = 0;
};

int RunCamera(const PcContext& context, const CameraOptions& options) {
  if (!options.saveDir.empty() && mkdir(options.saveDir.c_str(), 0755) != 0 && errno != EEXIST)
    throw LinkError("cannot create " + options.saveDir + ": " + strerror(errno));
  std::unique_ptr<CameraView> view;
  if (options.servePort) view = std::make_unique<CameraView>(options.servePort, context.err);

  interrupted = 0;
  struct sigaction onInterrupt{};
  onInterrupt.sa_handler = [](int) { interrupted = 1; };
  sigaction(SIGINT, &onInterrupt, nullptr);

  xoIF2013Command_StartCameraOnline start{KavriCmdStartCameraOnline, options.width, options.height, options.fps,
                                          options.powerline};
  SendToController(context, &start, sizeof start, KavriReplyStartCameraOnline, "start camera online");
  StreamMeter meter(context);
  try {
    CameraStream stream(context.host, options.cameraPort, context.timeoutSeconds);
    Frame frame;
    int received = 0;
    while ((options.count == 0 || received < options.count) && stream.Next(frame)) {
      // Acknowledged first: the controller fills its other buffer meanwhile.
      stream.Acknowledge();
      ++received;
      meter.Count(frame);
      if (!options.saveDir.empty()) SaveFrame(options.saveDir, received, frame);
      if (view) view->Publish(frame.data);
    }
  } catch (const LinkError&) {
    xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
    SendToController(context, &stop, sizeof stop, KavriReplyStopCameraOnline, "stop camera online");
    throw;
  }
  xoIF2013Command_Base stop{KavriCmdStopCameraOnline};
  SendToController(context, &stop, sizeof stop, KavriReplyStopCameraOnline, "stop camera online");
  meter.Finish(options.saveDir);
  signal(SIGINT, SIG_DFL);
  return 0;
}

}  // namespace

void AddCameraCommands(CLI::App& app, PcContext& context) {
  auto options = std::make_shared<CameraOptions>();
  CLI::App* camera = app.add_subcommand("camera", "stream the controller's camera: save the frames or watch them live");
  camera->add_option("WIDTH", options->width, "frame width in pixels")->required()->check(CLI::Range(2, 4096));
  camera->add_option("HEIGHT", options->height, "frame height in pixels")->required()->check(CLI::Range(1, 4096));
  camera->add_option("FPS", options->fps, "frames per second")->required()->check(CLI::Range(1, 120));
  camera->add_option("--powerline", options->powerline, "mains frequency for the flicker filter")
      ->check(CLI::IsMember({50, 60}))
      ->capture_default_str();
  AddNumberOption(*camera, "--camera-port", options->cameraPort, 1, 65535, "camera stream port");
  camera->add_option("--save", options->saveDir, "write the frames to DIR as frame-000001.jpg, ...");
  AddNumberOption(*camera, "--count", options->count, 0, 1 << 30, "stop after N frames (0: at Ctrl-C)");
  AddNumberOption(*camera, "--serve", options->servePort, 0, 65535,
                  "show the stream at http://127.0.0.1:PORT/ (0: do not)");
  camera->callback([&context, options] {
    context.action = [&context, options] { return RunCamera(context, *options); };
  });
}
