/* What a downloaded program includes: the controller's services, reached
 * through the library's address table, the records a program builds for them,
 * and the entry convention.
 *
 * Programs are freestanding C for 32-bit ARM (hard-float): no C library, no
 * operating system calls. The controller calls the program's slice function
 * up to ten times per I/O cycle (10 ms); each call does a little work and
 * returns KAVRI_CALL_AGAIN, or any other value to end the program with that
 * exit code.
 *
 *   #include <kavri-program/KavriProgram.h>
 *   int KavriSlice(void) { ... return KAVRI_CALL_AGAIN; }
 */
#ifndef KAVRI_PROGRAM_H
#define KAVRI_PROGRAM_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

#if !defined(__cplusplus) && UINTPTR_MAX != 0xFFFFFFFF
#error "programs for the controller are built for 32-bit ARM"
#endif

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
#define KAVRI_LAYOUT(condition, what) static_assert(condition, what)
#else
#define KAVRI_LAYOUT(condition, what) _Static_assert(condition, what)
#endif

/* ---- Entry convention ---- */

#define KAVRI_CALL_AGAIN 0x7FFF

/* The program's slice, called from the image's entry at byte offset 12. */
int32_t KavriSlice(void);

/* ---- Transfer area of the I/O library (9216 bytes) ---- */

#define KAVRI_DISPLAY_WIDTH 128
#define KAVRI_DISPLAY_HEIGHT 64
#define KAVRI_DISPLAY_BUFFER_SIZE 1024

typedef struct shm_if_s {
  uint8_t Reserved0[252];
  uint16_t InputValues[8];        /* 252: the inputs after the last exchange */
  uint8_t Reserved268[332 - 268];
  uint16_t OutputValues[8];       /* 332: sent at the next exchange */
  uint8_t Reserved348[464 - 348];
  uint8_t* DisplayBuffer;         /* 464: 128 x 64 pixels, 1 bit each, 1 = dark */
  uint16_t DisplayUpdateCounter;  /* 468: non-zero while an update is pending */
  uint16_t DisplayUpdateFlag;     /* 470 */
  uint8_t Reserved472[0x2400 - 472];
} shm_if_s;

KAVRI_LAYOUT(sizeof(shm_if_s) == 0x2400, "transfer area size");
KAVRI_LAYOUT(offsetof(shm_if_s, OutputValues) == 332, "output values offset");
KAVRI_LAYOUT(offsetof(shm_if_s, DisplayBuffer) == 464, "display buffer offset");

/* The controller's transfer area; its address is linked into the image. */
extern shm_if_s KavriTransArea;

/* ---- FL48 numbers ---- */

/* Value (mantissa / 2^32) * 2^(exponent field - 8192). Word 0: bit 15 sign,
 * bit 14 exact, bits 13..0 exponent field; fields 0..4 are the special values
 * undefined, NaN, underflow (also zero), overflow and lost. */
typedef struct FL48 {
  uint16_t expWord;
  uint16_t mant[2]; /* high word first */
} FL48;

KAVRI_LAYOUT(sizeof(FL48) == 6 && offsetof(FL48, mant) == 2, "FL48 is three words");

#define FL48_EXP_MASK 0x3FFF
#define FL48_CODE_UNDEFINED 0
#define FL48_CODE_NAN 1
#define FL48_CODE_UNDERFLOW 2
#define FL48_CODE_OVERFLOW 3
#define FL48_CODE_LOST 4

/* Rounding modes of FL48_ConvToShort, and its "no value" answer. */
#define FL48_ROUND_NEAREST 0
#define FL48_ROUND_TOWARD_ZERO 1
#define FL48_ROUND_DOWN 2
#define FL48_ROUND_UP 3
#define FL48_NO_SHORT_VALUE (-32768)

/* Format word of FL48_ConvToTextRP: layout kind in bits 3..0 (2 integer,
 * 1 fixed point), digits after the separator in bits 15..8, field width in
 * bits 23..16. */
#define FL_FORMAT_INTEGER(width) (2u | (uint32_t)(width) << 16)
#define FL_FORMAT_FIXED(width, decimals) (1u | (uint32_t)(decimals) << 8 | (uint32_t)(width) << 16)

/* ---- Camera analysis records ---- */

enum {
  CameraAnalysisTypeCounter = 0,
  CameraAnalysisTypeDeliverFrame = 1,
  CameraAnalysisTypeMaxOnLine = 2,
  CameraAnalysisTypeMaxOnLine2 = 3,
  CameraAnalysisTypeColorField = 4,
  CameraAnalysisTypeChangeDetect = 5,
  CameraAnalysisTypeBallSingleBlock = 6,
  CameraAnalysisTypeBallMultiBlock = 7,
};

/* Head of every record; width and height are overwritten with the capture
 * size when capture starts. */
typedef struct CameraAnalysisBase {
  int32_t type;
  struct CameraAnalysisBase* next;
  int32_t width;
  int32_t height;
} CameraAnalysisBase;

/* Counts frames; the first one of a chain also sets the capture size, rate
 * and mains frequency (60 for the 60 Hz filter, else 50 Hz). */
typedef struct CameraAnalysisCounter {
  CameraAnalysisBase base;
  int32_t frameRate;
  int32_t powerlineFreq;
  int16_t* frameCounterVar; /* frame count modulo 32768; must not be null */
  uint8_t* changeVar;       /* set to 255 after every analysed frame; may be null */
} CameraAnalysisCounter;

/* Double buffer of compressed frames for a consumer; the library's own
 * camera server uses one. */
typedef struct CameraAnalysisDeliverFrame {
  CameraAnalysisBase base;
  int32_t capacity;
  uint8_t* buffer[2];
  uint8_t full[2];
  uint8_t reserved30[2];
  int32_t size[2];
  int32_t writeIndex;
  int32_t readIndex;
  uint8_t enabled;
  uint8_t writing;
  uint8_t reserved50[2];
} CameraAnalysisDeliverFrame;

/* Mean brightness and colour of a rectangle (pixels), in percent. Null
 * results are not stored. */
typedef struct CameraAnalysisColorField {
  CameraAnalysisBase base;
  int32_t x, y, w, h;
  int16_t* brightnessVar;
  int16_t* redVar;
  int16_t* greenVar;
  int16_t* blueVar;
} CameraAnalysisColorField;

/* Change against the previous frame inside a rectangle. */
typedef struct CameraAnalysisChangeDetect {
  CameraAnalysisBase base;
  int32_t x, y, w, h;
  int32_t threshold; /* percent of luminance that counts as a change */
  int32_t minArea;   /* percent of the rectangle needed to report a strength */
  int16_t* strengthVar;
  int16_t* areaVar;
} CameraAnalysisChangeDetect;

/* Type 2: the strongest stripe crossing a scan line laid through the frame.
 * Shares are per channel, 100 = neutral grey; full scale of the thresholds
 * is 1275. The fields after widthResult belong to the library. */
typedef struct CameraAnalysisMaxOnLine {
  CameraAnalysisBase base;
  int32_t startX, startY;  /* first end of the scan line, pixels */
  int32_t endX, endY;      /* second end; the last sample lies just short of it */
  uint16_t colorCheck;     /* non-zero: a candidate must also pass the ranges below */
  int16_t brightnessMin;   /* percent */
  int16_t brightnessMax;   /* percent; negative: no brightness test, shares not normalised */
  int16_t redMin, greenMin, blueMin;
  int16_t redMax, greenMax, blueMax;
  uint16_t colorAxis;      /* non-zero: line-ness is closeness to the line colour */
  uint16_t lineColorR, lineColorG, lineColorB;                    /* 0..255 */
  uint16_t backgroundColorR, backgroundColorG, backgroundColorB;  /* 0..255 */
  int32_t widthMin, widthMax;  /* samples */
  int32_t peakThreshold;       /* percent of full scale */
  int32_t contrastThreshold;   /* percent of full scale, on each side */
  uint8_t brightLine;          /* without colour axis: non-zero = brighter than the floor */
  uint8_t reserved81[3];
  int16_t* positionResult;     /* -1000..1000; -1 for unusable widths */
  int16_t* qualityResult;
  int16_t* widthResult;        /* samples */
  int32_t sampleCount;
  float xOrigin, xStep, yOrigin, yStep;
  int32_t* valueBuffer;
  int32_t* redBuffer;
  int32_t* greenBuffer;
  int32_t* blueBuffer;
  int32_t* erodedBuffer;
  int32_t weightR, weightG, weightB, weightOffset;
} CameraAnalysisMaxOnLine;

/* Type 3: up to five lines crossing a scan line, in colour or on luma alone.
 * Any result pointer may be null; lineCount and the fields after it belong
 * to the library. */
typedef struct CameraAnalysisMaxOnLine2 {
  CameraAnalysisBase base;
  int32_t startX, startY;
  int32_t endX, endY;
  int32_t widthMin, widthMax;  /* output units */
  int32_t threshold;           /* percent */
  int32_t lineCountMax;        /* result slots provided; at most 5 are used */
  uint8_t bright;              /* non-zero: lines brighter than their surroundings */
  uint8_t color;               /* non-zero: colour search, else luma */
  uint8_t whiteBalance;        /* colour only: balance the channels on their medians */
  uint8_t refine;              /* measure each line again around its position */
  uint8_t fineWidthStep;       /* luma refinement in steps of one sample, not two */
  uint8_t reserved53[3];
  int32_t rangeMin;            /* output value of the first sample */
  int32_t rangeMax;            /* ... and of the end of the scan line */
  int16_t* positionResults[5];
  int16_t* strengthResults[5];
  int16_t* widthResults[5];
  int16_t* redResults[5];      /* colour only */
  int16_t* greenResults[5];
  int16_t* blueResults[5];
  int16_t* brightnessResults[5];
  uint16_t lineCount;          /* lines found in the last frame */
  uint8_t reserved206[2];
  int32_t sampleCount;
  float xOrigin, xStep, yOrigin, yStep;
  int32_t* valueBuffer;
  int32_t* redBuffer;
  int32_t* greenBuffer;
  int32_t* blueBuffer;
} CameraAnalysisMaxOnLine2;

/* A rectangle the ball finders leave out, right and bottom exclusive, given
 * in frame coordinates (the library rewrites it as block coordinates). The
 * exclusions follow their ball record directly, exclusionCount of them. */
typedef struct CameraAnalysisBallExclusion {
  int32_t left, top, right, bottom;
} CameraAnalysisBallExclusion;

/* Type 6: one ball in one block. y grows upwards in the results. map and
 * moments belong to the library. */
typedef struct CameraAnalysisBallSingleBlock {
  CameraAnalysisBase base;
  int32_t blockX, blockY;          /* pixels; x is rounded down to even */
  int32_t blockWidth, blockHeight;
  int32_t radiusMin, radiusMax;    /* x output units */
  int32_t threshold;               /* percent */
  int32_t xRangeMin, xRangeMax;    /* output of the block's left and right edges */
  int32_t yRangeMin, yRangeMax;    /* output of its bottom and top rows */
  int16_t* xResult;
  int16_t* yResult;
  int16_t* radiusResult;
  int16_t* qualityResult;          /* percent of the top level */
  uint8_t* map;
  struct CameraBallMoments* moments;
  int32_t exclusionCount;
} CameraAnalysisBallSingleBlock;

/* Type 7: one ball in a block of square cells; small balls are judged per
 * 2 x 2 cells, large ones over the block. Results -1000..1000, y downwards.
 * cellsAcross and the fields after it belong to the library. */
typedef struct CameraAnalysisBallMultiBlock {
  CameraAnalysisBase base;
  int32_t blockX, blockY;
  int32_t blockWidth, blockHeight;
  int16_t* xResult;
  int16_t* yResult;
  int16_t* radiusResult;  /* pixels */
  int16_t* qualityResult; /* at most 10000 */
  int16_t* levelResult;   /* colourfulness level of the ball */
  int32_t unused[3];
  int32_t sizeMin;        /* pixels: a small ball covers at least 0.7 x sizeMin^2 */
  int32_t sizeMax;        /* pixels: a large ball covers at most 0.9 x sizeMax^2 */
  int32_t cellSize;       /* edge of a cell, pixels */
  int32_t cellsAcross, cellsDown;
  uint8_t* map;
  struct CameraBallMoments* cellTables;
  int32_t exclusionCount;
} CameraAnalysisBallMultiBlock;

/* A ball record with room for its exclusions, e.g.
 *   static KAVRI_BALL_WITH_EXCLUSIONS(CameraAnalysisBallSingleBlock, 2) ball; */
#define KAVRI_BALL_WITH_EXCLUSIONS(record, count) \
  struct {                                         \
    record ball;                                   \
    CameraAnalysisBallExclusion exclusions[count]; \
  }

KAVRI_LAYOUT(sizeof(CameraAnalysisBase) == 16, "camera record head");
KAVRI_LAYOUT(sizeof(CameraAnalysisMaxOnLine) == 152 && offsetof(CameraAnalysisMaxOnLine, brightLine) == 80 &&
                 offsetof(CameraAnalysisMaxOnLine, positionResult) == 84,
             "line finder record");
KAVRI_LAYOUT(sizeof(CameraAnalysisMaxOnLine2) == 244 && offsetof(CameraAnalysisMaxOnLine2, rangeMin) == 56 &&
                 offsetof(CameraAnalysisMaxOnLine2, lineCount) == 204,
             "multi-line finder record");
KAVRI_LAYOUT(sizeof(CameraAnalysisBallSingleBlock) == 88 && sizeof(CameraAnalysisBallMultiBlock) == 96 &&
                 sizeof(CameraAnalysisBallExclusion) == 16,
             "ball records: the exclusions follow directly");
KAVRI_LAYOUT(sizeof(CameraAnalysisCounter) == 32 && offsetof(CameraAnalysisCounter, changeVar) == 28,
             "counter record");
KAVRI_LAYOUT(sizeof(CameraAnalysisDeliverFrame) == 52 && offsetof(CameraAnalysisDeliverFrame, size) == 32 &&
                 offsetof(CameraAnalysisDeliverFrame, enabled) == 48,
             "deliver frame record");
KAVRI_LAYOUT(offsetof(CameraAnalysisColorField, blueVar) == 44, "colour field record");
KAVRI_LAYOUT(offsetof(CameraAnalysisChangeDetect, areaVar) == 44, "change detection record");

/* ---- Widget descriptions for the touch screen ---- */

/* Page coordinates: 128 units across, 64 down. */
enum {
  DisplayWidgetTypeButton = 0,
  DisplayWidgetTypeSlider = 1,
  DisplayWidgetTypeText = 2,
  DisplayWidgetTypeRectangle = 3,
  DisplayWidgetTypeLine = 4,
};

typedef struct DisplayWidgetBase {
  int32_t type;
  struct DisplayWidgetBase* next;
  int32_t page;
  int32_t unused12;
  int32_t x, y, w, h;
} DisplayWidgetBase;

typedef struct DisplayWidgetButton {
  DisplayWidgetBase base;
  uint8_t toggle;        /* non-zero: a toggle button */
  uint8_t reserved33;
  int16_t initialState;  /* toggle only: 0 up, 1 down (left value), else down (right value) */
  int16_t valueLeft;     /* reported while pressed on the left half */
  int16_t valueRight;    /* ... and on the right half */
  int16_t* valueVar;
  int16_t* changedVar;   /* set to 1 on every change */
  uint8_t* changeFlag;   /* set to 1 on every change */
  uint8_t reserved52[4];
  char text[40];         /* the label, zero-terminated */
} DisplayWidgetButton;

/* Vertical when w <= h. */
typedef struct DisplayWidgetSlider {
  DisplayWidgetBase base;
  int16_t minimum;
  int16_t maximum;
  int16_t initialValue;
  int16_t sliderOption;
  int16_t* valueVar;
  int16_t* changedVar;
  uint8_t* changeFlag;
} DisplayWidgetSlider;

typedef struct DisplayWidgetText {
  DisplayWidgetBase base;
  int32_t columns;
  int32_t lines;
  uint16_t* chars;          /* lines x columns character codes, line after line */
  int16_t* textChangedVar;  /* set non-zero to have the text shown again */
} DisplayWidgetText;

typedef struct DisplayWidgetLine {
  DisplayWidgetBase base;
  int16_t x1, y1, x2, y2;
} DisplayWidgetLine;

KAVRI_LAYOUT(sizeof(DisplayWidgetBase) == 32, "widget head");
KAVRI_LAYOUT(offsetof(DisplayWidgetButton, initialState) == 34 && offsetof(DisplayWidgetButton, valueVar) == 40 &&
                 offsetof(DisplayWidgetButton, changeFlag) == 48 && offsetof(DisplayWidgetButton, text) == 56,
             "button description");
KAVRI_LAYOUT(offsetof(DisplayWidgetSlider, sliderOption) == 38 && offsetof(DisplayWidgetSlider, changeFlag) == 48,
             "slider description");
KAVRI_LAYOUT(offsetof(DisplayWidgetText, textChangedVar) == 44, "text window description");
KAVRI_LAYOUT(offsetof(DisplayWidgetLine, y2) == 38, "line description");

/* ---- The services, in the order of the controller's address table ---- */

int BluetoothGetSelfRadioCallNumber(void);                  /* answers 1 */
void BluetoothMaintenance(void);                            /* does nothing */
int BluetoothSendMessage(void);                             /* answers 1 */
void BluetoothSetReceiveCallback(void);                     /* does nothing */
void BluetoothSetup(void);                                  /* does nothing */
void CameraSetup(CameraAnalysisBase* chain);
void DisplaySetup(DisplayWidgetBase* widgets, int16_t* currentPage);
bool CheckTimeSliceCanContinue(shm_if_s* area);            /* always false: end the slice */
void FL48_Abs(FL48* x);
void FL48_Acos(FL48* x);
void FL48_Acos360(FL48* x);
void FL48_Add(FL48* a, const FL48* b);                      /* a = a + b */
void FL48_Asin(FL48* x);
void FL48_Asin360(FL48* x);
void FL48_Atan(FL48* x);
void FL48_Atan360(FL48* x);
void FL48_ConvFromShort(FL48* a, int32_t n);
int16_t FL48_ConvToShort(const FL48* a, int32_t mode);
/* Writes the field's characters, one per 32-bit element, into dst[1..width]. */
void FL48_ConvToTextRP(const FL48* x, uint32_t formatWord, uint32_t* dst);
void FL48_Cos(FL48* x);
void FL48_Cos360(FL48* x);
void FL48_Div(FL48* a, const FL48* b);
void FL48_Exp(FL48* x);
void FL48_Exp10(FL48* x);
int32_t FL48_IsEqual(const FL48* a, const FL48* b);
int32_t FL48_IsGreater(const FL48* a, const FL48* b);
int32_t FL48_IsGreaterEqual(const FL48* a, const FL48* b);
int32_t FL48_IsLess(const FL48* a, const FL48* b);
int32_t FL48_IsLessEqual(const FL48* a, const FL48* b);
int32_t FL48_IsNotEqual(const FL48* a, const FL48* b);
void FL48_Ln(FL48* x);
void FL48_Log10(FL48* x);
void FL48_Mul(FL48* a, const FL48* b);
void FL48_Sin(FL48* x);
void FL48_Sin360(FL48* x);
void FL48_Sqrt(FL48* a);
void FL48_Sub(FL48* a, const FL48* b);
void FL48_Tan(FL48* x);
void FL48_Tan360(FL48* x);
int I2C_Read(void);                                         /* answers 1 */
void I2C_Setup(void);                                       /* does nothing */
int I2C_Write(void);                                        /* answers 1 */
void TextGrph_ClearHome(void);
/* Shapes start at the cursor; TextGrph_GotoXY moves it (pixels). */
void TextGrph_DrawLine(int32_t x1, int32_t y1);
void TextGrph_DrawRectangle(int32_t w, int32_t h);
void TextGrph_DrawRectangleBlack(int32_t w, int32_t h);
void TextGrph_DrawRectangleDotted(int32_t w, int32_t h);
void TextGrph_DrawRectangleWhite(int32_t w, int32_t h);
void TextGrph_DrawSliderFocusHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                 int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderFocusVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                                  int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderHor(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                            int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_DrawSliderVert(int32_t x, int32_t y, int32_t w, int32_t h, int32_t value, int32_t min,
                             int32_t div1, int32_t div2, int32_t focus, int32_t id);
void TextGrph_GotoXY(int32_t x, int32_t y);
int16_t TextGrph_HandleSlider(int16_t value, int16_t min, int16_t max, int16_t scale, int32_t step);
/* Binds the display buffer of the area, selects the 8 x 8 font and clears. */
void TextGrph_Intl(shm_if_s* area);
void TextGrph_PrintArrayS2(const int16_t* a, int32_t n);
void TextGrph_PrintArrayUC(const uint8_t* a, int32_t n);
void TextGrph_PrintInvArrayUC(const uint8_t* a, int32_t n);
/* 1 while the previous update is still pending, else asks for one and 0. */
int TextGrph_Update(void);

#ifdef __cplusplus
}
#endif

#endif
