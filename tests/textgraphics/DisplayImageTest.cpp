// Display images: files that decode back to the frame, replaced whole or not at all.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "DisplayImage.h"
#include "DisplayPixels.h"
#include "PngChunks.h"

namespace {

using Bytes = std::vector<uint8_t>;

class DisplayImage : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    for (int i = 0; i < 1024; ++i) frame[i] = uint8_t(i * 37 ^ i >> 4);
  }
  void TearDown() override {
    for (const std::string& name : Entries())
      if (rmdir((dir + "/" + name).c_str()) != 0) unlink((dir + "/" + name).c_str());
    rmdir(dir.c_str());
  }
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    while (dirent* e = d ? readdir(d) : nullptr)
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    if (d) closedir(d);
    return names;
  }
  Bytes Read(const std::string& name) const {
    std::ifstream in(dir + "/" + name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
  }
  bool Write(const std::string& name) { return WriteDisplayImage(frame, (dir + "/" + name).c_str()); }

  std::string dir = ::testing::TempDir() + "kavri-display-XXXXXX";
  uint8_t frame[1024];
};

TEST_F(DisplayImage, PngShowsTheFrameScaledFourTimes) {
  ASSERT_TRUE(Write("frame.png"));
  auto chunks = PngChunks(Read("frame.png"), 256 * 65);
  const Bytes &header = chunks["IHDR"], &palette = chunks["PLTE"], &lines = chunks["rows"];
  EXPECT_EQ(chunks.count("IEND"), 1u);
  // 512 x 256, 1 bit a pixel, palette colours; a set pixel is the darker one.
  ASSERT_EQ(header.size(), 13u);
  EXPECT_EQ(Bytes(header.begin(), header.begin() + 10), (Bytes{0, 0, 2, 0, 0, 0, 1, 0, 1, 3}));
  ASSERT_EQ(palette.size(), 6u);
  EXPECT_GT(palette[0] + palette[1] + palette[2], palette[3] + palette[4] + palette[5]);
  ASSERT_EQ(lines.size(), 256u * 65u);
  int mismatches = 0;
  for (int y = 0; y < 256; ++y) {
    mismatches += lines[y * 65] != 0;  // no filter
    for (int x = 0; x < 512; ++x)
      mismatches += BitmapPixel(&lines[y * 65 + 1], 64, x, 0) != DisplayPixel(frame, x / 4, y / 4);
  }
  EXPECT_EQ(mismatches, 0);
}

// Any other name is a PBM of the frame; writing again replaces the file whole.
TEST_F(DisplayImage, OtherNamesArePbmAndReplaceTheirFile) {
  const std::string header = "P4\n128 64\n";
  for (const char* name : {"a.PNG", "c.pbm", "frame", "d.png.pbm", "c.pbm"}) {
    ++frame[0];
    ASSERT_TRUE(Write(name)) << name;
    const Bytes file = Read(name), pbm(file.begin() + std::min(file.size(), header.size()), file.end());
    if (name[1] == '.' && name[2] == 'P') {
      EXPECT_EQ(file.at(1), 'P') << "a png, whatever the case";
      continue;
    }
    EXPECT_EQ(std::string(file.begin(), file.end() - long(pbm.size())), header) << name;
    EXPECT_EQ(pbm, Bytes(frame, frame + 1024)) << name;
  }
  EXPECT_EQ(Entries().size(), 4u) << "no temporary file left behind";
}

TEST_F(DisplayImage, FailuresSaySoAndLeaveNothingBehind) {
  ASSERT_EQ(mkdir((dir + "/occupied.png").c_str(), 0755), 0);
  const struct { const char* what; std::string path; const uint8_t* frame; } cases[] = {
      {"missing directory", dir + "/missing/frame.png", frame},
      {"a directory in the way", dir + "/occupied.png", frame},
      {"no frame", dir + "/frame.png", nullptr},
      {"empty path", "", frame},
  };
  for (const auto& c : cases) {
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(WriteDisplayImage(c.frame, c.path.c_str())) << c.what;
    EXPECT_EQ(::testing::internal::GetCapturedStderr().rfind("ERROR", 0), 0u) << c.what;
    EXPECT_EQ(Entries(), std::vector<std::string>{"occupied.png"}) << c.what;
  }
  struct stat st;
  EXPECT_TRUE(stat((dir + "/occupied.png").c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

}  // namespace
