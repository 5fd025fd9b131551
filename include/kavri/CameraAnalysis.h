// The camera analysis chain: records that downloaded code builds in its own
// data and hands to CameraSetup. Their layout is a binary interface with
// 32-bit ARM code (4-byte pointers); the library dispatches on the type code.
#ifndef KAVRI_CAMERAANALYSIS_H
#define KAVRI_CAMERAANALYSIS_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <atomic>
#include <bit>

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
// - enabled and writing are two adjacent bytes that both sides only change
//   as one 16-bit word, with read-modify-writes (Flags() and the calls
//   below); no byte of the pair is ever written on its own while the record
//   is shared. All changes of the word are thus totally ordered, and each
//   one sees the last, which is what makes the stop below safe.
// - The consumer calls Init, then stores capacity and both buffer pointers
//   with release order, and only then raises enabled (SetEnabled, release).
//   The producer reads nothing else of the record until its BeginWriting has
//   seen enabled set (acquire), so it also sees where to copy and how much fits.
// - The producer fills only a buffer whose full flag is clear and sets the
//   flag last (release); the consumer reads only a buffer whose flag is set
//   (acquire), advances readIndex and then clears the flag (release). So each
//   buffer has one owner at a time.
// - Init may run on the capture thread (at capture start) while the consumer
//   waits; it only stores zeros, atomically, and leaves enabled alone.
// - A copy is bracketed by BeginWriting, which raises writing only if
//   enabled is set, in one compare-and-swap, and EndWriting, which drops it
//   (release). To stop, the consumer clears enabled (SetEnabled(false)) and
//   then waits until IsWriting() reads clear (acquire). Either the
//   producer's raise came first, and the consumer's wait ends only on the
//   matching drop, after the copy; or the clear came first, and the
//   producer's compare-and-swap sees enabled clear and copies nothing. After
//   the wait the buffers may be freed.
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

  // enabled and writing as one word; the masks pick each byte whatever the
  // byte order.
  static constexpr uint16_t kEnabledMask = std::bit_cast<uint16_t>(std::array<uint8_t, 2>{0xFF, 0});
  static constexpr uint16_t kWritingMask = std::bit_cast<uint16_t>(std::array<uint8_t, 2>{0, 0xFF});
  static constexpr uint16_t kEnabledOne = std::bit_cast<uint16_t>(std::array<uint8_t, 2>{1, 0});
  static constexpr uint16_t kWritingOne = std::bit_cast<uint16_t>(std::array<uint8_t, 2>{0, 1});
  std::atomic_ref<uint16_t> Flags() { return std::atomic_ref<uint16_t>(*reinterpret_cast<uint16_t*>(&enabled)); }
  bool IsEnabled() { return Flags().load(std::memory_order_acquire) & kEnabledMask; }
  bool IsWriting() { return Flags().load(std::memory_order_acquire) & kWritingMask; }
  void SetEnabled(bool on) {
    if (on)
      Flags().fetch_or(kEnabledOne, std::memory_order_acq_rel);
    else
      Flags().fetch_and(uint16_t(~kEnabledMask), std::memory_order_acq_rel);
  }
  // Raises writing if enabled is set; false (and nothing raised) otherwise.
  bool BeginWriting() {
    std::atomic_ref<uint16_t> flags = Flags();
    uint16_t seen = flags.load(std::memory_order_relaxed);
    do {
      if (!(seen & kEnabledMask)) return false;
    } while (!flags.compare_exchange_weak(seen, uint16_t((seen & kEnabledMask) | kWritingOne),
                                          std::memory_order_acq_rel, std::memory_order_relaxed));
    return true;
  }
  void EndWriting() { Flags().fetch_and(kEnabledMask, std::memory_order_release); }
};

// Flags() treats enabled and writing as one aligned 16-bit word.
static_assert(offsetof(CameraAnalysisDeliverFrame, writing) == offsetof(CameraAnalysisDeliverFrame, enabled) + 1);
static_assert(offsetof(CameraAnalysisDeliverFrame, enabled) % alignof(uint16_t) == 0);
static_assert(alignof(CameraAnalysisDeliverFrame) >= alignof(uint16_t));
static_assert(std::atomic_ref<uint16_t>::is_always_lock_free);

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
