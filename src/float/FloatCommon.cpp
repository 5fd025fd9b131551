// The special-value rules, shared by both formats and all operations. The
// order of the tests is part of the result: an overflow meeting a corrupted
// code, for instance, is decided by the overflow rule.
#include "FloatCommon.h"

namespace kavri::fl {

namespace {

Special firstOperandOverflow(unsigned fb, int op) {
  switch (op) {
    case '*': return fb == FL48_CODE_UNDERFLOW ? Special::kLost : Special::kKeep;
    case '+':
    case '-': return Special::kKeep;
    case '/': return fb == FL48_CODE_OVERFLOW ? Special::kLost : Special::kKeep;
    default: return Special::kUndefined;
  }
}

Special secondOperandOverflow(unsigned fa, int op) {
  switch (op) {
    case '*': return fa == FL48_CODE_UNDERFLOW ? Special::kLost : Special::kOverflow;
    case '+':
    case '-': return Special::kOverflow;
    case '/': return Special::kUnderflow;
    default: return Special::kUndefined;
  }
}

Special firstOperandZero(unsigned fb, int op) {
  switch (op) {
    case '*': return Special::kKeep;
    case '+': return Special::kCopyB;
    case '-': return Special::kCopyBNegated;
    case '/': return fb == FL48_CODE_UNDERFLOW ? Special::kLost : Special::kKeep;
    default: return Special::kUndefined;
  }
}

Special secondOperandZero(int op) {
  switch (op) {
    case '*': return Special::kUnderflow;
    case '+':
    case '-': return Special::kKeep;
    case '/': return Special::kOverflow;
    default: return Special::kUndefined;
  }
}

bool eitherIs(unsigned fa, unsigned fb, unsigned code) { return fa == code || fb == code; }

Special overflowOperand(int op) {
  switch (op) {
    case '+':
    case 'e': return Special::kKeep;
    case '-':
    case 'T':
    case 'c':
    case 'l':
    case 'r':
    case 's': return Special::kLost;
    case 'S': return Special::kNan;
    default: return Special::kUndefined;
  }
}

Special zeroOperand(int op) {
  switch (op) {
    case '+': return Special::kLost;
    case '-':
    case 'S':
    case 'T':
    case 'r':
    case 's': return Special::kKeep;
    case 'c':
    case 'e': return Special::kOne;
    case 'l': return Special::kOverflow;
    default: return Special::kUndefined;
  }
}

}  // namespace

Special binarySpecial(unsigned fa, unsigned fb, int op) {
  if (isNumberField(fa) && isNumberField(fb)) return Special::kNone;
  if (eitherIs(fa, fb, FL48_CODE_UNDEFINED)) return Special::kUndefined;
  if (eitherIs(fa, fb, FL48_CODE_NAN)) return Special::kNan;
  if (eitherIs(fa, fb, FL48_CODE_LOST)) return Special::kLost;
  if (fa == FL48_CODE_OVERFLOW) return firstOperandOverflow(fb, op);
  if (fb == FL48_CODE_OVERFLOW) return secondOperandOverflow(fa, op);
  if (fa == FL48_CODE_UNDERFLOW) return firstOperandZero(fb, op);
  if (fb == FL48_CODE_UNDERFLOW) return secondOperandZero(op);
  return Special::kUndefined;
}

Special unarySpecial(unsigned fa, bool negative, int op) {
  if (isNumberField(fa)) {
    bool rootOrLog = op == 'l' || op == 'r';
    return rootOrLog && negative ? Special::kNan : Special::kNone;
  }
  switch (fa) {
    case FL48_CODE_UNDEFINED:
    case FL48_CODE_NAN:
    case FL48_CODE_LOST: return Special::kKeep;
    case FL48_CODE_OVERFLOW: return overflowOperand(op);
    case FL48_CODE_UNDERFLOW: return zeroOperand(op);
    default: return Special::kUndefined;
  }
}

}  // namespace kavri::fl
