// The constant and power-of-ten tables: every power is checked to be the
// nearest mantissa of its exact value with big integers formed here.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

// Unsigned big integer, 32-bit limbs, least significant first.
class Big {
 public:
  explicit Big(uint64_t v) {
    limbs_ = {uint32_t(v), uint32_t(v >> 32)};
    Trim();
  }
  static Big PowerOfTen(int n) {
    Big b(1);
    for (int i = 0; i < n; ++i) b.MulSmall(10);
    return b;
  }
  Big& MulSmall(uint32_t f) {
    uint64_t carry = 0;
    for (uint32_t& limb : limbs_) {
      uint64_t t = uint64_t(limb) * f + carry;
      limb = uint32_t(t);
      carry = t >> 32;
    }
    if (carry) limbs_.push_back(uint32_t(carry));
    Trim();
    return *this;
  }
  Big& MulBig(const Big& other) {
    std::vector<uint32_t> out(limbs_.size() + other.limbs_.size(), 0);
    for (size_t i = 0; i < limbs_.size(); ++i) {
      uint64_t carry = 0;
      for (size_t j = 0; j < other.limbs_.size(); ++j) {
        uint64_t t = uint64_t(limbs_[i]) * other.limbs_[j] + out[i + j] + carry;
        out[i + j] = uint32_t(t);
        carry = t >> 32;
      }
      out[i + other.limbs_.size()] = uint32_t(carry);
    }
    limbs_ = out;
    Trim();
    return *this;
  }
  Big& ShiftLeft(int bits) {
    limbs_.insert(limbs_.begin(), size_t(bits / 32), 0u);
    int r = bits % 32;
    if (r) {
      uint32_t carry = 0;
      for (uint32_t& limb : limbs_) {
        uint32_t next = limb >> (32 - r);
        limb = (limb << r) | carry;
        carry = next;
      }
      if (carry) limbs_.push_back(carry);
    }
    Trim();
    return *this;
  }
  friend int Compare(const Big& a, const Big& b) {
    if (a.limbs_.size() != b.limbs_.size()) return a.limbs_.size() < b.limbs_.size() ? -1 : 1;
    for (size_t i = a.limbs_.size(); i-- > 0;) {
      if (a.limbs_[i] != b.limbs_[i]) return a.limbs_[i] < b.limbs_[i] ? -1 : 1;
    }
    return 0;
  }

 private:
  void Trim() {
    while (limbs_.size() > 1 && limbs_.back() == 0) limbs_.pop_back();
  }
  std::vector<uint32_t> limbs_;
};

// Is mant * 2^(field - 8192 - bits) the nearest such value to 10^k (ties to
// an even mantissa)? Compares (2m - 1) * 2^E <= 2 * 10^k <= (2m + 1) * 2^E,
// both sides scaled to integers.
::testing::AssertionResult IsNearestPowerOfTen(uint16_t expWord, uint64_t mant, int bits, int k) {
  int E = int(expWord & FL48_EXP_MASK) - FL48_EXP_BIAS - bits;
  int shiftPower = E < 0 ? -E : 0;
  int tenScale = k < 0 ? -k : 0;
  auto side = [&](int c) {
    Big b(2 * mant + c);  // c = -1 or +1
    b.ShiftLeft(E + shiftPower).MulBig(Big::PowerOfTen(tenScale));
    return b;
  };
  Big power = Big::PowerOfTen(k + tenScale);
  power.MulSmall(2).ShiftLeft(shiftPower);
  int below = Compare(side(-1), power), above = Compare(power, side(+1));
  if (mant >> (bits - 1) != 1) return ::testing::AssertionFailure() << "10^" << k << " is not normalised";
  if (below > 0 || above > 0) return ::testing::AssertionFailure() << "10^" << k << " is not the nearest";
  if ((below == 0 || above == 0) && (mant & 1)) return ::testing::AssertionFailure() << "10^" << k << " tie not even";
  return ::testing::AssertionSuccess();
}

struct PowerTable {
  const char* name;
  const void* entries;
  bool wide;
  int count;
  bool powersOfTwo, negative;
  int exactEntries;
};

TEST(FL48Tables, EveryPowerOfTenIsTheNearestMantissaOfItsExactValue) {
  const PowerTable tables[] = {
      {"FL48_Pow10", FL48_Pow10, false, 12, true, false, 5},  {"FL48_Pow01", FL48_Pow01, false, 12, true, true, 0},
      {"FL48_Pow10_1", FL48_Pow10_1, false, 16, false, false, 0},
      {"FL48_Pow01_1", FL48_Pow01_1, false, 16, false, true, 0},
      {"FL64_Pow10", FL64_Pow10, true, 12, true, false, 5},   {"FL64_Pow01", FL64_Pow01, true, 12, true, true, 0},
      {"FL64_Pow10_1", FL64_Pow10_1, true, 16, false, false, 0},
      {"FL64_Pow01_1", FL64_Pow01_1, true, 16, false, true, 0},
  };
  for (const PowerTable& t : tables) {
    for (int i = 0; i < t.count; ++i) {
      int k = (t.powersOfTwo ? 1 << i : i) * (t.negative ? -1 : 1);
      uint16_t head;
      uint64_t mant;
      if (t.wide) {
        const FL64& x = static_cast<const FL64*>(t.entries)[i];
        head = x.expWord;
        mant = (uint64_t(x.mant[0]) << 32) | (uint64_t(x.mant[1]) << 16) | x.mant[2];
      } else {
        const FL48& x = static_cast<const FL48*>(t.entries)[i];
        head = x.expWord;
        mant = Mant(x);
      }
      EXPECT_TRUE(IsNearestPowerOfTen(head, mant, t.wide ? 48 : 32, k)) << t.name << "[" << i << "]";
      EXPECT_EQ(head & (FL48_SIGN_BIT | FL48_EXACT_BIT), i < t.exactEntries ? FL48_EXACT_BIT : 0)
          << t.name << "[" << i << "]";
    }
  }
}

TEST(FL48Tables, ConstantsAreTheirValuesToThe32BitMantissa) {
  const double pi = 3.14159265358979323846;
  const struct {
    const char* name;
    const FL48& constant;
    double value;
  } constants[] = {
      {"One", FL48_One, 1},
      {"Half", FL48_Half, 0.5},
      {"Pi", FL48_Pi, pi},
      {"PiH", FL48_PiH, pi / 2},
      {"PiHI", FL48_PiHI, 2 / pi},
      {"Sqrt2", FL48_Sqrt2, std::sqrt(2.0)},
      {"Ln2", FL48_Ln2, std::log(2.0)},
      {"Ln2I", FL48_Ln2I, 1 / std::log(2.0)},
      {"Deg2Rad", FL48_Deg2Rad, pi / 180},
      {"Rad2Deg", FL48_Rad2Deg, 180 / pi},
      {"Ln10", FL48_Ln10, std::log(10.0)},
      {"Ln10I", FL48_Ln10I, 1 / std::log(10.0)},
      {"SqrtApr1", FL48_SqrtApr1, 0.417307600},
      {"SqrtApr2", FL48_SqrtApr2, 0.590162067},
      {"AsinLim", FL48_AsinLim, 0.625},
      {"AtanLim1", FL48_AtanLim1, 1 + std::sqrt(2.0)},
      {"AtanLim2", FL48_AtanLim2, 0.66},
  };
  for (const auto& c : constants) {
    EXPECT_EQ(c.constant.expWord & (FL48_SIGN_BIT | FL48_EXACT_BIT), 0) << c.name;
    EXPECT_NE(c.constant.mant[0] & 0x8000, 0) << c.name;
    EXPECT_NEAR(ToDouble(c.constant), c.value, std::fabs(c.value) * 1e-8) << c.name;
  }
}

}  // namespace
