// Draws the pictures shown in docs/TEXTGRAPHICS.md through the library's own
// calls and writes them as PNG files:
//   textgraphics-picture DIR   ->  DIR/textgraphics.png, DIR/textgraphics-charset-0.png and -1.png
#include <cstdio>
#include <string>

#include "DisplayImage.h"
#include "kavri/MotorIOLib.h"
#include "kavri/TextGrph.h"
#include "motoriolib/MotorIOLibSim.h"

namespace {

void DrawDemoScreen() {
  const uint8_t title[] = " \x10 Line follower";
  TextGrph_PrintInvArrayUC(title, sizeof title - 1);

  TextGrph_PutStrg(0, 12, "Speed");
  TextGrph_PutStrg(0, 22, "Turn");
  TextGrph_PutStrg(48, 12, "42");
  TextGrph_PutStrg(48, 22, "-15\xB0");

  // A small plot of the sensor reading.
  TextGrph_GotoXY(78, 11);
  TextGrph_DrawRectangleRounded(36, 22);
  const int points[][2] = {{80, 28}, {86, 22}, {91, 25}, {97, 14}, {103, 18}, {111, 16}};
  for (int i = 0; i + 1 < 6; ++i) {
    TextGrph_GotoXY(points[i][0], points[i][1]);
    TextGrph_DrawLine(points[i + 1][0], points[i + 1][1]);
  }

  // Two sliders, the first with the focus.
  TextGrph_DrawSliderHor(0, 38, 72, 8, 65, 0, 1, 100, 1, 1);
  TextGrph_DrawSliderVert(118, 11, 9, 36, 30, 0, 1, 100, 1, 2);

  TextGrph_GotoXY(78, 38);
  TextGrph_DrawRectangleDotted(36, 9);
  TextGrph_PutStrg(84, 40, "Stop");

  TextGrph_PutStrg(0, 56, "Batt 7.4V \x99\x99\x99\x9C");
}

// Codes first .. first + 127, 16 to a row.
void DrawCharset(int first) {
  for (int i = 0; i < 128; ++i) TextGrph_PutChar((i % 16) * 8, (i / 16) * 8, static_cast<uint8_t>(first + i));
}

bool Show(const std::string& path) {
  TextGrph_Update();
  uint8_t frame[KAVRI_DISPLAY_BUFFER_SIZE];
  // Taken as the display would take it, so the picture is what it would show.
  if (!MotorIOLibSim_TakeDisplayFrame(frame)) return false;
  return WriteDisplayImage(frame, path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : ".";
  TextGrph_Intl(MotorIOLib_GetTransArea(KAVRI_TRANS_AREA_INDEX));
  DrawDemoScreen();
  bool ok = Show(dir + "/textgraphics.png");
  for (int half = 0; half < 2; ++half) {
    TextGrph_ClearHome();
    DrawCharset(half * 128);
    ok = Show(dir + "/textgraphics-charset-" + std::to_string(half) + ".png") && ok;
  }
  return ok ? 0 : 1;
}
