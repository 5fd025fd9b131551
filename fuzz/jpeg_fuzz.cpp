// The Motion-JPEG decoder with arbitrary frame bytes and room for the output.
// The output buffer is allocated at exactly the room offered, so a write past
// it is caught.
#include <cstdint>
#include <memory>

#include "FuzzInput.h"
#include "kavri/Camera.h"

namespace {

// Twice the largest frame the camera is asked for: room beyond it finds
// nothing new, and the fuzzer must not allocate without bound.
constexpr uint32_t kMostRoom = 1280 * 960 * 2;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  int room = static_cast<int>(in.Take<uint32_t>() % (kMostRoom + 1));
  // The decoder takes its input as writable; a copy keeps the fuzzer's own
  // bytes untouched and its end exact.
  std::unique_ptr<unsigned char[]> frame(new unsigned char[in.RestSize() + 1]);
  memcpy(frame.get(), in.Rest(), in.RestSize());
  std::unique_ptr<unsigned char[]> output(new unsigned char[room + 1]);
  constexpr unsigned char kGuard = 0x5A;
  output[room] = kGuard;
  int decoded = xoProJpegDec(frame.get(), static_cast<int>(in.RestSize()), output.get(), room);
  FUZZ_CHECK(decoded == 0 || decoded == 1);
  FUZZ_CHECK(output[room] == kGuard);
  return 0;
}
