// The records a program and the library both define, field by field.
// FIELD compares offset and size, OFFSET the offset only (the program's label
// buffer is longer than the library's placeholder), SIZE the whole record.
// F(m) stands for a field of the record its #define names.
FIELD(FL48, expWord) FIELD(FL48, mant) SIZE(FL48)
#define F(m) FIELD(shm_if_s, m)
F(InputValues) F(OutputValues) F(DisplayBuffer) F(DisplayUpdateCounter) F(DisplayUpdateFlag) SIZE(shm_if_s)
#undef F
#define F(m) FIELD(CameraAnalysisBase, m)
F(type) F(next) F(width) F(height) SIZE(CameraAnalysisBase)
#undef F
#define F(m) FIELD(CameraAnalysisCounter, m)
F(frameRate) F(powerlineFreq) F(frameCounterVar) F(changeVar) SIZE(CameraAnalysisCounter)
#undef F
#define F(m) FIELD(CameraAnalysisDeliverFrame, m)
F(capacity) F(buffer) F(full) F(size) F(writeIndex) F(readIndex) F(enabled) F(writing) SIZE(CameraAnalysisDeliverFrame)
#undef F
#define F(m) FIELD(CameraAnalysisColorField, m)
F(x) F(y) F(w) F(h) F(brightnessVar) F(redVar) F(greenVar) F(blueVar) SIZE(CameraAnalysisColorField)
#undef F
#define F(m) FIELD(CameraAnalysisChangeDetect, m)
F(x) F(y) F(w) F(h) F(threshold) F(minArea) F(strengthVar) F(areaVar) SIZE(CameraAnalysisChangeDetect)
#undef F
#define F(m) FIELD(CameraAnalysisMaxOnLine, m)
F(startX) F(startY) F(endX) F(endY) F(colorCheck) F(brightnessMin) F(brightnessMax) F(redMin) F(greenMin)
F(blueMin) F(redMax) F(greenMax) F(blueMax) F(colorAxis) F(lineColorR) F(lineColorG) F(lineColorB)
F(backgroundColorR) F(backgroundColorG) F(backgroundColorB) F(widthMin) F(widthMax) F(peakThreshold)
F(contrastThreshold) F(brightLine) F(positionResult) F(qualityResult) F(widthResult) F(sampleCount) F(xOrigin)
F(xStep) F(yOrigin) F(yStep) F(valueBuffer) F(redBuffer) F(greenBuffer) F(blueBuffer) F(erodedBuffer) F(weightR)
F(weightG) F(weightB) F(weightOffset) SIZE(CameraAnalysisMaxOnLine)
#undef F
#define F(m) FIELD(CameraAnalysisMaxOnLine2, m)
F(startX) F(startY) F(endX) F(endY) F(widthMin) F(widthMax) F(threshold) F(lineCountMax) F(bright) F(color)
F(whiteBalance) F(refine) F(fineWidthStep) F(rangeMin) F(rangeMax) F(positionResults) F(strengthResults)
F(widthResults) F(redResults) F(greenResults) F(blueResults) F(brightnessResults) F(lineCount) F(sampleCount)
F(xOrigin) F(xStep) F(yOrigin) F(yStep) F(valueBuffer) F(redBuffer) F(greenBuffer) F(blueBuffer)
SIZE(CameraAnalysisMaxOnLine2)
#undef F
#define F(m) FIELD(CameraAnalysisBallExclusion, m)
F(left) F(top) F(right) F(bottom) SIZE(CameraAnalysisBallExclusion)
#undef F
#define F(m) FIELD(CameraAnalysisBallSingleBlock, m)
F(blockX) F(blockY) F(blockWidth) F(blockHeight) F(radiusMin) F(radiusMax) F(threshold) F(xRangeMin) F(xRangeMax)
F(yRangeMin) F(yRangeMax) F(xResult) F(yResult) F(radiusResult) F(qualityResult) F(map) F(moments)
F(exclusionCount) SIZE(CameraAnalysisBallSingleBlock)
#undef F
#define F(m) FIELD(CameraAnalysisBallMultiBlock, m)
F(blockX) F(blockY) F(blockWidth) F(blockHeight) F(xResult) F(yResult) F(radiusResult) F(qualityResult)
F(levelResult) F(unused) F(sizeMin) F(sizeMax) F(cellSize) F(cellsAcross) F(cellsDown) F(map) F(cellTables)
F(exclusionCount) SIZE(CameraAnalysisBallMultiBlock)
#undef F
#define F(m) FIELD(DisplayWidgetBase, m)
F(type) F(next) F(page) F(x) F(y) F(w) F(h) SIZE(DisplayWidgetBase)
#undef F
#define F(m) FIELD(DisplayWidgetButton, m)
F(toggle) F(initialState) F(valueLeft) F(valueRight) F(valueVar) F(changedVar) F(changeFlag)
OFFSET(DisplayWidgetButton, text)
#undef F
#define F(m) FIELD(DisplayWidgetSlider, m)
F(minimum) F(maximum) F(initialValue) F(sliderOption) F(valueVar) F(changedVar) F(changeFlag)
#undef F
#define F(m) FIELD(DisplayWidgetText, m)
F(columns) F(lines) F(chars) F(textChangedVar)
#undef F
#define F(m) FIELD(DisplayWidgetLine, m)
F(x1) F(y1) F(x2) F(y2)
#undef F
