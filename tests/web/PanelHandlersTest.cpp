// The panel's requests: what bad input gets, what reaches the controller's
// injection points, and that streams end and give their threads back.
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <thread>
#include <vector>

#include "PanelServer.h"
#include "PanelState.h"
#include "WaitFor.h"

namespace {

// What the fake injection points were last called with.
struct Calls {
  std::string what;
  int a = 0, b = 0;
};
Calls last;
void FakePress(int x, int y) { last = {"press", x, y}; }
void FakeMove(int x, int y) { last = {"move", x, y}; }
void FakeRelease(int x, int y) { last = {"release", x, y}; }
void FakeSetInput(int channel, int32_t value) { last = {"input", channel, value}; }
void FakeCopyScreen(uint32_t*) {}

const PanelDevices kDevices{FakePress, FakeMove, FakeRelease, FakeSetInput, FakeCopyScreen};

struct Case {
  const char* name;
  const char* method;
  const char* path;
  std::multimap<std::string, std::string> params;
  size_t bodySize;
  int status;
  Calls call;  // what the controller is told; empty: nothing
};

TEST(PanelHandlers, BadInputGetsAClearStatusAndNeverReachesTheControllerUnclipped) {
  const std::vector<Case> cases = {
      {"unknown path", "GET", "/nope", {}, 0, 404, {}},
      {"touch by GET", "GET", "/touch", {{"kind", "press"}, {"x", "1"}, {"y", "1"}}, 0, 405, {}},
      {"page by POST", "POST", "/", {}, 0, 405, {}},
      {"huge body", "POST", "/touch", {{"kind", "press"}, {"x", "1"}, {"y", "1"}}, kPanelMaxBody + 1, 413, {}},
      {"touch without kind", "POST", "/touch", {{"x", "1"}, {"y", "1"}}, 0, 400, {}},
      {"unknown touch kind", "POST", "/touch", {{"kind", "tap"}, {"x", "1"}, {"y", "1"}}, 0, 400, {}},
      {"coordinate not a number", "POST", "/touch", {{"kind", "move"}, {"x", "12px"}, {"y", "1"}}, 0, 400, {}},
      {"press inside", "POST", "/touch", {{"kind", "press"}, {"x", "10"}, {"y", "300"}}, 0, 200, {"press", 10, 300}},
      {"drag off the top left is clipped", "POST", "/touch", {{"kind", "move"}, {"x", "-5"}, {"y", "-1"}}, 0, 200,
       {"move", 0, 0}},
      {"release beyond the bottom right is clipped", "POST", "/touch", {{"kind", "release"}, {"x", "240"}, {"y", "9999"}},
       0, 200, {"release", 239, 319}},
      {"input channel 0", "POST", "/input", {{"channel", "0"}, {"value", "1"}}, 0, 404, {}},
      {"input channel 9", "POST", "/input", {{"channel", "9"}, {"value", "1"}}, 0, 404, {}},
      {"input without channel", "POST", "/input", {{"value", "1"}}, 0, 400, {}},
      {"input forced", "POST", "/input", {{"channel", "8"}, {"value", "0x200"}}, 0, 200, {"input", 7, 512}},
      {"input above the range is clipped", "POST", "/input", {{"channel", "2"}, {"value", "70000"}}, 0, 200,
       {"input", 1, 65535}},
      {"negative input is clipped, not given back", "POST", "/input", {{"channel", "2"}, {"value", "-4"}}, 0, 200,
       {"input", 1, 0}},
      {"input given back to the hardware", "POST", "/input", {{"channel", "3"}, {"value", "hardware"}}, 0, 200,
       {"input", 2, -1}},
  };
  for (const Case& c : cases) {
    PanelState state;
    last = {};
    PanelReply reply = HandlePanelRequest(state, kDevices, {c.method, c.path, c.params, std::string(c.bodySize, 'x')});
    EXPECT_EQ(reply.status, c.status) << c.name << ": " << reply.body;
    EXPECT_EQ(last.what, c.call.what) << c.name;
    EXPECT_EQ(last.a, c.call.a) << c.name;
    EXPECT_EQ(last.b, c.call.b) << c.name;
    EXPECT_TRUE(reply.status == 200 || !reply.body.empty()) << c.name << ": an error says why";
  }
}

TEST(PanelHandlers, WithoutInjectionPointsRequestsAreRefusedNotCrashed) {
  PanelState state;
  for (const char* path : {"/touch", "/input"}) {
    PanelReply reply = HandlePanelRequest(
        state, PanelDevices{}, {"POST", path, {{"kind", "press"}, {"x", "1"}, {"y", "1"}, {"channel", "1"}, {"value", "1"}}, ""});
    EXPECT_EQ(reply.status, 501) << path;
  }
  EXPECT_EQ(HandlePanelRequest(state, PanelDevices{}, {"GET", "/screen", {}, ""}).status, 501);
  EXPECT_EQ(HandlePanelRequest(state, PanelDevices{}, {"GET", "/camera.jpg", {}, ""}).status, 404);
}

TEST(PanelEvents, AStreamGetsWhatChangedSinceItLastLooked) {
  PanelState state;
  PanelCursor cursor;
  std::string first = state.NextEvents(cursor, std::chrono::milliseconds(0));
  EXPECT_NE(first.find("event: display\n"), std::string::npos) << "a new stream is sent the display";
  EXPECT_EQ(state.NextEvents(cursor, std::chrono::milliseconds(0)), "") << "nothing new, nothing sent";

  state.SetIo({1, 2, 3, 4, 5, 6, 7, 8}, {});
  state.SetIo({1, 2, 3, 4, 5, 6, 7, 8}, {});
  std::string io = state.NextEvents(cursor, std::chrono::milliseconds(0));
  EXPECT_NE(io.find("event: io\ndata: {\"forced\":[-1,-1,-1,-1,-1,-1,-1,-1],\"inputs\":[0,0,0,0,0,0,0,0],"
                    "\"outputs\":[1,2,3,4,5,6,7,8]}\n\n"),
            std::string::npos)
      << io;
  EXPECT_EQ(io.find("event: display"), std::string::npos);
}

TEST(PanelEvents, LogKeepsTheLastLinesAndEscapesWhatItCannotShow) {
  PanelState state;
  for (size_t i = 0; i < kPanelLogLines + 5; ++i) state.AddLogLine("line " + std::to_string(i));
  state.AddLogLine("quote \" and \xff byte");
  PanelCursor cursor;
  std::string events = state.NextEvents(cursor, std::chrono::milliseconds(0));
  EXPECT_EQ(events.find("\"line 5\""), std::string::npos) << "the oldest lines are gone";
  EXPECT_NE(events.find("\"line 6\""), std::string::npos);
  EXPECT_NE(events.find("data: \"quote \\\" and \xef\xbf\xbd byte\"\n"), std::string::npos) << events;
}

// Through the real server on a free loopback port.
class PanelServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    port = server.Start("127.0.0.1", 0);
    ASSERT_GT(port, 0);
  }
  PanelState state;
  PanelServer server{state, kDevices};
  int port = 0;
};

TEST_F(PanelServerTest, StreamsAreLimitedAndAVanishedBrowserGivesItsPlaceBack) {
  std::atomic<bool> done{false};
  std::atomic<int> open{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < kPanelMaxStreams; ++i)
    readers.emplace_back([&] {
      httplib::Client stream("127.0.0.1", port);
      stream.set_read_timeout(10);
      bool counted = false;
      stream.Get("/events", [&](const char*, size_t) {
        if (!counted) open.fetch_add(1), counted = true;
        return !done.load();
      });
    });
  const bool allOpen = WaitFor([&] { return open.load() == kPanelMaxStreams; }, std::chrono::seconds(20));
  httplib::Client extra("127.0.0.1", port);
  auto refused = extra.Get("/events");
  done = true;
  state.SetIo({1}, {});  // wakes the streams, whose readers now hang up
  for (auto& reader : readers) reader.join();
  ASSERT_TRUE(allOpen);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->status, 503);

  // The server notices the closed connections at its next write at the latest.
  bool reopened = WaitFor(
      [&] {
        httplib::Client again("127.0.0.1", port);
        bool got = false;
        (void)again.Get("/events", [&](const char*, size_t) { return !(got = true); });
        return got;
      },
      std::chrono::seconds(20));
  EXPECT_TRUE(reopened);
}

}  // namespace
