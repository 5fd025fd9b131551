// The window tree and the widgets' touch behaviour.
#include <algorithm>
#include <cstdint>

#include "WidgetsInternal.h"
#include "sdlwidgets/SDLWidgetsSim.h"

namespace sdlwidgets {
namespace {

// Far positions from a caller stay far without overflowing the sums below.
constexpr int64_t kFarCoordinate = 1 << 20;

int ClampCoordinate(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, -kFarCoordinate, kFarCoordinate)); }

SDL_Rect Intersect(const SDL_Rect& a, const SDL_Rect& b) {
  SDL_Rect out;
  if (!SDL_IntersectRect(&a, &b, &out)) out = SDL_Rect{0, 0, 0, 0};
  return out;
}

bool Contains(const SDL_Rect& r, const Point& p) { return p.x >= r.x && p.y >= r.y && p.x - r.x < r.w && p.y - r.y < r.h; }

}  // namespace

void PaintTree(WinBase* window, SDL_Surface* screen, const SDL_Rect& clip) {
  const SDL_Rect own = window->clips_to_parent() ? clip : Intersect(clip, window->screen_rect());
  if (own.w <= 0 || own.h <= 0) return;
  SDL_SetClipRect(screen, &own);
  window->draw(screen);
  for (WinBase* child : window->children())
    if (!child->hidden.load(std::memory_order_acquire)) PaintTree(child, screen, own);
}

}  // namespace sdlwidgets

using namespace sdlwidgets;

WinBase::WinBase(WinBase* parent, WinStyle* style, const Rect& rect) : style_(style), parent_(parent), rect_(rect) {
  if (!parent_) return;
  std::lock_guard<std::recursive_mutex> tree(TreeMutex());
  parent_->children_.push_back(this);
}

WinBase::~WinBase() {
  std::lock_guard<std::recursive_mutex> tree(TreeMutex());
  while (!children_.empty()) delete children_.back();
  // Children go last first, so the search from the back finds each at once:
  // a page of thousands of widgets is torn down in linear time.
  if (parent_) {
    auto& siblings = parent_->children_;
    auto it = std::find(siblings.rbegin(), siblings.rend(), this);
    if (it != siblings.rend()) siblings.erase(std::next(it).base());
  }
  ForgetWindow(this);
}

void WinBase::draw(SDL_Surface* screen) {
  if (!style_) return;
  const SDL_Rect area = screen_rect();
  if (style_->fill) style_->fill->fill(screen, area);
  if (style_->stroke) style_->stroke->stroke(screen, area);
}

bool WinBase::hit_test(const Point& p) { return Contains(screen_rect(), p); }

WinBase* WinBase::hit_child(const Point& p) {
  // The last child is drawn last, so it is the one on top.
  for (auto it = children_.rbegin(); it != children_.rend(); ++it)
    if (!(*it)->hidden.load(std::memory_order_acquire) && (*it)->hit_test(p)) return (*it)->hit_child(p);
  return this;
}

void WinBase::on_mouse_left_down(const Point&) {}
void WinBase::on_mouse_left_up(const Point&) {}
void WinBase::on_mouse_move(const Point&) {}
int WinBase::get_type() { return WinTypeBase; }

SDL_Rect WinBase::screen_rect() const {
  int64_t x = rect_.x, y = rect_.y;
  for (const WinBase* up = parent_; up; up = up->parent_) {
    x += up->rect_.x;
    y += up->rect_.y;
  }
  return SDL_Rect{ClampCoordinate(x), ClampCoordinate(y), ClampCoordinate(std::max(rect_.w, 0)),
                  ClampCoordinate(std::max(rect_.h, 0))};
}

bool WinBase::is_shown() const {
  for (const WinBase* w = this; w; w = w->parent_)
    if (w->hidden.load(std::memory_order_acquire)) return false;
  return true;
}

void WinBase::redraw_update() {
  std::lock_guard<std::recursive_mutex> tree(TreeMutex());
  if (!is_shown()) return;
  SDL_Rect clip{0, 0, SDLWIDGETS_SCREEN_WIDTH, SDLWIDGETS_SCREEN_HEIGHT};
  for (const WinBase* up = parent_; up; up = up->parent_) clip = Intersect(clip, up->screen_rect());
  PaintTree(this, Screen(), clip);
  SDL_SetClipRect(Screen(), nullptr);
  ScreenChanged();
}

BackgroundWin::BackgroundWin(WinBase* parent, WinStyle* style, const Rect& rect) : WinBase(parent, style, rect) {}
int BackgroundWin::get_type() { return WinTypeBackground; }

Button::Button(WinBase* parent, ButtonStyle* style, const Rect& rect, Label* label, Handler handler)
    : WinBase(parent, nullptr, rect), buttonStyle_(style), label_(label), handler_(handler) {}

Button::~Button() { delete label_; }

void Button::draw(SDL_Surface* screen) {
  const SDL_Rect area = screen_rect();
  if (buttonStyle_) {
    AreaFill* fill = down_ ? buttonStyle_->fillDown : buttonStyle_->fill;
    StrokeDraw* stroke = down_ ? buttonStyle_->strokeDown : buttonStyle_->stroke;
    if (fill) fill->fill(screen, area);
    if (stroke) stroke->stroke(screen, area);
  }
  // A pressed label sinks by a pixel, as a pressed key would.
  const int sink = down_ ? 1 : 0;
  if (label_) label_->draw(screen, SDL_Rect{area.x + 2 + sink, area.y + 2 + sink, area.w - 4, area.h - 4});
}

void Button::set_down(bool down, const Point& p) {
  if (down == down_) return;
  down_ = down;
  redraw_update();
  if (handler_) handler_(this, p.x, p.y);
}

void Button::on_mouse_left_down(const Point& p) {
  pressed_ = true;
  set_down(true, p);
}

void Button::on_mouse_move(const Point& p) {
  if (pressed_) set_down(hit_test(p), p);
}

void Button::on_mouse_left_up(const Point& p) {
  pressed_ = false;
  set_down(false, p);
}

int Button::get_type() { return WinTypeButton; }

ToggleButton::ToggleButton(WinBase* parent, ButtonStyle* style, const Rect& rect, Label* label, Handler handler,
                           bool down)
    : Button(parent, style, rect, label, handler) {
  down_ = down;
}

void ToggleButton::on_mouse_left_down(const Point&) { pressed_ = true; }
void ToggleButton::on_mouse_move(const Point&) {}

void ToggleButton::on_mouse_left_up(const Point& p) {
  const bool click = pressed_ && hit_test(p);
  pressed_ = false;
  if (click) set_down(!down_, p);
}

int ToggleButton::get_type() { return WinTypeToggleButton; }

Slider::Slider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum,
               int ticks, Handler handler, bool vertical)
    : WinBase(parent, nullptr, rect),
      sliderStyle_(style),
      knobSize_(std::max(knobSize, 1)),
      minimum_(minimum),
      maximum_(std::max(minimum, maximum)),
      ticks_(ticks),
      handler_(handler),
      vertical_(vertical),
      value_(minimum) {}

void Slider::set_value(int value) { value_.store(std::clamp(value, minimum_, maximum_), std::memory_order_relaxed); }

// The knob's span along the track and the room it moves in.
SDL_Rect Slider::knob_rect() const {
  const SDL_Rect area = screen_rect();
  const int length = vertical_ ? area.h : area.w;
  const int knob = std::min(knobSize_, length);
  const int64_t room = length - knob;
  const int64_t range = static_cast<int64_t>(maximum_) - minimum_;
  const int64_t offset = range > 0 ? (static_cast<int64_t>(get_value()) - minimum_) * room / range : 0;
  if (vertical_) return SDL_Rect{area.x, area.y + static_cast<int>(room - offset), area.w, knob};
  return SDL_Rect{area.x + static_cast<int>(offset), area.y, knob, area.h};
}

void Slider::draw(SDL_Surface* screen) {
  const SDL_Rect area = screen_rect();
  if (!sliderStyle_) return;
  if (sliderStyle_->slideFill) sliderStyle_->slideFill->fill(screen, area);
  if (sliderStyle_->slideStroke) sliderStyle_->slideStroke->stroke(screen, area);
  const int length = vertical_ ? area.h : area.w;
  // More marks than every third pixel would only blur into a bar.
  const int ticks = std::min(ticks_, length / 3);
  if (sliderStyle_->tickStroke && ticks > 0) {
    const int knob = std::min(knobSize_, length);
    for (int i = 0; i <= ticks; ++i) {
      const int along = knob / 2 + static_cast<int>(static_cast<int64_t>(length - knob) * i / ticks);
      if (vertical_)
        sliderStyle_->tickStroke->line(screen, Point(area.x + 2, area.y + along), Point(area.x + area.w / 4, area.y + along));
      else
        sliderStyle_->tickStroke->line(screen, Point(area.x + along, area.y + area.h - 3),
                                       Point(area.x + along, area.y + area.h - area.h / 4));
    }
  }
  const SDL_Rect knob = knob_rect();
  AreaFill* fill = held_ && sliderStyle_->knobFillHeld ? sliderStyle_->knobFillHeld : sliderStyle_->knobFill;
  if (fill) fill->fill(screen, knob);
  if (sliderStyle_->knobStroke) sliderStyle_->knobStroke->stroke(screen, knob);
}

// The knob's middle goes under the finger, as far as the track allows.
void Slider::follow(const Point& p, int flag) {
  const SDL_Rect area = screen_rect();
  const int length = vertical_ ? area.h : area.w;
  const int knob = std::min(knobSize_, length);
  const int64_t room = length - knob;
  const int64_t range = static_cast<int64_t>(maximum_) - minimum_;
  int64_t along = vertical_ ? static_cast<int64_t>(area.y) + area.h - knob / 2 - p.y
                            : static_cast<int64_t>(p.x) - area.x - knob / 2;
  along = std::clamp<int64_t>(along, 0, room);
  const int64_t value = room > 0 ? minimum_ + (along * range * 2 + room) / (room * 2) : minimum_;
  set_value(static_cast<int>(value));
  redraw_update();
  if (handler_) handler_(this, flag);
}

void Slider::on_mouse_left_down(const Point& p) {
  held_ = true;
  follow(p, 0);
}

void Slider::on_mouse_move(const Point& p) {
  if (held_) follow(p, 0);
}

void Slider::on_mouse_left_up(const Point& p) {
  if (!held_) return;
  held_ = false;
  follow(p, 1);
}

HSlider::HSlider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum,
                 int ticks, Handler handler)
    : Slider(parent, style, rect, knobSize, minimum, maximum, ticks, handler, false) {}
int HSlider::get_type() { return WinTypeHSlider; }

VSlider::VSlider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum,
                 int ticks, Handler handler)
    : Slider(parent, style, rect, knobSize, minimum, maximum, ticks, handler, true) {}
int VSlider::get_type() { return WinTypeVSlider; }

LabelWin::LabelWin(WinBase* parent, WinStyle* style, const Rect& rect, Label* label)
    : WinBase(parent, style, rect), label_(label) {}

LabelWin::~LabelWin() { delete label_; }

void LabelWin::draw(SDL_Surface* screen) {
  WinBase::draw(screen);
  if (label_) label_->draw(screen, screen_rect());
}

int LabelWin::get_type() { return WinTypeLabel; }

void LabelWin::set_label(Label* label) {
  std::lock_guard<std::recursive_mutex> tree(TreeMutex());
  delete label_;
  label_ = label;
}

StaticRect::StaticRect(WinBase* parent, WinStyle* style, const Rect& rect) : WinBase(parent, style, rect) {}
bool StaticRect::hit_test(const Point&) { return false; }
int StaticRect::get_type() { return WinTypeStaticRect; }

StaticLine::StaticLine(WinBase* parent, WinStyle* style, const Rect& rect, Point from, Point to)
    : WinBase(parent, style, rect), from_(from), to_(to) {
  clipToParent_ = true;
}

void StaticLine::draw(SDL_Surface* screen) {
  if (!style_ || !style_->stroke || !parent()) return;
  const SDL_Rect origin = parent()->screen_rect();
  style_->stroke->line(screen, Point(ClampCoordinate(int64_t{origin.x} + from_.x), ClampCoordinate(int64_t{origin.y} + from_.y)),
                       Point(ClampCoordinate(int64_t{origin.x} + to_.x), ClampCoordinate(int64_t{origin.y} + to_.y)));
}

bool StaticLine::hit_test(const Point&) { return false; }
int StaticLine::get_type() { return WinTypeStaticLine; }
