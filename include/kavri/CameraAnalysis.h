// The camera analysis chain: records that downloaded code builds in its own
// data and hands to CameraSetup. Their layout is a binary interface with
// 32-bit ARM code (4-byte pointers); the library dispatches on the type code.
#ifndef KAVRI_CAMERAANALYSIS_H
#define KAVRI_CAMERAANALYSIS_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

extern "C" {

enum CameraAnalysisType {
  CameraAnalysisTypeCounter = 0,
  CameraAnalysisTypeDeliverFrame = 1,
  CameraAnalysisTypeMaxOnLine = 2,
  CameraAnalysisTypeMaxOnLine2 = 3,
  CameraAnalysisTypeColorField = 4,
  CameraAnalysisTypeChangeDetect = 5,
  CameraAnalysisTypeBallSingleBlock = 6,
  CameraAnalysisTypeBallMultiBlock = 7,
};

// Header of every record. width and height are overwritten with the capture
// size when capture starts.
typedef struct CameraAnalysisBase {
  int32_t type;
  struct CameraAnalysisBase* next;
  int32_t width;
  int32_t height;
} CameraAnalysisBase;

// Counts frames into the program's variable and names the change variable.
// The first counter record of a chain also carries the capture settings.
struct CameraAnalysisCounter {
  CameraAnalysisBase base;
  int32_t frameRate;
  int32_t powerlineFreq;     // 60 selects the 60 Hz filter, anything else 50 Hz
  int16_t* frameCounterVar;  // receives the frame count modulo 32768; not null
  uint8_t* changeVar;        // raised to 255 after every analysed frame; may be null

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

// Two-buffer hand-over of compressed frames from the capture thread (the
// producer, in Analyze) to the camera server (the consumer), without locks.
// Every field both threads touch is accessed through std::atomic_ref:
// - The consumer calls Init, then stores capacity and both buffer pointers
//   with release order, and only then raises enabled. The producer reads
//   nothing else of the record until it has seen enabled set, and reads
//   capacity and the buffer pointer with acquire order.
// - The producer fills only a buffer whose full flag is clear and sets the
//   flag last (release); the consumer reads only a buffer whose flag is set
//   (acquire), advances readIndex and then clears the flag (release). So each
//   buffer has one owner at a time.
// - Init may run on the capture thread (at capture start) while the consumer
//   waits; it only stores zeros, atomically.
// - To stop, the consumer clears enabled and waits until writing is clear,
//   both sequentially consistent (the default order); the producer raises
//   writing before it reads enabled. After that no copy is under way and none
//   will start, and the buffers may be freed.
struct CameraAnalysisDeliverFrame {
  CameraAnalysisBase base;
  int32_t capacity;  // largest compressed frame a buffer takes, in bytes
  uint8_t* buffer[2];
  uint8_t full[2];
  uint8_t reserved30[2];
  int32_t size[2];
  int32_t writeIndex;
  int32_t readIndex;
  uint8_t enabled;
  uint8_t writing;
  uint8_t reserved50[2];

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);

  std::atomic_ref<uint8_t> Full(int which) { return std::atomic_ref<uint8_t>(full[which]); }
  std::atomic_ref<uint8_t> Enabled() { return std::atomic_ref<uint8_t>(enabled); }
  std::atomic_ref<uint8_t> Writing() { return std::atomic_ref<uint8_t>(writing); }
};

// A record class that does nothing; no type code leads to it.
struct CameraAnalysisExclude {
  CameraAnalysisBase base;

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(CameraAnalysisBase, type) == 0, "type offset");
static_assert(offsetof(CameraAnalysisBase, next) == 4, "next offset");
static_assert(offsetof(CameraAnalysisBase, width) == 8, "width offset");
static_assert(offsetof(CameraAnalysisBase, height) == 12, "height offset");
static_assert(sizeof(CameraAnalysisBase) == 16, "header size");

static_assert(offsetof(CameraAnalysisCounter, frameRate) == 16, "frameRate offset");
static_assert(offsetof(CameraAnalysisCounter, powerlineFreq) == 20, "powerlineFreq offset");
static_assert(offsetof(CameraAnalysisCounter, frameCounterVar) == 24, "frameCounterVar offset");
static_assert(offsetof(CameraAnalysisCounter, changeVar) == 28, "changeVar offset");
static_assert(sizeof(CameraAnalysisCounter) == 32, "counter record size");

static_assert(offsetof(CameraAnalysisDeliverFrame, capacity) == 16, "capacity offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, buffer) == 20, "buffer offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, full) == 28, "full offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, size) == 32, "size offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, writeIndex) == 40, "writeIndex offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, readIndex) == 44, "readIndex offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, enabled) == 48, "enabled offset");
static_assert(offsetof(CameraAnalysisDeliverFrame, writing) == 49, "writing offset");
static_assert(sizeof(CameraAnalysisDeliverFrame) == 52, "deliver frame record size");
#endif

// Head of the chain handed to CameraSetup; stays set after capture ends.
extern CameraAnalysisBase* CameraAnalysisData;
// The change variable of the active counter record, or null.
extern uint8_t* CameraChangeVar;
// The camera server's own one-record chain.
extern CameraAnalysisDeliverFrame CameraAnalysisDeliverFrame_Inst;

// Entry point for downloaded code and the PC link's camera start: stores the
// chain, takes the capture settings from its first counter record and starts
// the capture thread. A null chain starts nothing.
void CameraSetup(CameraAnalysisBase* chain);
// The three walks over the chain, all on the capture thread.
void CameraInitAnalysis(CameraAnalysisBase* chain, int width, int height);
void CameraUninitAnalysis(CameraAnalysisBase* chain);
void CameraRunAnalysis(CameraAnalysisBase* chain, const unsigned char* frame, const unsigned char* previousFrame,
                       const unsigned char* compressed, int compressedSize);

}  // extern "C"

#include "kavri/CameraAnalysisLine.h"  // the line finders' records

#include "kavri/CameraAnalysisBall.h"   // the ball finders' records
#include "kavri/CameraAnalysisColor.h"  // colour field and change detection

#endif
