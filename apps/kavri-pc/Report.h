// What a command found out: named fields, printed for people or as JSON.
#ifndef KAVRI_PC_REPORT_H
#define KAVRI_PC_REPORT_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

class Report {
 public:
  void AddText(std::string key, std::string label, std::string text);
  // `shown` is what people read (a hex address, a size with its unit);
  // JSON always gets the number.
  void AddNumber(std::string key, std::string label, long long value, std::string shown = "");

  std::string AsText() const;
  std::string AsJson() const;  // one object on one line, fields in the order added

 private:
  struct Field {
    std::string label;
    std::string text;
  };
  std::vector<Field> fields_;
  nlohmann::ordered_json json_ = nlohmann::ordered_json::object();
};

std::string Hex32(uint32_t value);
std::string FormatVersion(uint32_t version);

#endif
