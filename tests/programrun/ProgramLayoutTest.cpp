// Programs build their records from the program header, the library reads
// them with its own headers: both must agree to the byte.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "ProgramLayout.h"
#include "kavri/CameraAnalysis.h"
#include "kavri/CameraAnalysisColor.h"
#include "kavri/DisplayWidgets.h"
#include "kavri/FL48.h"
#include "kavri/shm_if.h"

namespace {

using CameraAnalysisBallExclusion = CameraAnalysisBallSingleBlock::Exclusion;

#define FIELD MEASURE_FIELD
#define OFFSET MEASURE_OFFSET
#define SIZE MEASURE_SIZE
const MeasuredField kLibraryFields[] = {
#include "LayoutFields.h"
};

TEST(ProgramLayout, ProgramRecordsMatchTheLibrarysToTheByte) {
  ASSERT_EQ(ProgramFieldCount, std::size(kLibraryFields));
  for (uint32_t i = 0; i < ProgramFieldCount; ++i) {
    const MeasuredField& program = ProgramFields[i];
    const MeasuredField& library = kLibraryFields[i];
    ASSERT_EQ(std::string(program.name), library.name);
    EXPECT_EQ(program.offset, library.offset) << program.name;
    EXPECT_EQ(program.size, library.size) << program.name;
  }
}

}  // namespace
