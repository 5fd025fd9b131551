// The commands kavri-pc offers, each one exchange with the controller.
#ifndef KAVRI_PC_PCCOMMANDS_H
#define KAVRI_PC_PCCOMMANDS_H

#include <string>
#include <utility>
#include <vector>

#include "LinkClient.h"

// What a command found out: named fields, printed for people or as JSON.
struct Report {
  struct Field {
    std::string key;    // JSON name
    std::string label;  // for people
    std::string text;   // the value as people read it
    std::string json;   // the value as JSON
  };
  std::vector<Field> fields;

  void AddText(std::string key, std::string label, std::string text);
  void AddNumber(std::string key, std::string label, long long value, std::string shown = "");
  std::string AsText() const;
  std::string AsJson() const;
};

struct PcCommand {
  const char* name;
  const char* summary;
  Report (*run)(LinkClient& link);
};

const std::vector<PcCommand>& PcCommands();
std::string FormatVersion(uint32_t version);

#endif
