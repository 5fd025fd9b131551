// kavri-pc: the PC side of the controller link, for people and scripts.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ParseNumber.h"
#include "PcCommands.h"

namespace {

struct PcOptions {
  std::string host = "127.0.0.1";
  int port = 65000;
  int timeoutSeconds = 10;
  bool json = false;
  std::string command;
};

void PrintUsage(FILE* out) {
  fputs("Usage: kavri-pc [--host H] [--port P] [--timeout S] [--json] COMMAND\n"
        "Talks to a controller over its PC link.\n\n"
        "Options:\n"
        "  --host H     controller address (default 127.0.0.1)\n"
        "  --port P     PC link port (default 65000)\n"
        "  --timeout S  seconds to wait for an answer (default 10)\n"
        "  --json       print the answer as one JSON object\n\n"
        "Commands:\n",
        out);
  for (const PcCommand& command : PcCommands()) fprintf(out, "  %-10s %s\n", command.name, command.summary);
}

// Returns 0 to go on, or the exit code.
int ParseOptions(int argc, char** argv, PcOptions& options) {
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    bool hasValue = i + 1 < argc;
    if (word == "--help" || word == "-h") {
      PrintUsage(stdout);
      return -1;
    } else if (word == "--json") {
      options.json = true;
    } else if (word == "--host" && hasValue) {
      options.host = argv[++i];
    } else if (word == "--port" && hasValue && ParseIntInRange(argv[i + 1], 1, 65535, options.port)) {
      ++i;
    } else if (word == "--timeout" && hasValue && ParseIntInRange(argv[i + 1], 1, 3600, options.timeoutSeconds)) {
      ++i;
    } else if (word[0] != '-' && options.command.empty()) {
      options.command = word;
    } else {
      fprintf(stderr, "kavri-pc: bad option or value '%s'\n", word.c_str());
      PrintUsage(stderr);
      return 2;
    }
  }
  if (options.command.empty()) {
    PrintUsage(stderr);
    return 2;
  }
  return 0;
}

const PcCommand* FindCommand(const std::string& name) {
  for (const PcCommand& command : PcCommands())
    if (name == command.name) return &command;
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  PcOptions options;
  if (int status = ParseOptions(argc, argv, options)) return status < 0 ? 0 : status;
  const PcCommand* command = FindCommand(options.command);
  if (!command) {
    fprintf(stderr, "kavri-pc: unknown command '%s'\n", options.command.c_str());
    PrintUsage(stderr);
    return 2;
  }
  try {
    LinkClient link(options.host, options.port, options.timeoutSeconds);
    Report report = command->run(link);
    fputs((options.json ? report.AsJson() : report.AsText()).c_str(), stdout);
    return 0;
  } catch (const LinkError& error) {
    fprintf(stderr, "kavri-pc: %s\n", error.what());
    return 1;
  }
}
