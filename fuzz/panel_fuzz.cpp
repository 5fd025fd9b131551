// The browser panel's requests, as cpp-httplib hands them over: any method,
// path, arguments and body, against a panel state fed with fuzz-chosen log
// lines, program names and camera frames. The devices check that every
// touch lands on the screen and every forced input names a channel.
#include <string>

#include "FuzzInput.h"
#include "PanelServer.h"
#include "PanelState.h"

namespace {

void CheckTouch(int x, int y) { FUZZ_CHECK(x >= 0 && x < kPanelScreenWidth && y >= 0 && y < kPanelScreenHeight); }
void CheckInput(int channel, int32_t value) {
  FUZZ_CHECK(channel >= 0 && channel < kPanelChannels);
  FUZZ_CHECK(value >= -1 && value <= 0xFFFF);
}
void FillScreen(uint32_t* pixels) {
  for (int i = 0; i < kPanelScreenWidth * kPanelScreenHeight; ++i) pixels[i] = uint32_t(i) * 2654435761u;
}

const PanelDevices kDevices{CheckTouch, CheckTouch, CheckTouch, CheckInput, FillScreen};

// A text of up to 255 bytes, its length first.
std::string Text(FuzzInput& in) {
  std::string text;
  for (size_t n = in.Take<uint8_t>(); n > 0 && in.RestSize() > 0; --n) text += char(in.Take<uint8_t>());
  return text;
}

// Mostly one of the words the panel knows, else any text.
std::string Word(FuzzInput& in, std::initializer_list<const char*> known) {
  uint8_t pick = in.Take<uint8_t>();
  if (pick < 200) return known.begin()[pick % known.size()];
  return Text(in);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  PanelState state;
  for (int lines = in.Take<uint8_t>() % 4; lines > 0; --lines) state.AddLogLine(Text(in));
  std::string name = Text(in);
  std::string stateText = Text(in);
  state.ProgramInfo(name.c_str(), in.Take<int32_t>(), stateText.c_str());
  std::string frame = Text(in);
  if (!frame.empty()) state.SetCameraFrame(reinterpret_cast<const uint8_t*>(frame.data()), frame.size());

  PanelRequest request;
  request.method = Word(in, {"GET", "HEAD", "POST", "PUT", "DELETE"});
  request.path = Word(in, {"/", "/state", "/screen", "/camera.jpg", "/touch", "/input"});
  for (int params = in.Take<uint8_t>() % 5; params > 0; --params) {
    std::string key = Word(in, {"kind", "x", "y", "channel", "value"});
    std::string value = Word(in, {"press", "move", "release", "hardware", "0", "1", "-1", "8", "65536"});
    request.params.emplace(key, value);
  }
  request.body = Text(in);

  PanelReply reply = HandlePanelRequest(state, kDevices, request);
  FUZZ_CHECK(reply.status >= 200 && reply.status < 600);
  (void)state.SnapshotJson();
  return 0;
}
