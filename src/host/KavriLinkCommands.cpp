// The PC link's command table and the commands that only report state.
#include <cstring>

#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "host/OnlineMode.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace kavri {

namespace {

uint32_t ControllerAddress(const void* pointer) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

bool HandleQueryStatus(int fd, xoIF2013Command_Base*) {
  xoIF2013Reply_QueryStatus reply{};
  reply.code = KavriReplyQueryStatus;
  strncpy(reply.controllerType, KAVRI_CONTROLLER_TYPE, sizeof reply.controllerType);
  reply.systemVersion = SysVersion > KAVRI_MAX_REPORTED_VERSION ? KAVRI_MAX_REPORTED_VERSION : SysVersion;
  return WriteReply(fd, &reply, sizeof reply);
}

bool HandleGetMemoryLayout(int fd, xoIF2013Command_Base*) {
  xoIF2013Reply_MemoryLayout reply{};
  reply.code = KavriReplyGetMemoryLayout;
  reply.runAreaAddress = ControllerAddress(DataAreaRun);
  reply.runAreaSize = KAVRI_AREA_SIZE;
  reply.transAreaAddress = ControllerAddress(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
  reply.transAreaSize = KAVRI_TRANS_AREA_SIZE;
  return WriteReply(fd, &reply, sizeof reply);
}

const LinkCommand kLinkCommands[] = {
    {KavriCmdQueryStatus, "Received query status command", HandleQueryStatus},
    {KavriCmdGetMemoryLayout, "Received get memory layout command", HandleGetMemoryLayout},
    {KavriCmdGetLibAddresses, "Received get lib adresses command", HandleGetLibAddresses},
    {KavriCmdDownloadCode, "Received download code command", HandleDownloadCode},
    {KavriCmdStartCode, "Received start code command", HandleStartCode},
    {KavriCmdStopCode, "Received stop code command", HandleStopCode},
    {KavriCmdStartOnline, "Received start online command", HandleStartOnline},
    {KavriCmdUpdateConfig, nullptr, HandleUpdateConfig},
    {KavriCmdIoExchange, nullptr, HandleIoExchange},
    {KavriCmdStopOnline, "Received stop online command", HandleStopOnline},
    {KavriCmdStartCameraOnline, nullptr, HandleStartCameraOnline},
    {KavriCmdStopCameraOnline, "Received stop camera online command", HandleStopCameraOnline},
};

}  // namespace

const LinkCommand* FindLinkCommand(uint32_t code) {
  for (const LinkCommand& command : kLinkCommands)
    if (command.code == code) return &command;
  return nullptr;
}

}  // namespace kavri
