// The PC tool chain on its own: images for a made-up controller, checked
// word by word, and the tool chain's failures as the user sees them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ProgramBuild.h"

namespace {

constexpr uint32_t kRunArea = 0x40800000;
constexpr uint32_t kLoadPcWord = 0xe51ff004;  // ldr pc, [pc, #-4]

ControllerLinkInfo MadeUpController() {
  ControllerLinkInfo info;
  info.runArea = kRunArea;
  info.runAreaSize = 0x400000;
  info.transArea = 0x3f000000;
  for (size_t slot = 0; slot < kServiceCount; ++slot) info.services[slot] = 0x10000001 + 0x100 * slot;
  return info;
}

bool HaveToolChain() { return system("arm-linux-gnueabihf-gcc --version > /dev/null 2>&1") == 0; }

class ProgramBuild : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HaveToolChain()) {
      GTEST_SKIP() << "arm-linux-gnueabihf-gcc is not installed (scripts/setup.sh installs it)";
    }
    char pattern[] = "/tmp/kavri-buildtest-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) {
      EXPECT_EQ(system(("rm -rf " + dir_).c_str()), 0);
    }
  }

  // Builds `source` for the made-up controller; the image as words.
  std::vector<uint32_t> Build(const std::string& source) {
    std::string path = dir_ + "/program.c";
    std::ofstream(path) << "#include <kavri-program/KavriProgram.h>\n" << source;
    ProgramBuildOptions options;
    options.sources = {path};
    options.output = dir_ + "/program.img";
    options.includeDir = DefaultProgramIncludeDir();
    size_t size = BuildProgram(options, MadeUpController());
    std::ifstream image(options.output, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(image)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.size(), size);
    std::vector<uint32_t> words((bytes.size() + 3) / 4);
    memcpy(words.data(), bytes.data(), bytes.size());
    return words;
  }

  static bool HasStubFor(const std::vector<uint32_t>& words, uint32_t address) {
    for (size_t i = 0; i + 1 < words.size(); ++i)
      if (words[i] == kLoadPcWord && words[i + 1] == address) return true;
    return false;
  }

  std::string dir_;
};

TEST_F(ProgramBuild, ImageHeadsForTheSliceFromOffset12) {
  std::vector<uint32_t> words = Build("int32_t KavriSlice(void) { return 5; }\n");
  ASSERT_GE(words.size(), 6u);
  EXPECT_EQ(words[0], 0x5052564bu);  // "KVRP"
  EXPECT_EQ(words[1], words.size() * 4);
  EXPECT_EQ(words[2], kRunArea);
  EXPECT_EQ(words[3], kLoadPcWord);
  uint32_t slice = words[4] & ~1u;  // bit 0 marks Thumb code
  EXPECT_GE(slice, kRunArea + 20);
  EXPECT_LT(slice, kRunArea + words.size() * 4);
}

TEST_F(ProgramBuild, ServicesJumpToTheControllersAddressesAndUnusedOnesAreLeftOut) {
  std::vector<uint32_t> words = Build(
      "static FL48 x;\n"
      "int32_t KavriSlice(void) { FL48_Add(&x, &x); return TextGrph_Update() + KavriTransArea.InputValues[0]; }\n");
  ControllerLinkInfo controller = MadeUpController();
  EXPECT_TRUE(HasStubFor(words, controller.services[11])) << "FL48_Add";
  EXPECT_TRUE(HasStubFor(words, controller.services[58])) << "TextGrph_Update";
  EXPECT_FALSE(HasStubFor(words, controller.services[0])) << "a service the program never calls";
}

TEST_F(ProgramBuild, ZeroedDataTravelsInTheImage) {
  // The run area behind the code holds breakpoints, not zeros.
  std::vector<uint32_t> words = Build(
      "static uint32_t counts[4096];\n"
      "int32_t KavriSlice(void) { return (int32_t)++counts[KavriTransArea.InputValues[0]]; }\n");
  ASSERT_GT(words.size(), 4096u);
  EXPECT_EQ(words[1], words.size() * 4);
  size_t zeros = 0;
  for (uint32_t word : words) zeros += word == 0;
  EXPECT_GE(zeros, 4096u);
}

TEST_F(ProgramBuild, ToolChainFailuresCarryTheToolsMessages) {
  struct Case {
    const char* what;
    const char* source;
    const char* message;
  } cases[] = {
      {"syntax error", "int32_t KavriSlice(void) { return }\n", "error"},
      {"no slice", "int32_t Other(void) { return 0; }\n", "KavriSlice"},
      {"larger than the run area", "volatile uint8_t big[5 << 20] = {1};\nint32_t KavriSlice(void) { return big[9]; }\n",
       "does not fit"},
  };
  for (const Case& c : cases) {
    try {
      Build(c.source);
      ADD_FAILURE() << c.what << ": built";
    } catch (const BuildError& error) {
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << c.what << ": " << error.what();
    }
  }
}

TEST_F(ProgramBuild, ExamplesBuild) {
  for (const char* example : {"blink.c", "sine_table.c", "camera_counter.c"}) {
    ProgramBuildOptions options;
    options.sources = {std::string(KAVRI_EXAMPLES_DIR) + "/" + example};
    options.output = dir_ + "/example.img";
    options.includeDir = DefaultProgramIncludeDir();
    options.compileFlags = {"-Werror"};
    EXPECT_NO_THROW(BuildProgram(options, MadeUpController())) << example;
  }
}

TEST_F(ProgramBuild, MissingInputsAreNamed) {
  ProgramBuildOptions options;
  options.includeDir = DefaultProgramIncludeDir();
  options.output = dir_ + "/x.img";
  EXPECT_THROW(BuildProgram(options, MadeUpController()), BuildError);
  options.sources = {dir_ + "/none.c"};
  options.includeDir = dir_;
  try {
    BuildProgram(options, MadeUpController());
    ADD_FAILURE() << "built without the program kit";
  } catch (const BuildError& error) {
    EXPECT_NE(std::string(error.what()).find("no program kit"), std::string::npos) << error.what();
  }
}

}  // namespace
