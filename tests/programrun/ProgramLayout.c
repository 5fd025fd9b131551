#include "ProgramLayout.h"

#include <kavri-program/KavriProgram.h>

const MeasuredField ProgramFields[] = {
#include "LayoutFields.h"
};
const uint32_t ProgramFieldCount = sizeof ProgramFields / sizeof ProgramFields[0];
