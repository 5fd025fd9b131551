// Shared state of the widget library: the screen, the lock that keeps the
// window tree whole, and the event queue's clean-up for deleted windows.
#ifndef SDLWIDGETS_WIDGETSINTERNAL_H
#define SDLWIDGETS_WIDGETSINTERNAL_H

#include <mutex>

#include "sdlwidgets/SDLWidgets.h"

namespace sdlwidgets {

// Held while the tree changes and while the event thread works on it, so
// that a window is never deleted under a draw or a touch. Recursive: deleting
// a window deletes its children.
std::recursive_mutex& TreeMutex();

// The 240 x 320 ARGB screen; drawn on only with the tree lock held.
SDL_Surface* Screen();
void ScreenChanged();

// A window is going away: calls queued for it are dropped, and a touch that
// began on it ends there.
void ForgetWindow(WinBase* window);

// Screen pixel of a 0xRRGGBBAA colour.
uint32_t MapColour(SDL_Surface* screen, uint32_t colour);
// Fills the rectangle, clipped to the screen's clip rectangle.
void FillArea(SDL_Surface* screen, int x, int y, int w, int h, uint32_t colour);
// A one-pixel line, clipped to the screen's clip rectangle.
void DrawLine(SDL_Surface* screen, Point from, Point to, uint32_t colour);

// Paints a window and its shown children inside `clip`.
void PaintTree(WinBase* window, SDL_Surface* screen, const SDL_Rect& clip);

}  // namespace sdlwidgets

#endif
