#include "PcContext.h"

#include "CliNumber.h"

void PcContext::Print(const Report& report) const {
  fputs((json ? report.AsJson() : report.AsText()).c_str(), out);
}

CLI::App* AddReportCommand(CLI::App& app, PcContext& context, const std::string& name, const std::string& summary,
                           Report (*exchange)(LinkClient& link)) {
  CLI::App* command = app.add_subcommand(name, summary);
  command->callback([&context, exchange] {
    context.action = [&context, exchange] {
      LinkClient link = context.Connect();
      context.Print(exchange(link));
      return 0;
    };
  });
  return command;
}

namespace {

int ReportUsageError(const CLI::App& app, const CLI::ParseError& error, const PcContext& context) {
  const std::vector<std::string> unparsed = app.remaining();
  if (app.get_subcommands().empty() && !unparsed.empty() && unparsed.front()[0] != '-')
    fprintf(context.err, "kavri-pc: unknown command '%s'\n", unparsed.front().c_str());
  else
    fprintf(context.err, "kavri-pc: %s\n", error.what());
  fputs("Run kavri-pc --help for the commands and options.\n", context.err);
  return 2;
}

}  // namespace

int RunPcTool(int argc, const char* const* argv, void (*addCommandGroups)(CLI::App&, PcContext&), FILE* out,
              FILE* err) {
  PcContext context;
  context.out = out;
  context.err = err;
  CLI::App app("Talks to a controller over its PC link.", "kavri-pc");
  app.option_defaults()->always_capture_default();
  app.add_option("--host", context.host, "controller address");
  AddNumberOption(app, "--port", context.port, 1, 65535, "PC link port");
  AddNumberOption(app, "--timeout", context.timeoutSeconds, 1, 3600, "seconds to wait for an answer");
  app.add_flag("--json", context.json, "print the answer as one JSON object");
  app.require_subcommand(1);
  app.fallthrough();  // the shared options may also follow the command
  addCommandGroups(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    fputs(app.help().c_str(), out);
    return 0;
  } catch (const CLI::ParseError& error) {
    return ReportUsageError(app, error, context);
  }
  try {
    return context.action ? context.action() : 0;
  } catch (const LinkError& error) {
    fprintf(err, "kavri-pc: %s\n", error.what());
    return 1;
  }
}
