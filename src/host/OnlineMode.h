// Online mode: the PC runs the program and drives the I/O through the link;
// the controller moves values between the link and the transfer area, and
// starts and stops the camera for the PC.
#ifndef KAVRI_HOST_ONLINEMODE_H
#define KAVRI_HOST_ONLINEMODE_H

#include "kavri/LinkProtocol.h"

namespace kavri {

// Link command handlers: `command` holds the code word already read; each
// reads its own body from `fd` and returns false to close the connection.
bool HandleStartOnline(int fd, xoIF2013Command_Base* command);
bool HandleUpdateConfig(int fd, xoIF2013Command_Base* command);
bool HandleIoExchange(int fd, xoIF2013Command_Base* command);
bool HandleStopOnline(int fd, xoIF2013Command_Base* command);
bool HandleStartCameraOnline(int fd, xoIF2013Command_Base* command);
bool HandleStopCameraOnline(int fd, xoIF2013Command_Base* command);

// Where the I/O exchange puts and finds its values in the transfer area.
inline constexpr int kAreaConfigId = 75;
inline constexpr int kAreaConfigBlock = 164;
inline constexpr int kAreaInfrared = 672;       // byte records, 32 bytes apart
inline constexpr int kAreaInfraredFlags = 696;  // four 16-bit flags per record
inline constexpr int kInfraredRecordStride = 32;
inline constexpr int kInfraredRecords = 5;

}  // namespace kavri

#endif
