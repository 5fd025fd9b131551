// Exact comparison of a scaled FL48 value with a half-way point. Both sides
// become integers of a few thousand bits at most: every FL48 lies within
// 2^-7968 .. 2^7904 and is compared at most ten digits below its first one.
#include "FloatTextExact.h"

#include <algorithm>

namespace floattext {
namespace {

// Unsigned integer of fixed capacity, least significant word first. The
// largest side of a comparison (5^2400 times a 35-bit number, or a 32-bit
// mantissa shifted by 5600) stays below 5700 bits.
class ExactInteger {
 public:
  explicit ExactInteger(uint64_t v) : words_{static_cast<uint32_t>(v), static_cast<uint32_t>(v >> 32)}, size_(2) {
    Trim();
  }

  void MultiplyBy(uint32_t factor) {
    uint64_t carry = 0;
    for (int32_t i = 0; i < size_; ++i) {
      const uint64_t t = uint64_t{words_[i]} * factor + carry;
      words_[i] = static_cast<uint32_t>(t);
      carry = t >> 32;
    }
    if (carry != 0 && size_ < kWords) words_[size_++] = static_cast<uint32_t>(carry);
  }

  void MultiplyByPowerOfFive(int32_t k) {
    constexpr uint32_t kFiveTo13 = 1220703125u;  // the largest power of 5 in 32 bits
    for (; k >= 13; k -= 13) MultiplyBy(kFiveTo13);
    uint32_t rest = 1;
    while (k-- > 0) rest *= 5;
    MultiplyBy(rest);
  }

  void ShiftLeft(int32_t bits) {
    const int32_t wordShift = std::min(bits / 32, kWords - size_);
    const int32_t bitShift = bits % 32;
    std::copy_backward(words_, words_ + size_, words_ + size_ + wordShift);
    std::fill(words_, words_ + wordShift, 0u);
    size_ += wordShift;
    if (bitShift == 0) return;
    uint32_t carry = 0;
    for (int32_t i = 0; i < size_; ++i) {
      const uint32_t next = words_[i] >> (32 - bitShift);
      words_[i] = (words_[i] << bitShift) | carry;
      carry = next;
    }
    if (carry != 0 && size_ < kWords) words_[size_++] = carry;
  }

  friend int32_t Compare(const ExactInteger& a, const ExactInteger& b) {
    if (a.size_ != b.size_) return a.size_ < b.size_ ? -1 : 1;
    for (int32_t i = a.size_ - 1; i >= 0; --i) {
      if (a.words_[i] != b.words_[i]) return a.words_[i] < b.words_[i] ? -1 : 1;
    }
    return 0;
  }

 private:
  static constexpr int32_t kWords = 192;

  void Trim() {
    while (size_ > 1 && words_[size_ - 1] == 0) --size_;
  }

  uint32_t words_[kWords];
  int32_t size_;
};

}  // namespace

// m 2^e 10^q against (2n + 1) / 2: both sides times 2, then the powers of 2
// and 5 moved to whichever side keeps them integral.
int32_t CompareScaledWithHalf(uint32_t mant, int32_t binaryExponent, int32_t decimalShift, uint64_t n) {
  ExactInteger scaled(mant);
  ExactInteger half(2 * n + 1);
  if (decimalShift >= 0) {
    scaled.MultiplyByPowerOfFive(decimalShift);
  } else {
    half.MultiplyByPowerOfFive(-decimalShift);
  }
  const int32_t twos = binaryExponent + 1 + decimalShift;
  if (twos >= 0) {
    scaled.ShiftLeft(twos);
  } else {
    half.ShiftLeft(-twos);
  }
  return Compare(scaled, half);
}

}  // namespace floattext
