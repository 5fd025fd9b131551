// A live view of the camera stream for a browser on this machine: an HTML
// page at / and the frames as a Motion-JPEG stream at /stream, served on
// loopback only. Built where cpp-httplib is available; elsewhere making one
// fails with a LinkError that says so.
#ifndef KAVRI_PC_CAMERAVIEW_H
#define KAVRI_PC_CAMERAVIEW_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

class CameraView {
 public:
  // Listens on 127.0.0.1:port and tells `log` where to look.
  CameraView(int port, FILE* log);
  ~CameraView();
  CameraView(const CameraView&) = delete;
  CameraView& operator=(const CameraView&) = delete;

  // The frame every open stream shows next.
  void Publish(const std::vector<uint8_t>& jpeg);

 private:
  struct Server;
  std::unique_ptr<Server> server_;
};

#endif
