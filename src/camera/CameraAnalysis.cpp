// The frame counter record, which also names the program's change variable.
#include <cstdio>

#include "kavri/Camera.h"

void CameraAnalysisCounter::Init() {
  CameraChangeVar = changeVar;
  if (!frameCounterVar) fprintf(stderr, "ERROR camera counter record without a frame counter variable\n");
}

void CameraAnalysisCounter::Uninit() { CameraChangeVar = nullptr; }

// Modulo 32768, so that the program's 16-bit variable never turns negative.
void CameraAnalysisCounter::Analyze(int, const unsigned char*, const unsigned char*, const unsigned char*, int) {
  if (!frameCounterVar) return;
  int16_t count = int16_t(CameraFrameCount.load(std::memory_order_relaxed) & 0x7FFF);
  std::atomic_ref<int16_t>(*frameCounterVar).store(count, std::memory_order_relaxed);
}
