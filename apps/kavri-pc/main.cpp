// kavri-pc: the PC side of the controller link, for people and scripts.
#include "PcContext.h"

// A command group is registered here: declare its Add...Commands function
// (defined in the group's own file) and call it below.
void AddInfoCommands(CLI::App& app, PcContext& context);
void AddProgramCommands(CLI::App& app, PcContext& context);
void AddOnlineCommands(CLI::App& app, PcContext& context);
void AddCameraCommands(CLI::App& app, PcContext& context);

namespace {

void AddCommandGroups(CLI::App& app, PcContext& context) {
  AddInfoCommands(app, context);
  AddProgramCommands(app, context);
  AddOnlineCommands(app, context);
  AddCameraCommands(app, context);
}

}  // namespace

int main(int argc, char** argv) { return RunPcTool(argc, argv, AddCommandGroups); }
