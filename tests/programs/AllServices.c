#include <kavri-program/KavriProgram.h>

#include "ProgramParts.h"

static int32_t High(const FL48* x) { return (int32_t)((uint32_t)x->expWord << 16 | x->mant[0]); }

static FL48 Ratio(int32_t numerator, int32_t denominator) {
  FL48 x, d;
  FL48_ConvFromShort(&x, numerator);
  FL48_ConvFromShort(&d, denominator);
  FL48_Div(&x, &d);
  return x;
}

static uint32_t DisplaySum(shm_if_s* area) {
  uint32_t sum = 0;
  for (int i = 0; i < KAVRI_DISPLAY_BUFFER_SIZE; ++i) sum = sum * 31 + area->DisplayBuffer[i];
  return sum;
}

/* Services on FL48 numbers, each with the slot it answers for. */
static const struct {
  int slot;
  void (*service)(FL48*);
  int16_t numerator, denominator;
} unary[] = {
    {9, FL48_Abs, -5, 1},    {10, FL48_Acos, 1, 2},   {11, FL48_Acos360, 1, 2}, {13, FL48_Asin, 1, 2},
    {14, FL48_Asin360, 1, 2}, {15, FL48_Atan, 1, 1},   {16, FL48_Atan360, 1, 1}, {20, FL48_Cos, 1, 3},
    {21, FL48_Cos360, 60, 1}, {23, FL48_Exp, 1, 1},    {24, FL48_Exp10, 3, 1},   {31, FL48_Ln, 10, 1},
    {32, FL48_Log10, 1000, 1}, {34, FL48_Sin, 1, 2},   {35, FL48_Sin360, 30, 1}, {36, FL48_Sqrt, 9, 4},
    {38, FL48_Tan, 1, 4},    {39, FL48_Tan360, 45, 1},
};
static const struct {
  int slot;
  void (*service)(FL48*, const FL48*);
  int16_t a, b;
} binary[] = {{12, FL48_Add, 3, 4}, {22, FL48_Div, 1, 3}, {33, FL48_Mul, -6, 7}, {37, FL48_Sub, 3, 10}};
static const struct {
  int slot;
  int32_t (*service)(const FL48*, const FL48*);
  int16_t a, b;
} compare[] = {{25, FL48_IsEqual, 2, 2},    {26, FL48_IsGreater, 2, 3},   {27, FL48_IsGreaterEqual, 3, 3},
               {28, FL48_IsLess, 2, 3},     {29, FL48_IsLessEqual, 4, 3}, {30, FL48_IsNotEqual, 4, 3}};

static const struct {
  int slot;
  void (*service)(int32_t w, int32_t h);
  int32_t x, w;
} rectangles[] = {{45, TextGrph_DrawRectangle, 30, 10},
                  {46, TextGrph_DrawRectangleBlack, 44, 10},
                  {47, TextGrph_DrawRectangleDotted, 58, 10},
                  {48, TextGrph_DrawRectangleWhite, 46, 4}};
/* x, y, w, h, value, focus, id; minimum 0 and both divisors 1. */
static const struct {
  int slot;
  void (*service)(int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t);
  int32_t args[7];
} sliders[] = {{49, TextGrph_DrawSliderFocusHor, {0, 20, 60, 8, 30, 1, 1}},
               {50, TextGrph_DrawSliderFocusVert, {70, 20, 8, 40, 10, 0, 1}},
               {51, TextGrph_DrawSliderHor, {0, 32, 60, 8, 50, 2, 2}},
               {52, TextGrph_DrawSliderVert, {90, 20, 8, 40, 20, 0, 3}}};

static int16_t currentPage;

void CallAllServices(shm_if_s* area, int32_t r[ALL_SERVICES_RESULTS]) {
  for (int i = 0; i < ALL_SERVICES_RESULTS; ++i) r[i] = -1; /* for the services that answer nothing */
  r[0] = BluetoothGetSelfRadioCallNumber();
  BluetoothMaintenance();
  r[2] = BluetoothSendMessage();
  BluetoothSetReceiveCallback();
  BluetoothSetup();
  CameraSetup(NULL); /* no chain: nothing is started */
  DisplaySetup(NULL, &currentPage);
  r[7] = CheckTimeSliceCanContinue(area);
  r[39] = I2C_Read();
  I2C_Setup();
  r[41] = I2C_Write();

  for (unsigned i = 0; i < sizeof unary / sizeof unary[0]; ++i) {
    FL48 x = Ratio(unary[i].numerator, unary[i].denominator);
    unary[i].service(&x);
    r[unary[i].slot - 1] = High(&x);
  }
  for (unsigned i = 0; i < sizeof binary / sizeof binary[0]; ++i) {
    FL48 a = Ratio(binary[i].a, 1), b = Ratio(binary[i].b, 1);
    binary[i].service(&a, &b);
    r[binary[i].slot - 1] = High(&a);
  }
  for (unsigned i = 0; i < sizeof compare / sizeof compare[0]; ++i) {
    FL48 a = Ratio(compare[i].a, 1), b = Ratio(compare[i].b, 1);
    r[compare[i].slot - 1] = compare[i].service(&a, &b);
  }
  FL48 x;
  FL48_ConvFromShort(&x, 1000);
  r[16] = High(&x);
  x = Ratio(99, 4);
  r[17] = FL48_ConvToShort(&x, FL48_ROUND_NEAREST);
  FL48 down = Ratio(-99, 4);
  r[59] = FL48_ConvToShort(&down, FL48_ROUND_DOWN);
  uint32_t text[1 + 8] = {0x55};
  FL48_ConvToTextRP(&x, FL_FORMAT_FIXED(8, 2), text);
  r[18] = (int32_t)(text[0] + text[1] * 7 + text[4] * 11 + text[8] * 13); /* "   24.75": 0x55 left alone */

  /* Text graphics: each result is the display after the call. */
  TextGrph_Intl(area);
  r[54] = (int32_t)DisplaySum(area);
  TextGrph_GotoXY(0, 0);
  r[52] = (int32_t)DisplaySum(area);
  TextGrph_DrawLine(20, 10);
  r[43] = (int32_t)DisplaySum(area);
  for (unsigned i = 0; i < sizeof rectangles / sizeof rectangles[0]; ++i) {
    TextGrph_GotoXY(rectangles[i].x, 2);
    rectangles[i].service(rectangles[i].w, 8);
    r[rectangles[i].slot - 1] = (int32_t)DisplaySum(area);
  }
  for (unsigned i = 0; i < sizeof sliders / sizeof sliders[0]; ++i) {
    const int32_t* a = sliders[i].args;
    sliders[i].service(a[0], a[1], a[2], a[3], a[4], 0, 1, 1, a[5], a[6]);
    r[sliders[i].slot - 1] = (int32_t)DisplaySum(area);
  }
  r[53] = TextGrph_HandleSlider(10, 0, 100, 1, 1);
  static const int16_t numbers[] = {'4', '2'};
  static const uint8_t letters[] = {'o', 'k'};
  TextGrph_GotoXY(0, 48);
  TextGrph_PrintArrayS2(numbers, 2);
  r[55] = (int32_t)DisplaySum(area);
  TextGrph_PrintArrayUC(letters, 2);
  r[56] = (int32_t)DisplaySum(area);
  TextGrph_PrintInvArrayUC(letters, 2);
  r[57] = (int32_t)DisplaySum(area);
  TextGrph_ClearHome();
  r[42] = (int32_t)DisplaySum(area);
  r[58] = TextGrph_Update();
}
