// Whole-number options of our command-line tools.
#ifndef KAVRI_APPS_CLINUMBER_H
#define KAVRI_APPS_CLINUMBER_H

#include <CLI/CLI.hpp>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <string>

// Decimal, or hexadecimal after 0x. A leading 0 is just a zero: people type
// 08080 for a port and mean eight thousand and eighty, not an octal error.
inline bool ParseWholeNumber(const std::string& text, long long& value) {
  const char* digits = text.c_str();
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    digits += 2;
    base = 16;
  }
  // strtoll would also skip blanks and take a sign after 0x
  const char* first = digits + (base == 10 && *digits == '-');
  if (!isxdigit(static_cast<unsigned char>(*first))) return false;
  errno = 0;
  char* end = nullptr;
  value = strtoll(digits, &end, base);
  return errno == 0 && end != digits && *end == '\0';
}

// Rewrites a number option's text as plain decimal before CLI11 converts it
// (CLI11 alone would read a leading 0 as octal).
inline CLI::Validator WholeNumber() {
  return CLI::Validator(
      [](std::string& text) {
        long long value;
        if (!ParseWholeNumber(text, value)) return "'" + text + "' is not a whole number";
        text = std::to_string(value);
        return std::string();
      },
      "");
}

// A whole-number option bounded to [low, high], with its default in the help.
template <typename T>
CLI::Option* AddNumberOption(CLI::App& app, const std::string& name, T& value, long long low, long long high,
                             const std::string& help) {
  return app.add_option(name, value, help)
      ->transform(WholeNumber())
      ->check(CLI::Range(low, high))
      ->capture_default_str();
}

#endif
