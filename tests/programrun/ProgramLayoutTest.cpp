// Programs build their records from the program header, the library reads
// them with its own headers: both must agree to the byte.
#include <gtest/gtest.h>

#include <string>

#include "ProgramLayout.h"
#include "kavri/CameraAnalysis.h"
#include "kavri/DisplayWidgets.h"
#include "kavri/FL48.h"
#include "kavri/shm_if.h"

namespace {

using CameraAnalysisBallExclusion = CameraAnalysisBallSingleBlock::Exclusion;

const MeasuredField kLibraryFields[] = {
#include "LayoutFields.h"
};

TEST(ProgramLayout, ProgramRecordsMatchTheLibrarysToTheByte) {
  ASSERT_EQ(ProgramFieldCount, std::size(kLibraryFields));
  for (uint32_t i = 0; i < ProgramFieldCount; ++i) {
    SCOPED_TRACE(kLibraryFields[i].name);
    ASSERT_EQ(std::string(ProgramFields[i].name), kLibraryFields[i].name);
    EXPECT_EQ(ProgramFields[i].offset, kLibraryFields[i].offset);
    EXPECT_EQ(ProgramFields[i].size, kLibraryFields[i].size);
  }
}

}  // namespace
