// The event thread: runs queued calls and injected touches one at a time,
// each with the window tree locked.
#include <condition_variable>
#include <deque>
#include <thread>

#include "WidgetsInternal.h"
#include "sdlwidgets/SDLWidgetsSim.h"

namespace sdlwidgets {
namespace {

enum class TaskKind { Call, Press, Move, Release };

struct Task {
  TaskKind kind;
  void (*function)(WinBase*, void*);
  WinBase* window;
  void* data;
  Point point;
};

class EventLoop {
 public:
  EventLoop() : thread_([this] { Run(); }) {}

  void Post(const Task& task) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(task);
    }
    wake_.notify_one();
  }

  bool WaitIdle(int timeoutMilliseconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    return idle_.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds),
                          [this] { return queue_.empty() && !busy_; });
  }

  // Tree lock held by the caller, so the event thread is not inside a task.
  void Forget(WinBase* window) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::erase_if(queue_, [window](const Task& task) { return task.kind == TaskKind::Call && task.window == window; });
    if (captured_ == window) captured_ = nullptr;
  }

 private:
  void Run() {
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [this] { return !queue_.empty(); });
      }
      // The tree lock before the queue: a window deleted meanwhile has had
      // its tasks removed, so the task taken here is still good.
      std::lock_guard<std::recursive_mutex> tree(TreeMutex());
      Task task;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (queue_.empty()) continue;
        task = queue_.front();
        queue_.pop_front();
        busy_ = true;
      }
      Execute(task);
      {
        std::lock_guard<std::mutex> lock(mutex_);
        busy_ = false;
        if (queue_.empty()) idle_.notify_all();
      }
    }
  }

  void Execute(const Task& task) {
    switch (task.kind) {
      case TaskKind::Call:
        task.function(task.window, task.data);
        break;
      case TaskKind::Press: {
        WinBase* top = SDLWidgets_GetTopWin();
        WinBase* target = top->hit_test(task.point) ? top->hit_child(task.point) : nullptr;
        SetCaptured(target);
        if (target) target->on_mouse_left_down(task.point);
        break;
      }
      case TaskKind::Move:
        if (WinBase* target = Captured()) target->on_mouse_move(task.point);
        break;
      case TaskKind::Release:
        if (WinBase* target = Captured()) {
          SetCaptured(nullptr);
          target->on_mouse_left_up(task.point);
        }
        break;
    }
  }

  WinBase* Captured() {
    std::lock_guard<std::mutex> lock(mutex_);
    return captured_;
  }
  void SetCaptured(WinBase* window) {
    std::lock_guard<std::mutex> lock(mutex_);
    captured_ = window;
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable idle_;
  std::deque<Task> queue_;
  bool busy_ = false;
  WinBase* captured_ = nullptr;  // the window a touch began on
  std::thread thread_;
};

// Lives as long as the process, as the maker's library does: a detached
// program thread may still queue a call while the process ends.
EventLoop& Loop() {
  static EventLoop* loop = new EventLoop;
  return *loop;
}

std::atomic<uint32_t> screenChanges{0};
std::atomic<uint32_t> queuedCalls{0};

void PostTouch(TaskKind kind, int x, int y) { Loop().Post({kind, nullptr, nullptr, nullptr, Point(x, y)}); }

}  // namespace

std::recursive_mutex& TreeMutex() {
  static std::recursive_mutex* mutex = new std::recursive_mutex;
  return *mutex;
}

SDL_Surface* Screen() {
  static SDL_Surface* screen = SDL_CreateRGBSurfaceWithFormat(0, SDLWIDGETS_SCREEN_WIDTH, SDLWIDGETS_SCREEN_HEIGHT,
                                                              32, SDL_PIXELFORMAT_ARGB8888);
  return screen;
}

void ScreenChanged() { screenChanges.fetch_add(1, std::memory_order_release); }

void ForgetWindow(WinBase* window) { Loop().Forget(window); }

}  // namespace sdlwidgets

using namespace sdlwidgets;

namespace {

// Fonts must be usable before the first window exists: the display opens its
// font first.
struct TtfStartup {
  TtfStartup() {
    if (!TTF_WasInit() && TTF_Init() != 0) fprintf(stderr, "ERROR starting SDL_ttf: %s\n", TTF_GetError());
  }
} ttfStartup;

AreaFillSolid topFill(0x202428FF);
StrokeDrawNull topStroke;
WinStyle topStyle(&topFill, &topStroke);

void RedrawTask(WinBase* window, void*) { window->redraw_update(); }

}  // namespace

WinBase* SDLWidgets_GetTopWin() {
  static WinBase* top = [] {
    WinBase* window = new BackgroundWin(nullptr, &topStyle, Rect(0, 0, SDLWIDGETS_SCREEN_WIDTH, SDLWIDGETS_SCREEN_HEIGHT));
    send_uev(RedrawTask, window, nullptr);
    return window;
  }();
  return top;
}

void send_uev(void (*function)(WinBase* window, void* data), WinBase* window, void* data) {
  queuedCalls.fetch_add(1, std::memory_order_relaxed);
  Loop().Post({TaskKind::Call, function, window, data, Point()});
}

extern "C" {

void SDLWidgetsSim_Press(int x, int y) { PostTouch(TaskKind::Press, x, y); }
void SDLWidgetsSim_Move(int x, int y) { PostTouch(TaskKind::Move, x, y); }
void SDLWidgetsSim_Release(int x, int y) { PostTouch(TaskKind::Release, x, y); }

bool SDLWidgetsSim_WaitIdle(int timeoutMilliseconds) { return Loop().WaitIdle(timeoutMilliseconds); }

uint32_t SDLWidgetsSim_ScreenChanges(void) { return screenChanges.load(std::memory_order_acquire); }
uint32_t SDLWidgetsSim_QueuedCalls(void) { return queuedCalls.load(std::memory_order_relaxed); }

void SDLWidgetsSim_CopyScreen(uint32_t* pixels) {
  std::lock_guard<std::recursive_mutex> tree(TreeMutex());
  SDL_Surface* screen = Screen();
  for (int y = 0; y < screen->h; ++y) {
    const auto* row = reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(screen->pixels) + y * screen->pitch);
    for (int x = 0; x < screen->w; ++x) pixels[y * screen->w + x] = row[x] & 0xFFFFFFu;
  }
}

}  // extern "C"
