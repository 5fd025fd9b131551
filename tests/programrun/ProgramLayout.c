#include "ProgramLayout.h"

#include <kavri-program/KavriProgram.h>

#define FIELD MEASURE_FIELD
#define OFFSET MEASURE_OFFSET
#define SIZE MEASURE_SIZE
const MeasuredField ProgramFields[] = {
#include "LayoutFields.h"
};
const uint32_t ProgramFieldCount = sizeof ProgramFields / sizeof ProgramFields[0];
