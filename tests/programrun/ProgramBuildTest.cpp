// The PC tool chain on its own: images for a made-up controller, checked
// word by word, and the tool chain's failures as the user sees them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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

class ProgramBuild : public ::testing::Test {
 protected:
  void SetUp() override {
    if (system("arm-linux-gnueabihf-gcc --version > /dev/null 2>&1") != 0)
      GTEST_SKIP() << "arm-linux-gnueabihf-gcc is not installed (scripts/setup.sh installs it)";
    char pattern[] = "/tmp/kavri-buildtest-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    options_.output = dir_ + "/program.img";
    options_.includeDir = DefaultProgramIncludeDir();
  }
  void TearDown() override {
    if (!dir_.empty()) {
      EXPECT_EQ(system(("rm -rf " + dir_).c_str()), 0);
    }
  }

  // Builds `source` (none if null) for the made-up controller; the image as words.
  std::vector<uint32_t> Build(const char* source) {
    if (source) {
      options_.sources = {dir_ + "/program.c"};
      std::ofstream(options_.sources[0]) << "#include <kavri-program/KavriProgram.h>\n" << source;
    }
    size_t size = BuildProgram(options_, MadeUpController());
    std::ifstream image(options_.output, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(image)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.size(), size);
    std::vector<uint32_t> words((bytes.size() + 3) / 4);
    memcpy(words.data(), bytes.data(), bytes.size());
    return words;
  }

  std::string dir_;
  ProgramBuildOptions options_;
};

bool HasStubFor(const std::vector<uint32_t>& words, uint32_t address) {
  for (size_t i = 0; i + 1 < words.size(); ++i)
    if (words[i] == kLoadPcWord && words[i + 1] == address) return true;
  return false;
}

TEST_F(ProgramBuild, ImageHeadsForTheSliceAndReachesServicesByTheirAddresses) {
  std::vector<uint32_t> words = Build(
      "static FL48 x;\n"
      "static uint32_t counts[4096];  /* zeroed data: the run area behind the code holds breakpoints */\n"
      "int32_t KavriSlice(void) {\n"
      "  FL48_Add(&x, &x);\n"
      "  return TextGrph_Update() + (int32_t)++counts[KavriTransArea.InputValues[0]];\n"
      "}\n");
  ASSERT_GT(words.size(), 4096u);
  EXPECT_EQ(words[0], 0x5052564bu);  // "KVRP"
  EXPECT_EQ(words[1], words.size() * 4);
  EXPECT_EQ(words[2], kRunArea);
  EXPECT_EQ(words[3], kLoadPcWord);
  uint32_t slice = words[4] & ~1u;  // bit 0 marks Thumb code
  EXPECT_GE(slice, kRunArea + 20);
  EXPECT_LT(slice, kRunArea + words.size() * 4);
  ControllerLinkInfo controller = MadeUpController();
  EXPECT_TRUE(HasStubFor(words, controller.services[11])) << "FL48_Add";
  EXPECT_TRUE(HasStubFor(words, controller.services[58])) << "TextGrph_Update";
  EXPECT_FALSE(HasStubFor(words, controller.services[0])) << "a service the program never calls";
  EXPECT_GE(std::count(words.begin(), words.end(), 0u), 4096);
}

TEST_F(ProgramBuild, FailuresCarryTheToolsMessages) {
  struct Case {
    const char* what;
    const char* source;  // null: no sources at all
    bool withoutKit;
    const char* message;
  } cases[] = {
      {"syntax error", "int32_t KavriSlice(void) { return }\n", false, "error"},
      {"no slice", "int32_t Other(void) { return 0; }\n", false, "KavriSlice"},
      {"larger than the run area",
       "volatile uint8_t big[5 << 20] = {1};\nint32_t KavriSlice(void) { return big[9]; }\n", false,
       "does not fit"},
      {"no sources", nullptr, false, "no sources"},
      {"no program kit", "int32_t KavriSlice(void) { return 0; }\n", true, "no program kit"},
  };
  for (const Case& c : cases) {
    options_.sources.clear();
    options_.includeDir = c.withoutKit ? dir_ : DefaultProgramIncludeDir();
    try {
      Build(c.source);
      ADD_FAILURE() << c.what << ": built";
    } catch (const BuildError& error) {
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << c.what << ": " << error.what();
    }
  }
}

TEST_F(ProgramBuild, ExamplesBuildWithoutWarnings) {
  options_.compileFlags = {"-Werror"};
  for (const char* example : {"blink.c", "sine_table.c", "camera_counter.c"}) {
    options_.sources = {std::string(KAVRI_EXAMPLES_DIR) + "/" + example};
    EXPECT_NO_THROW(BuildProgram(options_, MadeUpController())) << example;
  }
}

}  // namespace
