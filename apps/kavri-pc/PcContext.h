// What every kavri-pc command shares: where the controller is, how long to
// wait, how to print. Each command group adds its subcommands to the app in
// its own file; a subcommand's callback only chooses the action, which runs
// after the whole command line has been parsed.
#ifndef KAVRI_PC_PCCONTEXT_H
#define KAVRI_PC_PCCONTEXT_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>

#include "LinkClient.h"
#include "Report.h"

struct PcContext {
  std::string host = "127.0.0.1";
  int port = 65000;
  int timeoutSeconds = 10;
  bool json = false;
  FILE* out = stdout;
  FILE* err = stderr;
  // Returns the exit code; a LinkError thrown from it exits with 1.
  std::function<int()> action;

  LinkClient Connect() const { return LinkClient(host, port, timeoutSeconds); }
  void Print(const Report& report) const;
};

// A subcommand that connects, does one exchange and prints what it found.
CLI::App* AddReportCommand(CLI::App& app, PcContext& context, const std::string& name, const std::string& summary,
                           Report (*exchange)(LinkClient& link));

// The whole tool: parses argv, runs the chosen command, returns the exit
// code (0 done, 1 the link failed, 2 the command line was wrong).
int RunPcTool(int argc, const char* const* argv, void (*addCommandGroups)(CLI::App&, PcContext&),
              FILE* out = stdout, FILE* err = stderr);

#endif
