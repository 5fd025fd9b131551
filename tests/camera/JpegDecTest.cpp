// Motion-JPEG frames made by libjpeg from known YUYV images, decoded back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "JpegReference.h"
#include "TestImages.h"
#include "camera_devices/JpegFrames.h"
#include "kavri/Camera.h"

using camera_devices::Bytes;
using camera_devices::EncodeYuyvJpeg;
using camera_devices::JpegLayout;

namespace {

constexpr uint8_t kUnwritten = 0xA5;
constexpr size_t kGuardBytes = 4096;

// Output with the documented room for a picture plus guard bytes behind it,
// all marked as unwritten.
struct GuardedOutput {
  size_t bound;
  std::vector<uint8_t> bytes;
  GuardedOutput(int width, int height)
      : bound(CameraDecodedAllocation(width, height)), bytes(bound + kGuardBytes, kUnwritten) {}
  bool GuardIntact() const {
    return std::all_of(bytes.begin() + long(bound), bytes.end(), [](uint8_t b) { return b == kUnwritten; });
  }
  bool Untouched() const {
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == kUnwritten; });
  }
};

int Decode(Bytes& jpeg, GuardedOutput& output, int outputSize) {
  return xoProJpegDec(jpeg.data(), int(jpeg.size()), output.bytes.data(), outputSize);
}

int LargestDifference(const uint8_t* a, const uint8_t* b, size_t count) {
  int largest = 0;
  for (size_t i = 0; i < count; ++i) largest = std::max(largest, abs(int(a[i]) - int(b[i])));
  return largest;
}

struct Size {
  int width, height;
};

// The same frame decoded by libjpeg's scan-line path to full-size YCbCr
// (chroma repeated for both pixels of a pair), then packed pair by pair.
Bytes ScanLineYuyv(Bytes& jpeg) {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  StartReferenceDecode(info, errors, jpeg, false);
  const JDIMENSION width = info.output_width;
  Bytes line(width * 3), yuyv;
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = line.data();
    jpeg_read_scanlines(&info, &row, 1);
    for (JDIMENSION x = 0; x < width; x += 2)
      yuyv.insert(yuyv.end(), {line[3 * x], line[3 * x + 1], line[3 * x + 3], line[3 * x + 2]});
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return yuyv;
}

// The decoder's bands and vector interleave give exactly libjpeg's own
// scan-line image.
TEST(CameraDecodeTest, CleanPicturesDecodeToLibjpegsImageAndStayInBounds) {
  // 240 fills exactly width x height x 2; 20 spills into a fourth band; 330
  // is not a whole number of blocks wide, and its rows end within a vector.
  for (Size size : {Size{320, 240}, Size{64, 48}, Size{48, 20}, Size{330, 100}}) {
    SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
    Bytes yuyv = GradientYuyv(size.width, size.height);
    Bytes jpeg = EncodeYuyvJpeg(yuyv.data(), size.width, size.height, 95);
    GuardedOutput output(size.width, size.height);
    ASSERT_EQ(1, Decode(jpeg, output, int(output.bound)));
    EXPECT_LE(LargestDifference(output.bytes.data(), yuyv.data(), yuyv.size()), 8);
    const Bytes reference = ScanLineYuyv(jpeg);
    EXPECT_TRUE(std::equal(reference.begin(), reference.end(), output.bytes.begin()));
    EXPECT_TRUE(output.GuardIntact());
  }
}

TEST(CameraDecodeTest, PixelPairsAreInterleavedAsLuminanceBlueLuminanceRed) {
  // Flat chroma planes with distinct values tell the four byte positions apart.
  Bytes yuyv(16 * 8 * 2);
  for (size_t i = 0; i < yuyv.size(); i += 4) {
    yuyv[i] = 50;
    yuyv[i + 1] = 100;
    yuyv[i + 2] = 150;
    yuyv[i + 3] = 200;
  }
  Bytes jpeg = EncodeYuyvJpeg(yuyv.data(), 16, 8, 100);
  GuardedOutput output(16, 8);
  ASSERT_EQ(1, Decode(jpeg, output, int(yuyv.size())));
  EXPECT_LE(LargestDifference(output.bytes.data(), yuyv.data(), yuyv.size()), 30);
  for (size_t i = 0; i < yuyv.size(); i += 4) {
    EXPECT_NEAR(output.bytes[i + 1], 100, 3) << "Cb at " << i;
    EXPECT_NEAR(output.bytes[i + 3], 200, 3) << "Cr at " << i;
  }
}

struct RejectCase {
  const char* name;
  Bytes frame;
  int outputSize;
  bool writesNothing;  // rejected before decoding started
};

TEST(CameraDecodeTest, BadFramesGiveZeroWithoutWritingPastTheBound) {
  constexpr int kWidth = 64, kHeight = 48, kImageBytes = kWidth * kHeight * 2;
  Bytes yuyv = GradientYuyv(kWidth, kHeight);
  Bytes good = EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight);
  Bytes large = GradientYuyv(2 * kWidth, kHeight);
  // 14 x 219 has fewer pixels than the output, but its last band spills 5
  // rows past it.
  Bytes narrow = GradientYuyv(14, 219);
  std::vector<RejectCase> cases = {
      {"truncated", Bytes(good.begin(), good.begin() + long(good.size() / 2)), kImageBytes, false},
      {"zero length", Bytes(), kImageBytes, true},
      {"random bytes", camera_devices::UndecodableFrame(), kImageBytes, true},
      {"4:2:0", EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight, 90, JpegLayout::Yuv420), kImageBytes, true},
      {"greyscale", EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight, 90, JpegLayout::Grey), kImageBytes, true},
      {"larger than the output", EncodeYuyvJpeg(large.data(), 2 * kWidth, kHeight), kImageBytes, true},
      {"bands larger than the output", EncodeYuyvJpeg(narrow.data(), 14, 219), kImageBytes, true},
  };
  for (RejectCase& c : cases) {
    SCOPED_TRACE(c.name);
    GuardedOutput output(kWidth, kHeight);
    EXPECT_EQ(0, Decode(c.frame, output, c.outputSize));
    EXPECT_TRUE(output.GuardIntact());
    if (c.writesNothing) {
      EXPECT_TRUE(output.Untouched());
    }
  }
}

// The room the capture thread allocates: whole 8-row bands, and nothing the
// decoder's int size cannot describe.
TEST(CameraDecodeTest, DecodedAllocationCoversWholeBandsOrIsRefused) {
  struct Case {
    int32_t width, height;
    size_t bytes;
  };
  const Case cases[] = {
      {320, 240, 153600},       {48, 20, 2304},   {2, 1, 32},         {0, 240, 0},
      {320, 0, 0},              {-2, 8, 0},       {268435458, 1, 0},  {46342, 46342, 0},
      {2, 536870904, 2147483616}, {2, 536870905, 0},
  };
  for (const Case& c : cases)
    EXPECT_EQ(CameraDecodedAllocation(c.width, c.height), c.bytes) << c.width << "x" << c.height;
}

TEST(CameraDecodeTest, RecoverableCorruptionFillsThePictureButGivesZero) {
  Bytes yuyv = GradientYuyv(64, 48);
  Bytes damaged = camera_devices::CorruptRecoverably(EncodeYuyvJpeg(yuyv.data(), 64, 48));
  GuardedOutput output(64, 48);
  EXPECT_EQ(0, Decode(damaged, output, int(yuyv.size())));
  auto unwritten = std::count(output.bytes.begin(), output.bytes.begin() + long(yuyv.size()), kUnwritten);
  EXPECT_LT(unwritten, long(yuyv.size() / 100));
  EXPECT_TRUE(output.GuardIntact());
}

}  // namespace
