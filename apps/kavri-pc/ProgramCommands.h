// Programs on the controller from the PC: the address table, download,
// start, stop, and building images for the controller at hand.
#ifndef KAVRI_PC_PROGRAMCOMMANDS_H
#define KAVRI_PC_PROGRAMCOMMANDS_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "LinkClient.h"
#include "ProgramBuild.h"

// The memory layout and the address table, as an image must be linked.
ControllerLinkInfo QueryLinkInfo(LinkClient& link);

// Sends an image with the download code command. `progress`, if given,
// hears of every chunk sent (bytes so far, total).
struct DownloadProgress {
  virtual ~DownloadProgress() = default;
  virtual void Sent(size_t done, size_t total) = 0;
};
void DownloadImage(LinkClient& link, const std::vector<uint8_t>& image, const std::string& name, bool ramOnly,
                   DownloadProgress* progress = nullptr);
// True if the controller started a program (it had a valid download).
bool StartProgram(LinkClient& link);
void StopProgram(LinkClient& link);

// The longest name the download command carries, without its terminator.
constexpr size_t kMaxProgramName = 66;

#endif
