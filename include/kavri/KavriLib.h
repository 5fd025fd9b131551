// Host interface of libkavri: the calls and exported variables a host
// application uses, and the library's global state.
#ifndef KAVRI_KAVRILIB_H
#define KAVRI_KAVRILIB_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

#include <atomic>

#include "kavri/shm_if.h"

#define KAVRI_VERSION_MAJOR 4
#define KAVRI_VERSION_MINOR 1
#define KAVRI_VERSION_BUILD 5
#define KAVRI_VERSION_REVISION 0

#define KAVRI_AREA_SIZE 0x400000  // run area and download area, each
#define KAVRI_VERSION_TEXT_SIZE 32

extern "C" {

// What the host hears of program state changes; lives only during the call.
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
  KavriProgramStopped = 7,
};

typedef void (*KavriLib_ProgramInfoCallback)(KavriLib_ProgramInfo* info);

// Imported from the host application.
extern int DebugFlags;
extern FILE* DebugFile;

// Set by the host before KavriLib_Init.
extern int32_t KavriServerPort;
extern int32_t CameraServerPort;
extern FILE* CameraFile;
// The system version file; a host or a test may point it elsewhere before
// KavriLib_Init. Defaults to "/etc/sysversion".
extern const char* SysVersionFile;

// The run area and, directly after it, the download area: two halves of one
// page-aligned object.
extern uint8_t DataAreaRun[KAVRI_AREA_SIZE];
extern uint8_t DataAreaDownload[KAVRI_AREA_SIZE];

extern std::atomic<bool> DataAreaDownloadValid;
extern char* DownloadDataPath;
extern std::atomic<KavriLib_ProgramInfoCallback> ProgramInfoCallback;
extern std::atomic<bool> OnlineModeActive;
extern uint32_t SysVersion;
extern char KavriAppVer[KAVRI_VERSION_TEXT_SIZE];
extern char KavriSysVer[KAVRI_VERSION_TEXT_SIZE];

extern pthread_t ThreadKavriServer;
extern pthread_t ThreadKavri;
extern pthread_t ThreadCameraServer;
extern std::atomic<bool> KavriServerThreadRunning;
extern std::atomic<bool> ProgThreadRunning;
extern std::atomic<bool> CameraServerThreadRunning;
extern std::atomic<bool> KavriServerThreadTerminate;
extern std::atomic<bool> ProgThreadTerminate;
extern std::atomic<bool> CameraServerThreadTerminate;

extern std::atomic<int32_t> RateIOSecond;
extern std::atomic<int32_t> RateTransferSecond;
extern std::atomic<int32_t> RateLastTime;

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

int StartThreadKavriServer(void);
int StopThreadKavriServer(void);

// Calls the host's program-info callback, if one is set.
void KavriNotifyProgramInfo(const char* name, int32_t state);

// Service stubs for downloaded code built for controllers that have these.
bool CheckTimeSliceCanContinue(shm_if_s* area);
void BluetoothMaintenance(void);
int BluetoothSendMessage(void);
void BluetoothSetReceiveCallback(void);
int BluetoothGetSelfRadioCallNumber(void);
void BluetoothSetup(void);
void I2C_Setup(void);
int I2C_Write(void);
int I2C_Read(void);

}  // extern "C"

#endif
