// Reads typed values from the front of a fuzz input. Past the end every read
// gives zeros, so a short input is still a whole, valid call.
#ifndef KAVRI_FUZZ_FUZZINPUT_H
#define KAVRI_FUZZ_FUZZINPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  template <class T>
  T Take() {
    static_assert(std::is_trivially_copyable_v<T>);
    T value{};
    size_t n = sizeof value < size_ ? sizeof value : size_;
    if (n) memcpy(&value, data_, n);
    data_ += n;
    size_ -= n;
    return value;
  }

  // A value in [0, count).
  uint32_t Below(uint32_t count) { return count ? Take<uint32_t>() % count : 0; }

  const uint8_t* Rest() const { return data_; }
  size_t RestSize() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

// A broken property: abort, so that the fuzzer keeps the input as a crash.
#define FUZZ_CHECK(condition)                                                        \
  do {                                                                               \
    if (!(condition)) {                                                              \
      fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
      abort();                                                                       \
    }                                                                                \
  } while (0)

#endif
