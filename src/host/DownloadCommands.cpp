// The PC link commands that download, start and stop programs.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "host/KavriState.h"
#include "kavri/MotorIOLib.h"

namespace kavri {

namespace {

// Reads the code into the download area; returns the bytes received. A PC
// that closes or falls silent part way ends the download: looping on empty
// reads would hold the server.
size_t ReceiveCode(int fd, uint32_t size) {
  size_t total = 0;
  while (total < size) {
    ssize_t received = ReadOnce(fd, DataAreaDownload + total, size - total);
    if (received < 0) {
      fprintf(stderr, "ERROR calling read\n");
      break;
    }
    if (received == 0) {
      fprintf(stderr, "ERROR connection closed or timed out after %zu of %u code bytes\n", total, size);
      break;
    }
    total += static_cast<size_t>(received);
    printf("Received %d bytes, total %zd bytes\n", static_cast<int>(received), static_cast<ssize_t>(total));
  }
  return total;
}

}  // namespace

void PrefillDownloadArea(size_t from) {
  const auto* pattern = reinterpret_cast<const uint8_t*>(&kBreakpointWord);
  size_t offset = from;
  for (; offset < kPrefilledBytes && offset % sizeof kBreakpointWord; ++offset)
    DataAreaDownload[offset] = pattern[offset % sizeof kBreakpointWord];
  for (; offset < kPrefilledBytes; offset += sizeof kBreakpointWord)
    memcpy(DataAreaDownload + offset, pattern, sizeof kBreakpointWord);
  size_t zeroFrom = std::max(from, kPrefilledBytes);
  memset(DataAreaDownload + zeroFrom, 0, KAVRI_AREA_SIZE - zeroFrom);
}

bool HandleDownloadCode(int fd, xoIF2013Command_Base* word) {
  if (!StopThreadsDownloadMode(true)) return false;
  xoIF2013Command_DownloadCode command;
  if (!ReadCommandExtension(fd, word, reinterpret_cast<xoIF2013Command_Base*>(&command), sizeof command))
    return false;
  // Checked before the area is touched, so the previous download survives.
  if (command.codeSize > KAVRI_AREA_SIZE) {
    fprintf(stderr, "ERROR code size %u is larger than the download area (%u bytes)\n", command.codeSize,
            static_cast<unsigned>(KAVRI_AREA_SIZE));
    return false;
  }
  // From here the area no longer holds the previous program; a download
  // that fails part way must not be started.
  DataAreaDownloadValid.store(false, std::memory_order_release);
  // The code's own bytes are written once, by the receive, not prefilled
  // first: the area ends up the same and a large download costs one pass
  // over memory less. What never came is prefilled after all.
  PrefillDownloadArea(command.codeSize);
  size_t received = ReceiveCode(fd, command.codeSize);
  if (received < command.codeSize) {
    PrefillDownloadArea(received);
    return false;
  }
  // The PC may fill all 67 bytes; the name ends inside the field regardless.
  char name[sizeof command.fileName + 1] = {};
  memcpy(name, command.fileName, sizeof command.fileName);
  if (!command.ramOnly && DownloadDataPath) WriteFlashFile(name, DataAreaDownload, command.codeSize);
  KavriNotifyProgramInfo(name, command.ramOnly ? KavriProgramDownloadedRam : KavriProgramDownloadedFlash);
  xoIF2013Reply_Base reply{KavriReplyDownloadCode};
  if (!WriteReply(fd, &reply, sizeof reply)) return false;
  DataAreaDownloadValid.store(true, std::memory_order_release);
  return true;
}

bool HandleStartCode(int fd, xoIF2013Command_Base*) {
  if (!StopThreadsDownloadMode(true)) return false;
  xoIF2013Reply_StartCode reply{KavriReplyStartCode, 1};
  KavriNotifyProgramInfo(nullptr, KavriProgramStartReceived);
  if (DataAreaDownloadValid.load(std::memory_order_acquire)) {
    memcpy(DataAreaRun, DataAreaDownload, KAVRI_AREA_SIZE);
    memset(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX), 0, KAVRI_TRANS_AREA_CLEAR_SIZE);
    if (!StartThreadsDownloadMode()) return false;
  } else {
    reply.started = 0;
  }
  return WriteReply(fd, &reply, sizeof reply);
}

bool HandleStopCode(int fd, xoIF2013Command_Base*) {
  if (!StopThreadsDownloadMode(true)) return false;
  KavriNotifyProgramInfo(nullptr, KavriProgramStopped);
  xoIF2013Reply_Base reply{KavriReplyStopCode};
  return WriteReply(fd, &reply, sizeof reply);
}

}  // namespace kavri
