// Stand-in for the controller's motor and I/O library: one transfer area at a
// fixed address, a cycle thread with a 10 ms period that exchanges it with a
// simulated hardware model and calls the registered callback.
#include "kavri/MotorIOLib.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "motoriolib/MotorIOLibSim.h"

namespace {

constexpr size_t kMappingSize = KAVRI_TRANS_AREA_SIZE + KAVRI_DISPLAY_BUFFER_SIZE;

// The hardware's side of the exchange: what the inputs read and what the
// outputs were last set to. Inputs default to their own output (wired back).
struct SimHardware {
  std::array<std::atomic<int32_t>, MOTORIOLIB_SIM_CHANNELS> forcedInputs;
  std::array<std::atomic<uint16_t>, MOTORIOLIB_SIM_CHANNELS> outputs{};
  std::atomic<uint32_t> cycles{0};
  std::atomic<uint32_t> transfers{0};
  SimHardware() {
    for (auto& input : forcedInputs) input.store(-1, std::memory_order_relaxed);
  }
};

SimHardware hardware;
std::atomic<MotorIOLib_CallbackIO> callbackIO{nullptr};
std::atomic<bool> cycleRunning{false};
std::atomic<bool> cycleTerminate{false};
std::atomic<std::thread::id> cycleThreadId{};

// The display buffer lies right behind the transfer area.
KavriAddr32 DisplayBufferAddress(shm_if_s* area) {
  return static_cast<KavriAddr32>(reinterpret_cast<uintptr_t>(area) + KAVRI_TRANS_AREA_SIZE);
}

// The area must keep one address for the process' life, and its display
// pointer must fit the 32-bit field: on 64-bit hosts it lives below 4 GiB.
shm_if_s* CreateTransArea() {
  int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#ifdef MAP_32BIT
  if (sizeof(void*) > 4) flags |= MAP_32BIT;
#endif
  void* mapping = mmap(nullptr, kMappingSize, PROT_READ | PROT_WRITE, flags, -1, 0);
  if (mapping == MAP_FAILED) {
    fprintf(stderr, "ERROR MotorIOLib cannot map the transfer area: %s\n", strerror(errno));
    abort();
  }
  auto* area = static_cast<shm_if_s*>(mapping);
  area->DisplayBuffer = DisplayBufferAddress(area);
  return area;
}

shm_if_s* TransArea() {
  static shm_if_s* const area = CreateTransArea();
  return area;
}

// Reads and writes of the area race with downloaded code by design (it is
// shared memory with the hardware); the fields are accessed as atomics here.
uint16_t LoadField(uint16_t& field) { return std::atomic_ref<uint16_t>(field).load(std::memory_order_relaxed); }
void StoreField(uint16_t& field, uint16_t value) { std::atomic_ref<uint16_t>(field).store(value, std::memory_order_relaxed); }

void ExchangeWithHardware(shm_if_s* area) {
  // The display pointer is the hardware side's, and a program start clears
  // the area's head where it lies: like the controller's library, every
  // exchange sets it again before a program can draw.
  std::atomic_ref<KavriAddr32>(area->DisplayBuffer).store(DisplayBufferAddress(area), std::memory_order_relaxed);
  for (int channel = 0; channel < MOTORIOLIB_SIM_CHANNELS; ++channel) {
    uint16_t output = LoadField(area->OutputValues[channel]);
    hardware.outputs[channel].store(output, std::memory_order_relaxed);
    int32_t forced = hardware.forcedInputs[channel].load(std::memory_order_relaxed);
    StoreField(area->InputValues[channel], forced >= 0 ? static_cast<uint16_t>(forced) : output);
  }
  hardware.transfers.fetch_add(1, std::memory_order_relaxed);
}

void CycleThread() {
  using Clock = std::chrono::steady_clock;
  auto next = Clock::now();
  shm_if_s* area = TransArea();
  cycleThreadId.store(std::this_thread::get_id(), std::memory_order_release);
  while (!cycleTerminate.load(std::memory_order_acquire)) {
    ExchangeWithHardware(area);
    hardware.cycles.fetch_add(1, std::memory_order_relaxed);
    MotorIOLib_CallbackIO callback = callbackIO.load(std::memory_order_acquire);
    // A callback that reports the end of its program is not called again.
    if (callback && !callback(area, KAVRI_TRANS_AREA_INDEX))
      callbackIO.compare_exchange_strong(callback, nullptr, std::memory_order_acq_rel);
    next += std::chrono::milliseconds(MOTORIOLIB_SIM_CYCLE_MS);
    std::this_thread::sleep_until(next);
  }
  cycleThreadId.store(std::thread::id(), std::memory_order_release);
  cycleRunning.store(false, std::memory_order_release);
}

// A callback that never returns keeps the cycle thread for good; like the
// controller, the stand-in cannot end it, but it must not hang its caller
// either. The bound is generous because a program's last callback stops the
// program and display threads, which may take a second each.
bool WaitForCycleThreadEnd() {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(MOTORIOLIB_SIM_STOP_SECONDS);
  while (cycleRunning.load(std::memory_order_acquire)) {
    if (std::chrono::steady_clock::now() > deadline) {
      fprintf(stderr, "ERROR MotorIOLib cycle thread did not end within %d s: its callback does not return\n",
              MOTORIOLIB_SIM_STOP_SECONDS);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace

extern "C" {

void MotorIOLib_StartThreads(void) {
  if (cycleRunning.load(std::memory_order_acquire) && !cycleTerminate.load(std::memory_order_acquire)) return;
  if (!WaitForCycleThreadEnd()) return;
  cycleTerminate.store(false, std::memory_order_release);
  cycleRunning.store(true, std::memory_order_release);
  std::thread(CycleThread).detach();
}

void MotorIOLib_StopThreads(void) {
  cycleTerminate.store(true, std::memory_order_release);
  // From the cycle thread itself only the request can be made; the thread
  // ends after the current cycle.
  if (std::this_thread::get_id() != cycleThreadId.load(std::memory_order_acquire)) WaitForCycleThreadEnd();
}

bool MotorIOLib_ThreadIsRunning(void) { return cycleRunning.load(std::memory_order_acquire); }

void MotorIOLib_SetCallbackIO(MotorIOLib_CallbackIO callback) { callbackIO.store(callback, std::memory_order_release); }

shm_if_s* MotorIOLib_GetTransArea(int /*index*/) { return TransArea(); }

bool MotorIOLib_DoTransfer(shm_if_s* area, int /*index*/) {
  if (area != TransArea()) return false;
  ExchangeWithHardware(area);
  return true;
}

void MotorIOLibSim_SetInput(int channel, int32_t value) {
  if (channel < 0 || channel >= MOTORIOLIB_SIM_CHANNELS) return;
  hardware.forcedInputs[channel].store(value < 0 ? -1 : (value & 0xFFFF), std::memory_order_relaxed);
}

uint16_t MotorIOLibSim_GetOutput(int channel) {
  if (channel < 0 || channel >= MOTORIOLIB_SIM_CHANNELS) return 0;
  return hardware.outputs[channel].load(std::memory_order_relaxed);
}

uint32_t MotorIOLibSim_CycleCount(void) { return hardware.cycles.load(std::memory_order_relaxed); }

uint32_t MotorIOLibSim_TransferCount(void) { return hardware.transfers.load(std::memory_order_relaxed); }

int MotorIOLibSim_TakeDisplayFrame(uint8_t* frame) {
  shm_if_s* area = TransArea();
  std::atomic_ref<uint16_t> flag(area->DisplayUpdateFlag);
  if (flag.load(std::memory_order_acquire) == 0) return 0;
  memcpy(frame, KavriDisplayBufferOf(area), KAVRI_DISPLAY_BUFFER_SIZE);
  flag.store(0, std::memory_order_relaxed);
  std::atomic_ref<uint16_t>(area->DisplayUpdateCounter).store(0, std::memory_order_release);
  return 1;
}

}  // extern "C"
