/* A host written in C includes the host header alone. Compiled by the
   HostHeader test with a C compiler only. */
#include "kavri/KavriLib.h"

int DebugFlags = 0;
FILE* DebugFile = NULL;

static void Heard(KavriLib_ProgramInfo* info) { (void)info; }

int main(void) {
  KavriServerPort = 65000;
  KavriLib_SetProgramInfoCallback(Heard);
  return KavriLib_Init() && KavriLib_CheckDownloadProgramStartable() ? 0 : 1;
}
