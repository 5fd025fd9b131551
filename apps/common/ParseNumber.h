// Number options of our command-line tools.
#ifndef KAVRI_APPS_PARSENUMBER_H
#define KAVRI_APPS_PARSENUMBER_H

#include <cerrno>
#include <cstdlib>

// Parses a whole decimal, 0x hexadecimal or 0 octal number within [low, high].
inline bool ParseIntInRange(const char* text, long low, long high, int& value) {
  errno = 0;
  char* end = nullptr;
  long parsed = strtol(text, &end, 0);
  if (errno || end == text || *end || parsed < low || parsed > high) return false;
  value = static_cast<int>(parsed);
  return true;
}

#endif
