// Motion-JPEG frames made by libjpeg from known YUYV images, decoded back.

#include <algorithm>
#include <cstdlib>

#include "JpegReference.h"
#include "YuyvCanvas.h"
#include "camera_devices/JpegFrames.h"

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
  for (auto [width, height] : {std::pair{320, 240}, {64, 48}, {48, 20}, {330, 100}}) {
    SCOPED_TRACE(testing::Message() << width << "x" << height);
    Bytes yuyv = GradientYuyv(width, height);
    Bytes jpeg = EncodeYuyvJpeg(yuyv.data(), width, height, 95);
    GuardedOutput output(width, height);
    ASSERT_EQ(1, Decode(jpeg, output, int(output.bound)));
    EXPECT_LE(LargestDifference(output.bytes.data(), yuyv.data(), yuyv.size()), 8);
    const Bytes reference = ScanLineYuyv(jpeg);
    EXPECT_TRUE(std::equal(reference.begin(), reference.end(), output.bytes.begin()));
    EXPECT_TRUE(output.GuardIntact());
  }
}

// A recoverably damaged frame decodes nearly all of the picture, yet gives 0.
TEST(CameraDecodeTest, BadFramesGiveZeroWithoutWritingPastTheBound) {
  constexpr int kWidth = 64, kHeight = 48, kImageBytes = kWidth * kHeight * 2;
  Bytes yuyv = GradientYuyv(kWidth, kHeight);
  Bytes good = EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight);
  Bytes large = GradientYuyv(2 * kWidth, kHeight);
  // 14 x 219 has fewer pixels than the output, but its last band spills 5
  // rows past it.
  Bytes narrow = GradientYuyv(14, 219);
  // How much of the picture a rejected frame may have written: nothing,
  // some or most of it.
  enum Written { kNothing, kSome, kMost };
  struct { const char* name; Bytes frame; Written written; } cases[] = {
      {"truncated", Bytes(good.begin(), good.begin() + long(good.size() / 2)), kSome},
      {"recoverably damaged", camera_devices::CorruptRecoverably(good), kMost},
      {"zero length", Bytes(), kNothing},
      {"random bytes", camera_devices::UndecodableFrame(), kNothing},
      {"4:2:0", EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight, 90, JpegLayout::Yuv420), kNothing},
      {"greyscale", EncodeYuyvJpeg(yuyv.data(), kWidth, kHeight, 90, JpegLayout::Grey), kNothing},
      {"larger than the output", EncodeYuyvJpeg(large.data(), 2 * kWidth, kHeight), kNothing},
      {"bands larger than the output", EncodeYuyvJpeg(narrow.data(), 14, 219), kNothing},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    GuardedOutput output(kWidth, kHeight);
    EXPECT_EQ(0, Decode(c.frame, output, kImageBytes));
    EXPECT_TRUE(output.GuardIntact());
    auto unwritten = std::count(output.bytes.begin(), output.bytes.begin() + kImageBytes, kUnwritten);
    EXPECT_TRUE(c.written != kNothing || output.Untouched());
    EXPECT_TRUE(c.written != kMost || unwritten < kImageBytes / 100) << unwritten;
  }
}

// The room the capture thread allocates: whole 8-row bands, and nothing the
// decoder's int size cannot describe.
TEST(CameraDecodeTest, DecodedAllocationCoversWholeBandsOrIsRefused) {
  struct Case {
    int32_t width, height;
    size_t bytes;
  };
  const Case cases[] = {{320, 240, 153600}, {48, 20, 2304},     {2, 1, 32},
                        {0, 240, 0},        {320, 0, 0},        {-2, 8, 0},
                        {268435458, 1, 0},  {46342, 46342, 0},  {2, 536870904, 2147483616},
                        {2, 536870905, 0}};
  for (const Case& c : cases)
    EXPECT_EQ(CameraDecodedAllocation(c.width, c.height), c.bytes) << c.width << "x" << c.height;
}

}  // namespace
