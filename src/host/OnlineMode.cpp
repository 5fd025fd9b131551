// Online mode: the PC sends outputs and configuration, the controller writes
// them into the transfer area, triggers one exchange with the hardware and
// sends the inputs back. Camera online starts capture with the library's own
// frame-delivery record and the camera server that streams it.
#include "host/OnlineMode.h"

#include <cstdio>
#include <cstring>

#include "host/CameraServer.h"
#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "host/ThreadStop.h"
#include "kavri/Camera.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace kavri {

namespace {

// A run of 16-bit values that the exchange moves between a packet and the
// transfer area.
struct FieldSpan {
  int packetOffset;
  int areaOffset;
  int count;
};

constexpr FieldSpan kCommandToArea[] = {
    {offsetof(xoIF2013Command_IoExchange, outputs332), 332, 8},
    {offsetof(xoIF2013Command_IoExchange, outputs348), 348, 8},
    {offsetof(xoIF2013Command_IoExchange, values320), 320, 4},
    {offsetof(xoIF2013Command_IoExchange, values834), 834, 3},
};
// Only the low byte of each of these goes to the area, one byte apart.
constexpr FieldSpan kCommandLowBytesToArea = {offsetof(xoIF2013Command_IoExchange, lowBytes328), 328, 4};

constexpr FieldSpan kAreaToReply[] = {
    {offsetof(xoIF2013Reply_IoExchange, inputs252), 252, 8},
    {offsetof(xoIF2013Reply_IoExchange, inputs268), 268, 8},
    {offsetof(xoIF2013Reply_IoExchange, values320), 320, 4},
    {offsetof(xoIF2013Reply_IoExchange, values312), 312, 4},
    {offsetof(xoIF2013Reply_IoExchange, value832), 832, 1},
};

constexpr int kInfraredByteStep = 6;
constexpr int kInfraredFlagCount = 4;

// The I/O library's cycle thread reads and writes the area too (an exchange
// is accepted in any mode), so every field access is atomic at its size.
uint8_t* AreaBytes() { return reinterpret_cast<uint8_t*>(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX)); }

uint16_t LoadArea16(int offset) {
  return std::atomic_ref<uint16_t>(*reinterpret_cast<uint16_t*>(AreaBytes() + offset)).load(std::memory_order_relaxed);
}
void StoreArea16(int offset, uint16_t value) {
  std::atomic_ref<uint16_t>(*reinterpret_cast<uint16_t*>(AreaBytes() + offset)).store(value, std::memory_order_relaxed);
}
uint8_t LoadArea8(int offset) { return std::atomic_ref<uint8_t>(AreaBytes()[offset]).load(std::memory_order_relaxed); }
void StoreArea8(int offset, uint8_t value) {
  std::atomic_ref<uint8_t>(AreaBytes()[offset]).store(value, std::memory_order_relaxed);
}

void ClearOutputs() {
  for (int offset = 0; offset < KAVRI_TRANS_AREA_CLEAR_SIZE; offset += 2) StoreArea16(offset, 0);
}

uint16_t PacketField(const void* packet, int offset) {
  uint16_t value;
  memcpy(&value, static_cast<const uint8_t*>(packet) + offset, sizeof value);
  return value;
}

void CopyCommandToArea(const xoIF2013Command_IoExchange& command) {
  for (const FieldSpan& span : kCommandToArea)
    for (int i = 0; i < span.count; ++i)
      StoreArea16(span.areaOffset + 2 * i, PacketField(&command, span.packetOffset + 2 * i));
  const FieldSpan& low = kCommandLowBytesToArea;
  for (int i = 0; i < low.count; ++i)
    StoreArea8(low.areaOffset + i, static_cast<uint8_t>(PacketField(&command, low.packetOffset + 2 * i)));
}

// Four bytes 6 apart, then a byte whose bit j says whether flag word j is set.
void ReadInfraredRecord(int record, uint8_t out[5]) {
  int base = kAreaInfrared + kInfraredRecordStride * record;
  int flags = kAreaInfraredFlags + kInfraredRecordStride * record;
  uint8_t flagBits = 0;
  for (int j = 0; j < kInfraredFlagCount; ++j) {
    out[j] = LoadArea8(base + kInfraredByteStep * j);
    if (LoadArea16(flags + 2 * j) != 0) flagBits |= static_cast<uint8_t>(1u << j);
  }
  out[4] = flagBits;
}

void BuildExchangeReply(xoIF2013Reply_IoExchange& reply) {
  reply = {};
  reply.code = KavriReplyIoExchange;
  auto* bytes = reinterpret_cast<uint8_t*>(&reply);
  for (const FieldSpan& span : kAreaToReply)
    for (int i = 0; i < span.count; ++i) {
      uint16_t value = LoadArea16(span.areaOffset + 2 * i);
      memcpy(bytes + span.packetOffset + 2 * i, &value, sizeof value);
    }
  for (int k = 0; k < kInfraredRecords; ++k) ReadInfraredRecord(k, reply.infrared[k]);
}

// Built whole and written with one call: the line comes with every exchange,
// and an unbuffered standard output would otherwise cost a write per piece.
void PrintInfraredLine(const xoIF2013Reply_IoExchange& reply) {
  char line[2 + kInfraredRecords * 16 + 2];  // " %3d%3d%3d%3d%2d" is at most 16 columns
  int length = snprintf(line, sizeof line, "IR");
  for (const uint8_t* record : reply.infrared)
    length += snprintf(line + length, sizeof line - length, " %3d%3d%3d%3d%2d", record[0], record[1], record[2],
                       record[3], record[4]);
  length += snprintf(line + length, sizeof line - length, "\n");
  fwrite(line, 1, static_cast<size_t>(length), stdout);
}

template <typename Packet>
bool ReadPacket(int fd, xoIF2013Command_Base* command, Packet& packet) {
  return ReadCommandExtension(fd, command, reinterpret_cast<xoIF2013Command_Base*>(&packet), sizeof packet);
}

bool WriteCode(int fd, uint32_t code) { return WriteReply(fd, &code, sizeof code); }

// Before the delivery record is prepared again, nobody may still use it: an
// earlier server and capture are ended first.
void EndEarlierCameraOnline() {
  if (CameraServerThreadRunning.load(std::memory_order_acquire)) StopThreadCameraServer();
  if (CameraThreadRunning.load()) {
    CameraThreadTerminate.store(true);
    if (!WaitUntilCleared(CameraThreadRunning)) fputs("Timeout terminating camera thread\n", stderr);
  }
}

void PrepareDeliveryRecord(int width, int height) {
  CameraAnalysisDeliverFrame& record = CameraAnalysisDeliverFrame_Inst;
  record.base = {CameraAnalysisTypeDeliverFrame, nullptr, width, height};
  record.Flags().store(0, std::memory_order_release);
  record.Init();
}

}  // namespace

bool HandleStartOnline(int fd, xoIF2013Command_Base* command) {
  xoIF2013Command_StartOnline packet;
  if (!ReadPacket(fd, command, packet)) return false;
  StopThreadsDownloadMode(true);
  OnlineModeActive.store(true, std::memory_order_release);
  ClearOutputs();
  // The PC's name need not be terminated within its 64 bytes.
  char name[sizeof packet.programName + 1] = {};
  memcpy(name, packet.programName, sizeof packet.programName);
  KavriNotifyProgramInfo(name, KavriProgramOnlineStarted);
  return WriteCode(fd, KavriReplyStartOnline);
}

bool HandleUpdateConfig(int fd, xoIF2013Command_Base* command) {
  xoIF2013Command_UpdateConfig packet;
  if (!ReadPacket(fd, command, packet)) return false;
  printf("Received update config command, id=%d\n", packet.configId);
  printf("M:%d %d %d %d, I:%d %d %d %d %d %d %d %d, c:%d %d %d %d\n", packet.motor[0], packet.motor[1],
         packet.motor[2], packet.motor[3], packet.input[0], packet.input[1], packet.input[2], packet.input[3],
         packet.input[4], packet.input[5], packet.input[6], packet.input[7], packet.counter[0], packet.counter[1],
         packet.counter[2], packet.counter[3]);
  constexpr size_t kBlockStart = offsetof(xoIF2013Command_UpdateConfig, blockStart);
  memcpy(AreaBytes() + kAreaConfigBlock, reinterpret_cast<const uint8_t*>(&packet) + kBlockStart,
         sizeof packet - kBlockStart);
  StoreArea8(kAreaConfigId, static_cast<uint8_t>(packet.configId));
  return WriteCode(fd, KavriReplyUpdateConfig);
}

bool HandleIoExchange(int fd, xoIF2013Command_Base* command) {
  xoIF2013Command_IoExchange packet;
  if (!ReadPacket(fd, command, packet)) return false;
  CopyCommandToArea(packet);
  if (!MotorIOLib_DoTransfer(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), KAVRI_TRANS_AREA_INDEX)) return false;
  RateIOSecond.fetch_add(1, std::memory_order_relaxed);
  xoIF2013Reply_IoExchange reply;
  BuildExchangeReply(reply);
  PrintInfraredLine(reply);
  if (!WriteReply(fd, &reply, sizeof reply)) return false;
  RateTransferSecond.fetch_add(1, std::memory_order_relaxed);
  return true;
}

bool HandleStopOnline(int fd, xoIF2013Command_Base*) {
  OnlineModeActive.store(false, std::memory_order_release);
  KavriNotifyProgramInfo(nullptr, KavriProgramOnlineStopped);
  // The outputs stay as they were unless the PC is known to have heard.
  if (!WriteCode(fd, KavriReplyStopOnline)) return false;
  ClearOutputs();
  return true;
}

bool HandleStartCameraOnline(int fd, xoIF2013Command_Base* command) {
  xoIF2013Command_StartCameraOnline packet;
  if (!ReadPacket(fd, command, packet)) return false;
  printf("Received start camera online command %dx%d %d fps %d plf\n", packet.width, packet.height,
         packet.frameRate, packet.powerlineFreq);
  EndEarlierCameraOnline();
  CameraFrameWidth = packet.width;
  CameraFrameHeight = packet.height;
  CameraFrameRate = packet.frameRate;
  CameraPowerlineFreq = packet.powerlineFreq;
  PrepareDeliveryRecord(packet.width, packet.height);
  CameraSetup(&CameraAnalysisDeliverFrame_Inst.base);
  StartThreadCameraServer();
  return WriteCode(fd, KavriReplyStartCameraOnline);
}

bool HandleStopCameraOnline(int fd, xoIF2013Command_Base*) {
  CameraThreadTerminate.store(true);
  StopThreadCameraServer();
  return WriteCode(fd, KavriReplyStopCameraOnline);
}

}  // namespace kavri
