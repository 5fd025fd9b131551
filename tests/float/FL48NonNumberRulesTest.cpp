// The special-value rules of every operation, as tables over all pairs of
// operand kinds: the five codes, a corrupted code and a number.
#include <gtest/gtest.h>

#include <array>
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
using Row = std::array<char, kKinds>;

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

struct BinaryTable {
  char op;
  std::array<Row, kKinds> rows;  // rows: kind of a; columns: kind of b
};

const BinaryTable kBinaryTables[] = {
    {'*',
     {{{'U', 'U', 'U', 'U', 'U', 'U', 'U'},
       {'U', 'N', 'N', 'N', 'N', 'N', 'N'},
       {'U', 'N', 'K', 'L', 'L', 'K', 'K'},
       {'U', 'N', 'L', 'K', 'L', 'K', 'K'},
       {'U', 'N', 'L', 'L', 'L', 'L', 'L'},
       {'U', 'N', 'Z', 'O', 'L', 'U', 'U'},
       {'U', 'N', 'Z', 'O', 'L', 'U', '.'}}}},
    {'+',
     {{{'U', 'U', 'U', 'U', 'U', 'U', 'U'},
       {'U', 'N', 'N', 'N', 'N', 'N', 'N'},
       {'U', 'N', 'B', 'O', 'L', 'B', 'B'},
       {'U', 'N', 'K', 'K', 'L', 'K', 'K'},
       {'U', 'N', 'L', 'L', 'L', 'L', 'L'},
       {'U', 'N', 'K', 'O', 'L', 'U', 'U'},
       {'U', 'N', 'K', 'O', 'L', 'U', '.'}}}},
    {'-',
     {{{'U', 'U', 'U', 'U', 'U', 'U', 'U'},
       {'U', 'N', 'N', 'N', 'N', 'N', 'N'},
       {'U', 'N', '-', 'O', 'L', '-', '-'},
       {'U', 'N', 'K', 'K', 'L', 'K', 'K'},
       {'U', 'N', 'L', 'L', 'L', 'L', 'L'},
       {'U', 'N', 'K', 'O', 'L', 'U', 'U'},
       {'U', 'N', 'K', 'O', 'L', 'U', '.'}}}},
    {'/',
     {{{'U', 'U', 'U', 'U', 'U', 'U', 'U'},
       {'U', 'N', 'N', 'N', 'N', 'N', 'N'},
       {'U', 'N', 'L', 'Z', 'L', 'K', 'K'},
       {'U', 'N', 'K', 'L', 'L', 'K', 'K'},
       {'U', 'N', 'L', 'L', 'L', 'L', 'L'},
       {'U', 'N', 'O', 'Z', 'L', 'U', 'U'},
       {'U', 'N', 'O', 'Z', 'L', 'U', '.'}}}},
};

std::string CaseName(char op, Kind a, Kind b) {
  return std::string(kKindName[a]) + " " + op + " " + kKindName[b];
}

void CheckBinaryRule(char op, Kind ka, Kind kb, char outcome, unsigned corruptA, unsigned corruptB) {
  const FL48 a = OperandA(ka, corruptA), b = OperandB(kb, corruptB);
  FL48 result = a;
  int32_t handled = FL48_INT_HandleExpSpecialBinary(&result, &b, op);
  FL48 expected = Expected(outcome, a, b);
  std::string name = CaseName(op, ka, kb) + " (corrupted codes " + std::to_string(corruptA) + ", " +
                     std::to_string(corruptB) + ")";
  EXPECT_EQ(handled, outcome == '.' ? 0 : 1) << name;
  EXPECT_TRUE(SameWords(result, expected)) << name << ": got " << Describe(result) << ", want "
                                           << Describe(expected);
}

TEST(FL48SpecialRules, BinaryRulesDecideEveryPairOfKindsInTheirOrder) {
  for (const BinaryTable& table : kBinaryTables) {
    for (int ka = 0; ka < kKinds; ++ka) {
      for (int kb = 0; kb < kKinds; ++kb) {
        CheckBinaryRule(table.op, Kind(ka), Kind(kb), table.rows[ka][kb], 5, 5);
      }
    }
  }
}

TEST(FL48SpecialRules, EveryCorruptedCodeBehavesLikeFive) {
  for (const BinaryTable& table : kBinaryTables) {
    for (unsigned code = 5; code <= 255; ++code) {
      for (int other = 0; other < kKinds; ++other) {
        CheckBinaryRule(table.op, kCorrupt, Kind(other), table.rows[kCorrupt][other], code, code);
        CheckBinaryRule(table.op, Kind(other), kCorrupt, table.rows[other][kCorrupt], code, code);
      }
    }
  }
}

TEST(FL48SpecialRules, Fl64TwinFollowsTheSameTable) {
  for (const BinaryTable& table : kBinaryTables) {
    for (int ka = 0; ka < kKinds; ++ka) {
      for (int kb = 0; kb < kKinds; ++kb) {
        const FL48 a48 = OperandA(Kind(ka)), b48 = OperandB(Kind(kb));
        FL48 want48 = Expected(table.rows[ka][kb], a48, b48);
        FL64 a = {a48.expWord, {a48.mant[0], a48.mant[1], 0x1357}};
        FL64 b = {b48.expWord, {b48.mant[0], b48.mant[1], 0x2468}};
        FL64 want = {want48.expWord, {want48.mant[0], want48.mant[1], 0}};
        want.mant[2] = (table.rows[ka][kb] == 'B' || table.rows[ka][kb] == '-') ? b.mant[2] : a.mant[2];
        if (table.rows[ka][kb] == '1') continue;  // no unary rules in the FL64 twin
        FL64 result = a;
        int32_t handled = FL64_INT_HandleExpSpecialBinary(&result, &b, table.op);
        EXPECT_EQ(handled, table.rows[ka][kb] == '.' ? 0 : 1) << CaseName(table.op, Kind(ka), Kind(kb));
        EXPECT_TRUE(SameWords(result, want)) << CaseName(table.op, Kind(ka), Kind(kb)) << ": got "
                                             << Describe(result) << ", want " << Describe(want);
      }
    }
  }
}

// Columns: the kinds, then a negative number.
constexpr int kUnaryColumns = kKinds + 1;
struct UnaryTable {
  char op;
  std::array<char, kUnaryColumns> outcomes;
};

const UnaryTable kUnaryTables[] = {
    {'r', {'K', 'K', 'K', 'L', 'K', 'U', '.', 'N'}},
    {'+', {'K', 'K', 'L', 'K', 'K', 'U', '.', '.'}},
    {'-', {'K', 'K', 'K', 'L', 'K', 'U', '.', '.'}},
    {'l', {'K', 'K', 'O', 'L', 'K', 'U', '.', 'N'}},
    {'e', {'K', 'K', '1', 'K', 'K', 'U', '.', '.'}},
    {'s', {'K', 'K', 'K', 'L', 'K', 'U', '.', '.'}},
    {'c', {'K', 'K', '1', 'L', 'K', 'U', '.', '.'}},
    {'S', {'K', 'K', 'K', 'N', 'K', 'U', '.', '.'}},
    {'T', {'K', 'K', 'K', 'L', 'K', 'U', '.', '.'}},
    {'x', {'K', 'K', 'U', 'U', 'K', 'U', '.', '.'}},  // a letter no function passes
};

TEST(FL48SpecialRules, UnaryRulesDecideEveryKindForEveryOpLetter) {
  for (const UnaryTable& table : kUnaryTables) {
    for (int column = 0; column < kUnaryColumns; ++column) {
      for (unsigned code : {5u, 77u, 255u}) {
        FL48 a = OperandA(column == kKinds ? kNumber : Kind(column), code);
        if (column == kNumber) a.expWord &= uint16_t(~FL48_SIGN_BIT);
        const FL48 original = a;
        int32_t handled = FL48_INT_HandleExpSpecialUnary(&a, table.op);
        char outcome = table.outcomes[column];
        FL48 expected = Expected(outcome, original, original);
        std::string name = std::string("op ") + table.op + " on " +
                           (column == kKinds ? "negative number" : kKindName[column]) + " code " +
                           std::to_string(code);
        EXPECT_EQ(handled, outcome == '.' ? 0 : 1) << name;
        EXPECT_TRUE(SameWords(a, expected)) << name << ": got " << Describe(a) << ", want " << Describe(expected);
      }
    }
  }
}

// The operations apply the rules before anything else.
TEST(FL48SpecialRules, OperationsEndWithTheRuleResult) {
  const FL48 five = FromShort(5), zero = Make(FL48_CODE_UNDERFLOW, 0), over = Make(FL48_CODE_OVERFLOW, 0);
  struct Case {
    const char* name;
    std::function<void(FL48&)> run;
    FL48 start;
    uint16_t wantCode;
  };
  const Case cases[] = {
      {"b / 0 is overflow", [&](FL48& a) { FL48_Div(&a, &zero); }, five, FL48_CODE_OVERFLOW},
      {"0 / 0 is lost", [&](FL48& a) { FL48_Div(&a, &zero); }, zero, FL48_CODE_LOST},
      {"overflow / overflow is lost", [&](FL48& a) { FL48_Div(&a, &over); }, over, FL48_CODE_LOST},
      {"overflow * 0 is lost", [&](FL48& a) { FL48_Mul(&a, &zero); }, over, FL48_CODE_LOST},
      {"overflow - overflow stays overflow", [&](FL48& a) { FL48_Sub(&a, &over); }, over, FL48_CODE_OVERFLOW},
      {"5 / overflow is zero", [&](FL48& a) { FL48_Div(&a, &over); }, five, FL48_CODE_UNDERFLOW},
      {"zero scaled up is lost", [&](FL48& a) { FL48_AddExp(&a, 3); }, zero, FL48_CODE_LOST},
      {"zero scaled down stays zero", [&](FL48& a) { FL48_AddExp(&a, -3); }, zero, FL48_CODE_UNDERFLOW},
      {"overflow scaled down is lost", [&](FL48& a) { FL48_AddExp(&a, -1); }, over, FL48_CODE_LOST},
      {"root of -4 is NaN", [](FL48& a) { FL48_Sqrt(&a); }, FromShort(-4), FL48_CODE_NAN},
      {"root of zero stays zero", [](FL48& a) { FL48_Sqrt(&a); }, zero, FL48_CODE_UNDERFLOW},
      {"root of overflow is lost", [](FL48& a) { FL48_Sqrt(&a); }, over, FL48_CODE_LOST},
  };
  for (const Case& c : cases) {
    FL48 a = c.start;
    c.run(a);
    EXPECT_EQ(a.expWord, c.wantCode) << c.name << ": got " << Describe(a);
  }
}

TEST(FL48SpecialRules, ZeroPlusOrMinusANumberIsThatNumberOrItsNegation) {
  const FL48 zero = Make(FL48_CODE_UNDERFLOW, 0), b = Make(FL48_EXACT_BIT | 0x2005, 0xC1234567);
  FL48 sum = zero, difference = zero;
  FL48_Add(&sum, &b);
  FL48_Sub(&difference, &b);
  EXPECT_TRUE(SameWords(sum, b)) << Describe(sum);
  EXPECT_TRUE(SameWords(difference, Make(FL48_SIGN_BIT | FL48_EXACT_BIT | 0x2005, 0xC1234567)))
      << Describe(difference);
}

TEST(FL48SpecialRules, AddExpByZeroLeavesEvenSpecialsAlone) {
  for (uint16_t head : {uint16_t(0), uint16_t(2), uint16_t(3), uint16_t(77), uint16_t(0x2001)}) {
    FL48 x = Make(head, 0x12345678);
    FL48_AddExp(&x, 0);
    EXPECT_TRUE(SameWords(x, Make(head, 0x12345678))) << head;
  }
}

}  // namespace
