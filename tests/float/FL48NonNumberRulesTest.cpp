// The special-value rules of every operation, as tables over all pairs of
// operand kinds (the five codes, a corrupted code and a number), and records
// of any bit pattern, which no operation may let it write outside of.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "FL48TestSupport.h"

namespace {

using namespace fl48test;

// Operand kinds, in table order.
enum Kind { kUndef, kNan, kZero, kOver, kLost, kCorrupt, kNumber, kKinds };
const char* const kKindName[] = {"undefined", "NaN", "zero", "overflow", "lost", "corrupted", "number"};

// What a rule leaves in a:
//  U N Z O L  the code replaces word 0, the mantissa stays
//  K          a unchanged          B / -  a copy of b / with the sign inverted
//  1          exactly one          .      no rule: the operation goes on

// Operands carry a sign, the exact flag and mantissa bits, so that a rule that
// keeps or drops any of them shows.
FL48 OperandA(Kind kind, unsigned corruptCode = 5) {
  const uint16_t codes[] = {0, 1, 2, 3, 4, uint16_t(corruptCode), 0x2003};
  return Make(uint16_t(FL48_SIGN_BIT | FL48_EXACT_BIT | codes[kind]), 0x9ABCDEF1);
}
FL48 OperandB(Kind kind, unsigned corruptCode = 5) {
  const uint16_t codes[] = {0, 1, 2, 3, 4, uint16_t(corruptCode), 0x1FF0};
  return Make(uint16_t(FL48_EXACT_BIT | codes[kind]), 0x87654321);
}

FL48 Expected(char outcome, const FL48& a, const FL48& b) {
  switch (outcome) {
    case 'U': return Make(FL48_CODE_UNDEFINED, Mant(a));
    case 'N': return Make(FL48_CODE_NAN, Mant(a));
    case 'Z': return Make(FL48_CODE_UNDERFLOW, Mant(a));
    case 'O': return Make(FL48_CODE_OVERFLOW, Mant(a));
    case 'L': return Make(FL48_CODE_LOST, Mant(a));
    case 'B': return b;
    case '-': return Make(uint16_t(b.expWord ^ FL48_SIGN_BIT), Mant(b));
    case '1': return Make(FL48_EXACT_BIT | 0x2001, 0x80000000);
    default: return a;  // 'K' and '.'
  }
}

// One row per kind of a, one column per kind of b.
const struct { char op; const char* rows[kKinds]; } kBinaryTables[] = {
    {'*', {"UUUUUUU", "UNNNNNN", "UNKLLKK", "UNLKLKK", "UNLLLLL", "UNZOLUU", "UNZOLU."}},
    {'+', {"UUUUUUU", "UNNNNNN", "UNBOLBB", "UNKKLKK", "UNLLLLL", "UNKOLUU", "UNKOLU."}},
    {'-', {"UUUUUUU", "UNNNNNN", "UN-OL--", "UNKKLKK", "UNLLLLL", "UNKOLUU", "UNKOLU."}},
    {'/', {"UUUUUUU", "UNNNNNN", "UNLZLKK", "UNKLLKK", "UNLLLLL", "UNOZLUU", "UNOZLU."}},
};

std::string CaseName(char op, int a, int b, unsigned code) {
  return std::string(kKindName[a]) + " " + op + " " + kKindName[b] + " (corrupted code " + std::to_string(code) + ")";
}

void (*BinaryOperation(char op))(FL48*, const FL48*) {
  return op == '+' ? FL48_Add : op == '-' ? FL48_Sub : op == '*' ? FL48_Mul : FL48_Div;
}

// The rule, the operation that applies it, and the FL64 twin, whose third word
// follows the record it came from.
void CheckBinaryRule(char op, int ka, int kb, char outcome, unsigned code) {
  const FL48 a = OperandA(Kind(ka), code), b = OperandB(Kind(kb), code), want = Expected(outcome, a, b);
  const std::string name = CaseName(op, ka, kb, code);
  FL48 result = a, viaOperation = a;
  EXPECT_EQ(FL48_INT_HandleExpSpecialBinary(&result, &b, op), outcome == '.' ? 0 : 1) << name;
  EXPECT_TRUE(SameWords(result, want)) << name << ": got " << Describe(result) << ", want " << Describe(want);
  BinaryOperation(op)(&viaOperation, &b);
  EXPECT_TRUE(outcome == '.' || SameWords(viaOperation, want)) << name << " (operation): " << Describe(viaOperation);
  FL64 wide = {a.expWord, {a.mant[0], a.mant[1], 0x1357}};
  const FL64 wideB = {b.expWord, {b.mant[0], b.mant[1], 0x2468}};
  const uint16_t third = outcome == 'B' || outcome == '-' ? 0x2468 : 0x1357;
  EXPECT_EQ(FL64_INT_HandleExpSpecialBinary(&wide, &wideB, op), outcome == '.' ? 0 : 1) << name;
  EXPECT_TRUE(SameWords(wide, FL64{want.expWord, {want.mant[0], want.mant[1], third}})) << name << " (wide)";
}

// Every corrupted code (5..255) behaves like 5.
TEST(FL48SpecialRules, BinaryRulesDecideEveryPairOfKindsInTheirOrder) {
  for (const auto& table : kBinaryTables) {
    for (unsigned code = 5; code <= 255; ++code) {
      for (int ka = 0; ka < kKinds; ++ka) {
        for (int kb = 0; kb < kKinds; ++kb) {
          if (code > 5 && ka != kCorrupt && kb != kCorrupt) continue;
          CheckBinaryRule(table.op, ka, kb, table.rows[ka][kb], code);
        }
      }
    }
  }
}

// Columns: the kinds, then a negative number.
const struct { char op; const char* outcomes; } kUnaryTables[] = {
    {'r', "KKKLKU.N"}, {'+', "KKLKKU.."}, {'-', "KKKLKU.."}, {'l', "KKOLKU.N"}, {'e', "KK1KKU.."},
    {'s', "KKKLKU.."}, {'c', "KK1LKU.."}, {'S', "KKKNKU.."}, {'T', "KKKLKU.."},
    {'x', "KKUUKU.."},  // a letter no function passes
};

// The operations and functions that apply a unary rule first.
const struct { char op; void (*f)(FL48*); } kAppliedBy[] = {
    {'r', FL48_Sqrt}, {'+', [](FL48* x) { FL48_AddExp(x, 3); }}, {'-', [](FL48* x) { FL48_AddExp(x, -3); }},
    {'l', FL48_Ln},   {'e', FL48_Exp}, {'s', FL48_Sin}, {'s', FL48_Tan}, {'c', FL48_Cos}, {'S', FL48_Asin},
    {'T', FL48_Atan},
};

TEST(FL48SpecialRules, UnaryRulesDecideEveryKindForEveryOpLetter) {
  for (const auto& table : kUnaryTables) {
    for (int column = 0; column <= kKinds; ++column) {
      for (unsigned code : {5u, 77u, 255u}) {
        FL48 a = OperandA(column == kKinds ? kNumber : Kind(column), code);
        if (column == kNumber) a.expWord &= uint16_t(~FL48_SIGN_BIT);
        const FL48 operand = a, expected = Expected(table.outcomes[column], a, a);
        const std::string name = std::string("op ") + table.op + " on " +
                                 (column == kKinds ? "negative number" : kKindName[column]) + " code " +
                                 std::to_string(code);
        EXPECT_EQ(FL48_INT_HandleExpSpecialUnary(&a, table.op), table.outcomes[column] == '.' ? 0 : 1) << name;
        EXPECT_TRUE(SameWords(a, expected)) << name << ": got " << Describe(a) << ", want " << Describe(expected);
        for (const auto& applied : kAppliedBy) {
          if (applied.op != table.op || table.outcomes[column] == '.') continue;
          FL48 viaOperation = operand;
          applied.f(&viaOperation);
          EXPECT_TRUE(SameWords(viaOperation, expected)) << name << " (operation): " << Describe(viaOperation);
        }
      }
    }
  }
}

// Scaling by 0 leaves even specials alone.
TEST(FL48SpecialRules, ScalingByZeroChangesNothing) {
  for (uint16_t head : {0, 2, 3, 77, 0x2001}) {
    FL48 x = Make(head, 0x12345678);
    FL48_AddExp(&x, 0);
    EXPECT_TRUE(SameWords(x, Make(head, 0x12345678))) << head;
  }
}

// ---- Any bit pattern ----

constexpr uint16_t kGuard = 0xA55A;

// A record between guard words.
template <class R>
struct Guarded {
  uint16_t before[3] = {kGuard, kGuard, kGuard};
  R value;
  uint16_t after[3] = {kGuard, kGuard, kGuard};
  bool Intact() const { return std::count(before, before + 3, kGuard) + std::count(after, after + 3, kGuard) == 6; }
};

const struct { const char* name; std::function<void(FL48*, const FL48*)> run; } kOperations[] = {
    {"Add", FL48_Add}, {"Sub", FL48_Sub}, {"Mul", FL48_Mul}, {"Div", FL48_Div},
    {"Normalize", [](FL48* a, const FL48* b) { FL48_Normalize(a, b); }},
    {"Sqrt", [](FL48* a, const FL48*) { FL48_Sqrt(a); }},
    {"AddExp", [](FL48* a, const FL48* b) { FL48_AddExp(a, int16_t(b->mant[1])); }},
    {"Compare", [](FL48* a, const FL48* b) {
       for (auto compare : {FL48_IsLess, FL48_IsLessEqual, FL48_IsGreater, FL48_IsGreaterEqual, FL48_IsEqual,
                            FL48_IsNotEqual}) EXPECT_LE(uint32_t(compare(a, b)), 1u);
     }},
    {"ConvToShort", [](FL48* a, const FL48* b) { (void)FL48_ConvToShort(a, b->mant[0] & 3); }},
    {"SplitIntFrac", [](FL48* a, const FL48*) { FL48_Internal_SplitIntFrac(a); }},
    {"SplitExpMant", [](FL48* a, const FL48*) { FL48_Internal_SplitExpMant(a); }},
    {"UnaryRules", [](FL48* a, const FL48* b) { FL48_INT_HandleExpSpecialUnary(a, b->mant[1] & 0x7F); }},
};

void (*const kFunctions[])(FL48*) = {FL48_Ln,  FL48_Log10,   FL48_Exp,     FL48_Exp10,   FL48_Sin,     FL48_Cos,
                                     FL48_Tan, FL48_Sin360,  FL48_Cos360,  FL48_Tan360,  FL48_Asin,    FL48_Acos,
                                     FL48_Atan, FL48_Asin360, FL48_Acos360, FL48_Atan360};

TEST(FL48Robustness, AnyBitPatternInAnyOperationStaysInsideItsRecord) {
  RandomNumbers random(9);
  for (unsigned field = 0; field <= FL48_EXP_MASK; ++field) {
    for (const auto& op : kOperations) {
      Guarded<FL48> a, b;
      a.value = Make(uint16_t(field | (random.Word16() & 0xC000)), random.Word32());
      b.value = Make(random.Word16(), random.Word32());
      if (random.Coin()) b.value.expWord = uint16_t((b.value.expWord & 0xC000) | random.Between(0, 300));
      op.run(&a.value, &b.value);
      op.run(&b.value, &a.value);
      ASSERT_TRUE(a.Intact() && b.Intact()) << op.name << " on field " << field;
    }
    for (void (*f)(FL48*) : kFunctions) {  // no corrupted code (5..255) comes out
      Guarded<FL48> x;
      x.value = Make(uint16_t(field | (random.Word16() & 0xC000)), random.Word32());
      f(&x.value);
      const unsigned out = Field(x.value);
      ASSERT_TRUE(x.Intact() && (out <= FL48_CODE_LOST || out >= FL48_EXP_MIN)) << "field " << field << " gave " << out;
    }
    Guarded<FL64> wa, wb;
    Guarded<FL48> narrow;
    wa.value = FL64{uint16_t(field | (random.Word16() & 0xC000)), {random.Word16(), random.Word16(), random.Word16()}};
    wb.value = FL64{random.Word16(), {random.Word16(), random.Word16(), random.Word16()}};
    FL64_Add(&wa.value, &wb.value);
    FL64_Mul(&wb.value, &wa.value);
    FL48_ConvFromExtended(&narrow.value, &wa.value);
    FL48_ConvToExtended(&wb.value, &narrow.value);
    ASSERT_TRUE(wa.Intact() && wb.Intact() && narrow.Intact()) << "wide format on field " << field;
  }
}

}  // namespace
