// Records of any bit pattern: no operation crashes, and none writes outside
// the record it owns (each record sits between guard words).
#include <gtest/gtest.h>

#include <functional>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

constexpr uint16_t kGuard = 0xA55A;

template <class R>
struct Guarded {
  uint16_t before[3] = {kGuard, kGuard, kGuard};
  R value;
  uint16_t after[3] = {kGuard, kGuard, kGuard};
  bool Intact() const {
    for (int i = 0; i < 3; ++i) {
      if (before[i] != kGuard || after[i] != kGuard) return false;
    }
    return true;
  }
};

struct Operation {
  const char* name;
  std::function<void(FL48*, const FL48*)> run;
};

const Operation kOperations[] = {
    {"Add", [](FL48* a, const FL48* b) { FL48_Add(a, b); }},
    {"Sub", [](FL48* a, const FL48* b) { FL48_Sub(a, b); }},
    {"Mul", [](FL48* a, const FL48* b) { FL48_Mul(a, b); }},
    {"Div", [](FL48* a, const FL48* b) { FL48_Div(a, b); }},
    {"Sqrt", [](FL48* a, const FL48*) { FL48_Sqrt(a); }},
    {"AddExp", [](FL48* a, const FL48* b) { FL48_AddExp(a, int16_t(b->mant[1])); }},
    {"Normalize", [](FL48* a, const FL48* b) { FL48_Normalize(a, b); }},
    {"Compare", [](FL48* a, const FL48* b) {
       for (auto compare : {FL48_IsLess, FL48_IsLessEqual, FL48_IsGreater, FL48_IsGreaterEqual, FL48_IsEqual,
                            FL48_IsNotEqual}) {
         int32_t answer = compare(a, b);
         EXPECT_TRUE(answer == 0 || answer == 1);
       }
     }},
    {"ConvToShort", [](FL48* a, const FL48* b) { (void)FL48_ConvToShort(a, b->mant[0] & 3); }},
    {"SplitIntFrac", [](FL48* a, const FL48*) { FL48_Internal_SplitIntFrac(a); }},
    {"SplitExpMant", [](FL48* a, const FL48*) { FL48_Internal_SplitExpMant(a); }},
    {"UnaryRules", [](FL48* a, const FL48* b) { FL48_INT_HandleExpSpecialUnary(a, b->mant[1] & 0x7F); }},
};

TEST(FL48Robustness, AnyBitPatternInAnyOperationStaysInsideItsRecord) {
  RandomNumbers random(9);
  for (unsigned field = 0; field <= FL48_EXP_MASK; ++field) {
    for (const Operation& op : kOperations) {
      Guarded<FL48> a, b;
      a.value = Make(uint16_t(field | (random.Word16() & 0xC000)), random.Word32());
      b.value = Make(random.Word16(), random.Word32());
      if (random.Coin()) b.value.expWord = uint16_t((b.value.expWord & 0xC000) | random.Between(0, 300));
      op.run(&a.value, &b.value);
      ASSERT_TRUE(a.Intact() && b.Intact()) << op.name << " on field " << field;
      op.run(&b.value, &a.value);
      ASSERT_TRUE(a.Intact() && b.Intact()) << op.name << " on field " << field;
    }
  }
}

TEST(FL48Robustness, AnyBitPatternInTheWideFormatStaysInsideItsRecord) {
  RandomNumbers random(10);
  for (unsigned field = 0; field <= FL48_EXP_MASK; ++field) {
    Guarded<FL64> a, b;
    a.value = FL64{uint16_t(field | (random.Word16() & 0xC000)), {random.Word16(), random.Word16(), random.Word16()}};
    b.value = FL64{random.Word16(), {random.Word16(), random.Word16(), random.Word16()}};
    FL64_Add(&a.value, &b.value);
    FL64_Mul(&b.value, &a.value);
    Guarded<FL48> narrow;
    FL48_ConvFromExtended(&narrow.value, &a.value);
    FL48_ConvToExtended(&b.value, &narrow.value);
    ASSERT_TRUE(a.Intact() && b.Intact() && narrow.Intact()) << field;
  }
}

// Operations whose destination is also a source read it before writing.
TEST(FL48Robustness, ResultMayBeTheSameRecordAsTheSource) {
  FL48 x = FromShort(3);
  FL48_Mul(&x, &x);
  EXPECT_TRUE(SameWords(x, FromShort(9))) << Describe(x);
  FL48_Add(&x, &x);
  EXPECT_TRUE(SameWords(x, FromShort(18))) << Describe(x);
  FL48_Sub(&x, &x);
  EXPECT_EQ(Mant(x), 0u);
  FL48 y = FromShort(-7);
  FL48_Div(&y, &y);
  EXPECT_TRUE(SameWords(y, FromShort(1))) << Describe(y);
  FL48 z = Make(0x2010, 0x00F00000);
  FL48_Normalize(&z, &z);
  EXPECT_TRUE(SameWords(z, Make(0x2008, 0xF0000000))) << Describe(z);
}

}  // namespace
