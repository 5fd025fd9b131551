// Writes the display to an image file whenever a program updates it.
#ifndef KAVRI_HOST_DISPLAY_WATCHER_H
#define KAVRI_HOST_DISPLAY_WATCHER_H

#include <string>

// Starts a thread that takes each updated frame from the I/O library, as a
// display would, and writes it to `path`. Only our I/O library stand-in can
// hand out frames; with another one this prints why and returns false.
bool StartDisplayWatcher(const std::string& path);

#endif
