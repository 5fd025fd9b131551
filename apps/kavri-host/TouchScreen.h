// The touch screen seen from the host: its font and its picture.
#ifndef KAVRI_HOST_TOUCH_SCREEN_H
#define KAVRI_HOST_TOUCH_SCREEN_H

#include <string>

// Keeps the library's font path where the controller has the font; where it
// is missing, uses Debian's copy of the same font if that exists.
void ChooseDisplayFont();

// Writes the touch screen to `path` as a PNG whenever it changes. Only our
// widget library stand-in can take pictures; false (with a message) elsewhere.
bool StartScreenWatcher(const std::string& path);

#endif
