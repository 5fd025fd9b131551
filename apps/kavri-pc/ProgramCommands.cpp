// kavri-pc's program commands: libtable, build, download, start, stop, run.
#include "ProgramCommands.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

#include "PcContext.h"
#include "kavri/LinkProtocol.h"

namespace {

constexpr uint32_t kMaxImageSize = 0x400000;
// Large enough to keep the link busy, small enough for a lively progress bar.
constexpr size_t kDownloadChunk = 64 * 1024;

std::vector<uint8_t> ReadImage(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw LinkError("cannot open the image " + path);
  std::vector<uint8_t> image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (image.empty()) throw LinkError("the image " + path + " is empty");
  if (image.size() > kMaxImageSize)
    throw LinkError("the image " + path + " has " + std::to_string(image.size()) +
                    " bytes, more than the 4 MiB run area holds");
  return image;
}

std::string BaseName(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A bar that redraws itself on a terminal; elsewhere a line at each tenth.
class PrintedProgress : public DownloadProgress {
 public:
  explicit PrintedProgress(FILE* out) : out_(out), terminal_(isatty(fileno(out))) {}
  void Sent(size_t done, size_t total) override {
    size_t tenth = done * 10 / total;
    if (terminal_) {
      constexpr int kWidth = 40;
      int filled = static_cast<int>(done * kWidth / total);
      fprintf(out_, "\r[%.*s%*s] %3zu%% %zu/%zu bytes", filled, "########################################",
              kWidth - filled, "", done * 100 / total, done, total);
      if (done == total) fputc('\n', out_);
    } else if (tenth != lastTenth_ || done == total) {
      fprintf(out_, "Sent %zu of %zu bytes\n", done, total);
    }
    lastTenth_ = tenth;
    fflush(out_);
  }

 private:
  FILE* out_;
  bool terminal_;
  size_t lastTenth_ = 0;
};

struct DownloadArgs {
  std::string image;
  std::string name;
  bool ramOnly = false;
};

void AddDownloadOptions(CLI::App* command, DownloadArgs& args) {
  command->add_option("FILE", args.image, "flat program image")->required();
  command->add_option("--name", args.name, "program name on the controller (default: the file's name)")
      ->check([](const std::string& name) {
        return name.size() > kMaxProgramName ? "at most " + std::to_string(kMaxProgramName) + " characters"
                                             : std::string();
      });
  command->add_flag("--ram", args.ramOnly, "keep the program in RAM only, write no flash file");
}

// The image is read before connecting, so that a bad file costs no link.
struct PreparedDownload {
  std::vector<uint8_t> image;
  std::string name;
  bool ramOnly;
};

PreparedDownload Prepare(const DownloadArgs& args) {
  std::string name = args.name.empty() ? BaseName(args.image).substr(0, kMaxProgramName) : args.name;
  return {ReadImage(args.image), name, args.ramOnly};
}

Report Download(LinkClient& link, const PreparedDownload& download, const PcContext& context) {
  PrintedProgress progress(context.out);
  DownloadImage(link, download.image, download.name, download.ramOnly, context.json ? nullptr : &progress);
  Report report;
  report.AddText("name", "Program", download.name);
  report.AddNumber("bytes", "Downloaded", static_cast<long long>(download.image.size()),
                   std::to_string(download.image.size()) + " bytes");
  report.AddNumber("ramOnly", "RAM only", download.ramOnly, download.ramOnly ? "yes" : "no");
  return report;
}

// Start reports through the exit code too, so scripts can tell.
int Start(LinkClient& link, const PcContext& context, Report report) {
  bool started = StartProgram(link);
  report.AddNumber("started", "Started", started, started ? "yes" : "no");
  context.Print(report);
  if (!started) fputs("kavri-pc: the controller holds no downloaded program to start\n", context.err);
  return started ? 0 : 1;
}

Report LibTable(LinkClient& link) {
  ControllerLinkInfo info = QueryLinkInfo(link);
  Report report;
  for (size_t slot = 0; slot < kServiceCount; ++slot) {
    char label[64];
    snprintf(label, sizeof label, "%2zu %s", slot + 1, kServiceNames[slot]);
    report.AddNumber(kServiceNames[slot], label, info.services[slot], Hex32(info.services[slot]));
  }
  return report;
}

}  // namespace

ControllerLinkInfo QueryLinkInfo(LinkClient& link) {
  xoIF2013Command_Base layoutCommand{KavriCmdGetMemoryLayout};
  auto layout = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_MemoryLayout>(layoutCommand,
                                                                                KavriReplyGetMemoryLayout, "layout");
  xoIF2013Command_Base tableCommand{KavriCmdGetLibAddresses};
  auto table = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_LibAddresses>(tableCommand,
                                                                               KavriReplyGetLibAddresses, "libtable");
  ControllerLinkInfo info;
  info.runArea = layout.runAreaAddress;
  info.runAreaSize = layout.runAreaSize;
  info.transArea = layout.transAreaAddress;
  std::copy(std::begin(table.slot), std::end(table.slot), info.services.begin());
  return info;
}

void DownloadImage(LinkClient& link, const std::vector<uint8_t>& image, const std::string& name, bool ramOnly,
                   DownloadProgress* progress) {
  xoIF2013Command_DownloadCode command{};
  command.code = KavriCmdDownloadCode;
  command.ramOnly = ramOnly ? 1 : 0;
  strncpy(command.fileName, name.c_str(), kMaxProgramName);
  command.codeSize = static_cast<uint32_t>(image.size());
  link.Send(&command, sizeof command);
  for (size_t done = 0; done < image.size();) {
    size_t chunk = std::min(kDownloadChunk, image.size() - done);
    link.Send(image.data() + done, chunk);
    done += chunk;
    if (progress) progress->Sent(done, image.size());
  }
  xoIF2013Reply_Base reply{};
  link.Receive(&reply, sizeof reply, KavriReplyDownloadCode, "download");
}

bool StartProgram(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdStartCode};
  auto reply = link.Exchange<xoIF2013Command_Base, xoIF2013Reply_StartCode>(command, KavriReplyStartCode, "start");
  return reply.started != 0;
}

void StopProgram(LinkClient& link) {
  xoIF2013Command_Base command{KavriCmdStopCode};
  link.Exchange<xoIF2013Command_Base, xoIF2013Reply_Base>(command, KavriReplyStopCode, "stop");
}

namespace {

// Chosen while parsing, run after it: `work` gets the context to connect with.
void SetAction(CLI::App* command, PcContext& context, std::function<int(PcContext&)> work) {
  command->callback([&context, work] { context.action = [&context, work] { return work(context); }; });
}

Report Built(const ProgramBuildOptions& build, size_t size, const ControllerLinkInfo& controller) {
  Report report;
  report.AddText("image", "Image", build.output);
  report.AddNumber("bytes", "Size", static_cast<long long>(size), std::to_string(size) + " bytes");
  report.AddNumber("runAreaAddress", "Linked at", controller.runArea, Hex32(controller.runArea));
  return report;
}

// download and run: the same options and transfer; run then starts the program.
void AddDownloadCommand(CLI::App& app, PcContext& context, const char* name, const char* description,
                        bool thenStart) {
  // CLI11 writes the options while parsing; the action keeps them alive.
  auto args = std::make_shared<DownloadArgs>();
  CLI::App* command = app.add_subcommand(name, description);
  AddDownloadOptions(command, *args);
  SetAction(command, context, [args, thenStart](PcContext& context) {
    PreparedDownload prepared = Prepare(*args);
    LinkClient link = context.Connect();
    Report sent = Download(link, prepared, context);
    if (thenStart) return Start(link, context, std::move(sent));
    context.Print(sent);
    return 0;
  });
}

}  // namespace

void AddProgramCommands(CLI::App& app, PcContext& context) {
  AddReportCommand(app, context, "libtable", "the controller's 59 service slots with names and addresses", LibTable);

  AddDownloadCommand(app, context, "download", "send a program image to the controller", false);
  AddDownloadCommand(app, context, "run", "download a program image, then start it", true);

  SetAction(app.add_subcommand("start", "start the last downloaded program"), context, [](PcContext& context) {
    LinkClient link = context.Connect();
    return Start(link, context, Report());
  });

  SetAction(app.add_subcommand("stop", "stop the running program"), context, [](PcContext& context) {
    LinkClient link = context.Connect();
    StopProgram(link);
    Report report;
    report.AddNumber("stopped", "Stopped", 1, "yes");
    context.Print(report);
    return 0;
  });

  auto build = std::make_shared<ProgramBuildOptions>();
  build->includeDir = DefaultProgramIncludeDir();
  CLI::App* buildCommand =
      app.add_subcommand("build", "compile C sources into an image for this controller (asks it for its addresses)");
  buildCommand->add_option("SOURCES", build->sources, "C or assembly sources, objects, archives")->required();
  buildCommand->add_option("-o", build->output, "the image file to write")->required();
  buildCommand->add_option("--include", build->includeDir, "folder that holds kavri-program/");
  buildCommand->add_option("--cflag", build->compileFlags, "one more compiler flag (repeatable)")
      ->allow_extra_args(false);
  buildCommand->add_flag("--verbose", build->verbose, "print the tool chain's command lines");
  SetAction(buildCommand, context, [build](PcContext& context) {
    LinkClient link = context.Connect();
    ControllerLinkInfo controller = QueryLinkInfo(link);
    try {
      context.Print(Built(*build, BuildProgram(*build, controller), controller));
      return 0;
    } catch (const BuildError& error) {
      fprintf(context.err, "kavri-pc: %s\n", error.what());
      return 1;
    }
  });
}
