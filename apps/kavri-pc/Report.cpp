#include "Report.h"

#include <algorithm>
#include <cstdio>

void Report::AddText(std::string key, std::string label, std::string text) {
  json_[key] = text;
  fields_.push_back({std::move(label), std::move(text)});
}

void Report::AddNumber(std::string key, std::string label, long long value, std::string shown) {
  json_[key] = value;
  fields_.push_back({std::move(label), shown.empty() ? std::to_string(value) : std::move(shown)});
}

std::string Report::AsText() const {
  size_t width = 0;
  for (const Field& field : fields_) width = std::max(width, field.label.size());
  std::string text;
  for (const Field& field : fields_)
    text += field.label + ":" + std::string(width + 2 - field.label.size(), ' ') + field.text + "\n";
  return text;
}

// Controller texts are fixed-size byte fields; a stray non-UTF-8 byte must
// not turn a whole report into an exception.
std::string Report::AsJson() const {
  return json_.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string Hex32(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::string FormatVersion(uint32_t version) {
  char text[32];
  snprintf(text, sizeof text, "%u.%u.%u.%u", version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF);
  return text;
}
