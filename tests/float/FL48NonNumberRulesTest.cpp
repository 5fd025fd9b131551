// The special-value rules of every operation, as tables over all pairs of
// operand kinds (the five codes, a corrupted code and a number), and records
// of any bit pattern, which no operation may let it write outside of.
#include <gtest/gtest.h>

#include <vector>

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

// The public operations on any record run in the fuzz target; here the
// internal steps stay inside their record, and no function lets a corrupted
// code (5..255) out.
TEST(FL48Robustness, AnyBitPatternStaysInsideItsRecordAndGivesNoCorruptedCode) {
  struct Guarded { uint16_t before[3]; FL48 value; uint16_t after[3]; };
  void (*const functions[])(FL48*) = {
      FL48_Ln,  FL48_Log10, FL48_Exp,  FL48_Exp10, FL48_Sin,    FL48_Cos,     FL48_Tan,     FL48_Sin360,
      FL48_Cos360, FL48_Tan360, FL48_Asin, FL48_Acos, FL48_Atan, FL48_Asin360, FL48_Acos360, FL48_Atan360,
      [](FL48* x) { FL48_Internal_SplitIntFrac(x); }, [](FL48* x) { FL48_Internal_SplitExpMant(x); },
      [](FL48* x) { FL48_INT_HandleExpSpecialUnary(x, x->mant[1] & 0x7F); }};
  RandomNumbers random(9);
  for (unsigned field = 0; field <= FL48_EXP_MASK; ++field) {
    for (size_t i = 0; i < std::size(functions); ++i) {
      Guarded x{{0xA55A, 0xA55A, 0xA55A}, Make(uint16_t(field | (random.Word16() & 0xC000)), random.Word32()),
                {0xA55A, 0xA55A, 0xA55A}};
      const bool internal = i >= 16;
      functions[i](&x.value);
      const unsigned out = Field(x.value);
      ASSERT_EQ(std::vector<uint16_t>({x.before[0], x.before[1], x.before[2], x.after[0], x.after[1], x.after[2]}),
                std::vector<uint16_t>(6, 0xA55A)) << "field " << field;
      ASSERT_TRUE(internal || out <= FL48_CODE_LOST || out >= FL48_EXP_MIN) << "field " << field << " gave " << out;
    }
  }
}

}  // namespace
