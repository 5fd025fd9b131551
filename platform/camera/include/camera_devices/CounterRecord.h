// The counter record that heads a capture chain, as a program would write it.
#ifndef CAMERA_DEVICES_COUNTERRECORD_H
#define CAMERA_DEVICES_COUNTERRECORD_H

#include <cstdint>

#include "kavri/CameraAnalysis.h"

namespace camera_devices {

inline CameraAnalysisCounter MakeCounterRecord(int width, int height, int frameRate, int powerlineFreq,
                                               int16_t* frameCounter, uint8_t* change) {
  CameraAnalysisCounter counter{};
  counter.base = {CameraAnalysisTypeCounter, nullptr, width, height};
  counter.frameRate = frameRate;
  counter.powerlineFreq = powerlineFreq;
  counter.frameCounterVar = frameCounter;
  counter.changeVar = change;
  return counter;
}

}  // namespace camera_devices

#endif
