// The two line finders of the analysis chain. Both sample the frame along a
// straight scan line that the program lays through the image and write their
// results through 16-bit pointers into the program's variables. Offsets in
// the comments are those of the 32-bit controller (4-byte pointers).
#ifndef KAVRI_CAMERAANALYSISLINE_H
#define KAVRI_CAMERAANALYSISLINE_H

#include "kavri/CameraAnalysis.h"

extern "C" {

// Type 2: the strongest single stripe crossing the scan line, found as a
// plateau of line-ness between a minimum and a maximum width.
struct CameraAnalysisMaxOnLine {
  CameraAnalysisBase base;    // 0
  int32_t startX;             // 16  first end of the scan line, pixels
  int32_t startY;             // 20
  int32_t endX;               // 24  second end; the last sample lies just short of it
  int32_t endY;               // 28
  uint16_t colorCheck;        // 32  nonzero: a candidate must also pass the ranges below
  int16_t brightnessMin;      // 34  percent
  int16_t brightnessMax;      // 36  percent; negative: no brightness test, shares un-normalised
  int16_t redMin;             // 38  channel shares, 100 = neutral grey
  int16_t greenMin;           // 40
  int16_t blueMin;            // 42
  int16_t redMax;             // 44
  int16_t greenMax;           // 46
  int16_t blueMax;            // 48
  uint16_t colorAxis;         // 50  nonzero: line-ness is closeness to the taught line colour
  uint16_t lineColorR;        // 52  0..255
  uint16_t lineColorG;        // 54
  uint16_t lineColorB;        // 56
  uint16_t backgroundColorR;  // 58  0..255, the floor
  uint16_t backgroundColorG;  // 60
  uint16_t backgroundColorB;  // 62
  int32_t widthMin;           // 64  samples
  int32_t widthMax;           // 68  samples
  int32_t peakThreshold;      // 72  percent of full scale (1275)
  int32_t contrastThreshold;  // 76  percent of full scale, on each side
  uint8_t brightLine;         // 80  without colour axis: nonzero = line brighter than floor
  uint8_t reserved81[3];      // 81
  int16_t* positionResult;    // 84  -1000..1000; -1 for unusable widths
  int16_t* qualityResult;     // 88
  int16_t* widthResult;       // 92  samples
  // Written by Init.
  int32_t sampleCount;    // 96   N
  float xOrigin;          // 100
  float xStep;            // 104
  float yOrigin;          // 108
  float yStep;            // 112
  int32_t* valueBuffer;   // 116  N entries each
  int32_t* redBuffer;     // 120
  int32_t* greenBuffer;   // 124
  int32_t* blueBuffer;    // 128
  int32_t* erodedBuffer;  // 132
  int32_t weightR;        // 136  16.16
  int32_t weightG;        // 140
  int32_t weightB;        // 144
  int32_t weightOffset;   // 148

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
};

// Type 3: up to five lines crossing the scan line, searched over all widths
// between the limits at once; in colour (AnalyzeColor) or on luma alone
// (AnalyzeBW), chosen by the color flag.
struct CameraAnalysisMaxOnLine2 {
  CameraAnalysisBase base;        // 0
  int32_t startX;                 // 16
  int32_t startY;                 // 20
  int32_t endX;                   // 24
  int32_t endY;                   // 28
  int32_t widthMin;               // 32  output units; Init turns it into samples
  int32_t widthMax;               // 36  output units; Init turns it into samples
  int32_t threshold;              // 40  percent; Init turns it into 1/256 units
  int32_t lineCountMax;           // 44  result slots the program provides; at most 5 are used
  uint8_t bright;                 // 48  nonzero: lines brighter than their surroundings
  uint8_t color;                  // 49  nonzero: AnalyzeColor, else AnalyzeBW
  uint8_t whiteBalance;           // 50  colour only: balance the channels on their medians
  uint8_t refine;                 // 51  re-measure each line around its position and width
  uint8_t fineWidthStep;          // 52  luma refine in steps of one sample instead of two
  uint8_t reserved53[3];          // 53
  int32_t rangeMin;               // 56  output value of sample 0
  int32_t rangeMax;               // 60  output value of sample N
  int16_t* positionResults[5];    // 64   any pointer may be null
  int16_t* strengthResults[5];    // 84
  int16_t* widthResults[5];       // 104
  int16_t* redResults[5];         // 124  colour only
  int16_t* greenResults[5];       // 144
  int16_t* blueResults[5];        // 164
  int16_t* brightnessResults[5];  // 184
  // Written back.
  uint16_t lineCount;      // 204  lines found in the last frame
  uint8_t reserved206[2];  // 206
  int32_t sampleCount;     // 208  N
  float xOrigin;           // 212
  float xStep;             // 216
  float yOrigin;           // 220
  float yStep;             // 224
  int32_t* valueBuffer;    // 228  N + 1 entries each; grey, then prefix sums
  int32_t* redBuffer;      // 232  colour only, else null
  int32_t* greenBuffer;    // 236
  int32_t* blueBuffer;     // 240

  void Init();
  void Uninit();
  void Analyze(int index, const unsigned char* frame, const unsigned char* previousFrame,
               const unsigned char* compressed, int compressedSize);
  void AnalyzeColor(int index, const unsigned char* frame, const unsigned char* previousFrame,
                    const unsigned char* compressed, int compressedSize);
  void AnalyzeBW(int index, const unsigned char* frame, const unsigned char* previousFrame,
                 const unsigned char* compressed, int compressedSize);
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(offsetof(CameraAnalysisMaxOnLine, startX) == 16, "startX offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, endY) == 28, "endY offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, colorCheck) == 32, "colorCheck offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, brightnessMin) == 34, "brightnessMin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, brightnessMax) == 36, "brightnessMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, redMin) == 38, "redMin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, blueMax) == 48, "blueMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, colorAxis) == 50, "colorAxis offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, lineColorR) == 52, "lineColorR offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, backgroundColorR) == 58, "backgroundColorR offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, backgroundColorB) == 62, "backgroundColorB offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, widthMin) == 64, "widthMin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, widthMax) == 68, "widthMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, peakThreshold) == 72, "peakThreshold offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, contrastThreshold) == 76, "contrastThreshold offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, brightLine) == 80, "brightLine offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, positionResult) == 84, "positionResult offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, qualityResult) == 88, "qualityResult offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, widthResult) == 92, "widthResult offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, sampleCount) == 96, "sampleCount offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, xOrigin) == 100, "xOrigin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, yStep) == 112, "yStep offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, valueBuffer) == 116, "valueBuffer offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, erodedBuffer) == 132, "erodedBuffer offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, weightR) == 136, "weightR offset");
static_assert(offsetof(CameraAnalysisMaxOnLine, weightOffset) == 148, "weightOffset offset");
static_assert(sizeof(CameraAnalysisMaxOnLine) == 152, "line finder record size");

static_assert(offsetof(CameraAnalysisMaxOnLine2, startX) == 16, "startX offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, endY) == 28, "endY offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, widthMin) == 32, "widthMin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, widthMax) == 36, "widthMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, threshold) == 40, "threshold offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, lineCountMax) == 44, "lineCountMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, bright) == 48, "bright offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, color) == 49, "color offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, whiteBalance) == 50, "whiteBalance offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, refine) == 51, "refine offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, fineWidthStep) == 52, "fineWidthStep offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, rangeMin) == 56, "rangeMin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, rangeMax) == 60, "rangeMax offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, positionResults) == 64, "positionResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, strengthResults) == 84, "strengthResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, widthResults) == 104, "widthResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, redResults) == 124, "redResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, greenResults) == 144, "greenResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, blueResults) == 164, "blueResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, brightnessResults) == 184, "brightnessResults offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, lineCount) == 204, "lineCount offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, sampleCount) == 208, "sampleCount offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, xOrigin) == 212, "xOrigin offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, yStep) == 224, "yStep offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, valueBuffer) == 228, "valueBuffer offset");
static_assert(offsetof(CameraAnalysisMaxOnLine2, blueBuffer) == 240, "blueBuffer offset");
static_assert(sizeof(CameraAnalysisMaxOnLine2) == 244, "multi-line finder record size");
#endif

}  // extern "C"

#endif
