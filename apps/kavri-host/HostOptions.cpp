#include "HostOptions.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>

#include "ParseNumber.h"

namespace {

const char kUsage[] =
    "Usage: kavri-host [options]\n"
    "Runs a controller: the KavriLib PC link server with a simulated I/O library.\n"
    "\n"
    "  --port N            PC link port (default 65000)\n"
    "  --camera-port N     camera stream port (default 65001)\n"
    "  --programs DIR      program library for flash files, created if missing\n"
    "                      (default programs/)\n"
    "  --debug-flags N     debug output bits: 1 rates, 2 analyses, 4 sharpness,\n"
    "                      16 camera recording, 128 camera formats, 256 buffers\n"
    "  --debug-file PATH   where debug output goes (default standard output)\n"
    "  --camera-file PATH  camera recording file (with debug bit 16)\n"
    "  --sysversion PATH   system version file (default /etc/sysversion)\n"
    "  --camera sim|PATH   the simulated scene camera (default) or a real\n"
    "                      Video4Linux2 device such as /dev/video0\n"
    "  --display-image PATH  write the 128x64 display to PATH (.png, else PBM)\n"
    "                      each time a program updates it\n"
    "  --help              this text\n";

}  // namespace

std::optional<HostOptions> ParseHostOptions(int argc, char** argv, int& exitCode) {
  HostOptions options;
  using Setter = std::function<bool(const char*)>;
  const std::map<std::string, Setter> setters = {
      {"--port", [&](const char* v) { return ParseIntInRange(v, 1, 65535, options.port); }},
      {"--camera-port", [&](const char* v) { return ParseIntInRange(v, 1, 65535, options.cameraPort); }},
      {"--programs", [&](const char* v) { return (options.programs = v), !options.programs.empty(); }},
      {"--debug-flags", [&](const char* v) { return ParseIntInRange(v, 0, 0x7FFFFFFF, options.debugFlags); }},
      {"--debug-file", [&](const char* v) { return (options.debugFile = v), true; }},
      {"--camera-file", [&](const char* v) { return (options.cameraFile = v), true; }},
      {"--sysversion", [&](const char* v) { return (options.sysVersionFile = v), true; }},
      {"--camera", [&](const char* v) { return (options.camera = v), !options.camera.empty(); }},
      {"--display-image", [&](const char* v) { return (options.displayImage = v), !options.displayImage.empty(); }},
  };
  for (int i = 1; i < argc; ++i) {
    std::string name = argv[i];
    if (name == "--help" || name == "-h") {
      fputs(kUsage, stdout);
      exitCode = 0;
      return std::nullopt;
    }
    auto setter = setters.find(name);
    if (setter == setters.end()) {
      fprintf(stderr, "kavri-host: unknown option '%s'\n%s", argv[i], kUsage);
      exitCode = 2;
      return std::nullopt;
    }
    if (i + 1 >= argc || !setter->second(argv[i + 1])) {
      fprintf(stderr, "kavri-host: option %s needs a valid value\n", name.c_str());
      exitCode = 2;
      return std::nullopt;
    }
    ++i;
  }
  if (options.programs.back() != '/') options.programs += '/';  // the library uses it as a plain prefix
  return options;
}
