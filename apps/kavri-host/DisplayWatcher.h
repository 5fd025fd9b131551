// Hands each display frame a program shows to the host: to an image file,
// to the browser panel.
#ifndef KAVRI_HOST_DISPLAY_WATCHER_H
#define KAVRI_HOST_DISPLAY_WATCHER_H

#include <cstdint>
#include <functional>

// Starts a thread that takes each updated frame (1024 bytes) from the I/O
// library, as a display would, and passes it to `show`. Only our I/O library
// stand-in can hand out frames; with another one this prints why and returns
// false.
bool StartDisplayWatcher(std::function<void(const uint8_t* frame)> show);

#endif
