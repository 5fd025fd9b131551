// The address table: the binary interface between downloaded code and the
// library. Downloaded programs are linked against these slots by position,
// so the order below is fixed for good, stubs included.
#include <cstring>

#include "host/DownloadMode.h"
#include "host/KavriServer.h"
#include "kavri/CameraAnalysis.h"
#include "kavri/DisplayWidgets.h"
#include "kavri/FL48.h"
#include "kavri/FL48Text.h"
#include "host/KavriState.h"
#include "kavri/TextGrph.h"

namespace kavri {

// The name is taken from the same token as the address, so the two cannot
// drift apart.
#define KAVRI_SERVICE(function) {#function, reinterpret_cast<void (*)()>(&function)}

const LibService kLibServices[kLibServiceCount] = {
    KAVRI_SERVICE(BluetoothGetSelfRadioCallNumber),
    KAVRI_SERVICE(BluetoothMaintenance),
    KAVRI_SERVICE(BluetoothSendMessage),
    KAVRI_SERVICE(BluetoothSetReceiveCallback),
    KAVRI_SERVICE(BluetoothSetup),
    KAVRI_SERVICE(CameraSetup),
    KAVRI_SERVICE(DisplaySetup),  // out of alphabetical order, as always
    KAVRI_SERVICE(CheckTimeSliceCanContinue),
    KAVRI_SERVICE(FL48_Abs),
    KAVRI_SERVICE(FL48_Acos),
    KAVRI_SERVICE(FL48_Acos360),
    KAVRI_SERVICE(FL48_Add),
    KAVRI_SERVICE(FL48_Asin),
    KAVRI_SERVICE(FL48_Asin360),
    KAVRI_SERVICE(FL48_Atan),
    KAVRI_SERVICE(FL48_Atan360),
    KAVRI_SERVICE(FL48_ConvFromShort),
    KAVRI_SERVICE(FL48_ConvToShort),
    KAVRI_SERVICE(FL48_ConvToTextRP),
    KAVRI_SERVICE(FL48_Cos),
    KAVRI_SERVICE(FL48_Cos360),
    KAVRI_SERVICE(FL48_Div),
    KAVRI_SERVICE(FL48_Exp),
    KAVRI_SERVICE(FL48_Exp10),
    KAVRI_SERVICE(FL48_IsEqual),
    KAVRI_SERVICE(FL48_IsGreater),
    KAVRI_SERVICE(FL48_IsGreaterEqual),
    KAVRI_SERVICE(FL48_IsLess),
    KAVRI_SERVICE(FL48_IsLessEqual),
    KAVRI_SERVICE(FL48_IsNotEqual),
    KAVRI_SERVICE(FL48_Ln),
    KAVRI_SERVICE(FL48_Log10),
    KAVRI_SERVICE(FL48_Mul),
    KAVRI_SERVICE(FL48_Sin),
    KAVRI_SERVICE(FL48_Sin360),
    KAVRI_SERVICE(FL48_Sqrt),
    KAVRI_SERVICE(FL48_Sub),
    KAVRI_SERVICE(FL48_Tan),
    KAVRI_SERVICE(FL48_Tan360),
    KAVRI_SERVICE(I2C_Read),
    KAVRI_SERVICE(I2C_Setup),
    KAVRI_SERVICE(I2C_Write),
    KAVRI_SERVICE(TextGrph_ClearHome),
    KAVRI_SERVICE(TextGrph_DrawLine),
    KAVRI_SERVICE(TextGrph_DrawRectangle),
    KAVRI_SERVICE(TextGrph_DrawRectangleBlack),
    KAVRI_SERVICE(TextGrph_DrawRectangleDotted),
    KAVRI_SERVICE(TextGrph_DrawRectangleWhite),
    KAVRI_SERVICE(TextGrph_DrawSliderFocusHor),
    KAVRI_SERVICE(TextGrph_DrawSliderFocusVert),
    KAVRI_SERVICE(TextGrph_DrawSliderHor),
    KAVRI_SERVICE(TextGrph_DrawSliderVert),
    KAVRI_SERVICE(TextGrph_GotoXY),
    KAVRI_SERVICE(TextGrph_HandleSlider),
    KAVRI_SERVICE(TextGrph_Intl),
    KAVRI_SERVICE(TextGrph_PrintArrayS2),
    KAVRI_SERVICE(TextGrph_PrintArrayUC),
    KAVRI_SERVICE(TextGrph_PrintInvArrayUC),
    KAVRI_SERVICE(TextGrph_Update),
};

#undef KAVRI_SERVICE

bool HandleGetLibAddresses(int fd, xoIF2013Command_Base*) {
  xoIF2013Reply_LibAddresses reply{};
  reply.code = KavriReplyGetLibAddresses;
  for (int slot = 0; slot < kLibServiceCount; ++slot)
    reply.slot[slot] = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(kLibServices[slot].address));
  return WriteReply(fd, &reply, sizeof reply);
}

}  // namespace kavri
