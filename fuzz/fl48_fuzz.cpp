// FL48 numbers from arbitrary bit patterns: every format word through both
// text conversions, picture strings through the format parser, and the
// arithmetic and elementary functions on any record.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "kavri/FL48.h"
#include "kavri/FL48Text.h"

namespace {

using Unary = void (*)(FL48*);
using Binary = void (*)(FL48*, const FL48*);
using Compare = int32_t (*)(const FL48*, const FL48*);

constexpr Unary kUnary[] = {FL48_Ln,   FL48_Log10,  FL48_Exp,     FL48_Exp10,   FL48_Sin,     FL48_Cos,
                            FL48_Tan,  FL48_Sin360, FL48_Cos360,  FL48_Tan360,  FL48_Asin,    FL48_Acos,
                            FL48_Atan, FL48_Asin360, FL48_Acos360, FL48_Atan360, FL48_Sqrt,   FL48_Abs};
constexpr Binary kBinary[] = {FL48_Add, FL48_Sub, FL48_Mul, FL48_Div};
constexpr Compare kCompare[] = {FL48_IsLess,       FL48_IsLessEqual, FL48_IsGreater,
                                FL48_IsGreaterEqual, FL48_IsEqual,     FL48_IsNotEqual};

template <size_t N, class T>
constexpr uint32_t CountOf(T (&)[N]) {
  return N;
}

unsigned FieldWidth(uint32_t word) { return (word >> FL_FORMAT_WIDTH_SHIFT) & 0xFF; }

// The text fills exactly its width, and the widened copy holds the same
// characters without touching its first slot.
void ConvertBothWays(const FL48& x, uint32_t word) {
  unsigned width = FieldWidth(word);
  // Exactly the documented room, so that a byte more is caught.
  std::vector<char> text(width + 1);
  FL48_ConvToText(text.data(), &x, word);
  FUZZ_CHECK(text[width] == '\0');
  FUZZ_CHECK(strlen(text.data()) == width);

  constexpr uint32_t kUntouched = 0xA5A5A5A5;
  std::vector<uint32_t> wide(width + 1, kUntouched);
  FL48_ConvToTextRP(&x, word, wide.data());
  FUZZ_CHECK(wide[0] == kUntouched);
  for (unsigned i = 0; i < width; ++i) FUZZ_CHECK(wide[i + 1] == static_cast<unsigned char>(text[i]));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  FL_OptionExactRoundUp = in.Take<uint8_t>() & 1;
  FL48 a = in.Take<FL48>();
  FL48 b = in.Take<FL48>();
  switch (in.Below(6)) {
    case 0:
      ConvertBothWays(a, in.Take<uint32_t>());
      break;
    case 1: {
      // The rest of the input is the picture.
      std::string picture(reinterpret_cast<const char*>(in.Rest()), in.RestSize());
      ConvertBothWays(a, FL_ParseFormat(picture.c_str()));
      break;
    }
    case 2:
      kUnary[in.Below(CountOf(kUnary))](&a);
      ConvertBothWays(a, in.Take<uint32_t>());
      break;
    case 3:
      kBinary[in.Below(CountOf(kBinary))](&a, &b);
      (void)kCompare[in.Below(CountOf(kCompare))](&a, &b);
      break;
    case 4:
      (void)FL48_ConvToShort(&a, in.Take<int32_t>());
      FL48_AddExp(&a, in.Take<int32_t>());
      FL48_ConvFromShort(&b, in.Take<int32_t>());
      break;
    case 5: {
      FL64 wide;
      FL48_ConvToExtended(&wide, &a);
      FL64 other = in.Take<FL64>();
      if (in.Take<uint8_t>() & 1)
        FL64_Add(&wide, &other);
      else
        FL64_Mul(&wide, &other);
      FL48_ConvFromExtended(&a, &wide);
      (void)FL48_Normalize(&b, &a);
      (void)FL48_GetValidBits(&b);
      break;
    }
  }
  return 0;
}
