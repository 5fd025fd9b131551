// Exact unsigned integers of any size for the tests' references: products,
// powers and quotients that no machine word holds.
#ifndef KAVRI_TESTS_BIGNAT_H
#define KAVRI_TESTS_BIGNAT_H

#include <cstdint>
#include <vector>

namespace kavritest {

// Unsigned integer of any size, least significant word first.
class BigNat {
 public:
  explicit BigNat(uint64_t v = 0) {
    words_.push_back(uint32_t(v));
    words_.push_back(uint32_t(v >> 32));
    Trim();
  }
  static BigNat PowerOf(uint32_t base, int n) {
    BigNat p(1);
    for (int i = 0; i < n; ++i) p.MulSmall(base);
    return p;
  }
  void MulSmall(uint32_t f) {
    uint64_t carry = 0;
    for (uint32_t& w : words_) {
      const uint64_t t = uint64_t(w) * f + carry;
      w = uint32_t(t);
      carry = t >> 32;
    }
    if (carry != 0) words_.push_back(uint32_t(carry));
  }
  void ShiftLeft(int bits) {
    if (bits <= 0) return;
    words_.insert(words_.begin(), size_t(bits / 32), 0u);
    const int r = bits % 32;
    if (r == 0) return;
    uint32_t carry = 0;
    for (uint32_t& w : words_) {
      const uint32_t next = w >> (32 - r);
      w = (w << r) | carry;
      carry = next;
    }
    if (carry != 0) words_.push_back(carry);
  }
  friend int Compare(const BigNat& a, const BigNat& b) {
    if (a.words_.size() != b.words_.size()) return a.words_.size() < b.words_.size() ? -1 : 1;
    for (size_t i = a.words_.size(); i-- > 0;) {
      if (a.words_[i] != b.words_[i]) return a.words_[i] < b.words_[i] ? -1 : 1;
    }
    return 0;
  }
  void Subtract(const BigNat& b) {  // requires *this >= b
    int64_t borrow = 0;
    for (size_t i = 0; i < words_.size(); ++i) {
      int64_t t = int64_t(words_[i]) - borrow - (i < b.words_.size() ? int64_t(b.words_[i]) : 0);
      borrow = t < 0;
      words_[i] = uint32_t(t + (borrow << 32));
    }
    Trim();
  }
  // Quotient (below 2^63) of num / den; num keeps the remainder.
  static uint64_t DivideSmallQuotient(BigNat& num, const BigNat& den) {
    uint64_t q = 0;
    for (int bit = 62; bit >= 0; --bit) {
      BigNat shifted = den;
      shifted.ShiftLeft(bit);
      if (Compare(num, shifted) < 0) continue;
      num.Subtract(shifted);
      q |= uint64_t(1) << bit;
    }
    return q;
  }

 private:
  void Trim() {
    while (words_.size() > 1 && words_.back() == 0) words_.pop_back();
  }
  std::vector<uint32_t> words_;
};

}  // namespace kavritest

#endif
