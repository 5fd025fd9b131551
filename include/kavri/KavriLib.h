/* Host interface of libkavri: what a host application ("KavriApp or
   service") sets and calls. Valid C and C++; the library's own shared state
   lives in a header of its own. */
#ifndef KAVRI_KAVRILIB_H
#define KAVRI_KAVRILIB_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#define KAVRI_VERSION_MAJOR 4
#define KAVRI_VERSION_MINOR 1
#define KAVRI_VERSION_BUILD 5
#define KAVRI_VERSION_REVISION 0

#ifdef __cplusplus
extern "C" {
#endif

/* What the host hears of program state changes; lives only during the call. */
typedef struct KavriLib_ProgramInfo {
  const char* name;
  int32_t state;
} KavriLib_ProgramInfo;

enum KavriLib_ProgramState {
  KavriProgramOnlineStarted = 0,
  KavriProgramOnlineStopped = 1,
  KavriProgramDownloadedRam = 2,
  KavriProgramDownloadedFlash = 3,
  KavriProgramStartReceived = 4,
  KavriProgramDisplayBuilt = 5,
  KavriProgramDisplayEnded = 6,
  KavriProgramStopped = 7
};

typedef void (*KavriLib_ProgramInfoCallback)(KavriLib_ProgramInfo* info);

/* The host defines these two; the library only reads them. */
extern int DebugFlags;
extern FILE* DebugFile;

/* Set by the host before KavriLib_Init. */
extern int32_t KavriServerPort;
extern int32_t CameraServerPort;
extern FILE* CameraFile;
/* The system version file; a host or a test may point it elsewhere before
   KavriLib_Init. Defaults to "/etc/sysversion". */
extern const char* SysVersionFile;
/* The local IPv4 address, in dotted form, that the PC link and camera
   servers listen on. NULL or "" (the default): every address. Read by
   KavriLib_Init, which fails if it is not an IPv4 address. */
extern const char* KavriBindAddress;

int KavriLib_Init(void);
void KavriLib_Terminate(void);
void KavriLib_SetProgramLibraryPath(const char* path);
void KavriLib_SetProgramInfoCallback(KavriLib_ProgramInfoCallback callback);
bool KavriLib_CheckDownloadProgramActive(void);
bool KavriLib_CheckOnlineProgramActive(void);
bool KavriLib_CheckDownloadProgramStartable(void);
int KavriLib_StartDownloadProgram(const char* path);
int KavriLib_StartRamProgram(void);
int KavriLib_AbortDownloadProgram(void);
const char* KavriGetAppVerStr(void);
const char* KavriGetSysVerStr(void);

#ifdef __cplusplus
}
#endif

#endif
