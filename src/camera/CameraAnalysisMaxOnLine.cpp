// The first-generation line finder: one stripe on a scan line, found as the
// strongest plateau of line-ness that stands out from the floor on both sides.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CameraScanLine.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

namespace {

// Full scale of the thresholds: the box filter's five samples of 255.
constexpr int32_t kFullScale = 1275;
// The box filter and the end mark need this many samples to stay inside
// the buffers.
constexpr int64_t kMinSamples = 6;
// Work buffers: value, red, green, blue, eroded, and the floor's minimums.
constexpr int kBuffers = 6;

int32_t Percent(int32_t percent) { return CameraMul32(percent, kFullScale) / 100; }
int32_t OfFullScale(int32_t value) { return CameraMul32(value, 100) / kFullScale; }

// Brightness and channel shares of a candidate, for the colour check.
struct Shares {
  int32_t w, r, g, b;
};

// Five-sample sums, in place; the entry after the last whole sum marks the
// end for the edge search.
KAVRI_CAMERA_INLINE void BoxFilter(int32_t* buffer, int32_t count) {
  for (int32_t i = 0; i + 4 < count; ++i) buffer[i] += buffer[i + 1] + buffer[i + 2] + buffer[i + 3] + buffer[i + 4];
  buffer[count - 4] = -1;
}

// out[j] = minimum of in[j .. j+width-1] for j = 0 .. places-1; out holds
// places + width - 2 entries. Minimums of 2, 4, 8 ... entries are built in
// place, and two overlapping windows of the largest power of two that fits
// make up the width: log(width) passes, each of which vectorises.
KAVRI_CAMERA_INLINE void WindowMinimums(const int32_t* in, int64_t places, int32_t width, int32_t* out) {
  if (width == 1) {
    std::copy(in, in + places, out);
    return;
  }
  const int64_t length = places + width - 1;
  for (int64_t j = 0; j + 1 < length; ++j) out[j] = std::min(in[j], in[j + 1]);
  int32_t span = 2;
  for (; 2 * span <= width; span *= 2)
    for (int64_t j = 0; j + 2 * span <= length; ++j) out[j] = std::min(out[j], out[j + span]);
  const int32_t shift = width - span;
  for (int64_t j = 0; j < places; ++j) out[j] = std::min(out[j], out[j + shift]);
}

// Places of the search looked at together for candidates.
constexpr int kPlaces = 256;

// Which of count places pass the tests that do not depend on the best peak
// so far: a local maximum of the eroded values, at the peak threshold, and
// standing out from the floor on both sides. Pure and branch-free, so that
// it vectorises; the search then visits only the places that pass.
KAVRI_CAMERA_INLINE void Candidates(const int32_t* eroded, const int32_t* floorLeft, const int32_t* floorRight,
                                    int count, int32_t peakMin, int32_t contrastMin, uint8_t* passes) {
  for (int i = 0; i < count; ++i) {
    const int32_t peak = eroded[i];
    passes[i] = (peak >= eroded[i - 1]) & (peak >= eroded[i + 1]) & (peak >= peakMin) &
                (peak - floorLeft[i] >= contrastMin) & (peak - floorRight[i] >= contrastMin);
  }
}

// Calls visit(k), in order, for the places h .. last that pass Candidates;
// floor[j] is the floor over value[j .. j+h-1].
template <typename Visit>
KAVRI_CAMERA_INLINE void ForCandidates(const int32_t* eroded, const int32_t* floor, int64_t h, int32_t wmin,
                                       int64_t last, int32_t peakMin, int32_t contrastMin, Visit visit) {
  uint8_t passes[kPlaces + 8];
  for (int64_t run = h; run <= last; run += kPlaces) {
    const int count = int(std::min<int64_t>(kPlaces, last - run + 1));
    Candidates(eroded + run, floor + (run - h), floor + (run + wmin), count, peakMin, contrastMin, passes);
    memset(passes + count, 0, 8);  // the last eight are read whole
    for (int i = 0; i < count; i += 8) {
      uint64_t eight;
      memcpy(&eight, passes + i, sizeof eight);
      if (!eight) continue;  // most hold no candidate
      for (int j = i; j < i + 8; ++j)
        if (passes[j]) visit(run + j);
    }
  }
}

// A channel's five-sample sum at i after the channel balance; only the
// colour check asks, at one place per candidate.
int32_t BalancedSum(const int32_t* channel, int64_t i, int32_t gain) {
  int32_t sum = 0;
  for (int t = 0; t < 5; ++t) sum += (channel[i + t] * gain) >> 8;
  return sum;
}

// floor(0.5 + v) as the controller's conversion gives it: out of range
// saturates, not a number gives 0.
int32_t SaturatingRound(float v) {
  const float rounded = std::floor(0.5f + v);
  if (rounded != rounded) return 0;
  if (rounded <= -2147483648.0f) return INT32_MIN;
  if (rounded >= 2147483648.0f) return INT32_MAX;
  return int32_t(rounded);
}

}  // namespace

void CameraAnalysisMaxOnLine::Init() {
  const int64_t count = CameraScanLineInit(*this);
  valueBuffer = redBuffer = greenBuffer = blueBuffer = erodedBuffer = nullptr;
  weightR = weightG = weightB = weightOffset = 0;
  if (count < kMinSamples || count > kCameraScanMaxSamples) {
    fprintf(stderr, "ERROR camera line record with a scan line of %lld samples (%lld to %lld taken)\n",
            (long long)count, (long long)kMinSamples, (long long)kCameraScanMaxSamples);
    return;
  }
  if (colorAxis) {
    int32_t dR = int32_t(lineColorR) - backgroundColorR, dG = int32_t(lineColorG) - backgroundColorG,
            dB = int32_t(lineColorB) - backgroundColorB;
    // Wrapping and saturating as on the controller: colours outside 0..255
    // overflow the squares, nearly equal ones the weighted floor colour.
    int32_t distance = CameraAdd32(CameraAdd32(CameraMul32(dR, dR), CameraMul32(dG, dG)), CameraMul32(dB, dB));
    if (distance == 0) {
      fprintf(stderr, "ERROR camera line record with equal line and floor colours\n");
      return;
    }
    // Single precision on purpose: the weights are part of the results.
    float scale = 65025.0f / float(distance) * 255.0f;
    weightR = SaturatingRound(float(dR) * scale);
    weightG = SaturatingRound(float(dG) * scale);
    weightB = SaturatingRound(float(dB) * scale);
    weightOffset = CameraSub32(0, CameraAdd32(CameraAdd32(CameraMul32(weightR, backgroundColorR),
                                                          CameraMul32(weightG, backgroundColorG)),
                                              CameraMul32(weightB, backgroundColorB)));
  } else if (brightLine) {
    weightR = weightG = weightB = 65536;
  } else {
    weightR = weightG = weightB = -65536;
    weightOffset = 765 * 65536;
  }
  // The buffers are allocated last, so that a record refused above holds
  // none. Two more than the record shows: the floor's window minimums and
  // their scratch.
  valueBuffer = CameraScanWork::Allocate(int32_t(count), kBuffers, int32_t(count));
  if (!valueBuffer) {
    fprintf(stderr, "ERROR camera line record: no memory for its buffers\n");
    return;
  }
  redBuffer = valueBuffer + count;
  greenBuffer = redBuffer + count;
  blueBuffer = greenBuffer + count;
  erodedBuffer = blueBuffer + count;
}

void CameraAnalysisMaxOnLine::Uninit() {
  CameraScanWork::Free(valueBuffer);
  valueBuffer = redBuffer = greenBuffer = blueBuffer = erodedBuffer = nullptr;
}

KAVRI_CAMERA_BUILT_TWICE void CameraAnalysisMaxOnLine::Analyze(int index, const unsigned char* frame, const unsigned char*, const unsigned char*,
                                      int) {
  const int32_t wmin = widthMin, h = CameraSub32(widthMax, widthMin) / 2;
  // A record Init refused, or whose sample count was changed after it,
  // behaves as one with unusable widths.
  if (!valueBuffer || CameraScanWork::Of(valueBuffer).Count() != sampleCount || wmin < 1 || h < 1) {
    CameraStoreResult(positionResult, -1);
    return;
  }
  const int32_t n = sampleCount;
  int32_t* const value = valueBuffer;

  // Sample, balance the channels on their medians, and weigh them into
  // line-ness. The channels stay unbalanced in their buffers: only the
  // colour check needs them balanced, at a few places.
  uint16_t histograms[3][256] = {};
  CameraScanSamples<true>(*this, CameraScanWork::Of(valueBuffer), frame,
                          [&](int32_t first, int count, const int32_t* luma, const int32_t* u, const int32_t* v) {
                            int32_t *red = redBuffer + first, *green = greenBuffer + first, *blue = blueBuffer + first;
                            for (int i = 0; i < count; ++i) {
                              const CameraRgb colour = CameraYuvToRgb(luma[i], u[i], v[i]);
                              red[i] = colour.red, green[i] = colour.green, blue[i] = colour.blue;
                            }
                            for (int i = 0; i < count; ++i) {
                              ++histograms[0][red[i]];
                              ++histograms[1][green[i]];
                              ++histograms[2][blue[i]];
                            }
                          });
  const int32_t gainR = CameraMedianGain(histograms[0], n), gainG = CameraMedianGain(histograms[1], n),
                gainB = CameraMedianGain(histograms[2], n);
  const int32_t wR = weightR, wG = weightG, wB = weightB, offset = weightOffset;
  for (int32_t i = 0; i < n; ++i) {
    // Close colours give weights large enough to wrap, as they do on the
    // controller.
    const uint32_t sum = uint32_t(wG) * uint32_t((greenBuffer[i] * gainG) >> 8) +
                         uint32_t(wR) * uint32_t((redBuffer[i] * gainR) >> 8) +
                         (uint32_t(wB) * uint32_t((blueBuffer[i] * gainB) >> 8) + uint32_t(offset));
    value[i] = int16_t(int32_t(sum) >> 16);
  }
  BoxFilter(value, n);

  // Erode by the narrowest width: a plateau survives only where it is at
  // least that wide. Bounds in 64 bits, as hostile widths reach past 32.
  const int64_t lastEroded = int64_t(n) - 3 - h - wmin, lastCandidate = int64_t(n) - 4 - wmin - h;
  if (lastEroded >= h - 1) WindowMinimums(value + (h - 1), lastEroded - (h - 1) + 1, wmin, erodedBuffer + (h - 1));
  // The floor on either side of candidate k is the minimum of the h values
  // before k, or of the h from k + wmin on: floor[j] covers value[j ..
  // j+h-1].
  int32_t* const floor = erodedBuffer + n;
  if (lastCandidate >= h) WindowMinimums(value, lastCandidate + wmin + 1, h, floor);

  const int32_t peakMin = Percent(peakThreshold), contrastMin = Percent(contrastThreshold);
  int32_t best = -2147483647, bestIndex = -1, bestLeft = 0, bestRight = 0;
  Shares recorded{-1, -1, -1, -1};
  bool colourRecorded = false;
  ForCandidates(erodedBuffer, floor, h, wmin, lastCandidate, peakMin, contrastMin, [&](int64_t k) KAVRI_CAMERA_LAMBDA {
    const int32_t peak = erodedBuffer[k];
    if (peak < best) return;  // ties go to the later peak
    const int32_t left = floor[k - h], right = floor[k + wmin];
    Shares shares{0, 0, 0, 0};
    if (colorCheck) {
      const int64_t centre = k + wmin / 2;
      shares = {-1, BalancedSum(redBuffer, centre, gainR) / 5, BalancedSum(greenBuffer, centre, gainG) / 5,
                BalancedSum(blueBuffer, centre, gainB) / 5};
      if (brightnessMax >= 0) {
        int32_t sum = shares.r + shares.g + shares.b;
        shares = sum ? Shares{sum * 100 / 765, shares.r * 300 / sum, shares.g * 300 / sum, shares.b * 300 / sum}
                     : Shares{0, 0, 0, 0};
      }
      if (!colourRecorded) recorded = shares;
      colourRecorded = true;
      if (brightnessMax >= 0 && (shares.w < brightnessMin || shares.w > brightnessMax)) return;
      if (shares.r < redMin || shares.r > redMax || shares.g < greenMin || shares.g > greenMax || shares.b < blueMin ||
          shares.b > blueMax)
        return;
    }
    best = peak;
    bestIndex = int32_t(k);
    bestLeft = left;
    bestRight = right;
    recorded = shares;
    colourRecorded = true;
  });

  int32_t position = 0, quality = 0, width = 0, middle = -1;
  if (bestIndex >= 0) {
    // Grow the edges outwards while the samples still stand out from the
    // background on their side; each ends on the first sample outside.
    int32_t leftEdge = bestIndex, rightEdge = bestIndex + wmin - 1;
    if (value[leftEdge] - bestLeft >= contrastMin) {
      while (leftEdge > 0 && value[leftEdge - 1] - bestLeft >= contrastMin) --leftEdge;
      --leftEdge;
    }
    if (rightEdge < n - 4 && value[rightEdge] - bestRight >= contrastMin) {
      do ++rightEdge;
      while (rightEdge < n - 4 && value[rightEdge] - bestRight >= contrastMin);
    }
    width = rightEdge - leftEdge;
    middle = (leftEdge + rightEdge) / 2;
    if (width >= widthMin && width <= widthMax) {
      // With a single candidate place the line can only be in the middle.
      const int32_t places = n - 4 - wmin - 2 * h;
      position = places ? std::clamp((middle - h) * 2000 / places - 1000, -1000, 1000) : 0;
      int32_t q1 =
          CameraDiv32(CameraMul32(CameraSub32(CameraSub32(best, std::max(bestLeft, bestRight)), contrastMin), 1000),
                      CameraSub32(kFullScale, contrastMin));
      int32_t q2 = CameraDiv32(CameraMul32(1000, CameraSub32(best, peakMin)), CameraSub32(kFullScale, peakMin));
      quality = CameraMul32(q1, q2) / 1000;
      if (quality < 0) quality = 1;  // a found line never reports 0
    }
  }
  const bool fits = bestIndex >= 0 && width >= widthMin && width <= widthMax;
  CameraStoreResult(positionResult, position);
  CameraStoreResult(qualityResult, quality);
  CameraStoreResult(widthResult, fits ? width : 0);

  if (DebugFlags & kCameraDebugAnalysis) {
    fprintf(DebugFile, "MOL%d-%d p=%d q=%d hA=%d wrgb=%d/%d/%d/%d bL=%d bR=%d hRel=%d, m=%d, w=%d\n",
            int(CameraFrameCount.load(std::memory_order_relaxed)), index, int(int16_t(position)), int(int16_t(quality)),
            OfFullScale(best), recorded.w, recorded.r, recorded.g, recorded.b, OfFullScale(bestLeft),
            OfFullScale(bestRight), OfFullScale(std::min(CameraSub32(best, bestLeft), CameraSub32(best, bestRight))),
            middle, width);
  }
}
