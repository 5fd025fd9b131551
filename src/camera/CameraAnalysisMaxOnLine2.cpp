// The second-generation line finder: up to five lines on a scan line, each
// searched over every width between the limits. Prefix sums make a trial of
// any width at any centre cost four lookups per buffer; centres advance by an
// eighth of the width and widths grow by an eighth, so a frame costs about
// N log N.
#include <stdint.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CameraLineList.h"
#include "CameraScanLine.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

namespace {

// A colour sample or prefix sum: grey, red, green and blue side by side, so
// that a trial reads each of its four lookups in one load and measures the
// four channels at once. Luma works on plain int32_t the same way.
typedef int32_t Lanes __attribute__((vector_size(16)));
// Two samples' or centres' lanes side by side.
typedef int32_t TwoLanes __attribute__((vector_size(32)));
// As kept in memory, which is only 4-byte aligned on the controller.
struct StoredLanes {
  int32_t lane[4];
  StoredLanes& operator=(Lanes value) {
    memcpy(lane, &value, sizeof lane);
    return *this;
  }
};

inline int32_t Larger(int32_t a, int32_t b) { return std::max(a, b); }
inline Lanes Larger(Lanes a, Lanes b) { return a > b ? a : b; }
inline int32_t Smaller(int32_t a, int32_t b) { return std::min(a, b); }
inline Lanes Smaller(Lanes a, Lanes b) { return a < b ? a : b; }

// The value as worked on, from its place in memory.
inline int32_t Load(int32_t stored) { return stored; }
inline Lanes Load(const StoredLanes& stored) {
  Lanes value;
  memcpy(&value, stored.lane, sizeof value);
  return value;
}
// A stored value with every lane set to value.
template <typename S>
S Filled(int32_t value) {
  S filled{};
  filled = decltype(Load(filled)){} + value;
  return filled;
}

// count samples' grey, red, green and blue, each channel on its own, put
// side by side: four samples at a time by shuffles, which is cheaper than
// sixteen stores.
KAVRI_CAMERA_INLINE void Interleave(const int32_t* grey, const int32_t* red, const int32_t* green,
                                    const int32_t* blue, int count, StoredLanes* out) {
  int i = 0;
  for (; i + 4 <= count; i += 4) {
    Lanes g, r, gr, b;
    memcpy(&g, grey + i, sizeof g), memcpy(&r, red + i, sizeof r);
    memcpy(&gr, green + i, sizeof gr), memcpy(&b, blue + i, sizeof b);
    const Lanes greyRed01 = __builtin_shufflevector(g, r, 0, 4, 1, 5),
                greyRed23 = __builtin_shufflevector(g, r, 2, 6, 3, 7),
                greenBlue01 = __builtin_shufflevector(gr, b, 0, 4, 1, 5),
                greenBlue23 = __builtin_shufflevector(gr, b, 2, 6, 3, 7);
    out[i] = __builtin_shufflevector(greyRed01, greenBlue01, 0, 1, 4, 5);
    out[i + 1] = __builtin_shufflevector(greyRed01, greenBlue01, 2, 3, 6, 7);
    out[i + 2] = __builtin_shufflevector(greyRed23, greenBlue23, 0, 1, 4, 5);
    out[i + 3] = __builtin_shufflevector(greyRed23, greenBlue23, 2, 3, 6, 7);
  }
  for (; i < count; ++i) out[i] = Lanes{grey[i], red[i], green[i], blue[i]};
}

// How far the middle of a line stands above its two flanks. When one flank
// is much weaker the weaker decides, so a line must stand out on both sides.
// Selects rather than branches, so that runs of centres vectorise.
template <typename T>
KAVRI_CAMERA_INLINE T CombineFlanks(T left, T right) {
  const T both = (left + right) >> 1;
  return right > left + left ? left : left > right + right ? right : both;
}

// Centres are measured in runs of at most this many, into a buffer on the
// stack.
constexpr int kRun = 256;

KAVRI_CAMERA_INLINE int32_t LargestOf(const int32_t* values, int count) {
  int32_t largest = values[0];
  for (int i = 1; i < count; ++i) largest = std::max(largest, values[i]);
  return largest;
}

// Responses of an even width w at count centres first, first+stride, ...:
// the inner w samples against twice each flank of w/2 samples, per lane.
// Returns the largest response of any lane, so that a run without a
// candidate is passed by at once. A stride of 1 is the common case (narrow
// widths, refinement) and gets a loop of its own that the compiler turns
// into vector code.
template <typename S, typename T>
KAVRI_CAMERA_INLINE int32_t EvenResponses(const S* sums, int32_t first, int32_t stride, int32_t w, int count, T* out) {
  const int32_t h = w / 2;
  const S *outerL = sums + (first - w), *innerL = sums + (first - h), *innerR = sums + (first + h),
          *outerR = sums + (first + w);
  auto at = [&](int i, int j) {
    const T left = Load(innerL[j]), right = Load(innerR[j]), inner = right - left;
    const T flankL = left - Load(outerL[j]), flankR = Load(outerR[j]) - right;
    out[i] = CombineFlanks(inner - (flankL + flankL), inner - (flankR + flankR));
  };
  if (stride == 1) {
    for (int i = 0; i < count; ++i) at(i, i);
  } else {
    for (int i = 0; i < count; ++i) at(i, i * stride);
  }
  // A pass of its own: folded into the loops above it keeps them from
  // vectorising.
  return LargestOf(out, count);
}

// The same for colour sums, where a centre's response is its largest lane:
// two centres side by side in one vector of eight lanes, so that on
// processors with 256-bit vectors a trial costs half.
KAVRI_CAMERA_INLINE int32_t EvenResponses(const StoredLanes* sums, int32_t first, int32_t stride, int32_t w, int count,
                                          int32_t* out) {
  const int32_t h = w / 2;
  const StoredLanes *outerL = sums + (first - w), *innerL = sums + (first - h), *innerR = sums + (first + h),
                    *outerR = sums + (first + w);
  // Each centre's largest lane ends up in its first; two(at, j) gives the
  // sums at j and j + stride.
  auto measure = [&](int j, auto two) KAVRI_CAMERA_LAMBDA {
    const TwoLanes left = two(innerL, j), right = two(innerR, j), inner = right - left;
    const TwoLanes flankL = left - two(outerL, j), flankR = two(outerR, j) - right;
    TwoLanes most = CombineFlanks(inner - (flankL + flankL), inner - (flankR + flankR));
    // Eight lanes are handed over differently with and without 256-bit
    // vectors, so they never pass through a function that may stay a call.
    TwoLanes other = __builtin_shufflevector(most, most, 1, 0, 3, 2, 5, 4, 7, 6);
    most = most > other ? most : other;
    other = __builtin_shufflevector(most, most, 2, 3, 0, 1, 6, 7, 4, 5);
    return most > other ? most : other;
  };
  // Neighbours are one load.
  auto adjacent = [](const StoredLanes* at, int j) KAVRI_CAMERA_LAMBDA {
    TwoLanes value;
    memcpy(&value, at + j, sizeof value);
    return value;
  };
  auto apart = [stride](const StoredLanes* at, int j) KAVRI_CAMERA_LAMBDA {
    return __builtin_shufflevector(Load(at[j]), Load(at[j + stride]), 0, 1, 2, 3, 4, 5, 6, 7);
  };
  TwoLanes largest = TwoLanes{} + INT32_MIN;
  int i = 0;
  if (stride == 1) {
    for (; i + 2 <= count; i += 2) {
      const TwoLanes most = measure(i, adjacent);
      out[i] = most[0], out[i + 1] = most[4];
      largest = largest > most ? largest : most;
    }
  } else {
    for (; i + 2 <= count; i += 2) {
      const TwoLanes most = measure(i * stride, apart);
      out[i] = most[0], out[i + 1] = most[4];
      largest = largest > most ? largest : most;
    }
  }
  if (i < count) {  // a lone last centre, measured in both halves
    auto alone = [](const StoredLanes* at, int j) KAVRI_CAMERA_LAMBDA {
      return __builtin_shufflevector(Load(at[j]), Load(at[j]), 0, 1, 2, 3, 4, 5, 6, 7);
    };
    const TwoLanes most = measure(i * stride, alone);
    out[i] = most[0];
    largest = largest > most ? largest : most;
  }
  return std::max(largest[0], largest[4]);
}

// Responses of any width tw, odd ones too, at count centres from first on:
// each flank of tw/2 samples is weighted up to the line's width.
KAVRI_CAMERA_INLINE void WeightedResponses(const int32_t* sums, int32_t first, int32_t tw, int count, int32_t* out) {
  const int32_t h = tw / 2, k = tw * 256 / h;
  const int32_t *outerL = sums + (first - tw), *innerL = sums + (first - tw + h), *innerR = sums + (first + h),
                *outerR = sums + (first + (tw & ~1));
  for (int i = 0; i < count; ++i) {
    const int32_t inner = innerR[i] - innerL[i];
    out[i] = CombineFlanks(inner - (((innerL[i] - outerL[i]) * k) >> 8), inner - (((outerR[i] - innerR[i]) * k) >> 8));
  }
}

// Calls visit(first centre, count) for the runs that cover the centres
// first, first+stride, ... up to last.
template <typename Visit>
KAVRI_CAMERA_INLINE void ForRuns(int32_t first, int32_t last, int32_t stride, Visit visit) {
  for (int32_t c = first; c <= last;) {
    const int count = int(std::min<int32_t>(kRun, (last - c) / stride + 1));
    visit(c, count);
    c += count * stride;
  }
}

// Where lines may be. A trial of width w responds at most w times the spread
// (largest minus smallest sample) of its 2w samples in a buffer: its middle
// can stand at most that far above twice a flank. Where every buffer spreads
// less than the threshold, no trial can find a line and the search passes by
// without measuring. Kept per block of samples: how many blocks to either
// side a window must reach before some buffer spreads that far.
template <typename S>
class LineReach {
 public:
  static constexpr int kBlock = 8;
  // Windows reaching further than this many blocks are always measured, so
  // that working out the reach stays linear in the scan line's length.
  static constexpr int32_t kFar = 8;
  static constexpr int kLanes = sizeof(S) / sizeof(int32_t);
  static size_t Ints(int32_t n) { return (2 + 2 * kLanes) * size_t(Padded(n)); }

  LineReach(int32_t* memory, int32_t n, int32_t threshold, int32_t widthMax)
      : blocks_(Blocks(n)),
        threshold_(threshold),
        far_(int32_t(std::clamp<int64_t>((int64_t(widthMax) + kBlock - 1) / kBlock, 0, kFar))),
        reach_(memory),
        lowest_(reinterpret_cast<S*>(memory + Padded(n)) + kFar),
        highest_(lowest_ + Padded(n)),
        stretches_(reinterpret_cast<int32_t*>(highest_ - kFar + Padded(n))) {}

  // Smallest and largest sample of block k, set by the caller for every
  // block before Work.
  S* Lowest() { return lowest_; }
  S* Highest() { return highest_; }

  void Work() {
    if (threshold_ <= 0) return;
    // Padding with values that never decide; after the blocks, enough for
    // the last group of blocks below.
    std::fill(lowest_ - kFar, lowest_, Filled<S>(kNeverDecides));
    std::fill(lowest_ + blocks_, lowest_ + blocks_ + kFar + 8, Filled<S>(kNeverDecides));
    std::fill(highest_ - kFar, highest_, Filled<S>(-kNeverDecides));
    std::fill(highest_ + blocks_, highest_ + blocks_ + kFar + 8, Filled<S>(-kNeverDecides));
    // Grow each block's window by a block on each side at a time, counting
    // per lane the sizes that still spread less than the threshold: the
    // spread only grows, so the count is where the lane first reaches it, and
    // the first of the lanes decides. Every width reaches at least a block,
    // so the block alone is not looked at: its count starts at 1. Eight
    // values side by side, as they lie in the padded extremes: eight blocks
    // of one lane, or two of four.
    typedef int32_t Eight __attribute__((vector_size(32)));
    constexpr int kSideBySide = 8 / kLanes;
    auto eight = [](const S* at) KAVRI_CAMERA_LAMBDA {
      Eight values;
      memcpy(&values, at, sizeof values);
      return values;
    };
    const Eight below = Eight{} + threshold_, one = Eight{} + 1, none = Eight{};
    for (int32_t k = 0; k < blocks_; k += kSideBySide) {
      Eight least = eight(lowest_ + k), most = eight(highest_ + k), tooNarrow = one;
      for (int32_t r = 1; r <= far_; ++r) {
        const Eight lowL = eight(lowest_ + k - r), lowR = eight(lowest_ + k + r);
        const Eight highL = eight(highest_ + k - r), highR = eight(highest_ + k + r);
        least = least < lowL ? least : lowL, least = least < lowR ? least : lowR;
        most = most > highL ? most : highL, most = most > highR ? most : highR;
        tooNarrow += most - least < below ? one : none;
      }
      // Blocks past the last get a reach too, never asked for.
      for (int b = 0; b < kSideBySide; ++b) {
        int32_t reach = tooNarrow[b * kLanes];
        for (int lane = 1; lane < kLanes; ++lane) reach = std::min(reach, int32_t(tooNarrow[b * kLanes + lane]));
        reach_[k + b] = reach;
      }
    }
  }

  // How many blocks to either side the trials of width w reach: those
  // centred in block k see samples of blocks k - Blocks(w) .. k + Blocks(w)
  // at most. Beyond kFar, or when the threshold times the width does not
  // fit 32 bits, every trial is measured (also should the threshold have
  // changed since the reach was worked out).
  int32_t Reach(int32_t w, int32_t threshold) const {
    const int32_t reach = Blocks(w);
    return threshold == threshold_ && threshold > 0 && reach <= far_ && int64_t(threshold) * w <= INT32_MAX ? reach
                                                                                                          : -1;
  }

  // Calls visit(first, last) for the stretches of centres from first to
  // last whose trials, reaching reach blocks, may find a line. Several
  // widths share a reach: the stretches of blocks are listed once for it.
  template <typename Visit>
  KAVRI_CAMERA_INLINE void ForStretches(int32_t first, int32_t last, int32_t reach, Visit visit) {
    if (reach < 0) {
      visit(first, last);
      return;
    }
    if (reach != listed_) List(reach);
    const int32_t firstBlock = Block(first), lastBlock = Block(last);
    for (int32_t i = 0; i < stretchCount_ && stretches_[2 * i] <= lastBlock; ++i) {
      const int32_t from = std::max(stretches_[2 * i], firstBlock), to = std::min(stretches_[2 * i + 1], lastBlock);
      if (from <= to) visit(std::max(first, from * kBlock + 1), std::min(last, (to + 1) * kBlock));
    }
  }

  static int32_t Blocks(int32_t n) { return (n + kBlock - 1) / kBlock; }

 private:
  static constexpr int32_t kNeverDecides = 1 << 24;  // far beyond any sample

  // First and last block of each run of blocks whose reach is at most
  // reach.
  void List(int32_t reach) {
    stretchCount_ = 0;
    for (int32_t k = 0; k < blocks_; ++k) {
      if (reach_[k] > reach) continue;
      stretches_[2 * stretchCount_] = k;
      while (k + 1 < blocks_ && reach_[k + 1] <= reach) ++k;
      stretches_[2 * stretchCount_++ + 1] = k;
    }
    listed_ = reach;
  }

  static int32_t Padded(int32_t n) { return Blocks(n) + 2 * kFar + 8; }
  // Block of centre or sample c (samples count from 1).
  static int32_t Block(int32_t c) { return (c - 1) / kBlock; }
  // Reach worked out up to far_ blocks: no further than the widest width
  // needs.
  int32_t blocks_, threshold_, far_;
  int32_t* reach_;
  S *lowest_, *highest_;
  // Runs of blocks as pairs, for the reach listed last.
  int32_t* stretches_;
  int32_t stretchCount_ = 0, listed_ = -1;
};

// The whole blocks of colour prefix sums from sample first on, two samples
// side by side: the pair's own sums [a, a+b] are added to the total so far.
// Leaves first, block k and the total at the first block not done.
KAVRI_CAMERA_INLINE void WholeBlocks(StoredLanes* buffer, int32_t n, bool bright, StoredLanes* lowest,
                                     StoredLanes* highest, int32_t& first, int32_t& k, Lanes& sum) {
  constexpr int kBlock = LineReach<StoredLanes>::kBlock;
  TwoLanes total = __builtin_shufflevector(sum, sum, 0, 1, 2, 3, 0, 1, 2, 3);
  for (; first + kBlock - 1 <= n; first += kBlock, ++k) {
    TwoLanes least = TwoLanes{} + INT32_MAX, most = TwoLanes{} + INT32_MIN;
    for (int32_t j = first; j < first + kBlock; j += 2) {
      TwoLanes pair;
      memcpy(&pair, buffer + j, sizeof pair);
      least = least < pair ? least : pair, most = most > pair ? most : pair;
      if (!bright) pair = -pair;
      total += pair + __builtin_shufflevector(pair, TwoLanes{}, 8, 9, 10, 11, 0, 1, 2, 3);
      memcpy(buffer + j, &total, sizeof total);
      total = __builtin_shufflevector(total, total, 4, 5, 6, 7, 4, 5, 6, 7);
    }
    lowest[k] = Smaller(Lanes(__builtin_shufflevector(least, least, 0, 1, 2, 3)),
                        Lanes(__builtin_shufflevector(least, least, 4, 5, 6, 7)));
    highest[k] = Larger(Lanes(__builtin_shufflevector(most, most, 0, 1, 2, 3)),
                        Lanes(__builtin_shufflevector(most, most, 4, 5, 6, 7)));
  }
  sum = __builtin_shufflevector(total, total, 0, 1, 2, 3);
}

// The same for luma, four samples side by side: each half block's running
// sums in its lanes, plus the total so far.
KAVRI_CAMERA_INLINE void WholeBlocks(int32_t* buffer, int32_t n, bool bright, int32_t* lowest, int32_t* highest,
                                     int32_t& first, int32_t& k, int32_t& sum) {
  constexpr int kBlock = LineReach<int32_t>::kBlock;
  static_assert(kBlock == 8, "two halves of four");
  const Lanes none{};
  Lanes total = none + sum;
  for (; first + kBlock - 1 <= n; first += kBlock, ++k) {
    Lanes half[2];
    memcpy(half, buffer + first, sizeof half);
    Lanes least = Smaller(half[0], half[1]), most = Larger(half[0], half[1]);
    least = Smaller(least, __builtin_shufflevector(least, least, 2, 3, 0, 1));
    most = Larger(most, __builtin_shufflevector(most, most, 2, 3, 0, 1));
    lowest[k] = std::min(least[0], least[1]), highest[k] = std::max(most[0], most[1]);
    for (Lanes& part : half) {
      if (!bright) part = -part;
      part += __builtin_shufflevector(part, none, 4, 0, 1, 2);
      part += __builtin_shufflevector(part, none, 4, 5, 0, 1);
      part += total;
      total = __builtin_shufflevector(part, part, 3, 3, 3, 3);
    }
    memcpy(buffer + first, half, sizeof half);
  }
  sum = total[0];
}

// Prefix sums in place over samples 1 .. n, negated for dark lines so that
// they become peaks too; on the way, the extremes of each block of samples.
template <typename S>
KAVRI_CAMERA_INLINE void PrefixSums(S* buffer, int32_t n, bool bright, LineReach<S>& reach) {
  using T = decltype(Load(S{}));
  constexpr int kBlock = LineReach<S>::kBlock;
  S *lowest = reach.Lowest(), *highest = reach.Highest();
  T sum = T{} + 0;
  buffer[0] = sum;
  int32_t first = 1, k = 0;
  WholeBlocks(buffer, n, bright, lowest, highest, first, k, sum);
  for (; first <= n; first += kBlock, ++k) {
    const int32_t last = std::min(n, first + kBlock - 1);
    T least = Load(buffer[first]), most = least;
    for (int32_t j = first; j <= last; ++j) {
      const T sample = Load(buffer[j]);
      least = Smaller(least, sample), most = Larger(most, sample);
      sum = bright ? sum + sample : sum - sample;
      buffer[j] = sum;
    }
    lowest[k] = least, highest[k] = most;
  }
}

int32_t Strength(int32_t response, int32_t width) { return CameraMul32(response, 65536 / width) >> 16; }

int32_t HalfRoundedToEven(int32_t n) { return (n / 2) & ~1; }

}  // namespace

void CameraAnalysisMaxOnLine2::Init() {
  const int64_t count = CameraScanLineInit(*this);
  valueBuffer = redBuffer = greenBuffer = blueBuffer = nullptr;
  if (count > kCameraScanMaxSamples) {
    fprintf(stderr, "ERROR camera line record with a scan line of %lld samples (at most %lld taken)\n",
            (long long)count, (long long)kCameraScanMaxSamples);
    return;
  }
  const int32_t range = CameraSub32(rangeMax, rangeMin);
  if (range == 0) {
    fprintf(stderr, "ERROR camera line record with range min equal to range max\n");
    return;
  }
  if (lineCountMax < 0 || lineCountMax > kCameraLineSlots)
    fprintf(stderr, "ERROR camera line record asks for %d lines, %d taken\n", lineCountMax,
            std::clamp(lineCountMax, 0, kCameraLineSlots));

  // Output units to samples, rounded to the nearest, in unsigned arithmetic.
  const uint32_t n = uint32_t(sampleCount), half = uint32_t(range >> 1);
  widthMin = int32_t((half + uint32_t(widthMin) * n) / uint32_t(range));
  widthMax = int32_t((half + uint32_t(widthMax) * n) / uint32_t(range));
  threshold = CameraAdd32(CameraMul32(threshold, 256), 50) / 100;
  if (widthMin < 2) widthMin = 2;
  if (widthMax > sampleCount / 2) widthMax = HalfRoundedToEven(sampleCount);

  // In colour the four buffers' memory holds the sums interleaved, a
  // sample's grey, red, green and blue side by side.
  const int32_t entries = sampleCount + 1;
  valueBuffer = CameraScanWork::Allocate(
      sampleCount, color ? 4 : 1, entries,
      color ? LineReach<StoredLanes>::Ints(sampleCount) : LineReach<int32_t>::Ints(sampleCount));
  if (!valueBuffer) {
    fprintf(stderr, "ERROR camera line record: no memory for its buffers\n");
    return;
  }
  if (color) {
    redBuffer = valueBuffer + entries;
    greenBuffer = redBuffer + entries;
    blueBuffer = greenBuffer + entries;
  }
}

void CameraAnalysisMaxOnLine2::Uninit() {
  CameraScanWork::Free(valueBuffer);
  valueBuffer = redBuffer = greenBuffer = blueBuffer = nullptr;
}

void CameraAnalysisMaxOnLine2::Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
                                       const unsigned char* compressed, int compressedSize) {
  if (color)
    AnalyzeColor(index, frame, previousFrame, compressed, compressedSize);
  else
    AnalyzeBW(index, frame, previousFrame, compressed, compressedSize);
}

namespace {

// Clears the slots from first on, never past the five the record has.
void ClearSlots(CameraAnalysisMaxOnLine2& record, int first, bool colour) {
  for (int i = first; i < std::min(record.lineCountMax, kCameraLineSlots); ++i) {
    for (int16_t* const* slots :
         {record.positionResults, record.strengthResults, record.widthResults, record.brightnessResults})
      CameraStoreResult(slots[i], 0);
    if (colour)
      for (int16_t* const* slots : {record.redResults, record.greenResults, record.blueResults})
        CameraStoreResult(slots[i], 0);
  }
}

// The search, refinement and report shared by the colour and the luma
// analysis, over a record whose buffers hold this frame's prefix sums: S is
// a stored sum, one int32_t in luma, four lanes in colour.
template <typename S>
class LineSearch {
 public:
  using T = decltype(Load(S{}));
  static constexpr int kLanes = LineReach<S>::kLanes;

  LineSearch(CameraAnalysisMaxOnLine2& record, const S* sums, LineReach<S>& reach)
      : record_(record), sums_(sums), reach_(reach), n_(record.sampleCount), lines_(record.lineCountMax) {}

  // Every width from the minimum to the maximum in steps of an eighth,
  // rounded to even, at centres an eighth of the width apart.
  KAVRI_CAMERA_INLINE void Search() {
    if (record_.lineCountMax <= 0) return;  // nothing could be kept
    const int32_t threshold = record_.threshold;
    int32_t previous = 0;
    // Init left width min at 2 or more; kept so should the program change
    // it later, since the scale must grow for the search to end.
    for (int64_t s = std::max<int64_t>(record_.widthMin, 2) * 256; s <= int64_t(record_.widthMax) * 256; s += s >> 3) {
      const int32_t w = int32_t(((s + 256) >> 9) * 2);
      if (w == previous) continue;
      previous = w;
      if (w > n_ - w) continue;
      const int32_t step = (w + 7) >> 3, minimum = CameraMul32(threshold, w), last = n_ - w;
      const int32_t reach = reach_.Reach(w, threshold);
      reach_.ForStretches(w, last, reach, [&](int32_t from, int32_t to) KAVRI_CAMERA_LAMBDA {
        // The first centre of the stretch on the width's grid.
        const int32_t first = w + (from - w + step - 1) / step * step;
        ForRuns(first, to, step, [&](int32_t c, int count) KAVRI_CAMERA_LAMBDA { Measure(c, step, w, count, minimum); });
      });
    }
  }

  // The trials of width w at count centres from first on, stride apart;
  // those that reach minimum are merged into the list.
  KAVRI_CAMERA_INLINE void Measure(int32_t first, int32_t stride, int32_t w, int count, int32_t minimum) {
    int32_t responses[kRun];
    // Most runs hold no candidate at all.
    if (EvenResponses(sums_, first, stride, w, count, responses) < minimum) return;
    for (int i = 0; i < count; ++i)
      if (responses[i] >= minimum) lines_.Merge({first + i * stride, w, Strength(responses[i], w)});
  }

  // Re-measures each line at widths around its own and positions around
  // its own; a line whose best width leaves the limits is removed.
  template <typename WidthsOf, typename Measure>
  KAVRI_CAMERA_INLINE void Refine(WidthsOf widths, Measure measure, bool sixteenBit) {
    for (int i = 0; i < lines_.Size();) {
      const CameraLine found = lines_[i];
      auto [lowest, highest, step] = widths(found.width);
      if (highest > n_ / 2) highest = HalfRoundedToEven(n_);
      CameraLine best{found.position, found.width, 0};
      for (int32_t tw = lowest; tw <= highest; tw += step) {
        const int32_t reach = (tw + 7) >> 3, minimum = CameraMul32(record_.threshold, tw);
        const int32_t last = std::min(n_ - tw, found.position + reach);
        ForRuns(std::max(found.position - reach, tw), last, 1, [&](int32_t first, int count) KAVRI_CAMERA_LAMBDA {
          int32_t responses[kRun];
          measure(first, tw, count, responses);
          if (LargestOf(responses, count) < minimum) return;
          for (int i = 0; i < count; ++i) {
            if (responses[i] < minimum) continue;
            int32_t strength = Strength(responses[i], tw);
            if (sixteenBit) strength = uint16_t(strength);
            if (strength > best.strength) best = {first + i, tw, strength};
          }
        });
      }
      if (best.width < record_.widthMin || best.width > record_.widthMax) {
        lines_.Remove(i);
      } else {
        lines_[i++] = best;
      }
    }
  }

  KAVRI_CAMERA_INLINE void RefineColor() {
    Refine(
        [](int32_t w0) KAVRI_CAMERA_LAMBDA {
          return Widths{std::max(((w0 * 7) >> 4) * 2, 2), ((w0 * 9 + 15) >> 4) * 2, 2};
        },
        [this](int32_t first, int32_t tw, int count, int32_t* out) KAVRI_CAMERA_LAMBDA {
          EvenResponses(sums_, first, 1, tw, count, out);
        },
        false);
  }

  KAVRI_CAMERA_INLINE void RefineBW() {
    const bool fine = record_.fineWidthStep;
    Refine(
        [fine](int32_t w0) KAVRI_CAMERA_LAMBDA {
          return fine ? Widths{std::max((w0 * 7) >> 3, 2), (w0 * 9 + 7) >> 3, 1}
                      : Widths{std::max(((w0 * 7) >> 4) * 2, 2), ((w0 * 9 + 15) >> 4) * 2, 2};
        },
        // The strength of a luma refine is kept to 16 bits.
        [this](int32_t first, int32_t tw, int count, int32_t* out) KAVRI_CAMERA_LAMBDA {
          WeightedResponses(reinterpret_cast<const int32_t*>(sums_), first, tw, count, out);
        },
        true);
  }

  // Writes the lines left to right into the slots and clears the slots
  // after them. Channel averages only in colour.
  void Report(int index) {
    constexpr bool colour = kLanes == 4;
    lines_.SortByPosition();
    const int count = lines_.Size();
    std::atomic_ref<uint16_t>(record_.lineCount).store(uint16_t(count), std::memory_order_relaxed);
    const bool debug = DebugFlags & kCameraDebugAnalysis;
    const int frameCount = int(CameraFrameCount.load(std::memory_order_relaxed));
    if (count == 0 && debug) fprintf(DebugFile, "MOL%d-%d NO LINE FOUND\n", frameCount, index);
    const int32_t range = CameraSub32(record_.rangeMax, record_.rangeMin);
    for (int i = 0; i < count; ++i) {
      const CameraLine& line = lines_[i];
      // Means over the line, grey, red, green, blue, in the sums' own sign.
      const int32_t h = line.width / 2;
      const T sum = Load(sums_[line.position + h]) - Load(sums_[line.position - h]);
      int32_t averages[4] = {};
      for (int b = 0; b < kLanes; ++b) {
        averages[b] = reinterpret_cast<const int32_t*>(&sum)[b] / line.width;
        if (!record_.bright) averages[b] = -averages[b];
      }
      const int32_t position =
          CameraAdd32(CameraAdd32(n_ / 2, CameraMul32(range, line.position)) / n_, record_.rangeMin);
      const int32_t width = CameraAdd32(n_ / 2, CameraMul32(range, line.width)) / n_;
      CameraStoreResult(record_.positionResults[i], position);
      CameraStoreResult(record_.strengthResults[i], (100 * line.strength) >> 8);
      CameraStoreResult(record_.widthResults[i], width);
      CameraStoreResult(record_.brightnessResults[i], (100 * averages[0]) >> 8);
      if (colour) {
        CameraStoreResult(record_.redResults[i], (100 * averages[1]) >> 8);
        CameraStoreResult(record_.greenResults[i], (100 * averages[2]) >> 8);
        CameraStoreResult(record_.blueResults[i], (100 * averages[3]) >> 8);
      }
      if (debug && colour)
        fprintf(DebugFile, "MOL%d-%d-%d p=%d q=%d w=%d r=%d, g=%d, b=%d, bw=%d\n", frameCount, index, i,
                int(int16_t(position)), line.strength, int(int16_t(width)), averages[1], averages[2], averages[3],
                averages[0]);
      else if (debug)
        fprintf(DebugFile, "MOL%d-%d-%d p=%d q=%d w=%d bw=%d\n", frameCount, index, i, int(int16_t(position)),
                line.strength, int(int16_t(width)), averages[0]);
    }
    ClearSlots(record_, count, colour);
  }

 private:
  struct Widths {
    int32_t lowest, highest, step;
  };

  CameraAnalysisMaxOnLine2& record_;
  const S* sums_;
  LineReach<S>& reach_;
  const int32_t n_;
  CameraLineList lines_;
};

// A record that Init refused, or whose colour flag or sample count changed
// after Init, finds nothing and says so in its slots.
bool Unusable(CameraAnalysisMaxOnLine2& record, bool colour) {
  if (record.valueBuffer && (!colour || record.redBuffer) &&
      CameraScanWork::Of(record.valueBuffer).Count() == record.sampleCount)
    return false;
  std::atomic_ref<uint16_t>(record.lineCount).store(0, std::memory_order_relaxed);
  ClearSlots(record, 0, colour);
  return true;
}

// The prefix sums of the samples already in place, the reach they give, the
// search, its refinement and the report.
template <typename S, typename Refine>
KAVRI_CAMERA_INLINE void SearchSamples(CameraAnalysisMaxOnLine2& record, S* samples, int index, Refine refine) {
  LineReach<S> reach(CameraScanWork::Of(record.valueBuffer).Extra(), record.sampleCount, record.threshold,
                     record.widthMax);
  PrefixSums(samples, record.sampleCount, record.bright, reach);
  reach.Work();
  LineSearch<S> search(record, samples, reach);
  search.Search();
  if (record.refine) refine(search);
  search.Report(index);
}

}  // namespace

KAVRI_CAMERA_BUILT_TWICE void CameraAnalysisMaxOnLine2::AnalyzeColor(int index, const unsigned char* frame,
                                                                     const unsigned char*, const unsigned char*, int) {
  if (Unusable(*this, true)) return;
  const int32_t n = sampleCount;
  StoredLanes* samples = reinterpret_cast<StoredLanes*>(valueBuffer);
  uint16_t histograms[3][256];
  // Read once: the program may change it meanwhile, and the histograms are
  // cleared only for it.
  const bool balance = std::atomic_ref<uint8_t>(whiteBalance).load(std::memory_order_relaxed);
  if (balance) memset(histograms, 0, sizeof histograms);
  CameraScanSamples<true>(*this, CameraScanWork::Of(valueBuffer), frame,
                          [&](int32_t first, int count, const int32_t* luma, const int32_t* u, const int32_t* v) {
                            int32_t red[kCameraScanRun], green[kCameraScanRun], blue[kCameraScanRun],
                                grey[kCameraScanRun];
                            for (int i = 0; i < count; ++i) {
                              const CameraRgb colour = CameraYuvToRgb(luma[i], u[i], v[i]);
                              red[i] = colour.red, green[i] = colour.green, blue[i] = colour.blue;
                            }
                            if (balance) {
                              for (int i = 0; i < count; ++i) {
                                ++histograms[0][red[i]];
                                ++histograms[1][green[i]];
                                ++histograms[2][blue[i]];
                              }
                              // The grey lane is made below.
                              std::fill(grey, grey + count, 0);
                            } else {
                              for (int i = 0; i < count; ++i) grey[i] = CameraGrey(red[i], green[i], blue[i]);
                            }
                            Interleave(grey, red, green, blue, count, samples + first + 1);
                          });
  if (balance) {
    const int32_t gainR = CameraMedianGain(histograms[0], n), gainG = CameraMedianGain(histograms[1], n),
                  gainB = CameraMedianGain(histograms[2], n);
    for (int32_t j = 1; j <= n; ++j) {
      Lanes sample = (Load(samples[j]) * Lanes{0, gainR, gainG, gainB}) >> 8;
      sample[0] = int16_t(CameraGrey(sample[1], sample[2], sample[3]));
      samples[j] = sample;
    }
  }
  SearchSamples(*this, samples, index, [](LineSearch<StoredLanes>& search) KAVRI_CAMERA_LAMBDA { search.RefineColor(); });
}

KAVRI_CAMERA_BUILT_TWICE void CameraAnalysisMaxOnLine2::AnalyzeBW(int index, const unsigned char* frame,
                                                                  const unsigned char*, const unsigned char*, int) {
  if (Unusable(*this, false)) return;
  CameraScanSamples<false>(*this, CameraScanWork::Of(valueBuffer), frame,
                           [this](int32_t first, int count, const int32_t* luma, const int32_t*, const int32_t*) {
                             std::copy(luma, luma + count, valueBuffer + first + 1);
                           });
  SearchSamples(*this, valueBuffer, index, [](LineSearch<int32_t>& search) KAVRI_CAMERA_LAMBDA { search.RefineBW(); });
}
