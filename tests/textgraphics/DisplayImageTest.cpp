// Display images: files that decode back to the frame, replaced whole or not at all.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <zlib.h>

#include "DisplayImage.h"
#include "DisplayPixels.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t BigEndian32(const Bytes& b, size_t at) {
  return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}

struct Png {
  uint32_t width = 0, height = 0;
  uint8_t depth = 0, colourType = 0;
  Bytes palette, scanLines;
  uint32_t iendCrc = 0;
};

// Reads the chunks with zlib's CRC-32 and inflates the image data with
// zlib, which checks the stream's Adler-32.
Png ReadPng(const Bytes& file) {
  Png png;
  const Bytes signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  EXPECT_TRUE(std::equal(signature.begin(), signature.end(), file.begin()));
  Bytes compressed;
  for (size_t at = 8; at + 12 <= file.size();) {
    const uint32_t length = BigEndian32(file, at);
    const std::string type(file.begin() + at + 4, file.begin() + at + 8);
    const Bytes data(file.begin() + at + 8, file.begin() + at + 8 + length);
    const uint32_t crc = BigEndian32(file, at + 8 + length);
    EXPECT_EQ(crc, crc32(0, file.data() + at + 4, length + 4)) << type;
    if (type == "IHDR") {
      png.width = BigEndian32(data, 0);
      png.height = BigEndian32(data, 4);
      png.depth = data[8];
      png.colourType = data[9];
    } else if (type == "PLTE") {
      png.palette = data;
    } else if (type == "IDAT") {
      compressed.insert(compressed.end(), data.begin(), data.end());
    } else if (type == "IEND") {
      png.iendCrc = crc;
    }
    at += 12 + length;
  }
  png.scanLines.resize(size_t(png.height) * (1 + (png.width * png.depth + 7) / 8));
  uLongf size = png.scanLines.size();
  EXPECT_EQ(uncompress(png.scanLines.data(), &size, compressed.data(), compressed.size()), Z_OK);
  png.scanLines.resize(size);
  return png;
}

class DisplayImage : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "kavri-display-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir = pattern;
    for (int i = 0; i < 1024; ++i) frame[i] = static_cast<uint8_t>(i * 37 ^ i >> 4);
  }
  void TearDown() override {
    for (const std::string& name : Entries()) {
      const std::string path = dir + "/" + name;
      if (rmdir(path.c_str()) != 0) unlink(path.c_str());
    }
    rmdir(dir.c_str());
  }

  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
      while (dirent* e = readdir(d))
        if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
      closedir(d);
    }
    return names;
  }

  static Bytes Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
  }

  std::string dir;
  uint8_t frame[1024];
};

TEST_F(DisplayImage, PngShowsTheFrameScaledFourTimes) {
  const std::string path = dir + "/frame.png";
  ASSERT_TRUE(WriteDisplayImage(frame, path.c_str()));
  const Png png = ReadPng(Read(path));
  EXPECT_EQ(png.width, 512u);
  EXPECT_EQ(png.height, 256u);
  EXPECT_EQ(png.depth, 1);
  EXPECT_EQ(png.colourType, 3);
  EXPECT_EQ(png.iendCrc, 0xAE426082u);
  ASSERT_EQ(png.palette.size(), 6u);
  EXPECT_GT(png.palette[0] + png.palette[1] + png.palette[2], png.palette[3] + png.palette[4] + png.palette[5])
      << "a set pixel is the darker colour";
  ASSERT_EQ(png.scanLines.size(), 256u * 65u);
  int mismatches = 0;
  for (int y = 0; y < 256; ++y) {
    const uint8_t* line = png.scanLines.data() + y * 65;
    EXPECT_EQ(line[0], 0) << "filter of line " << y;
    for (int x = 0; x < 512; ++x) mismatches += BitmapPixel(line + 1, 64, x, 0) != DisplayPixel(frame, x / 4, y / 4);
  }
  EXPECT_EQ(mismatches, 0);
}

TEST_F(DisplayImage, FormatFollowsTheFileName) {
  struct Case {
    const char* name;
    bool png;
  } cases[] = {{"a.png", true}, {"b.PNG", true}, {"c.pbm", false}, {"frame", false}, {"d.png.pbm", false}};
  for (const Case& c : cases) {
    const std::string path = dir + "/" + c.name;
    ASSERT_TRUE(WriteDisplayImage(frame, path.c_str())) << c.name;
    const Bytes file = Read(path);
    if (c.png) {
      EXPECT_EQ(file[1], 'P') << c.name;
      continue;
    }
    const std::string header = "P4\n128 64\n";
    ASSERT_EQ(file.size(), header.size() + 1024) << c.name;
    EXPECT_EQ(std::string(file.begin(), file.begin() + header.size()), header) << c.name;
    EXPECT_TRUE(std::equal(frame, frame + 1024, file.begin() + header.size())) << c.name;
  }
}

TEST_F(DisplayImage, ReplacingAnImageLeavesOnlyTheNewFile) {
  const std::string path = dir + "/frame.pbm";
  ASSERT_TRUE(WriteDisplayImage(frame, path.c_str()));
  frame[0] = 0xA5;
  ASSERT_TRUE(WriteDisplayImage(frame, path.c_str()));
  EXPECT_EQ(Read(path)[10], 0xA5);
  EXPECT_EQ(Entries(), std::vector<std::string>{"frame.pbm"});
}

TEST_F(DisplayImage, FailuresSaySoAndLeaveNothingBehind) {
  const std::string occupied = dir + "/occupied.png";
  ASSERT_EQ(mkdir(occupied.c_str(), 0755), 0);
  struct Case {
    const char* what;
    std::string path;
    const uint8_t* frame;
  } cases[] = {
      {"missing directory", dir + "/missing/frame.png", frame},
      {"a directory in the way", occupied, frame},
      {"no frame", dir + "/frame.png", nullptr},
      {"empty path", "", frame},
  };
  for (const Case& c : cases) {
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(WriteDisplayImage(c.frame, c.path.c_str())) << c.what;
    EXPECT_EQ(::testing::internal::GetCapturedStderr().rfind("ERROR", 0), 0u) << c.what;
    EXPECT_EQ(Entries(), std::vector<std::string>{"occupied.png"}) << c.what;
  }
  struct stat st;
  ASSERT_EQ(stat(occupied.c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

}  // namespace
