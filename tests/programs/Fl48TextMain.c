/* FL48 arithmetic printed with text graphics; reports the numbers, then ends. */
#include "ProgramParts.h"
#include "TestReport.h"

int32_t KavriSlice(void) {
  int32_t results[FL48_TEXT_RESULTS];
  DrawFl48Text(&KavriTransArea, results);
  TestReport(results, FL48_TEXT_RESULTS);
  return 0;
}
