// One field of a record as a compiler laid it out: where it starts and how
// wide it is (0 when only its start is compared), from LayoutFields.h.
#ifndef KAVRI_TESTS_PROGRAMLAYOUT_H
#define KAVRI_TESTS_PROGRAMLAYOUT_H

#include <stddef.h>
#include <stdint.h>

typedef struct MeasuredField {
  const char* name;
  uint32_t offset, size;
} MeasuredField;

#define FIELD(type, member) {#type "." #member, offsetof(type, member), sizeof(((type*)0)->member)},
#define OFFSET(type, member) {#type "." #member, offsetof(type, member), 0},
#define SIZE(type) {#type, 0, sizeof(type)},

// The program header's records, measured by the C compiler.
#ifdef __cplusplus
extern "C" const MeasuredField ProgramFields[];
extern "C" const uint32_t ProgramFieldCount;
#endif

#endif
