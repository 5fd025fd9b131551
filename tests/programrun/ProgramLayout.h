// One measured field of a record: where it starts and how wide it is
// (width 0 when only its start is compared).
#ifndef KAVRI_TESTS_PROGRAMLAYOUT_H
#define KAVRI_TESTS_PROGRAMLAYOUT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct MeasuredField {
  const char* name;
  uint32_t offset;
  uint32_t size;
} MeasuredField;

#define MEASURE_FIELD(type, member) {#type "." #member, offsetof(type, member), sizeof(((type*)0)->member)},
#define MEASURE_OFFSET(type, member) {#type "." #member, offsetof(type, member), 0},
#define MEASURE_SIZE(type) {#type, 0, sizeof(type)},

// The program header's records, measured by a C compiler.
extern const MeasuredField ProgramFields[];
extern const uint32_t ProgramFieldCount;

#ifdef __cplusplus
}
#endif

#endif
