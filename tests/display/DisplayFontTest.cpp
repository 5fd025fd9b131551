// A process of its own: the font, once opened, stays open for later runs.
#include "DisplayFixture.h"

namespace {

TEST(DisplayFontTest, MissingFontEndsTheThreadWithItsMessage) {
  DisplayFontFile = "/nonexistent/LiberationMono-Bold.ttf";
  DescriptionList list;
  ProgramVars vars;
  list.Button(0, 0, 0, 20, 10, "A", vars);
  int16_t page = 0;
  fflush(stdout);
  testing::internal::CaptureStdout();
  DisplaySetup(list.head(), &page);
  ASSERT_EQ(StartThreadDisplay(), 1);
  const bool ended = WaitFor([] { return !DisplayThreadRunning.load(); });
  const std::string out = testing::internal::GetCapturedStdout();
  ASSERT_TRUE(ended);
  EXPECT_NE(out.find("Failed to create font /usr/share/fonts/liberation/LiberationSans-BoldItalic.ttf in size 20\n"
                     "Display thread terminated\n"),
            std::string::npos)
      << out;
  EXPECT_EQ(DisplayData.load(), nullptr);
  EXPECT_EQ(DisplayPages, nullptr);
  EXPECT_EQ(StopThreadDisplay(), 1);
}

}  // namespace
