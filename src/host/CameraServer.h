// The camera server: a second TCP server that streams the frames the capture
// thread delivers to one PC, one frame per acknowledgement.
#ifndef KAVRI_HOST_CAMERASERVER_H
#define KAVRI_HOST_CAMERASERVER_H

extern "C" {

// 1 once the thread exists; 0 if it could not be created or an earlier
// server would not stop.
int StartThreadCameraServer(void);
// 1 once the thread has ended, 0 if it did not within a second.
int StopThreadCameraServer(void);
void* CameraServerThread(void* argument);

}

namespace kavri {

// Width and height the server accepts, each; beyond this the two buffers of
// width x height x 2 bytes would be more than the controller can spare.
inline constexpr int kCameraServerMaxSide = 4096;

}  // namespace kavri

#endif
