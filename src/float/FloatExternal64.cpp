// FL64 arithmetic: the wide intermediate of the decimal scaling.
#include "FloatCommon.h"

using namespace kavri::fl;

extern "C" {

void FL64_Add(FL64* a, const FL64* b) { addOrSubtract(*a, *b, false); }

void FL64_Mul(FL64* a, const FL64* b) { multiply(*a, *b); }

}  // extern "C"
