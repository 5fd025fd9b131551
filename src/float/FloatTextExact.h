// Exact decimal decisions for the text conversion: the rare digit that the
// FL64 scaling leaves too close to one half to call.
#ifndef KAVRI_SRC_FLOAT_FLOATTEXTEXACT_H
#define KAVRI_SRC_FLOAT_FLOATTEXTEXACT_H

#include <stdint.h>

namespace floattext {

// Sign (-1, 0, 1) of mant * 2^binaryExponent * 10^decimalShift - (n + 1/2),
// computed in exact integer arithmetic.
int32_t CompareScaledWithHalf(uint32_t mant, int32_t binaryExponent, int32_t decimalShift, uint64_t n);

}  // namespace floattext

#endif  // KAVRI_SRC_FLOAT_FLOATTEXTEXACT_H
