// The PC link protocol: command and reply codes and the layout of every
// packet, shared by the controller's server and the PC tool. All integers
// are little-endian; a command is its code word followed by a fixed body
// (download code is followed by the code bytes); no length, no checksum.
#ifndef KAVRI_LINKPROTOCOL_H
#define KAVRI_LINKPROTOCOL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum KavriCommandCode : uint32_t {
  KavriCmdQueryStatus = 0xdc21219a,
  KavriCmdGetMemoryLayout = 0xdaf84364,
  KavriCmdGetLibAddresses = 0x2cd2eb45,
  KavriCmdDownloadCode = 0x7c110518,
  KavriCmdStartCode = 0x21be958b,
  KavriCmdStopCode = 0xacab31f7,
  KavriCmdStartOnline = 0x163ff61d,
  KavriCmdUpdateConfig = 0x060ef27e,
  KavriCmdIoExchange = 0xcc3597ba,
  KavriCmdStopOnline = 0x9be5082c,
  KavriCmdStartCameraOnline = 0x882a40a6,
  KavriCmdStopCameraOnline = 0x17c31f2f,
};

enum KavriReplyCode : uint32_t {
  KavriReplyQueryStatus = 0xbac9723e,
  KavriReplyGetMemoryLayout = 0x5170c53b,
  KavriReplyGetLibAddresses = 0x840ccfb5,
  KavriReplyDownloadCode = 0xeb921145,
  KavriReplyStartCode = 0x4b0f9a0c,
  KavriReplyStopCode = 0x15b1758e,
  KavriReplyStartOnline = 0xca689f75,
  KavriReplyUpdateConfig = 0x9689a68c,
  KavriReplyIoExchange = 0x4eefac41,
  KavriReplyStopOnline = 0xfbf600d2,
  KavriReplyStartCameraOnline = 0xcf41b24e,
  KavriReplyStopCameraOnline = 0x4b3c1eb6,
};

// Camera stream (second server): one header in front of every frame, one
// acknowledgement from the PC after it.
#define KavriCameraFrameMagic 0xbdc2d7a1u
#define KavriCameraFrameAck 0xada09fbau

#define KAVRI_CONTROLLER_TYPE "QV2013"
#define KAVRI_MAX_REPORTED_VERSION 0x04010500u
#define KAVRI_LIB_ADDRESS_SLOTS 60

// The common head of every command: the code word alone. Commands without a
// body are exactly this.
typedef struct xoIF2013Command_Base {
  uint32_t code;
} xoIF2013Command_Base;

typedef struct xoIF2013Command_DownloadCode {
  uint32_t code;
  uint8_t ramOnly;       // 0: also write the flash file
  char fileName[67];     // zero-terminated
  uint32_t codeSize;     // the code bytes follow the command
} xoIF2013Command_DownloadCode;

typedef struct xoIF2013Command_StartOnline {
  uint32_t code;
  char programName[64];  // zero-terminated
} xoIF2013Command_StartOnline;

typedef struct xoIF2013Command_UpdateConfig {
  uint32_t code;
  int32_t configId;      // its low byte is the configuration id
  uint8_t blockStart[4]; // from here to the end: the configuration block
  uint8_t motor[4];
  int32_t input[8];
  int32_t counter[4];
  uint8_t blockRest[32];
} xoIF2013Command_UpdateConfig;

typedef struct xoIF2013Command_IoExchange {
  uint32_t code;
  uint16_t outputs332[8];   // to area 332..347
  uint16_t lowBytes328[4];  // low bytes to area 328..331
  uint16_t outputs348[8];   // to area 348..363
  uint16_t values320[4];    // to area 320..327
  uint16_t values834[3];    // to area 834..839
  uint16_t unused;
} xoIF2013Command_IoExchange;

typedef struct xoIF2013Command_StartCameraOnline {
  uint32_t code;
  int32_t width;
  int32_t height;
  int32_t frameRate;
  int32_t powerlineFreq;
} xoIF2013Command_StartCameraOnline;

typedef struct xoIF2013Reply_Base {
  uint32_t code;
} xoIF2013Reply_Base;

typedef struct xoIF2013Reply_QueryStatus {
  uint32_t code;
  char controllerType[15];  // "QV2013", zero-padded
  uint8_t zero;
  uint32_t systemVersion;   // never above KAVRI_MAX_REPORTED_VERSION
} xoIF2013Reply_QueryStatus;

typedef struct xoIF2013Reply_MemoryLayout {
  uint32_t code;
  uint32_t runAreaAddress;
  uint32_t runAreaSize;
  uint32_t transAreaAddress;
  uint32_t transAreaSize;
} xoIF2013Reply_MemoryLayout;

typedef struct xoIF2013Reply_LibAddresses {
  uint32_t code;
  uint32_t slot[KAVRI_LIB_ADDRESS_SLOTS - 1];
} xoIF2013Reply_LibAddresses;

typedef struct xoIF2013Reply_StartCode {
  uint32_t code;
  uint32_t started;  // 1: a program was started; 0: no valid download
} xoIF2013Reply_StartCode;

typedef struct xoIF2013Reply_IoExchange {
  uint32_t code;
  uint16_t inputs252[8];
  uint16_t inputs268[8];
  uint16_t values320[4];
  uint16_t values312[4];
  uint16_t value832;
  uint8_t infrared[5][5];  // four bytes and a flag byte per record
  uint8_t zero;
} xoIF2013Reply_IoExchange;

typedef struct KavriCameraFrameHeader {
  uint32_t magic;
  int32_t backlog;  // full delivery buffers at sending, minus 1
  uint16_t width;
  uint16_t height;
  uint32_t capacity;
  uint32_t size;    // frame bytes that follow
} KavriCameraFrameHeader;

#ifdef __cplusplus
}  // extern "C"

// The wire sizes are fixed; these hold on every target.
static_assert(sizeof(xoIF2013Command_Base) == 4);
static_assert(sizeof(xoIF2013Command_DownloadCode) == 76 && offsetof(xoIF2013Command_DownloadCode, codeSize) == 72);
static_assert(offsetof(xoIF2013Command_DownloadCode, fileName) == 5);
static_assert(sizeof(xoIF2013Command_StartOnline) == 68);
static_assert(sizeof(xoIF2013Command_UpdateConfig) == 96);
static_assert(offsetof(xoIF2013Command_UpdateConfig, motor) == 12 && offsetof(xoIF2013Command_UpdateConfig, input) == 16);
static_assert(offsetof(xoIF2013Command_UpdateConfig, counter) == 48 && offsetof(xoIF2013Command_UpdateConfig, blockRest) == 64);
static_assert(sizeof(xoIF2013Command_IoExchange) == 60);
static_assert(offsetof(xoIF2013Command_IoExchange, lowBytes328) == 20 && offsetof(xoIF2013Command_IoExchange, outputs348) == 28);
static_assert(offsetof(xoIF2013Command_IoExchange, values320) == 44 && offsetof(xoIF2013Command_IoExchange, values834) == 52);
static_assert(sizeof(xoIF2013Command_StartCameraOnline) == 20);
static_assert(sizeof(xoIF2013Reply_QueryStatus) == 24 && offsetof(xoIF2013Reply_QueryStatus, systemVersion) == 20);
static_assert(sizeof(xoIF2013Reply_MemoryLayout) == 20);
static_assert(sizeof(xoIF2013Reply_LibAddresses) == 240);
static_assert(sizeof(xoIF2013Reply_StartCode) == 8);
static_assert(sizeof(xoIF2013Reply_IoExchange) == 80 && offsetof(xoIF2013Reply_IoExchange, infrared) == 54);
static_assert(sizeof(KavriCameraFrameHeader) == 20);
#endif

#endif
