// The analysis chain: CameraSetup starts capture for a chain, and the capture
// thread walks it at start, for every frame and at stop.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CameraChain.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

extern "C" {
CameraAnalysisBase* CameraAnalysisData = nullptr;
uint8_t* CameraChangeVar = nullptr;
}

namespace {

constexpr int kDebugSharpness = 4;
constexpr int kStopPolls = 100;
constexpr useconds_t kStopPollMicroseconds = 10000;

CameraAnalysisCounter* FindParameterRecord(CameraAnalysisBase* chain) {
  CameraAnalysisCounter* found = nullptr;
  CameraWalkChain(chain, [&found](CameraAnalysisBase& record, int) {
    if (!found && record.type == CameraAnalysisTypeCounter) found = reinterpret_cast<CameraAnalysisCounter*>(&record);
  });
  return found;
}

// Once per start, so that a looping chain is reported but not every frame.
void ReportChainShape(const CameraAnalysisBase* chain) {
  const CameraChainExtent extent = CameraMeasureChain(chain);
  if (extent.cut)
    fprintf(stderr, "ERROR camera analysis chain longer than %d records or looping: the rest is ignored\n",
            kCameraChainMaxRecords);
  else if (extent.loops)
    fprintf(stderr, "ERROR camera analysis chain loops back after %d records: each is analysed once a frame\n",
            extent.records);
}

void TakeCaptureSettings(const CameraAnalysisCounter& parameters) {
  CameraFrameWidth = parameters.base.width;
  CameraFrameHeight = parameters.base.height;
  CameraFrameRate = parameters.frameRate;
  CameraPowerlineFreq = parameters.powerlineFreq;
  printf("Camera parameter record found %dx%d %d fps %d plf\n", CameraFrameWidth, CameraFrameHeight, CameraFrameRate,
         CameraPowerlineFreq);
}

// Two capture threads would share one device and one buffer table, so a new
// start first ends the one that runs, with the usual stop protocol.
bool StopRunningCapture() {
  if (!CameraThreadRunning.load()) return true;
  CameraThreadTerminate.store(true);
  for (int poll = 0; poll < kStopPolls; ++poll) {
    if (!CameraThreadRunning.load()) return true;
    usleep(kStopPollMicroseconds);
  }
  fprintf(stderr, "ERROR camera thread still running, capture not restarted\n");
  return false;
}

void StartCaptureThread() {
  CameraThreadTerminate.store(false);
  // Raised before the thread exists, so that a stop right after this call
  // waits for the thread instead of missing it.
  CameraThreadRunning.store(true);
  int error = pthread_create(&CameraThread, nullptr, CameraThreadFunc, nullptr);
  if (error != 0) {
    CameraThreadRunning.store(false);
    fprintf(stderr, "Camera Error at %s error %d, %s\n", "pthread_create", error, strerror(error));
    return;
  }
  // Nobody joins the capture thread; its end is seen through its running flag.
  pthread_detach(CameraThread);
}

// Largest luminance steps 1 to 4 pixels apart along the middle row; a focus
// aid for setting up the camera.
void PrintSharpness(const CameraAnalysisBase& head, const unsigned char* frame) {
  const unsigned char* row = frame + size_t(head.width) * size_t(head.height);
  auto luminance = [row](int pixel) { return int(row[2 * pixel]); };
  int steps[5] = {0, 0, 0, 0, 1};
  for (int i = 0; i <= head.width - 5; ++i)
    for (int distance = 1; distance <= 4; ++distance)
      steps[distance] = std::max(steps[distance], abs(luminance(i) - luminance(i + distance)));
  fprintf(DebugFile, "Sharpness %3d%% (%3d %3d %3d %3d) %.*s\n", 100 * steps[1] / steps[4], steps[1], steps[2],
          steps[3], steps[4], 20 * steps[1] / steps[4], "12345678901234567890");
}

void RaiseChangeVar() {
  if (CameraChangeVar) {
    std::atomic_ref<uint8_t>(*CameraChangeVar).store(255, std::memory_order_release);
  } else if (CameraFrameCount.load(std::memory_order_relaxed) == 1) {
    fputs("Camera change variable is not set. Do you have a camera object?\n", stderr);
  }
}

}  // namespace

// Brent's cycle search: a hare runs ahead in power-of-two stretches and a
// tortoise waits at the start of each; they meet only if the chain loops,
// after a number of steps proportional to the records it holds.
CameraChainExtent CameraMeasureChain(const CameraAnalysisBase* chain) {
  constexpr int kStepLimit = 4 * kCameraChainMaxRecords;
  if (!chain) return {0, false, false};
  const CameraAnalysisBase* tortoise = chain;
  const CameraAnalysisBase* hare = chain->next;
  int stretch = 1, cycle = 1, walked = 1;
  while (hare != tortoise) {
    if (!hare) return {std::min(walked, kCameraChainMaxRecords), false, walked > kCameraChainMaxRecords};
    if (walked >= kStepLimit) return {kCameraChainMaxRecords, false, true};
    if (stretch == cycle) {
      tortoise = hare;
      stretch *= 2;
      cycle = 0;
    }
    hare = hare->next;
    ++cycle;
    ++walked;
  }
  // The loop is `cycle` records long; it starts where a walker that set off
  // `cycle` records later catches up with one from the head.
  const CameraAnalysisBase* behind = chain;
  const CameraAnalysisBase* ahead = chain;
  for (int step = 0; step < cycle; ++step) ahead = ahead->next;
  int lead = 0;
  while (behind != ahead) {
    behind = behind->next;
    ahead = ahead->next;
    ++lead;
  }
  const int distinct = lead + cycle;
  return {std::min(distinct, kCameraChainMaxRecords), true, distinct > kCameraChainMaxRecords};
}

extern "C" {

void CameraSetup(CameraAnalysisBase* chain) {
  if (!StopRunningCapture()) return;
  CameraAnalysisData = chain;
  if (!chain) return;
  if (CameraAnalysisCounter* parameters = FindParameterRecord(chain)) TakeCaptureSettings(*parameters);
  StartCaptureThread();
}

void CameraInitAnalysis(CameraAnalysisBase* chain, int width, int height) {
  ReportChainShape(chain);
  CameraWalkChain(chain, [width, height](CameraAnalysisBase& record, int) {
    record.width = width;
    record.height = height;
    CameraDispatch(record, [](auto& analysis) { analysis.Init(); });
  });
}

void CameraUninitAnalysis(CameraAnalysisBase* chain) {
  CameraWalkChain(chain, [](CameraAnalysisBase& record, int) {
    CameraDispatch(record, [](auto& analysis) { analysis.Uninit(); });
  });
}

void CameraRunAnalysis(CameraAnalysisBase* chain, const unsigned char* frame, const unsigned char* previousFrame,
                       const unsigned char* compressed, int compressedSize) {
  if ((DebugFlags & kDebugSharpness) && chain) PrintSharpness(*chain, frame);
  CameraWalkChain(chain, [&](CameraAnalysisBase& record, int index) {
    CameraDispatch(record, [&](auto& analysis) {
      analysis.Analyze(index, frame, previousFrame, compressed, compressedSize);
    });
  });
  RaiseChangeVar();
}

}  // extern "C"

void CameraAnalysisExclude::Init() {}
void CameraAnalysisExclude::Uninit() {}
void CameraAnalysisExclude::Analyze(int, const unsigned char*, const unsigned char*, const unsigned char*, int) {}
