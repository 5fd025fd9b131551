// The library's global state and the calls its host application makes.
#include "host/KavriState.h"

#include <cstdlib>
#include <cstring>

#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "host/ThreadStop.h"
#include "kavri/MotorIOLib.h"

extern "C" {

int32_t KavriServerPort = 0;
int32_t CameraServerPort = 0;
FILE* CameraFile = nullptr;
const char* SysVersionFile = "/etc/sysversion";
const char* KavriBindAddress = nullptr;

std::atomic<bool> DataAreaDownloadValid{false};
char* DownloadDataPath = nullptr;
std::atomic<KavriLib_ProgramInfoCallback> ProgramInfoCallback{nullptr};
std::atomic<bool> OnlineModeActive{false};
uint32_t SysVersion = 0;
char KavriAppVer[KAVRI_VERSION_TEXT_SIZE];
char KavriSysVer[KAVRI_VERSION_TEXT_SIZE];

pthread_t ThreadKavriServer;
pthread_t ThreadKavri;
pthread_t ThreadCameraServer;
std::atomic<bool> KavriServerThreadRunning{false};
std::atomic<bool> ProgThreadRunning{false};
std::atomic<bool> CameraServerThreadRunning{false};
std::atomic<bool> KavriServerThreadTerminate{false};
std::atomic<bool> ProgThreadTerminate{false};
std::atomic<bool> CameraServerThreadTerminate{false};

std::atomic<int32_t> RateIOSecond{0};
std::atomic<int32_t> RateTransferSecond{0};
std::atomic<int32_t> RateLastTime{0};

}  // extern "C"

namespace {

constexpr uint32_t kDefaultSysVersion = 0x04010000;

// A file with fewer than four numbers leaves the rest 0.
void ReadSysVersion() {
  FILE* file = fopen(SysVersionFile, "r");
  if (!file) {
    printf("Cannot open /etc/sysversion\n");
    SysVersion = kDefaultSysVersion;
    return;
  }
  int part[4] = {0, 0, 0, 0};
  int parsed = fscanf(file, "%d.%d.%d.%d", &part[0], &part[1], &part[2], &part[3]);
  (void)parsed;  // a short file is accepted as it is
  printf("System V %d.%d.%d.%d\n", part[0], part[1], part[2], part[3]);
  SysVersion = static_cast<uint32_t>(part[0]) << 24 | static_cast<uint32_t>(part[1] & 0xFF) << 16 |
               static_cast<uint32_t>(part[2] & 0xFF) << 8 | static_cast<uint32_t>(part[3] & 0xFF);
  fclose(file);
}

void FormatVersionTexts() {
  snprintf(KavriAppVer, sizeof KavriAppVer, "%d.%d.%d.%d", KAVRI_VERSION_MAJOR, KAVRI_VERSION_MINOR,
           KAVRI_VERSION_BUILD, KAVRI_VERSION_REVISION);
  snprintf(KavriSysVer, sizeof KavriSysVer, "%d.%d.%d.%d", SysVersion >> 24, SysVersion >> 16 & 0xFF,
           SysVersion >> 8 & 0xFF, SysVersion & 0xFF);
}

void* RunKavriServerThread(void* argument) { return KavriServerThread(argument); }

}  // namespace

extern "C" {

int KavriLib_Init(void) {
  printf("KavriLib V %d.%d.%d.%d\n", KAVRI_VERSION_MAJOR, KAVRI_VERSION_MINOR, KAVRI_VERSION_BUILD,
         KAVRI_VERSION_REVISION);
  ReadSysVersion();
  FormatVersionTexts();
  if (!kavri::ChooseListenAddress(KavriBindAddress)) return 0;
  return StartThreadKavriServer();
}

void KavriLib_Terminate(void) {}

void KavriLib_SetProgramLibraryPath(const char* path) {
  free(DownloadDataPath);
  DownloadDataPath = path ? strdup(path) : nullptr;
}

void KavriLib_SetProgramInfoCallback(KavriLib_ProgramInfoCallback callback) {
  ProgramInfoCallback.store(callback, std::memory_order_release);
}

bool KavriLib_CheckDownloadProgramActive(void) {
  return MotorIOLib_ThreadIsRunning() && ProgThreadRunning.load(std::memory_order_acquire);
}

bool KavriLib_CheckOnlineProgramActive(void) { return OnlineModeActive.load(std::memory_order_acquire); }

bool KavriLib_CheckDownloadProgramStartable(void) { return DataAreaDownloadValid.load(std::memory_order_acquire); }

// Refused while anything of a program still runs, the I/O cycle included:
// a cycle held by a slice that never returns still executes the run area.
static bool ProgramMayStart() {
  return !MotorIOLib_ThreadIsRunning() && !ProgThreadRunning.load(std::memory_order_acquire) &&
         !OnlineModeActive.load(std::memory_order_acquire);
}

int KavriLib_StartDownloadProgram(const char* path) {
  if (!ProgramMayStart() || !path) return 0;
  return StartDownloadFromFile(path);
}

int KavriLib_StartRamProgram(void) {
  if (!DataAreaDownloadValid.load(std::memory_order_acquire) || !ProgramMayStart()) return 0;
  memcpy(DataAreaRun, DataAreaDownload, KAVRI_AREA_SIZE);
  return StartThreadsDownloadMode();
}

int KavriLib_AbortDownloadProgram(void) { return StopThreadsDownloadMode(true); }

const char* KavriGetAppVerStr(void) { return KavriAppVer; }

const char* KavriGetSysVerStr(void) { return KavriSysVer; }

int StartThreadKavriServer(void) {
  KavriServerThreadTerminate.store(false, std::memory_order_release);
  if (pthread_create(&ThreadKavriServer, nullptr, RunKavriServerThread, nullptr) != 0) {
    fprintf(stderr, "ERROR creating Kavri server thread\n");
    return 0;
  }
  return 1;
}

// Nothing sets KavriServerThreadRunning and the server never reads its
// terminate flag: this returns 1 at once and the server keeps serving.
int StopThreadKavriServer(void) {
  KavriServerThreadTerminate.store(true, std::memory_order_release);
  if (!kavri::WaitUntilCleared(KavriServerThreadRunning)) {
    fprintf(stderr, "Timeout terminating Kavri server thread");
    return 0;
  }
  return 1;
}

void KavriNotifyProgramInfo(const char* name, int32_t state) {
  KavriLib_ProgramInfoCallback callback = ProgramInfoCallback.load(std::memory_order_acquire);
  if (!callback) return;
  KavriLib_ProgramInfo info{name, state};
  callback(&info);
}

}  // extern "C"
