#include <kavri-program/KavriProgram.h>

#include "ProgramParts.h"

static int32_t High(const FL48* x) { return (int32_t)((uint32_t)x->expWord << 16 | x->mant[0]); }

/* Each unary FL48 service on its own copy of x. */
static int32_t Unary(void (*service)(FL48*), int32_t numerator, int32_t denominator) {
  FL48 x, d;
  FL48_ConvFromShort(&x, numerator);
  FL48_ConvFromShort(&d, denominator);
  FL48_Div(&x, &d);
  service(&x);
  return High(&x);
}

static int32_t Binary(void (*service)(FL48*, const FL48*), int32_t a, int32_t b) {
  FL48 x, y;
  FL48_ConvFromShort(&x, a);
  FL48_ConvFromShort(&y, b);
  service(&x, &y);
  return High(&x);
}

static int32_t Compare(int32_t (*service)(const FL48*, const FL48*), int32_t a, int32_t b) {
  FL48 x, y;
  FL48_ConvFromShort(&x, a);
  FL48_ConvFromShort(&y, b);
  return service(&x, &y);
}

static uint32_t DisplaySum(shm_if_s* area) {
  uint32_t sum = 0;
  for (int i = 0; i < KAVRI_DISPLAY_BUFFER_SIZE; ++i) sum = sum * 31 + area->DisplayBuffer[i];
  return sum;
}

static int16_t currentPage;

void CallAllServices(shm_if_s* area, int32_t r[ALL_SERVICES_RESULTS]) {
  r[0] = BluetoothGetSelfRadioCallNumber();
  BluetoothMaintenance();
  r[1] = -1;
  r[2] = BluetoothSendMessage();
  BluetoothSetReceiveCallback();
  r[3] = -1;
  BluetoothSetup();
  r[4] = -1;
  CameraSetup(NULL); /* no chain: nothing is started */
  r[5] = -1;
  DisplaySetup(NULL, &currentPage);
  r[6] = -1;
  r[7] = CheckTimeSliceCanContinue(area);

  FL48 x;
  FL48_ConvFromShort(&x, -5);
  FL48_Abs(&x);
  r[8] = High(&x);
  r[9] = Unary(FL48_Acos, 1, 2);
  r[10] = Unary(FL48_Acos360, 1, 2);
  r[11] = Binary(FL48_Add, 3, 4);
  r[12] = Unary(FL48_Asin, 1, 2);
  r[13] = Unary(FL48_Asin360, 1, 2);
  r[14] = Unary(FL48_Atan, 1, 1);
  r[15] = Unary(FL48_Atan360, 1, 1);
  FL48_ConvFromShort(&x, 1000);
  r[16] = High(&x);
  FL48_ConvFromShort(&x, 99);
  FL48 third;
  FL48_ConvFromShort(&third, 4);
  FL48_Div(&x, &third);
  r[17] = FL48_ConvToShort(&x, FL48_ROUND_NEAREST);
  uint32_t text[1 + 8] = {0x55};
  FL48_ConvToTextRP(&x, FL_FORMAT_FIXED(8, 2), text);
  r[18] = (int32_t)(text[0] + text[1] * 7 + text[4] * 11 + text[8] * 13); /* "   24.75": 0x55 left alone */
  r[19] = Unary(FL48_Cos, 1, 3);
  r[20] = Unary(FL48_Cos360, 60, 1);
  r[21] = Binary(FL48_Div, 1, 3);
  r[22] = Unary(FL48_Exp, 1, 1);
  r[23] = Unary(FL48_Exp10, 3, 1);
  r[24] = Compare(FL48_IsEqual, 2, 2);
  r[25] = Compare(FL48_IsGreater, 2, 3);
  r[26] = Compare(FL48_IsGreaterEqual, 3, 3);
  r[27] = Compare(FL48_IsLess, 2, 3);
  r[28] = Compare(FL48_IsLessEqual, 4, 3);
  r[29] = Compare(FL48_IsNotEqual, 4, 3);
  r[30] = Unary(FL48_Ln, 10, 1);
  r[31] = Unary(FL48_Log10, 1000, 1);
  r[32] = Binary(FL48_Mul, -6, 7);
  r[33] = Unary(FL48_Sin, 1, 2);
  r[34] = Unary(FL48_Sin360, 30, 1);
  r[35] = Unary(FL48_Sqrt, 9, 4);
  r[36] = Binary(FL48_Sub, 3, 10);
  r[37] = Unary(FL48_Tan, 1, 4);
  r[38] = Unary(FL48_Tan360, 45, 1);
  r[39] = I2C_Read();
  I2C_Setup();
  r[40] = -1;
  r[41] = I2C_Write();

  TextGrph_Intl(area);
  TextGrph_ClearHome();
  r[42] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(0, 0);
  TextGrph_DrawLine(20, 10);
  r[43] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(30, 2);
  TextGrph_DrawRectangle(10, 8);
  r[44] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(44, 2);
  TextGrph_DrawRectangleBlack(10, 8);
  r[45] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(58, 2);
  TextGrph_DrawRectangleDotted(10, 8);
  r[46] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(45, 3);
  TextGrph_DrawRectangleWhite(4, 4);
  r[47] = (int32_t)DisplaySum(area);
  TextGrph_DrawSliderFocusHor(0, 20, 60, 8, 30, 0, 1, 1, 1, 1);
  r[48] = (int32_t)DisplaySum(area);
  TextGrph_DrawSliderFocusVert(70, 20, 8, 40, 10, 0, 1, 1, 0, 1);
  r[49] = (int32_t)DisplaySum(area);
  TextGrph_DrawSliderHor(0, 32, 60, 8, 50, 0, 1, 1, 2, 2);
  r[50] = (int32_t)DisplaySum(area);
  TextGrph_DrawSliderVert(90, 20, 8, 40, 20, 0, 1, 1, 0, 3);
  r[51] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(0, 48);
  r[52] = (int32_t)DisplaySum(area);
  r[53] = TextGrph_HandleSlider(10, 0, 100, 1, 1);
  r[54] = (int32_t)DisplaySum(area); /* after TextGrph_Intl, above */
  static const int16_t numbers[] = {'4', '2'};
  TextGrph_PrintArrayS2(numbers, 2);
  r[55] = (int32_t)DisplaySum(area);
  static const uint8_t letters[] = {'o', 'k'};
  TextGrph_PrintArrayUC(letters, 2);
  r[56] = (int32_t)DisplaySum(area);
  TextGrph_PrintInvArrayUC(letters, 2);
  r[57] = (int32_t)DisplaySum(area);
  r[58] = TextGrph_Update();
}
