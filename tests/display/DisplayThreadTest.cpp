// The display thread building pages from a program's widget list, and the
// touches it reports back.
#include "DisplayFixture.h"

namespace {

std::atomic<int> infoCount{0};
std::atomic<int32_t> infoStates[8];
std::atomic<bool> infoHadName{false};

void RecordInfo(KavriLib_ProgramInfo* info) {
  const int n = infoCount.fetch_add(1);
  if (n < 8) infoStates[n].store(info->state);
  if (info->name) infoHadName.store(true);
}

SDL_Rect OnScreen(int x, int y, int w, int h) { return SDL_Rect{x * 15 >> 3, kPageTop + y * 4, w * 15 >> 3, h * 4}; }

TEST_F(DisplayTest, BuildsOnePageWindowPerPageWithConvertedRectangles) {
  ProgramVars a, b, c;
  list.Button(0, 8, 4, 32, 8, "Go", a);
  list.Slider(2, -8, 10, 20, 20, 0, 9, 3, b);  // w <= h, square included: vertical
  list.Slider(0, 0, 30, 64, 10, 0, 9, 3, c);
  list.Add<DisplayWidgetBase>(17, 1, 0, 0, 5, 5);  // unknown type: passed over
  list.Rect(1, 1, 2, 3, 4);
  Start();

  ASSERT_EQ(DisplayPageCount, 3);
  const struct { int page; size_t child; int type; SDL_Rect rect; } cases[] = {
      {0, 0, WinTypeButton, OnScreen(8, 4, 32, 8)},
      {0, 1, WinTypeHSlider, OnScreen(0, 30, 64, 10)},
      {2, 0, WinTypeVSlider, SDL_Rect{-15, kPageTop + 40, 37, 80}},
      {1, 0, WinTypeStaticRect, OnScreen(1, 2, 3, 4)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "page " << c.page << " child " << c.child);
    WinBase* w = Widget(c.page, c.child);
    EXPECT_EQ(w->get_type(), c.type);
    const SDL_Rect r = w->screen_rect();
    EXPECT_EQ(std::tie(r.x, r.y, r.w, r.h), std::make_tuple(c.rect.x, c.rect.y, std::max(c.rect.w, 0), c.rect.h));
  }
  EXPECT_EQ(DisplayPages[1]->children().size(), 1u);
  EXPECT_EQ(std::vector<bool>({DisplayPages[0]->hidden, DisplayPages[1]->hidden, DisplayPages[2]->hidden}),
            std::vector<bool>({false, true, true}));
}

TEST_F(DisplayTest, PushButtonReportsTheHalfPressedAndZeroOnRelease) {
  ProgramVars vars;
  list.Button(0, 8, 4, 32, 8, "Go", vars, 11, 22);  // screen x 15 to 74, middle column 45
  Start();
  for (auto [x, expected] : {std::pair<int, int16_t>{16, 11}, {44, 11}, {45, 22}, {73, 22}}) {
    vars.Clear();
    Touch(SDLWidgetsSim_Press, x, kPageTop + 20);
    EXPECT_TRUE(vars.Reports(expected) && vars.changed == 1) << "press at x " << x;
    vars.Clear();
    Touch(SDLWidgetsSim_Release, x, kPageTop + 20);
    EXPECT_TRUE(vars.Reports(0)) << "release at x " << x;
  }
}

TEST_F(DisplayTest, PressThatSlidesOffIsNoClick) {
  ProgramVars push, toggle;
  list.Button(0, 8, 4, 32, 8, "Push", push, 11, 22);
  list.Button(0, 8, 30, 32, 8, "Toggle", toggle, 33, 44, true);
  Start();

  Touch(SDLWidgetsSim_Press, 20, kPageTop + 20);
  push.Clear();
  Touch(SDLWidgetsSim_Move, 200, kPageTop + 20);  // off the button: it comes up
  EXPECT_TRUE(push.Reports(0));
  push.Clear();
  Touch(SDLWidgetsSim_Release, 200, kPageTop + 20);
  EXPECT_FALSE(push.Reported());

  Touch(SDLWidgetsSim_Press, 20, kPageTop + 124);
  Touch(SDLWidgetsSim_Move, 200, kPageTop + 124);
  Touch(SDLWidgetsSim_Release, 200, kPageTop + 124);
  EXPECT_FALSE(toggle.Reported());
  Tap(20, kPageTop + 124);
  EXPECT_TRUE(toggle.Reports(33));
  toggle.Clear();
  Tap(70, kPageTop + 124);  // the second click lifts it
  EXPECT_TRUE(toggle.Reports(0));
}

TEST_F(DisplayTest, ToggleThatStartsDownReportsAtOnce) {
  const struct { int16_t initial; bool reported; int16_t value; } cases[] = {
      {0, false, -1}, {1, true, 11}, {2, true, 22}, {-5, true, 22}};
  std::deque<ProgramVars> vars(std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i)
    list.Button(0, 0, static_cast<int>(i) * 12, 40, 10, "T", vars[i], 11, 22, true, cases[i].initial);
  Start();
  for (size_t i = 0; i < std::size(cases); ++i) {
    const bool down = static_cast<Button*>(Widget(0, i))->is_down();
    EXPECT_EQ(std::vector<int>({vars[i].Reported(), vars[i].Value(), vars[i].changed, down}),
              std::vector<int>({cases[i].reported, cases[i].value, cases[i].reported, cases[i].reported}))
        << "initial state " << cases[i].initial;
  }
  // Released by a click, it reports 0, as the widget's state was remembered.
  vars[1].Clear();
  Tap(10, kPageTop + 12 * 4 + 5);
  EXPECT_TRUE(vars[1].Reports(0));
}

TEST_F(DisplayTest, SliderReportsItsFirstValueAndThenOnlyChanges) {
  ProgramVars h, v;
  list.Slider(0, 0, 0, 128, 10, -50, 50, 0, h);  // screen 0..239, knob 24: the middle 120 is 0
  list.Slider(0, 100, 12, 16, 40, 0, 10, 10, v);
  Start();
  EXPECT_FALSE(h.Reported());

  Touch(SDLWidgetsSim_Press, 120, kPageTop + 20);
  EXPECT_TRUE(h.Reports(0));
  h.Clear();
  Touch(SDLWidgetsSim_Move, 121, kPageTop + 30);  // the same value
  EXPECT_FALSE(h.Reported());
  const struct { int x; int16_t value; } moves[] = {{12, -50}, {0, -50}, {228, 50}, {239, 50}, {500, 50}, {66, -25}};
  int16_t last = 0;
  for (const auto& m : moves) {
    SCOPED_TRACE(testing::Message() << "finger at x " << m.x);
    h.Clear();
    Touch(SDLWidgetsSim_Move, m.x, kPageTop + 20);
    EXPECT_EQ(h.Reported(), m.value != last);
    EXPECT_EQ(h.Value(), m.value);
    last = m.value;
  }
  Touch(SDLWidgetsSim_Release, 66, kPageTop + 20);

  // Vertical: the bottom is the minimum.
  const SDL_Rect r = Widget(0, 1)->screen_rect();
  Touch(SDLWidgetsSim_Press, r.x + 5, r.y + r.h - 1);
  EXPECT_TRUE(v.Reports(0));
  Touch(SDLWidgetsSim_Move, r.x + 5, r.y);
  EXPECT_EQ(v.Value(), 10);
  Touch(SDLWidgetsSim_Release, r.x + 5, r.y);
}

TEST_F(DisplayTest, PageVariableShowsOnePageAndHidesWithoutRedrawOutsideTheRange) {
  ProgramVars vars;
  list.Button(0, 0, 0, 20, 10, "A", vars);
  list.Button(1, 0, 0, 20, 10, "B", vars);
  Start();
  EXPECT_FALSE(DisplayPages[0]->hidden.load());

  const struct { int16_t page; int shown; bool redraw; } steps[] = {  // shown -1: none
      {1, 1, true}, {-1, -1, false}, {0, 0, true}, {2, -1, false}, {1, 1, true}, {32767, -1, false}};
  for (const auto& s : steps) {
    SCOPED_TRACE(testing::Message() << "page variable " << s.page);
    const uint32_t queued = SDLWidgetsSim_QueuedCalls();
    const uint32_t drawn = SDLWidgetsSim_ScreenChanges();
    SetPage(s.page);
    LetLoopRun();
    EXPECT_EQ(std::vector<bool>({DisplayPages[0]->hidden, DisplayPages[1]->hidden, SDLWidgetsSim_QueuedCalls() != queued,
                                 SDLWidgetsSim_ScreenChanges() != drawn}),
              std::vector<bool>({s.shown != 0, s.shown != 1, s.redraw, s.redraw}));
  }
  // A hidden page takes no touches.
  vars.Clear();
  Tap(10, kPageTop + 10);
  EXPECT_FALSE(vars.Reported());
}

TEST_F(DisplayTest, TextWindowIsCopiedAgainOnlyWhenTheProgramAsks) {
  uint16_t chars[2 * 3] = {'a', 'b', 'c', 0x1E4, 'e', 'f'};  // codes keep their low byte
  int16_t changed = 7;
  list.Text(0, 0, 0, 60, 20, 3, 2, chars, &changed);
  Start();
  auto* window = dynamic_cast<VekLabelWin*>(Widget(0, 0));
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(std::atomic_ref<int16_t>(changed).load(), 0);
  EXPECT_STREQ(window->lines[0], "abc");
  EXPECT_STREQ(window->lines[1], "\xE4" "ef");

  chars[0] = 'X';
  const uint32_t queued = SDLWidgetsSim_QueuedCalls();
  LetLoopRun();
  EXPECT_EQ(SDLWidgetsSim_QueuedCalls(), queued);
  EXPECT_STREQ(window->lines[0], "abc");

  const uint32_t drawn = SDLWidgetsSim_ScreenChanges();
  std::atomic_ref<int16_t>(changed).store(1, std::memory_order_release);
  ASSERT_TRUE(WaitFor([&] { return std::atomic_ref<int16_t>(changed).load() == 0; }));
  ASSERT_TRUE(SDLWidgetsSim_WaitIdle(5000));
  LetLoopRun(1);
  EXPECT_STREQ(window->lines[0], "Xbc");
  EXPECT_EQ(SDLWidgetsSim_QueuedCalls(), queued + 1);
  EXPECT_GT(SDLWidgetsSim_ScreenChanges(), drawn);
}

TEST_F(DisplayTest, ProgramInfoHearsBuiltThenEndedWithoutName) {
  infoCount.store(0);
  KavriLib_SetProgramInfoCallback(RecordInfo);
  ProgramVars vars;
  list.Button(0, 0, 0, 20, 10, "A", vars);
  Start();
  EXPECT_EQ(infoCount.load(), 1);
  EXPECT_EQ(StopThreadDisplay(), 1);
  KavriLib_SetProgramInfoCallback(nullptr);
  ASSERT_EQ(infoCount.load(), 2);
  EXPECT_EQ(std::vector<int32_t>({infoStates[0], infoStates[1]}),
            std::vector<int32_t>({KavriProgramDisplayBuilt, KavriProgramDisplayEnded}));
  EXPECT_FALSE(infoHadName.load());
  EXPECT_TRUE(DisplayData.load() == nullptr && DisplayId.load() == nullptr && DisplayPages == nullptr);
}

TEST_F(DisplayTest, StopWhileWaitingForAListEndsTheThreadQuietly) {
  infoCount.store(0);
  KavriLib_SetProgramInfoCallback(RecordInfo);
  fflush(stdout);
  testing::internal::CaptureStdout();
  ASSERT_EQ(StartThreadDisplay(), 1);
  EXPECT_EQ(StopThreadDisplay(), 1);
  const std::string out = testing::internal::GetCapturedStdout();
  KavriLib_SetProgramInfoCallback(nullptr);
  EXPECT_FALSE(DisplayThreadRunning.load());
  EXPECT_EQ(out, "Display thread started\nDisplay thread terminated\n");
  EXPECT_EQ(infoCount.load(), 0);
}

// Descriptions from a faulty program: each builds a bounded display, and
// touching every widget writes nothing anywhere.
TEST_F(DisplayTest, FaultyDescriptionsBuildABoundedDisplay) {
  ProgramVars vars;
  list.Button(0, 0, 0, 20, 10, "ok", vars);
  list.Button(100000, 0, 0, 20, 10, "far page", vars);
  list.Button(-3, 0, 0, 20, 10, "negative page", vars);
  list.Text(0, 0, 12, 60, 10, 0x10000, 0x10001, nullptr, nullptr);  // lines x columns overflows
  list.Text(0, 0, 24, 60, 10, -4, 2, nullptr, nullptr);
  list.Text(0, 0, 36, 60, 10, 5, 2, nullptr, nullptr);               // no characters
  DisplayWidgetButton* unbound = list.Button(0, 64, 0, 20, 10, "null vars", vars);
  unbound->valueVar = nullptr, unbound->changedVar = nullptr, unbound->changeFlag = nullptr;
  DisplayWidgetBase* last = list.Rect(0, 70, 40, 10, 10);
  last->next = list.head();  // loops back
  testing::internal::CaptureStderr();
  Start();
  const std::string errors = testing::internal::GetCapturedStderr();

  EXPECT_EQ(DisplayPageCount, 1);
  EXPECT_NE(errors.find("ERROR display widget on page 100000 ignored"), std::string::npos) << errors;
  EXPECT_NE(errors.find("loops back after 8 widgets"), std::string::npos) << errors;
  EXPECT_NE(errors.find("text window of 65537 lines of 65536 columns"), std::string::npos) << errors;
  const auto& built = DisplayPages[0]->children();
  // Each widget of page 0 once: the loop ends the list where it comes round.
  EXPECT_EQ(built.size(), 6u);
  auto *empty = dynamic_cast<VekLabelWin*>(built.at(1)), *blank = dynamic_cast<VekLabelWin*>(built.at(3));
  ASSERT_TRUE(empty && blank);
  EXPECT_EQ(empty->lineCount, 0);
  EXPECT_STREQ(blank->lines[1], "");
  Tap(130, kPageTop + 5);  // the button without variables
}

// A thread that was never stopped still owns the pages; a second one beside
// it would build into and delete the same ones.
TEST(DisplayStartTest, NoSecondThreadBesideOneStillThere) {
  DisplayThreadRunning.store(true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(StartThreadDisplay(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR creating display thread\n");
  DisplayThreadRunning.store(false);
}

// The widget library's binary interface: the window base's virtual
// operations in the maker's slot order, after the two destructor entries.
template <class Member>
long VirtualSlot(Member member) {
  struct { uintptr_t ptr; ptrdiff_t adj; } m;
  static_assert(sizeof member == sizeof m);
  memcpy(&m, &member, sizeof m);
#if defined(__arm__) || defined(__aarch64__)
  return (m.adj & 1) ? long(m.ptr / sizeof(void*)) : -1;  // odd adjustment: virtual
#else
  return (m.ptr & 1) ? long((m.ptr - 1) / sizeof(void*)) : -1;
#endif
}

TEST(WidgetLibraryTest, WindowBaseKeepsTheVirtualSlotOrder) {
  EXPECT_EQ(std::vector<long>({VirtualSlot(&WinBase::draw), VirtualSlot(&WinBase::hit_test),
                               VirtualSlot(&WinBase::hit_child), VirtualSlot(&WinBase::on_mouse_left_down),
                               VirtualSlot(&WinBase::on_mouse_left_up), VirtualSlot(&WinBase::on_mouse_move),
                               VirtualSlot(&WinBase::get_type)}),
            std::vector<long>({2, 3, 4, 5, 6, 7, 8}));
}

}  // namespace
