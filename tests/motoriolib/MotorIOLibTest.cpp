// The I/O library stand-in behaves as the library expects of the real one.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "WaitFor.h"
#include "kavri/MotorIOLib.h"
#include "motoriolib/MotorIOLibSim.h"

namespace {

std::atomic<int> callbackCalls{0};
std::atomic<int> callsBeforeEnd{0};

bool EndingCallback(shm_if_s*, int) { return callbackCalls.fetch_add(1) + 1 < callsBeforeEnd.load(); }

bool SelfStoppingCallback(shm_if_s*, int) {
  callbackCalls.fetch_add(1);
  MotorIOLib_StopThreads();
  return true;
}

class MotorIOLib : public ::testing::Test {
 protected:
  void SetUp() override { callbackCalls = 0; }
  void TearDown() override {
    MotorIOLib_StopThreads();
    MotorIOLib_SetCallbackIO(nullptr);
  }
  shm_if_s* area = MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX);
};

TEST_F(MotorIOLib, CallbackThatReportsTheEndIsNotCalledAgain) {
  callsBeforeEnd = 3;
  MotorIOLib_SetCallbackIO(EndingCallback);
  MotorIOLib_StartThreads();
  uint32_t cycles = MotorIOLibSim_CycleCount();
  EXPECT_TRUE(WaitFor([&] { return MotorIOLibSim_CycleCount() > cycles + 10; }));
  EXPECT_EQ(callbackCalls, 3);
  EXPECT_TRUE(MotorIOLib_ThreadIsRunning());
}

TEST_F(MotorIOLib, CallbackMayAskTheCycleToStop) {
  MotorIOLib_SetCallbackIO(SelfStoppingCallback);
  MotorIOLib_StartThreads();
  EXPECT_TRUE(WaitFor([] { return !MotorIOLib_ThreadIsRunning(); }));
  EXPECT_EQ(callbackCalls, 1);
}

TEST_F(MotorIOLib, ExchangeWiresOutputsBackToInputsUnlessForced) {
  for (int channel = 0; channel < MOTORIOLIB_SIM_CHANNELS; ++channel) area->OutputValues[channel] = uint16_t(100 + channel);
  MotorIOLibSim_SetInput(2, 7);
  uint32_t transfers = MotorIOLibSim_TransferCount();
  ASSERT_TRUE(MotorIOLib_DoTransfer(area, KAVRI_TRANS_AREA_INDEX));
  EXPECT_EQ(MotorIOLibSim_TransferCount(), transfers + 1);
  for (int channel = 0; channel < MOTORIOLIB_SIM_CHANNELS; ++channel) {
    EXPECT_EQ(MotorIOLibSim_GetOutput(channel), 100 + channel);
    EXPECT_EQ(area->InputValues[channel], channel == 2 ? 7 : 100 + channel) << channel;
  }
  MotorIOLibSim_SetInput(2, -1);
  ASSERT_TRUE(MotorIOLib_DoTransfer(area, KAVRI_TRANS_AREA_INDEX));
  EXPECT_EQ(area->InputValues[2], 102);
  shm_if_s stranger{};
  EXPECT_FALSE(MotorIOLib_DoTransfer(&stranger, KAVRI_TRANS_AREA_INDEX));
}

TEST_F(MotorIOLib, DisplayFrameIsTakenOnlyWhenTheUpdateFlagIsRaised) {
  uint8_t* buffer = KavriDisplayBufferOf(area);
  ASSERT_NE(buffer, nullptr);
  for (int i = 0; i < KAVRI_DISPLAY_BUFFER_SIZE; ++i) buffer[i] = uint8_t(i * 7);
  uint8_t frame[KAVRI_DISPLAY_BUFFER_SIZE] = {};
  area->DisplayUpdateFlag = 0;
  EXPECT_EQ(MotorIOLibSim_TakeDisplayFrame(frame), 0);
  EXPECT_EQ(frame[1], 0);
  area->DisplayUpdateFlag = 1;
  area->DisplayUpdateCounter = 3;
  EXPECT_EQ(MotorIOLibSim_TakeDisplayFrame(frame), 1);
  EXPECT_EQ(0, memcmp(frame, buffer, sizeof frame));
  EXPECT_EQ(area->DisplayUpdateFlag, 0);
  EXPECT_EQ(area->DisplayUpdateCounter, 0);
}

}  // namespace
