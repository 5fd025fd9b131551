// Hands compressed frames to the camera server through two buffers, without
// locks and without ever waiting: a frame for a buffer still full is dropped.
#include <cstring>

#include "kavri/Camera.h"

extern "C" {
CameraAnalysisDeliverFrame CameraAnalysisDeliverFrame_Inst = {};
}

namespace {
template <typename T>
void Clear(T& field) {
  std::atomic_ref<T>(field).store(0, std::memory_order_relaxed);
}
}  // namespace

// The capture thread and the camera server both call Init, possibly at the
// same time; capacity, enabled and the buffers are the server's to set.
void CameraAnalysisDeliverFrame::Init() {
  for (int which = 0; which < 2; ++which) {
    Clear(full[which]);
    Clear(size[which]);
  }
  Clear(writeIndex);
  Clear(readIndex);
  Clear(writing);
}

void CameraAnalysisDeliverFrame::Uninit() {}

// writing is raised before enabled is read: a consumer that clears enabled
// and then sees writing clear knows that no copy is under way or to come.
// A buffer the server has not set yet (it may enable the record first) drops
// the frame like a full one.
void CameraAnalysisDeliverFrame::Analyze(int, const unsigned char*, const unsigned char*,
                                          const unsigned char* compressed, int compressedSize) {
  Writing().store(1);
  uint8_t* target = std::atomic_ref<uint8_t*>(buffer[writeIndex]).load(std::memory_order_acquire);
  if (Enabled().load() && target && compressedSize >= 0 && compressedSize <= capacity &&
      !Full(writeIndex).load(std::memory_order_acquire)) {
    memcpy(target, compressed, size_t(compressedSize));
    size[writeIndex] = compressedSize;
    Full(writeIndex).store(1, std::memory_order_release);
    writeIndex = (writeIndex + 1) % 2;
  }
  Writing().store(0);
}
