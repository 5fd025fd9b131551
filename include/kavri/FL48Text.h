// The format word of the FL48 text conversion: what FL_ParseFormat produces
// from a picture such as "###.##" and FL48_ConvToText consumes.
#ifndef KAVRI_FL48TEXT_H
#define KAVRI_FL48TEXT_H

#include "kavri/FL48.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  FL_FORMAT_KIND_MASK = 0xF,          // bits 3..0: layout kind, below
  FL_FORMAT_COMMA = 1u << 4,          // ',' as decimal separator
  FL_FORMAT_DIGITS_SHIFT = 8,         // bits 15..8: digits after the separator / the first
  FL_FORMAT_WIDTH_SHIFT = 16,         // bits 23..16: field width
  FL_FORMAT_SIGNIFICANCE = 1u << 26,  // print only the digits the valid bits justify
};

enum {
  FL_KIND_ENGINEERING = 0,  // mantissa and a unit-prefix letter
  FL_KIND_FIXED = 1,
  FL_KIND_INTEGER = 2,
  FL_KIND_MARK_FIRST = 4,  // 4..7: '^'/'v' and 1..4 exponent digits
  FL_KIND_E_FIRST = 8,     // 8..11: "E", sign and 1..4 exponent digits
};

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // KAVRI_FL48TEXT_H
