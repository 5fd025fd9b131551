// What tests and hosts use of the widget library beyond the windows: touches
// at screen points, the screen's picture and the state of the event queue.
// The maker's library on the controller has none of this, so hosts look
// these up at run time.
#ifndef SDLWIDGETS_SDLWIDGETSSIM_H
#define SDLWIDGETS_SDLWIDGETSSIM_H

#include <stdint.h>

#define SDLWIDGETS_SCREEN_WIDTH 240
#define SDLWIDGETS_SCREEN_HEIGHT 320

extern "C" {

// Queue a touch for the event thread, in screen pixels.
void SDLWidgetsSim_Press(int x, int y);
void SDLWidgetsSim_Move(int x, int y);
void SDLWidgetsSim_Release(int x, int y);

// True once the queue is empty and nothing runs on the event thread; false
// if that did not happen within the time.
bool SDLWidgetsSim_WaitIdle(int timeoutMilliseconds);

// Counts every repaint of the screen; a watcher that sees it change takes a
// new picture.
uint32_t SDLWidgetsSim_ScreenChanges(void);
// Counts the calls queued with send_uev.
uint32_t SDLWidgetsSim_QueuedCalls(void);

// The screen as 240 x 320 pixels 0x00RRGGBB, rows top to bottom.
void SDLWidgetsSim_CopyScreen(uint32_t* pixels);
// Writes the screen as a PNG, replacing the file whole; 1 on success, else 0
// after an "ERROR ..." line on standard error.
int SDLWidgetsSim_SavePng(const char* path);

}  // extern "C"

#endif
