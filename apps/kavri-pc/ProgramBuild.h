// The PC tool chain: compiles C programs with Debian's arm-linux-gnueabihf
// tools into flat images for one controller, with every service resolved to
// the address that controller reported.
#ifndef KAVRI_PC_PROGRAMBUILD_H
#define KAVRI_PC_PROGRAMBUILD_H

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

constexpr size_t kServiceCount = 59;

// Slot 1..59 of the controller's address table, in order.
extern const std::array<const char*, kServiceCount> kServiceNames;

// What an image must know of the controller it runs on.
struct ControllerLinkInfo {
  uint32_t runArea = 0;
  uint32_t runAreaSize = 0;
  uint32_t transArea = 0;
  std::array<uint32_t, kServiceCount> services{};
};

class BuildError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ProgramBuildOptions {
  std::vector<std::string> sources;  // .c and .S are compiled, .o and .a linked as they are
  std::string output;                // the flat image
  std::string includeDir;            // holds kavri-program/
  std::string toolPrefix = "arm-linux-gnueabihf-";
  std::vector<std::string> compileFlags;  // added after the defaults
  bool verbose = false;                   // print each tool's command line
};

// The folder that holds kavri-program/: $KAVRI_PROGRAM_INCLUDE, else the
// one this tool was built with.
std::string DefaultProgramIncludeDir();
// Compiler flags of every program source (without -I and -c).
const std::vector<std::string>& ProgramCompileFlags();

// One ARM stub per service that jumps to the controller's address, and the
// linker definitions of the run and transfer areas.
std::string ServiceStubsAssembly(const ControllerLinkInfo& controller);
std::string ServicesLinkerScript(const ControllerLinkInfo& controller);

// Builds the image; the size of the image in bytes. Throws BuildError with
// the tools' messages.
size_t BuildProgram(const ProgramBuildOptions& options, const ControllerLinkInfo& controller);

#endif
