/* A host written in C: everything the host header offers, used as a host
   would. Compiled by the HostHeader test with a C compiler only. */
#include <stddef.h>

#include "kavri/KavriLib.h"

int DebugFlags = 1;
FILE* DebugFile = NULL;

static void Heard(KavriLib_ProgramInfo* info) {
  if (info->state == KavriProgramStopped) printf("%s stopped\n", info->name ? info->name : "-");
}

int main(void) {
  KavriLib_ProgramInfoCallback callback = Heard;
  DebugFile = stdout;
  KavriServerPort = 65000;
  CameraServerPort = 65001;
  CameraFile = NULL;
  SysVersionFile = "/etc/sysversion";
  KavriLib_SetProgramLibraryPath("/opt/programs/");
  KavriLib_SetProgramInfoCallback(callback);
  if (!KavriLib_Init()) return 1;
  bool busy = KavriLib_CheckDownloadProgramActive() || KavriLib_CheckOnlineProgramActive();
  if (!busy && KavriLib_CheckDownloadProgramStartable() && !KavriLib_StartRamProgram())
    KavriLib_StartDownloadProgram("/opt/programs/a.bin");
  KavriLib_AbortDownloadProgram();
  printf("%s on %s, %d.%d\n", KavriGetAppVerStr(), KavriGetSysVerStr(), KAVRI_VERSION_MAJOR, KAVRI_VERSION_MINOR);
  KavriLib_Terminate();
  return 0;
}
