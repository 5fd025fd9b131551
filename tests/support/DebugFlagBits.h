// The bits of the host's DebugFlags by what they switch on, so that a test
// says which output it asks for.
#ifndef KAVRI_TESTS_DEBUGFLAGBITS_H
#define KAVRI_TESTS_DEBUGFLAGBITS_H

namespace debugflag {

constexpr int kRates = 1;          // rates line once a second
constexpr int kAnalyses = 2;       // one line per analysis and frame
constexpr int kSharpness = 4;      // sharpness of the head record's image
constexpr int kRecordFrames = 16;  // decoded frames into the recording file
constexpr int kListFormats = 128;  // what the camera offers, at start
constexpr int kBufferTrace = 256;  // dequeued and previous buffer per frame

}  // namespace debugflag

#endif
