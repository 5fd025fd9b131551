// The colour field: average colour and brightness of a rectangle, in percent.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "CameraColor.h"
#include "CameraRegion.h"
#include "kavri/CameraAnalysisColor.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kDebugAnalyses = 2;

// 0..255 to 0..99: 255 must not reach 100.
int32_t Percent(int32_t value) { return (value * 100) >> 8; }

// Whole pixel pairs of the frame only. Init has aligned x already; a program
// that changes it later must not shift the pair walk past the row's end.
CameraRect PairAlignedInside(const CameraAnalysisColorField& field) {
  return CameraClipRect(CameraFloorEven(field.x), field.y, field.w, field.h, int32_t(CameraFloorEven(field.base.width)),
                        field.base.height);
}

// Each pixel pair read as one little-endian word Y0 Cb Y1 Cr and summed in two
// 16-bit lanes per word: Y0 and Y1 in one sum, Cb and Cr in the other. Two
// masks and two additions a pair, in plain integers, so the loop vectorises
// where there are vectors and still saves work where there are none.
constexpr int32_t kPairsPerLaneSum = 256;  // 256 x 255 still fits a lane

struct LaneSums {
  uint32_t luma;    // Y0 sum | Y1 sum << 16
  uint32_t chroma;  // Cb sum | Cr sum << 16
};

LaneSums SumPairs(const unsigned char* pairs, int32_t count) {
  uint32_t luma = 0, chroma = 0;
  for (int32_t i = 0; i < count; ++i) {
    uint32_t word;
    memcpy(&word, pairs + 4 * i, sizeof word);
    word = CameraLittleEndianWord(word);
    luma += word & 0x00FF00FF;
    chroma += (word >> 8) & 0x00FF00FF;
  }
  return {luma, chroma};
}

}  // namespace

void CameraAnalysisColorField::Init() {
  int64_t left = CameraFloorEven(x);
  int64_t right = CameraFloorEven(int64_t(x) + w);
  x = CameraSaturate(left);
  w = CameraSaturate(right - left);
  CameraReportRect("colour field", PairAlignedInside(*this), x, y, w, h, "its results are not written",
                   "only the part inside is measured");
}

void CameraAnalysisColorField::Uninit() {}

void CameraAnalysisColorField::Analyze(int index, const unsigned char* frame, const unsigned char*,
                                       const unsigned char*, int) {
  CameraRect inside = PairAlignedInside(*this);
  if (inside.Empty()) return;  // nothing to average: the results keep their values
  // 64-bit sums: a large frame would overflow 32 bits.
  int64_t sumY = 0, sumU = 0, sumV = 0;
  // A width made odd after Init still walks whole pairs; the right edge is
  // even, so the extra pixel lies inside the frame.
  int32_t pairs = (inside.Width() - 1) / 2 + 1;
  for (int32_t row = inside.top; row < inside.bottom; ++row) {
    const unsigned char* pair = frame + (int64_t(row) * base.width + inside.left) * 2;
    for (int32_t done = 0; done < pairs; done += kPairsPerLaneSum) {
      LaneSums lanes = SumPairs(pair + 4 * done, std::min(kPairsPerLaneSum, pairs - done));
      sumY += (lanes.luma & 0xFFFF) + (lanes.luma >> 16);
      sumU += 2 * int64_t(lanes.chroma & 0xFFFF);
      sumV += 2 * int64_t(lanes.chroma >> 16);
    }
  }
  int64_t n = int64_t(inside.Width()) * inside.Height();
  int32_t meanY = int32_t(sumY / n), meanU = int32_t(sumU / n) - 128, meanV = int32_t(sumV / n) - 128;
  CameraRgb rgb = CameraYuvToRgbCentred(meanY, meanU, meanV);
  int32_t red = Percent(rgb.red), green = Percent(rgb.green), blue = Percent(rgb.blue);
  int32_t grey = (red + green + blue) / 3;
  CameraStoreResult(brightnessVar, grey);
  CameraStoreResult(redVar, red);
  CameraStoreResult(greenVar, green);
  CameraStoreResult(blueVar, blue);
  if (DebugFlags & kDebugAnalyses)
    fprintf(DebugFile, "CF%d bw=%d rgb=%d/%d/%d yuv=%d/%d/%d\n", index, grey, red, green, blue, meanY, meanU, meanV);
}
