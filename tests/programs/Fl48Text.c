#include <kavri-program/KavriProgram.h>

#include "ProgramParts.h"

static void PrintNumber(const FL48* x, uint32_t format) {
  uint32_t wide[1 + 32];
  uint8_t text[32];
  int32_t width = (int32_t)(format >> 16 & 0xFF);
  FL48_ConvToTextRP(x, format, wide);
  for (int32_t i = 0; i < width; ++i) text[i] = (uint8_t)wide[1 + i];
  TextGrph_PrintArrayUC(text, width);
}

static int32_t Words(const FL48* x) { return (int32_t)((uint32_t)x->expWord << 16 | x->mant[0]); }

void DrawFl48Text(shm_if_s* area, int32_t results[FL48_TEXT_RESULTS]) {
  FL48 ratio, square, root, seven;
  FL48_ConvFromShort(&ratio, 22);
  FL48_ConvFromShort(&seven, 7);
  FL48_Div(&ratio, &seven);
  square = ratio;
  FL48_Mul(&square, &ratio);
  FL48_ConvFromShort(&root, 2);
  FL48_Sqrt(&root);
  FL48_Sub(&root, &seven);

  TextGrph_Intl(area);
  static const uint8_t title[] = "22/7, squared, sqrt(2)-7";
  TextGrph_GotoXY(0, 0);
  TextGrph_PrintArrayUC(title, (int32_t)sizeof title - 1);
  TextGrph_GotoXY(8, 16);
  PrintNumber(&ratio, FL_FORMAT_FIXED(10, 6));
  TextGrph_GotoXY(8, 28);
  PrintNumber(&square, FL_FORMAT_FIXED(12, 4));
  TextGrph_GotoXY(8, 40);
  PrintNumber(&root, FL_FORMAT_FIXED(10, 5));
  TextGrph_GotoXY(2, 12);
  TextGrph_DrawRectangle(124, 40);
  TextGrph_GotoXY(0, 63);
  TextGrph_DrawLine(127, 56);
  TextGrph_Update();

  results[0] = Words(&ratio);
  results[1] = ratio.mant[1];
  results[2] = Words(&square);
  results[3] = square.mant[1];
  results[4] = Words(&root);
  results[5] = root.mant[1];
  results[6] = FL48_ConvToShort(&square, FL48_ROUND_NEAREST);
  results[7] = FL48_ConvToShort(&root, FL48_ROUND_DOWN);
  results[8] = FL48_IsGreater(&square, &ratio);
  results[9] = FL48_IsLess(&square, &ratio);
  results[10] = FL48_IsEqual(&ratio, &ratio);
  uint32_t sum = 0;
  for (int i = 0; i < KAVRI_DISPLAY_BUFFER_SIZE; ++i) sum = sum * 31 + area->DisplayBuffer[i];
  results[11] = (int32_t)sum;
  results[12] = area->DisplayBuffer[16 * 20 + 2];
}
