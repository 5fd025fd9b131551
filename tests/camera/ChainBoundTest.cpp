// The analysis chain is linked by downloaded code: whatever shape its links
// take, a walk ends, and no record is set up, analysed or freed twice.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "CameraChain.h"
#include "camera_devices/CounterRecord.h"
#include "kavri/Camera.h"
#include "kavri/KavriLib.h"

namespace {

constexpr int kMax = kCameraChainMaxRecords;

// `length` records of a type no analysis handles; the last one links to
// record `loopTo`, or ends the chain if that is -1.
std::vector<CameraAnalysisBase> LinkedRecords(int length, int loopTo) {
  std::vector<CameraAnalysisBase> records(size_t(length), CameraAnalysisBase{9, nullptr, 1, 1});
  for (int i = 0; i + 1 < length; ++i) records[size_t(i)].next = &records[size_t(i) + 1];
  if (length > 0 && loopTo >= 0) records.back().next = &records[size_t(loopTo)];
  return records;
}

struct ShapeCase {
  const char* name;
  int length, loopTo;
  CameraChainExtent expected;
};

TEST(CameraChainBound, EveryShapeIsWalkedOnceARecordAndNeverPastTheLimit) {
  const ShapeCase cases[] = {
      {"one record", 1, -1, {1, false, false}},
      {"straight", 7, -1, {7, false, false}},
      {"at the limit", kMax, -1, {kMax, false, false}},
      {"one past the limit", kMax + 1, -1, {kMax, false, true}},
      {"one record on itself", 1, 0, {1, true, false}},
      {"last back to the head", 5, 0, {5, true, false}},
      {"last back to the middle", 9, 4, {9, true, false}},
      {"last on itself", 6, 5, {6, true, false}},
      {"loop of the whole limit", kMax, 0, {kMax, true, false}},
      {"loop longer than the limit", 3 * kMax, 0, {kMax, true, true}},
      {"long tail into a small loop", 5 * kMax, 5 * kMax - 2, {kMax, false, true}},
  };
  for (const ShapeCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<CameraAnalysisBase> records = LinkedRecords(c.length, c.loopTo);
    const CameraChainExtent extent = CameraMeasureChain(&records[0]);
    EXPECT_EQ(extent.records, c.expected.records);
    // A cut walk need not have come round to the loop.
    if (!c.expected.cut) {
      EXPECT_EQ(extent.loops, c.expected.loops);
    }
    EXPECT_EQ(extent.cut, c.expected.cut);
    std::set<const CameraAnalysisBase*> seen;
    int visits = 0;
    CameraWalkChain(&records[0], [&](CameraAnalysisBase& record, int index) {
      EXPECT_EQ(index, visits++);
      seen.insert(&record);
    });
    EXPECT_EQ(visits, c.expected.records);
    EXPECT_EQ(int(seen.size()), visits) << "a record was visited twice";
  }
  EXPECT_EQ(CameraMeasureChain(nullptr).records, 0);
}

// A record of a type without an analysis, its payload untouched, then a
// counter that links back to it.
TEST(CameraChainBound, LoopingChainIsAnalysedOnceAFrameAndReportedOnceAStart) {
  int16_t count = 0;
  CameraAnalysisCounter counter = camera_devices::MakeCounterRecord(64, 48, 10, 50, &count, nullptr);
  struct {
    CameraAnalysisBase base;
    int32_t payload[4];
  } foreign{{9, &counter.base, 1, 1}, {11, 22, 33, 44}};
  counter.base.next = &foreign.base;
  uint8_t frame[64 * 48 * 2] = {};
  CameraFrameCount.store(41);
  testing::internal::CaptureStderr();
  CameraInitAnalysis(&foreign.base, 64, 48);
  CameraRunAnalysis(&foreign.base, frame, frame, frame, 0);
  CameraRunAnalysis(&foreign.base, frame, frame, frame, 0);
  CameraUninitAnalysis(&foreign.base);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR camera analysis chain loops back after 2 records: each is analysed once a frame\n");
  EXPECT_EQ(count, 41) << "the record behind one without an analysis is analysed";
  EXPECT_EQ(foreign.base.width, 64) << "passed-over records still get the capture size";
  EXPECT_EQ(std::vector<int32_t>(foreign.payload, foreign.payload + 4), std::vector<int32_t>({11, 22, 33, 44}));
}

}  // namespace
