/* Every service once; reports what each answered, then ends. */
#include "ProgramParts.h"
#include "TestReport.h"

int32_t KavriSlice(void) {
  int32_t results[ALL_SERVICES_RESULTS];
  CallAllServices(&KavriTransArea, results);
  TestReport(results, ALL_SERVICES_RESULTS);
  return 0;
}
