// The Motion-JPEG decoder with arbitrary frame bytes and room for the output.
// The room offered ends where its allocation ends, so a write past it is
// caught.
#include <cstdint>
#include <memory>

#include "FuzzInput.h"
#include "kavri/Camera.h"

namespace {

// Room for a 1280 x 960 frame: more finds nothing new, and the fuzzer
// must not allocate without bound.
constexpr uint32_t kMostRoom = 1280 * 960 * 2;

// Allocated once: a fresh buffer of up to 2.4 MB for every input would cost
// more than most decodes.
unsigned char* const outputBlock = new unsigned char[kMostRoom];

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  int room = static_cast<int>(in.Take<uint32_t>() % (kMostRoom + 1));
  // The decoder takes its input as writable; a copy keeps the fuzzer's own
  // bytes untouched and its end exact.
  std::unique_ptr<unsigned char[]> frame(new unsigned char[in.RestSize() + 1]);
  memcpy(frame.get(), in.Rest(), in.RestSize());
  unsigned char* output = outputBlock + (kMostRoom - room);
  int decoded = xoProJpegDec(frame.get(), static_cast<int>(in.RestSize()), output, room);
  FUZZ_CHECK(decoded == 0 || decoded == 1);
  return 0;
}
