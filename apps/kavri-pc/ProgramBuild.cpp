#include "ProgramBuild.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

extern char** environ;

const std::array<const char*, kServiceCount> kServiceNames = {
    "BluetoothGetSelfRadioCallNumber", "BluetoothMaintenance", "BluetoothSendMessage",
    "BluetoothSetReceiveCallback", "BluetoothSetup", "CameraSetup", "DisplaySetup", "CheckTimeSliceCanContinue",
    "FL48_Abs", "FL48_Acos", "FL48_Acos360", "FL48_Add", "FL48_Asin", "FL48_Asin360", "FL48_Atan",
    "FL48_Atan360", "FL48_ConvFromShort", "FL48_ConvToShort", "FL48_ConvToTextRP", "FL48_Cos", "FL48_Cos360",
    "FL48_Div", "FL48_Exp", "FL48_Exp10", "FL48_IsEqual", "FL48_IsGreater", "FL48_IsGreaterEqual", "FL48_IsLess",
    "FL48_IsLessEqual", "FL48_IsNotEqual", "FL48_Ln", "FL48_Log10", "FL48_Mul", "FL48_Sin", "FL48_Sin360",
    "FL48_Sqrt", "FL48_Sub", "FL48_Tan", "FL48_Tan360", "I2C_Read", "I2C_Setup", "I2C_Write", "TextGrph_ClearHome",
    "TextGrph_DrawLine", "TextGrph_DrawRectangle", "TextGrph_DrawRectangleBlack", "TextGrph_DrawRectangleDotted",
    "TextGrph_DrawRectangleWhite", "TextGrph_DrawSliderFocusHor", "TextGrph_DrawSliderFocusVert",
    "TextGrph_DrawSliderHor", "TextGrph_DrawSliderVert", "TextGrph_GotoXY", "TextGrph_HandleSlider",
    "TextGrph_Intl", "TextGrph_PrintArrayS2", "TextGrph_PrintArrayUC", "TextGrph_PrintInvArrayUC",
    "TextGrph_Update",
};

namespace {

std::string Hex(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::string Quoted(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

class TempDirectory {
 public:
  TempDirectory() {
    char pattern[] = "/tmp/kavri-build-XXXXXX";
    if (!mkdtemp(pattern)) throw BuildError(std::string("cannot make a work folder: ") + strerror(errno));
    path_ = pattern;
  }
  ~TempDirectory() {
    std::string command = "rm -rf '" + path_ + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "kavri-pc: cannot remove %s\n", path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary);
  file << contents;
  if (!file.flush()) throw BuildError("cannot write " + path);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

// Runs one tool with its output going to `log`; the tool's own messages
// become the error when it fails.
void RunTool(const std::vector<std::string>& command, const std::string& log, bool verbose) {
  if (verbose) printf("%s\n", Quoted(command).c_str());
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t child;
  int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0)
    throw BuildError("cannot run " + command[0] + ": " + strerror(error) +
                     " (Debian's gcc-arm-linux-gnueabihf package provides it)");
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw BuildError(Quoted(command) + " failed:\n" + ReadFile(log));
  if (verbose) fputs(ReadFile(log).c_str(), stdout);
}

bool EndsWith(const std::string& text, const char* tail) {
  size_t length = strlen(tail);
  return text.size() >= length && text.compare(text.size() - length, length, tail) == 0;
}

bool IsLinkedAsIs(const std::string& source) { return EndsWith(source, ".o") || EndsWith(source, ".a"); }

}  // namespace

std::string DefaultProgramIncludeDir() {
  const char* fromEnvironment = getenv("KAVRI_PROGRAM_INCLUDE");
  if (fromEnvironment && *fromEnvironment) return fromEnvironment;
  return KAVRI_PROGRAM_INCLUDE_DIR;
}

const std::vector<std::string>& ProgramCompileFlags() {
  // No C library, code fixed at the run area's address, nothing the image
  // cannot carry (unwind tables, stack guards), and one section per function
  // so that unused code and stubs are dropped.
  static const std::vector<std::string> flags = {
      "-std=gnu11", "-O2", "-ffreestanding", "-march=armv7-a", "-mfpu=vfpv3-d16", "-mfloat-abi=hard",
      "-fno-pic", "-fno-pie", "-fno-stack-protector", "-fno-unwind-tables", "-fno-asynchronous-unwind-tables",
      "-ffunction-sections", "-fdata-sections", "-fno-common", "-Wall", "-Wextra"};
  return flags;
}

std::string ServiceStubsAssembly(const ControllerLinkInfo& controller) {
  // An ARM-mode load into pc reaches both ARM and Thumb services from any
  // distance, which a branch with a fixed target would not.
  std::string text = "@ Services of the controller this image is built for.\n";
  for (size_t slot = 0; slot < kServiceCount; ++slot) {
    std::string name = kServiceNames[slot];
    text += "  .section .text.kavri." + name + ",\"ax\",%progbits\n  .arm\n  .p2align 2\n  .globl " + name +
            "\n  .type " + name + ", %function\n" + name + ":\n  ldr pc, [pc, #-4]\n  .word " +
            Hex(controller.services[slot]) + "\n";
  }
  return text + "  .section .note.GNU-stack,\"\",%progbits\n";
}

std::string ServicesLinkerScript(const ControllerLinkInfo& controller) {
  return "KAVRI_RUN_AREA = " + Hex(controller.runArea) + ";\nKavriTransArea = " + Hex(controller.transArea) + ";\n";
}

size_t BuildProgram(const ProgramBuildOptions& options, const ControllerLinkInfo& controller) {
  if (options.sources.empty()) throw BuildError("no sources to build");
  if (options.output.empty()) throw BuildError("no image file named (-o IMAGE)");
  std::string kit = options.includeDir + "/kavri-program";
  struct stat info;
  if (stat((kit + "/KavriProgram.ld").c_str(), &info) != 0)
    throw BuildError("no program kit in " + kit + " (set KAVRI_PROGRAM_INCLUDE or --include)");

  TempDirectory work;
  const std::string& dir = work.path();
  const std::string log = dir + "/tool.log";
  WriteFile(dir + "/kavri-services.S", ServiceStubsAssembly(controller));
  WriteFile(dir + "/kavri-services.ld", ServicesLinkerScript(controller));

  std::vector<std::string> compiled = {kit + "/KavriProgramStart.c", dir + "/kavri-services.S"};
  compiled.insert(compiled.end(), options.sources.begin(), options.sources.end());
  std::vector<std::string> objects;
  for (size_t i = 0; i < compiled.size(); ++i) {
    if (IsLinkedAsIs(compiled[i])) {
      objects.push_back(compiled[i]);
      continue;
    }
    std::string object = dir + "/" + std::to_string(i) + ".o";
    std::vector<std::string> command = {options.toolPrefix + "gcc"};
    command.insert(command.end(), ProgramCompileFlags().begin(), ProgramCompileFlags().end());
    command.insert(command.end(), options.compileFlags.begin(), options.compileFlags.end());
    command.insert(command.end(), {"-I" + options.includeDir, "-c", compiled[i], "-o", object});
    RunTool(command, log, options.verbose);
    objects.push_back(object);
  }

  std::string elf = dir + "/image.elf";
  std::vector<std::string> link = {options.toolPrefix + "gcc", "-nostdlib", "-static", "-no-pie",
                                   "-march=armv7-a", "-mfloat-abi=hard", "-Wl,--gc-sections",
                                   "-Wl,--build-id=none", "-Wl,--no-warn-rwx-segments",
                                   "-Wl,-T," + kit + "/KavriProgram.ld", "-L" + dir, "-o", elf};
  link.insert(link.end(), objects.begin(), objects.end());
  link.push_back("-lgcc");  // integer division and the like; no C library
  RunTool(link, log, options.verbose);
  RunTool({options.toolPrefix + "objcopy", "-O", "binary", elf, options.output}, log, options.verbose);

  if (stat(options.output.c_str(), &info) != 0) throw BuildError("the image " + options.output + " was not written");
  if (controller.runAreaSize && static_cast<uint64_t>(info.st_size) > controller.runAreaSize)
    throw BuildError("the image is larger than the run area");
  return static_cast<size_t>(info.st_size);
}
