// Commands that ask the controller about itself.
#include <cstring>

#include "PcContext.h"
#include "kavri/LinkProtocol.h"

namespace {

Report QueryStatus(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdQueryStatus};
  auto reply = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_QueryStatus>(command, KavriReplyQueryStatus, "status");
  Report report;
  report.AddText("controller", "Controller",
                 std::string(reply.controllerType, strnlen(reply.controllerType, sizeof reply.controllerType)));
  report.AddText("systemVersion", "System version", FormatVersion(reply.systemVersion));
  report.AddNumber("systemVersionWord", "System version word", reply.systemVersion, Hex32(reply.systemVersion));
  return report;
}

Report MemoryLayout(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdGetMemoryLayout};
  auto reply =
      link.Exchange<xoIF2013Command_Base, xoIF2013Reply_MemoryLayout>(command, KavriReplyGetMemoryLayout, "layout");
  Report report;
  report.AddNumber("runAreaAddress", "Run area address", reply.runAreaAddress, Hex32(reply.runAreaAddress));
  report.AddNumber("runAreaSize", "Run area size", reply.runAreaSize, std::to_string(reply.runAreaSize) + " bytes");
  report.AddNumber("transAreaAddress", "Transfer area address", reply.transAreaAddress, Hex32(reply.transAreaAddress));
  report.AddNumber("transAreaSize", "Transfer area size", reply.transAreaSize,
                   std::to_string(reply.transAreaSize) + " bytes");
  return report;
}

}  // namespace

void AddInfoCommands(CLI::App& app, PcContext& context) {
  AddReportCommand(app, context, "status", "controller type and system version", QueryStatus);
  AddReportCommand(app, context, "layout", "addresses and sizes of the run area and the transfer area", MemoryLayout);
}
