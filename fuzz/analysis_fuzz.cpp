// One camera analysis record of each kind, its fields chosen by the fuzzer,
// through Init, a few frames of Analyze and Uninit on fixed frames of the
// simulated camera. The record stands alone (no next record).
//
// What the program owns is made valid, as a program that compiles would
// have it: every result pointer names a variable of its own (or is null
// where null is allowed), the frame-delivery buffers hold the capacity the
// record states, and the exclusions a ball record counts follow it. The
// fields the library fills in at Init start out null, as in a program's
// fresh record. Everything else is the fuzzer's.
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "FuzzInput.h"
#include "camera_devices/SimCamera.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kFrames = 3;
constexpr int kMostExclusions = 8;
constexpr int kMostCapacity = 16384;

struct Frame {
  std::vector<uint8_t> compressed;
  std::unique_ptr<unsigned char[]> decoded;
};
Frame frames[kFrames];

// The program's side of one record: its variables and buffers, each its own
// allocation so that a write past one is caught.
class ProgramMemory {
 public:
  explicit ProgramMemory(uint32_t nullMask) : nullMask_(nullMask) {}

  // A result variable; null where the fuzzer asks and null is allowed.
  int16_t* Var(bool mayBeNull = false) {
    bool makeNull = mayBeNull && (nullMask_ & 1);
    nullMask_ = nullMask_ >> 1 | nullMask_ << 31;
    if (makeNull) return nullptr;
    vars_.emplace_back(new int16_t(0));
    return vars_.back().get();
  }
  uint8_t* Bytes(size_t count) {
    bytes_.emplace_back(new uint8_t[count ? count : 1]());
    return bytes_.back().get();
  }

 private:
  uint32_t nullMask_;
  std::vector<std::unique_ptr<int16_t>> vars_;
  std::vector<std::unique_ptr<uint8_t[]>> bytes_;
};

void MakeValid(CameraAnalysisDeliverFrame& r, ProgramMemory& memory) {
  if (r.capacity > kMostCapacity) r.capacity %= kMostCapacity;
  for (uint8_t*& buffer : r.buffer) buffer = memory.Bytes(r.capacity > 0 ? size_t(r.capacity) : 0);
}

void MakeValid(CameraAnalysisMaxOnLine& r, ProgramMemory& memory) {
  r.positionResult = memory.Var();
  r.qualityResult = memory.Var();
  r.widthResult = memory.Var();
  r.valueBuffer = r.redBuffer = r.greenBuffer = r.blueBuffer = r.erodedBuffer = nullptr;
}

void MakeValid(CameraAnalysisMaxOnLine2& r, ProgramMemory& memory) {
  for (int16_t** results : {r.positionResults, r.strengthResults, r.widthResults, r.redResults, r.greenResults,
                            r.blueResults, r.brightnessResults})
    for (int line = 0; line < 5; ++line) results[line] = memory.Var(true);
  r.valueBuffer = r.redBuffer = r.greenBuffer = r.blueBuffer = nullptr;
}

void MakeValid(CameraAnalysisColorField& r, ProgramMemory& memory) {
  r.brightnessVar = memory.Var();
  r.redVar = memory.Var();
  r.greenVar = memory.Var();
  r.blueVar = memory.Var();
}

void MakeValid(CameraAnalysisChangeDetect& r, ProgramMemory& memory) {
  r.strengthVar = memory.Var();
  r.areaVar = memory.Var();
}

void MakeValid(CameraAnalysisBallSingleBlock& r, ProgramMemory& memory) {
  r.xResult = memory.Var();
  r.yResult = memory.Var();
  r.radiusResult = memory.Var();
  r.qualityResult = memory.Var();
  r.map = nullptr;
  r.moments = nullptr;
}

void MakeValid(CameraAnalysisBallMultiBlock& r, ProgramMemory& memory) {
  r.xResult = memory.Var();
  r.yResult = memory.Var();
  r.radiusResult = memory.Var();
  r.qualityResult = memory.Var();
  r.levelResult = memory.Var();
  r.map = nullptr;
  r.cellTables = nullptr;
}

template <class Record>
void Run(FuzzInput& in, ProgramMemory& memory, int32_t type) {
  // A negative count stays as it is: it asks for no room.
  int32_t exclusions = 0;
  if constexpr (requires(Record r) { r.exclusionCount; }) {
    exclusions = in.Take<int32_t>();
    if (exclusions > kMostExclusions) exclusions %= kMostExclusions + 1;
  }
  size_t room = sizeof(Record) + size_t(exclusions > 0 ? exclusions : 0) * 16;
  std::unique_ptr<uint8_t[]> storage(new uint8_t[room]());
  size_t given = in.RestSize() < room ? in.RestSize() : room;
  memcpy(storage.get(), in.Rest(), given);
  auto& record = *reinterpret_cast<Record*>(storage.get());
  if constexpr (requires(Record r) { r.exclusionCount; }) record.exclusionCount = exclusions;
  MakeValid(record, memory);
  record.base.type = type;
  record.base.next = nullptr;

  CameraInitAnalysis(&record.base, kWidth, kHeight);
  for (int i = 0; i < kFrames; ++i) {
    const Frame& frame = frames[i];
    const Frame& previous = frames[(i + kFrames - 1) % kFrames];
    CameraRunAnalysis(&record.base, frame.decoded.get(), previous.decoded.get(), frame.compressed.data(),
                      int(frame.compressed.size()));
  }
  CameraUninitAnalysis(&record.base);
}

// Types 1 to 7 in order.
using Runner = void (*)(FuzzInput&, ProgramMemory&, int32_t);
constexpr Runner kRunByType[] = {Run<CameraAnalysisDeliverFrame>,    Run<CameraAnalysisMaxOnLine>,
                                 Run<CameraAnalysisMaxOnLine2>,      Run<CameraAnalysisColorField>,
                                 Run<CameraAnalysisChangeDetect>,    Run<CameraAnalysisBallSingleBlock>,
                                 Run<CameraAnalysisBallMultiBlock>};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  DebugFile = fopen("/dev/null", "w");
  if (!DebugFile) return 1;
  size_t room = CameraDecodedAllocation(kWidth, kHeight);
  for (int i = 0; i < kFrames; ++i) {
    frames[i].compressed = camera_devices::SimCameraFrame(uint32_t(10 * i), kWidth, kHeight);
    frames[i].decoded.reset(new unsigned char[room]);
    if (!xoProJpegDec(frames[i].compressed.data(), int(frames[i].compressed.size()), frames[i].decoded.get(),
                      int(room)))
      return 1;
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  uint8_t kind = in.Take<uint8_t>();
  // The per-analysis and sharpness lines have their own arithmetic.
  DebugFlags = in.Take<uint8_t>() & (2 | 4);
  uint8_t changeFlag = 0;
  CameraChangeVar = (in.Take<uint8_t>() & 1) ? &changeFlag : nullptr;
  ProgramMemory memory(in.Take<uint32_t>());
  const int32_t type = kind % 7 + 1;
  kRunByType[type - 1](in, memory, type);
  CameraChangeVar = nullptr;
  return 0;
}
