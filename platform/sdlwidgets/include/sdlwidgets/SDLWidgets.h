// The touch-screen widget library: windows, buttons, sliders, labels and the
// styles that paint them on the 240 x 320 screen. Everything a window does on
// the screen (drawing, touch handling, calls queued with send_uev) happens on
// the library's own event thread.
//
// Windows form a tree below SDLWidgets_GetTopWin(). A window is created with
// its parent and deleted with it; deleting a window deletes its children and
// drops calls still queued for it. Windows own their labels; styles, fills,
// strokes and text renderers belong to whoever made them and must outlive
// the windows that use them. Colours are 0xRRGGBBAA words.
#ifndef SDLWIDGETS_SDLWIDGETS_H
#define SDLWIDGETS_SDLWIDGETS_H

#include <SDL.h>
#include <SDL_ttf.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

struct Point {
  int x;
  int y;
  Point(int px = 0, int py = 0) : x(px), y(py) {}
};

// Left, top, width and height; a window's rectangle is relative to its parent.
struct Rect {
  int x;
  int y;
  int w;
  int h;
  Rect(int rx = 0, int ry = 0, int rw = 0, int rh = 0) : x(rx), y(ry), w(rw), h(rh) {}
};

class AreaFill {
 public:
  virtual ~AreaFill() = default;
  virtual void fill(SDL_Surface* screen, const SDL_Rect& area) const = 0;
};

class AreaFillSolid : public AreaFill {
 public:
  explicit AreaFillSolid(uint32_t colour) : colour_(colour) {}
  void fill(SDL_Surface* screen, const SDL_Rect& area) const override;

 private:
  uint32_t colour_;
};

// From colour a to colour b. direction: 0 left to right, 1 right to left,
// 2 top to bottom, 3 bottom to top. bands: that many flat steps, 0 smooth.
class AreaFillGradientAB : public AreaFill {
 public:
  AreaFillGradientAB(uint32_t a, uint32_t b, int direction, int bands)
      : a_(a), b_(b), direction_(direction), bands_(bands) {}
  void fill(SDL_Surface* screen, const SDL_Rect& area) const override;

 private:
  uint32_t a_;
  uint32_t b_;
  int direction_;
  int bands_;
};

// Leaves what lies below visible.
class AreaFillNull : public AreaFill {
 public:
  void fill(SDL_Surface*, const SDL_Rect&) const override {}
};

// Draws a window's border inside its rectangle, and lines.
class StrokeDraw {
 public:
  virtual ~StrokeDraw() = default;
  virtual void stroke(SDL_Surface* screen, const SDL_Rect& area) const = 0;
  virtual void line(SDL_Surface* screen, Point from, Point to) const = 0;
};

class StrokeDrawNull : public StrokeDraw {
 public:
  void stroke(SDL_Surface*, const SDL_Rect&) const override {}
  void line(SDL_Surface*, Point, Point) const override {}
};

class StrokeDrawSimple : public StrokeDraw {
 public:
  explicit StrokeDrawSimple(uint32_t colour) : colour_(colour) {}
  void stroke(SDL_Surface* screen, const SDL_Rect& area) const override;
  void line(SDL_Surface* screen, Point from, Point to) const override;

 private:
  uint32_t colour_;
};

// A raised edge: light on the top and left, dark on the bottom and right,
// inside a one-pixel frame. Swapping light and dark gives a pressed edge.
class StrokeDraw3D : public StrokeDraw {
 public:
  StrokeDraw3D(uint32_t light, uint32_t dark, uint32_t frame) : light_(light), dark_(dark), frame_(frame) {}
  void stroke(SDL_Surface* screen, const SDL_Rect& area) const override;
  void line(SDL_Surface* screen, Point from, Point to) const override;

 private:
  uint32_t light_;
  uint32_t dark_;
  uint32_t frame_;
};

class WinStyle {
 public:
  WinStyle(AreaFill* fill, StrokeDraw* stroke) : fill(fill), stroke(stroke) {}
  AreaFill* fill;
  StrokeDraw* stroke;
};

class ButtonStyle {
 public:
  ButtonStyle(AreaFill* fill, StrokeDraw* stroke, AreaFill* fillDown, StrokeDraw* strokeDown)
      : fill(fill), stroke(stroke), fillDown(fillDown), strokeDown(strokeDown) {}
  AreaFill* fill;
  StrokeDraw* stroke;
  AreaFill* fillDown;
  StrokeDraw* strokeDown;
};

// The track, the knob, the tick marks, and the knob's fill while it is held
// (null: the knob keeps its fill).
class SliderStyle {
 public:
  SliderStyle(AreaFill* slideFill, StrokeDraw* slideStroke, AreaFill* knobFill, StrokeDraw* knobStroke,
              StrokeDraw* tickStroke, AreaFill* knobFillHeld)
      : slideFill(slideFill),
        slideStroke(slideStroke),
        knobFill(knobFill),
        knobStroke(knobStroke),
        tickStroke(tickStroke),
        knobFillHeld(knobFillHeld) {}
  AreaFill* slideFill;
  StrokeDraw* slideStroke;
  AreaFill* knobFill;
  StrokeDraw* knobStroke;
  StrokeDraw* tickStroke;
  AreaFill* knobFillHeld;
};

// Renders text (bytes as Latin-1) in one font and colour.
class RenderText {
 public:
  RenderText(TTF_Font* font, uint32_t colour) : font_(font), colour_(colour) {}
  // Blends `text` onto the screen with its top left corner at `at`.
  void draw(SDL_Surface* screen, const char* text, Point at) const;
  // Width and height of `text` in pixels; 0 x 0 for an empty text.
  Point measure(const char* text) const;
  int line_height() const;

 private:
  TTF_Font* font_;
  uint32_t colour_;
};

// Content drawn inside a window. Alignments are percent of the free room,
// from -100 (left or top) over 0 (centred) to 100 (right or bottom).
class Label {
 public:
  virtual ~Label() = default;
  virtual void draw(SDL_Surface* screen, const SDL_Rect& area) const = 0;
};

class TextFilter {
 public:
  virtual ~TextFilter() = default;
  virtual std::string filter(const std::string& text) const = 0;
};

// A copy of `text`, shown in one line.
class LabelText : public Label {
 public:
  LabelText(const char* text, RenderText* render, int alignX, int alignY, TextFilter* filter);
  void draw(SDL_Surface* screen, const SDL_Rect& area) const override;

 private:
  std::string text_;
  RenderText* render_;
  int alignX_;
  int alignY_;
  TextFilter* filter_;
};

// `count` lines read from the caller's array at every draw, so that the
// caller can change them and ask for a redraw.
class LabelTextMulti : public Label {
 public:
  LabelTextMulti(char** lines, int count, RenderText* render, int alignX, int alignY);
  void draw(SDL_Surface* screen, const SDL_Rect& area) const override;

 private:
  char** lines_;
  int count_;
  RenderText* render_;
  int alignX_;
  int alignY_;
};

// Another label drawn inside margins; owns it.
class LabelMargin : public Label {
 public:
  LabelMargin(Label* inner, int left, int top, int right, int bottom);
  ~LabelMargin() override;
  void draw(SDL_Surface* screen, const SDL_Rect& area) const override;

 private:
  Label* inner_;
  int left_;
  int top_;
  int right_;
  int bottom_;
};

enum WinType {
  WinTypeBase = 0,
  WinTypeBackground = 1,
  WinTypeButton = 2,
  WinTypeToggleButton = 3,
  WinTypeHSlider = 4,
  WinTypeVSlider = 5,
  WinTypeLabel = 6,
  WinTypeStaticRect = 7,
  WinTypeStaticLine = 8,
};

// The window base. Its virtual operations keep this slot order, which the
// maker's binary library shares.
class WinBase {
 public:
  WinBase(WinBase* parent, WinStyle* style, const Rect& rect);
  virtual ~WinBase();
  WinBase(const WinBase&) = delete;
  WinBase& operator=(const WinBase&) = delete;

  // Paints this window, not its children; the screen is clipped to it.
  virtual void draw(SDL_Surface* screen);
  // Whether the screen point lies in this window.
  virtual bool hit_test(const Point& p);
  // The deepest shown window at the screen point, this one if no child is there.
  virtual WinBase* hit_child(const Point& p);
  // Touches at screen points: the window pressed receives the moves and the
  // release that follow, wherever they are.
  virtual void on_mouse_left_down(const Point& p);
  virtual void on_mouse_left_up(const Point& p);
  virtual void on_mouse_move(const Point& p);
  virtual int get_type();

  // Event thread only: paints this window and its shown children, unless it
  // or a parent is hidden, and tells watchers that the screen changed.
  void redraw_update();

  Rect rect() const { return rect_; }
  // The rectangle in screen pixels.
  SDL_Rect screen_rect() const;
  WinBase* parent() const { return parent_; }
  // Changed only by creating and deleting windows.
  const std::vector<WinBase*>& children() const { return children_; }
  bool is_shown() const;
  bool clips_to_parent() const { return clipToParent_; }

  // A hidden window and its children are neither drawn nor touched.
  std::atomic<bool> hidden{false};

 protected:
  WinStyle* style_;
  // Lines may reach outside their own rectangle: they are clipped to the parent.
  bool clipToParent_ = false;

 private:
  WinBase* parent_;
  Rect rect_;
  std::vector<WinBase*> children_;
};

class BackgroundWin : public WinBase {
 public:
  BackgroundWin(WinBase* parent, WinStyle* style, const Rect& rect);
  int get_type() override;
};

// A push button: down while pressed, up when released or when the finger
// slides off. The handler hears every change with the touch point.
class Button : public WinBase {
 public:
  using Handler = void (*)(Button* button, int x, int y);
  Button(WinBase* parent, ButtonStyle* style, const Rect& rect, Label* label, Handler handler);
  ~Button() override;
  void draw(SDL_Surface* screen) override;
  void on_mouse_left_down(const Point& p) override;
  void on_mouse_left_up(const Point& p) override;
  void on_mouse_move(const Point& p) override;
  int get_type() override;
  bool is_down() const { return down_; }

 protected:
  void set_down(bool down, const Point& p);
  ButtonStyle* buttonStyle_;
  Label* label_;
  Handler handler_;
  bool down_ = false;
  bool pressed_ = false;  // a touch began on this button and goes on
};

// Changes state when a touch that began on it ends on it.
class ToggleButton : public Button {
 public:
  ToggleButton(WinBase* parent, ButtonStyle* style, const Rect& rect, Label* label, Handler handler, bool down);
  void on_mouse_left_down(const Point& p) override;
  void on_mouse_left_up(const Point& p) override;
  void on_mouse_move(const Point& p) override;
  int get_type() override;
};

// A knob of knobSize pixels on a track from minimum to maximum (whole
// numbers, left or bottom is minimum). ticks > 0 draws that many intervals
// of tick marks. The handler hears every touch on it: flag 1 when the finger
// is lifted, else 0.
class Slider : public WinBase {
 public:
  using Handler = void (*)(Slider* slider, int flag);
  Slider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum, int ticks,
         Handler handler, bool vertical);
  void draw(SDL_Surface* screen) override;
  void on_mouse_left_down(const Point& p) override;
  void on_mouse_left_up(const Point& p) override;
  void on_mouse_move(const Point& p) override;
  int get_value() const { return value_.load(std::memory_order_relaxed); }
  // Kept within the range; shown at the next redraw.
  void set_value(int value);

 private:
  void follow(const Point& p, int flag);
  SDL_Rect knob_rect() const;
  SliderStyle* sliderStyle_;
  int knobSize_;
  int minimum_;
  int maximum_;
  int ticks_;
  Handler handler_;
  bool vertical_;
  bool held_ = false;
  std::atomic<int> value_;
};

class HSlider : public Slider {
 public:
  HSlider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum, int ticks,
          Handler handler);
  int get_type() override;
};

class VSlider : public Slider {
 public:
  VSlider(WinBase* parent, SliderStyle* style, const Rect& rect, int knobSize, int minimum, int maximum, int ticks,
          Handler handler);
  int get_type() override;
};

// A window showing a label, which may be given later.
class LabelWin : public WinBase {
 public:
  LabelWin(WinBase* parent, WinStyle* style, const Rect& rect, Label* label);
  ~LabelWin() override;
  void draw(SDL_Surface* screen) override;
  int get_type() override;
  void set_label(Label* label);

 private:
  Label* label_;
};

// Rectangles and lines are drawn only: touches go to what lies below them.
class StaticRect : public WinBase {
 public:
  StaticRect(WinBase* parent, WinStyle* style, const Rect& rect);
  bool hit_test(const Point& p) override;
  int get_type() override;
};

// A line between two points relative to the parent, in the style's stroke.
class StaticLine : public WinBase {
 public:
  StaticLine(WinBase* parent, WinStyle* style, const Rect& rect, Point from, Point to);
  void draw(SDL_Surface* screen) override;
  bool hit_test(const Point& p) override;
  int get_type() override;

 private:
  Point from_;
  Point to_;
};

// The whole screen; made on the first call.
WinBase* SDLWidgets_GetTopWin();

// Queues function(window, data) to run on the event thread.
void send_uev(void (*function)(WinBase* window, void* data), WinBase* window, void* data);

#endif
