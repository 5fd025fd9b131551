// Hands compressed frames to the camera server through two buffers, without
// locks and without ever waiting: a frame for a buffer still full is dropped.
#include <cstring>

#include "kavri/Camera.h"

extern "C" {
// Typed from load: a chain of this record alone must never be read as a
// counter record, whoever hands it to CameraSetup.
CameraAnalysisDeliverFrame CameraAnalysisDeliverFrame_Inst = {.base = {.type = CameraAnalysisTypeDeliverFrame}};
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
  EndWriting();
}

void CameraAnalysisDeliverFrame::Uninit() {}

// Nothing of the record but its flags is touched unless BeginWriting saw
// enabled set, which also makes the consumer's capacity and buffers visible.
// A buffer the server has not lent drops the frame like a full one.
void CameraAnalysisDeliverFrame::Analyze(int, const unsigned char*, const unsigned char*,
                                          const unsigned char* compressed, int compressedSize) {
  if (!BeginWriting()) return;
  std::atomic_ref<int32_t> index(writeIndex);
  int which = index.load(std::memory_order_relaxed) & 1;
  uint8_t* target = std::atomic_ref<uint8_t*>(buffer[which]).load(std::memory_order_acquire);
  int32_t room = std::atomic_ref<int32_t>(capacity).load(std::memory_order_acquire);
  if (target && compressedSize >= 0 && compressedSize <= room && !Full(which).load(std::memory_order_acquire)) {
    memcpy(target, compressed, size_t(compressedSize));
    std::atomic_ref<int32_t>(size[which]).store(compressedSize, std::memory_order_relaxed);
    Full(which).store(1, std::memory_order_release);
    index.store(1 - which, std::memory_order_relaxed);
  }
  EndWriting();
}
