// Fills, strokes and labels: everything that puts pixels on the screen.
#include <algorithm>
#include <cmath>

#include "WidgetsInternal.h"

namespace sdlwidgets {
namespace {

struct Rgba {
  int r, g, b, a;
};

Rgba Channels(uint32_t colour) {
  return Rgba{static_cast<int>(colour >> 24), static_cast<int>((colour >> 16) & 0xFF),
              static_cast<int>((colour >> 8) & 0xFF), static_cast<int>(colour & 0xFF)};
}

uint32_t Mix(uint32_t a, uint32_t b, int num, int den) {
  if (den <= 0) return a;
  const Rgba ca = Channels(a), cb = Channels(b);
  auto mix = [&](int x, int y) { return static_cast<uint32_t>(x + (y - x) * num / den); };
  return mix(ca.r, cb.r) << 24 | mix(ca.g, cb.g) << 16 | mix(ca.b, cb.b) << 8 | mix(ca.a, cb.a);
}

// Offset of a thing of `size` in `room` for an alignment of -100 to 100.
int Aligned(int start, int room, int size, int align) {
  const int64_t a = std::clamp(align, -100, 100);
  return start + static_cast<int>((static_cast<int64_t>(room) - size) * (a + 100) / 200);
}

}  // namespace

uint32_t MapColour(SDL_Surface* screen, uint32_t colour) {
  const Rgba c = Channels(colour);
  return SDL_MapRGBA(screen->format, static_cast<Uint8>(c.r), static_cast<Uint8>(c.g), static_cast<Uint8>(c.b),
                     static_cast<Uint8>(c.a));
}

void FillArea(SDL_Surface* screen, int x, int y, int w, int h, uint32_t colour) {
  if (w <= 0 || h <= 0) return;
  const SDL_Rect area{x, y, w, h};
  SDL_FillRect(screen, &area, MapColour(screen, colour));
}

// Clipped to the clip rectangle first (Liang-Barsky), so a line to a far
// point costs no more than one across the screen.
void DrawLine(SDL_Surface* screen, Point from, Point to, uint32_t colour) {
  SDL_Rect clip;
  SDL_GetClipRect(screen, &clip);
  const double x0 = from.x, y0 = from.y, dx = double(to.x) - from.x, dy = double(to.y) - from.y;
  double t0 = 0, t1 = 1;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {x0 - clip.x, clip.x + clip.w - 1 - x0, y0 - clip.y, clip.y + clip.h - 1 - y0};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return;
      continue;
    }
    const double t = q[i] / p[i];
    if (p[i] < 0)
      t0 = std::max(t0, t);
    else
      t1 = std::min(t1, t);
  }
  if (t0 > t1) return;
  const int ax = static_cast<int>(std::lround(x0 + t0 * dx)), ay = static_cast<int>(std::lround(y0 + t0 * dy));
  const int bx = static_cast<int>(std::lround(x0 + t1 * dx)), by = static_cast<int>(std::lround(y0 + t1 * dy));
  const int steps = std::max(std::abs(bx - ax), std::abs(by - ay));
  const uint32_t pixel = MapColour(screen, colour);
  for (int i = 0; i <= steps; ++i) {
    const int x = steps ? ax + (bx - ax) * i / steps : ax;
    const int y = steps ? ay + (by - ay) * i / steps : ay;
    if (x < clip.x || y < clip.y || x >= clip.x + clip.w || y >= clip.y + clip.h) continue;
    auto* row = reinterpret_cast<uint32_t*>(static_cast<uint8_t*>(screen->pixels) + y * screen->pitch);
    row[x] = pixel;
  }
}

}  // namespace sdlwidgets

using namespace sdlwidgets;

void AreaFillSolid::fill(SDL_Surface* screen, const SDL_Rect& area) const {
  FillArea(screen, area.x, area.y, area.w, area.h, colour_);
}

void AreaFillGradientAB::fill(SDL_Surface* screen, const SDL_Rect& area) const {
  const bool across = direction_ == 0 || direction_ == 1;
  const bool reversed = direction_ == 1 || direction_ == 3;
  const int steps = across ? area.w : area.h;
  for (int i = 0; i < steps; ++i) {
    const int at = reversed ? steps - 1 - i : i;
    int num = at, den = steps - 1;
    if (bands_ > 1) {
      num = static_cast<int>(static_cast<int64_t>(at) * bands_ / steps);
      den = bands_ - 1;
    }
    const uint32_t colour = Mix(a_, b_, num, den);
    if (across)
      FillArea(screen, area.x + i, area.y, 1, area.h, colour);
    else
      FillArea(screen, area.x, area.y + i, area.w, 1, colour);
  }
}

void StrokeDrawSimple::stroke(SDL_Surface* screen, const SDL_Rect& area) const {
  if (area.w <= 0 || area.h <= 0) return;
  FillArea(screen, area.x, area.y, area.w, 1, colour_);
  FillArea(screen, area.x, area.y + area.h - 1, area.w, 1, colour_);
  FillArea(screen, area.x, area.y, 1, area.h, colour_);
  FillArea(screen, area.x + area.w - 1, area.y, 1, area.h, colour_);
}

void StrokeDrawSimple::line(SDL_Surface* screen, Point from, Point to) const { DrawLine(screen, from, to, colour_); }

void StrokeDraw3D::stroke(SDL_Surface* screen, const SDL_Rect& area) const {
  StrokeDrawSimple(frame_).stroke(screen, area);
  const SDL_Rect in{area.x + 1, area.y + 1, area.w - 2, area.h - 2};
  if (in.w <= 0 || in.h <= 0) return;
  FillArea(screen, in.x, in.y, in.w, 1, light_);
  FillArea(screen, in.x, in.y, 1, in.h, light_);
  FillArea(screen, in.x, in.y + in.h - 1, in.w, 1, dark_);
  FillArea(screen, in.x + in.w - 1, in.y + 1, 1, in.h - 1, dark_);
}

void StrokeDraw3D::line(SDL_Surface* screen, Point from, Point to) const { DrawLine(screen, from, to, light_); }

void RenderText::draw(SDL_Surface* screen, const char* text, Point at) const {
  if (!font_ || !text || !*text) return;
  const Rgba c = Channels(colour_);
  const SDL_Color colour{static_cast<Uint8>(c.r), static_cast<Uint8>(c.g), static_cast<Uint8>(c.b),
                         static_cast<Uint8>(c.a)};
  SDL_Surface* rendered = TTF_RenderText_Blended(font_, text, colour);
  if (!rendered) return;
  SDL_Rect target{at.x, at.y, rendered->w, rendered->h};
  SDL_BlitSurface(rendered, nullptr, screen, &target);
  SDL_FreeSurface(rendered);
}

Point RenderText::measure(const char* text) const {
  int w = 0, h = 0;
  if (font_ && text && *text && TTF_SizeText(font_, text, &w, &h) != 0) w = h = 0;
  return Point(w, h);
}

int RenderText::line_height() const { return font_ ? TTF_FontLineSkip(font_) : 0; }

LabelText::LabelText(const char* text, RenderText* render, int alignX, int alignY, TextFilter* filter)
    : text_(text ? text : ""), render_(render), alignX_(alignX), alignY_(alignY), filter_(filter) {}

void LabelText::draw(SDL_Surface* screen, const SDL_Rect& area) const {
  if (!render_) return;
  const std::string shown = filter_ ? filter_->filter(text_) : text_;
  const Point size = render_->measure(shown.c_str());
  render_->draw(screen, shown.c_str(),
                Point(Aligned(area.x, area.w, size.x, alignX_), Aligned(area.y, area.h, size.y, alignY_)));
}

LabelTextMulti::LabelTextMulti(char** lines, int count, RenderText* render, int alignX, int alignY)
    : lines_(lines), count_(lines ? std::max(count, 0) : 0), render_(render), alignX_(alignX), alignY_(alignY) {}

void LabelTextMulti::draw(SDL_Surface* screen, const SDL_Rect& area) const {
  if (!render_ || count_ == 0) return;
  const int skip = render_->line_height();
  const int top = Aligned(area.y, area.h, static_cast<int>(std::min<int64_t>(int64_t{skip} * count_, 1 << 24)), alignY_);
  for (int i = 0; i < count_; ++i) {
    const int64_t y = top + int64_t{skip} * i;
    if (y >= area.y + area.h) break;  // the rest lies below the window
    if (!lines_[i] || y + skip <= area.y) continue;
    const Point size = render_->measure(lines_[i]);
    render_->draw(screen, lines_[i], Point(Aligned(area.x, area.w, size.x, alignX_), static_cast<int>(y)));
  }
}

LabelMargin::LabelMargin(Label* inner, int left, int top, int right, int bottom)
    : inner_(inner), left_(left), top_(top), right_(right), bottom_(bottom) {}

LabelMargin::~LabelMargin() { delete inner_; }

void LabelMargin::draw(SDL_Surface* screen, const SDL_Rect& area) const {
  if (inner_)
    inner_->draw(screen, SDL_Rect{area.x + left_, area.y + top_, area.w - left_ - right_, area.h - top_ - bottom_});
}
