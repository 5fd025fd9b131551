#include "PcCommands.h"

#include <cstdio>
#include <algorithm>
#include <cstring>

#include "kavri/LinkProtocol.h"

namespace {

std::string Hex(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::string JsonQuoted(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", c);
      quoted += escape;
      continue;
    }
    quoted += c;
  }
  return quoted + "\"";
}

Report QueryStatus(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdQueryStatus};
  auto reply = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_QueryStatus>(command, KavriReplyQueryStatus, "status");
  Report report;
  report.AddText("controller", "Controller", std::string(reply.controllerType, strnlen(reply.controllerType, sizeof reply.controllerType)));
  report.AddText("systemVersion", "System version", FormatVersion(reply.systemVersion));
  report.AddNumber("systemVersionWord", "System version word", reply.systemVersion, Hex(reply.systemVersion));
  return report;
}

Report MemoryLayout(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdGetMemoryLayout};
  auto reply = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_MemoryLayout>(command, KavriReplyGetMemoryLayout, "layout");
  Report report;
  report.AddNumber("runAreaAddress", "Run area address", reply.runAreaAddress, Hex(reply.runAreaAddress));
  report.AddNumber("runAreaSize", "Run area size", reply.runAreaSize, std::to_string(reply.runAreaSize) + " bytes");
  report.AddNumber("transAreaAddress", "Transfer area address", reply.transAreaAddress, Hex(reply.transAreaAddress));
  report.AddNumber("transAreaSize", "Transfer area size", reply.transAreaSize, std::to_string(reply.transAreaSize) + " bytes");
  return report;
}

}  // namespace

void Report::AddText(std::string key, std::string label, std::string text) {
  std::string json = JsonQuoted(text);
  fields.push_back({std::move(key), std::move(label), std::move(text), std::move(json)});
}

void Report::AddNumber(std::string key, std::string label, long long value, std::string shown) {
  std::string json = std::to_string(value);
  fields.push_back({std::move(key), std::move(label), shown.empty() ? json : std::move(shown), json});
}

std::string Report::AsText() const {
  size_t width = 0;
  for (const Field& field : fields) width = std::max(width, field.label.size());
  std::string text;
  for (const Field& field : fields)
    text += field.label + ":" + std::string(width + 2 - field.label.size(), ' ') + field.text + "\n";
  return text;
}

std::string Report::AsJson() const {
  std::string json = "{";
  for (const Field& field : fields) {
    if (json.size() > 1) json += ", ";
    json += JsonQuoted(field.key) + ": " + field.json;
  }
  return json + "}\n";
}

std::string FormatVersion(uint32_t version) {
  char text[32];
  snprintf(text, sizeof text, "%u.%u.%u.%u", version >> 24, version >> 16 & 0xFF, version >> 8 & 0xFF, version & 0xFF);
  return text;
}

const std::vector<PcCommand>& PcCommands() {
  static const std::vector<PcCommand> commands = {
      {"status", "controller type and system version", QueryStatus},
      {"layout", "addresses and sizes of the run area and the transfer area", MemoryLayout},
  };
  return commands;
}
