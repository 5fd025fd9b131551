// The library's own global state: the areas, the thread handles and the
// flags and counters the threads hand over through, and the service stubs.
// Not for hosts (see kavri/KavriLib.h); the names are exported all the same,
// as the documented interface has them.
#ifndef KAVRI_HOST_KAVRISTATE_H
#define KAVRI_HOST_KAVRISTATE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "kavri/KavriLib.h"
#include "kavri/shm_if.h"

#define KAVRI_AREA_SIZE 0x400000  // run area and download area, each
#define KAVRI_VERSION_TEXT_SIZE 32

extern "C" {

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
