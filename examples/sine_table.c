/* FL48 arithmetic printed with text graphics: a table of sin x and the square
 * root of x for x = 0, 15, ..., 90 degrees, then the program ends with exit
 * code 0 and the display keeps the table. */
#include <kavri-program/KavriProgram.h>

/* Prints x right-aligned in a field of `width` characters, `decimals` after
 * the point. */
static void PrintNumber(const FL48* x, int32_t width, int32_t decimals) {
  uint32_t wide[1 + 16]; /* element 0 is not written */
  uint8_t text[16];
  FL48_ConvToTextRP(x, FL_FORMAT_FIXED(width, decimals), wide);
  for (int32_t i = 0; i < width; ++i) text[i] = (uint8_t)wide[1 + i];
  TextGrph_PrintArrayUC(text, width);
}

int32_t KavriSlice(void) {
  static const uint8_t title[] = " deg   sin    sqrt";
  TextGrph_Intl(&KavriTransArea);
  TextGrph_GotoXY(0, 0);
  TextGrph_PrintArrayUC(title, (int32_t)sizeof title - 1);
  TextGrph_GotoXY(0, 9);
  TextGrph_DrawLine(127, 9);

  for (int16_t row = 0; row < 7; ++row) {
    FL48 degrees, sine, root;
    FL48_ConvFromShort(&degrees, row * 15);
    sine = degrees;
    FL48_Sin360(&sine);
    root = degrees;
    FL48_Sqrt(&root);
    TextGrph_GotoXY(0, 11 + 8 * row);
    PrintNumber(&degrees, 4, 0);
    PrintNumber(&sine, 8, 4);
    PrintNumber(&root, 8, 3);
  }
  TextGrph_Update();
  return 0;
}
