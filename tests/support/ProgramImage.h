// Program images for tests and benchmarks that cannot build real ones: the
// instruction at the entry (byte 12) jumps to a function of the test
// program, so the library enters the run area exactly as it enters a
// downloaded program. A forked controller shares the test's addresses.
#ifndef KAVRI_TESTS_PROGRAMIMAGE_H
#define KAVRI_TESTS_PROGRAMIMAGE_H

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/KavriState.h"
#include "kavri/LinkProtocol.h"

using TestEntry = int32_t (*)();

inline std::vector<uint8_t> ImageJumpingTo(TestEntry entry) {
  std::vector<uint8_t> image(12, 0);
  auto append = [&image](const void* bytes, size_t size) {
    image.insert(image.end(), static_cast<const uint8_t*>(bytes), static_cast<const uint8_t*>(bytes) + size);
  };
  uintptr_t target = reinterpret_cast<uintptr_t>(entry);
#if defined(__x86_64__)
  const uint8_t movabsRax[] = {0x48, 0xB8};
  const uint8_t jmpRax[] = {0xFF, 0xE0};
  append(movabsRax, sizeof movabsRax);
  append(&target, sizeof target);
  append(jmpRax, sizeof jmpRax);
#elif defined(__arm__)
  // ldr pc, [pc, #-4]: loads the next word; its low bit selects Thumb.
  const uint32_t loadPc = 0xE51FF004;
  uint32_t address = static_cast<uint32_t>(target);
  append(&loadPc, sizeof loadPc);
  append(&address, sizeof address);
#else
#error "no entry jump for this processor"
#endif
  return image;
}

// A whole download command as a PC sends it: the 76 bytes, then the code.
inline std::vector<uint8_t> DownloadCommandBytes(const char* name, bool ramOnly, const std::vector<uint8_t>& code) {
  xoIF2013Command_DownloadCode command{KavriCmdDownloadCode, ramOnly};
  memcpy(command.fileName, name, std::min(strlen(name), sizeof command.fileName));
  command.codeSize = static_cast<uint32_t>(code.size());
  std::vector<uint8_t> bytes(sizeof command + code.size());
  memcpy(bytes.data(), &command, sizeof command);
  if (!code.empty()) memcpy(bytes.data() + sizeof command, code.data(), code.size());
  return bytes;
}

// The server thread maps the run area executable; tests that run programs
// without it do the same to the library's own pages.
inline void MakeRunAreaExecutable() {
  if (mprotect(DataAreaRun, KAVRI_AREA_SIZE, PROT_READ | PROT_WRITE | PROT_EXEC) != 0) abort();
}

// Puts `entry` behind the run area's entry without a download.
inline void InstallEntry(TestEntry entry) {
  std::vector<uint8_t> image = ImageJumpingTo(entry);
  memcpy(DataAreaRun, image.data(), image.size());
  __builtin___clear_cache(reinterpret_cast<char*>(DataAreaRun), reinterpret_cast<char*>(DataAreaRun + image.size()));
}

#endif
