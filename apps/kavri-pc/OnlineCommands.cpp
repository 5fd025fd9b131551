// kavri-pc online: one online session on one connection. The controller
// clears the outputs when the connection closes, so a session reads its
// commands from standard input and keeps the link open between them.
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>

#include "CliNumber.h"
#include "PcContext.h"
#include "kavri/LinkProtocol.h"

namespace {

// The exchange's output fields, named by where they land in the transfer
// area: "332[3]" is the fourth value of the run at offset 332. What they mean
// is the I/O library's business.
struct FieldGroup {
  const char* name;
  size_t offset;  // in the packet
  int count;
};

constexpr FieldGroup kOutputGroups[] = {
    {"332", offsetof(xoIF2013Command_IoExchange, outputs332), 8},
    {"328", offsetof(xoIF2013Command_IoExchange, lowBytes328), 4},
    {"348", offsetof(xoIF2013Command_IoExchange, outputs348), 8},
    {"320", offsetof(xoIF2013Command_IoExchange, values320), 4},
    {"834", offsetof(xoIF2013Command_IoExchange, values834), 3},
};

constexpr FieldGroup kInputGroups[] = {
    {"252", offsetof(xoIF2013Reply_IoExchange, inputs252), 8},
    {"268", offsetof(xoIF2013Reply_IoExchange, inputs268), 8},
    {"320", offsetof(xoIF2013Reply_IoExchange, values320), 4},
    {"312", offsetof(xoIF2013Reply_IoExchange, values312), 4},
    {"832", offsetof(xoIF2013Reply_IoExchange, value832), 1},
};

const char kHelp[] =
    "set NAME=VALUE...   set outputs for the next exchange; NAME is 332[0..7], 328[0..3]\n"
    "                    (low byte only), 348[0..7], 320[0..3] or 834[0..2]; a bare\n"
    "                    group name with a comma list sets its values in order\n"
    "exchange (or x)     send the outputs, print the inputs\n"
    "config ID [motor=4 values] [input=8 values] [counter=4 values]\n"
    "                    update the configuration (values comma-separated)\n"
    "camera-start W H FPS [PLF]   start the camera stream for the camera command\n"
    "camera-stop         stop it\n"
    "stop                stop online mode and end the session\n"
    "help                this text\n";

uint16_t FieldAt(const void* packet, size_t offset) {
  uint16_t value;
  memcpy(&value, static_cast<const uint8_t*>(packet) + offset, sizeof value);
  return value;
}

std::vector<long long> ParseList(const std::string& text) {
  std::vector<long long> values;
  std::stringstream items(text);
  std::string item;
  while (std::getline(items, item, ',')) {
    long long value;
    if (!ParseWholeNumber(item, value)) throw std::invalid_argument("'" + item + "' is not a whole number");
    values.push_back(value);
  }
  return values;
}

// Lines from a file descriptor with a time-out, so that a repeating exchange
// goes on while nobody types.
class LineReader {
 public:
  explicit LineReader(int fd) : fd_(fd) {}
  enum class Result { Line, TimedOut, End };

  Result Next(std::string& line, int timeoutMs) {
    for (;;) {
      size_t end = pending_.find('\n');
      if (end != std::string::npos) {
        line = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        return Result::Line;
      }
      if (ended_) {
        if (pending_.empty()) return Result::End;
        line.swap(pending_);
        pending_.clear();
        return Result::Line;
      }
      pollfd watched{fd_, POLLIN, 0};
      if (poll(&watched, 1, timeoutMs) == 0) return Result::TimedOut;
      char chunk[512];
      ssize_t count = read(fd_, chunk, sizeof chunk);
      if (count <= 0)
        ended_ = true;
      else
        pending_.append(chunk, size_t(count));
    }
  }

 private:
  int fd_;
  std::string pending_;
  bool ended_ = false;
};

class OnlineSession {
 public:
  OnlineSession(const PcContext& context, std::string name, double rate)
      : context_(context), link_(context.Connect()), name_(std::move(name)), rate_(rate) {}

  int Run() {
    StartOnline();
    LineReader input(STDIN_FILENO);
    bool prompt = isatty(STDIN_FILENO);
    auto period = std::chrono::duration<double>(rate_ > 0 ? 1.0 / rate_ : 0);
    auto nextExchange = std::chrono::steady_clock::now();
    while (!stopped_) {
      if (prompt) Prompt();
      int timeoutMs = -1;
      if (rate_ > 0) {
        auto now = std::chrono::steady_clock::now();
        if (now >= nextExchange) {
          Exchange(true);
          nextExchange = now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
        }
        timeoutMs = int(std::chrono::duration_cast<std::chrono::milliseconds>(nextExchange - now).count()) + 1;
      }
      std::string line;
      LineReader::Result result = input.Next(line, timeoutMs);
      if (result == LineReader::Result::End) break;
      if (result == LineReader::Result::Line) RunLine(line);
    }
    if (!stopped_) StopOnline();
    return 0;
  }

 private:
  void Prompt() {
    fputs("online> ", context_.out);
    fflush(context_.out);
  }

  void Answer(const std::string& reply, nlohmann::ordered_json fields = nlohmann::ordered_json::object()) {
    if (context_.json) {
      nlohmann::ordered_json object = {{"reply", reply}};
      object.update(fields);
      fprintf(context_.out, "%s\n", object.dump().c_str());
    } else {
      fprintf(context_.out, "ok: %s\n", reply.c_str());
    }
    fflush(context_.out);
  }

  void Complain(const std::string& message) {
    if (context_.json)
      fprintf(context_.out, "%s\n", nlohmann::ordered_json({{"error", message}}).dump().c_str());
    else
      fprintf(context_.out, "error: %s\n", message.c_str());
    fflush(context_.out);
  }

  void RunLine(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    if (!(words >> verb) || verb[0] == '#') return;
    std::vector<std::string> args;
    for (std::string word; words >> word;) args.push_back(word);
    try {
      if (verb == "set")
        Set(args);
      else if (verb == "exchange" || verb == "x")
        Exchange(false);
      else if (verb == "config")
        UpdateConfig(args);
      else if (verb == "camera-start")
        StartCamera(args);
      else if (verb == "camera-stop")
        Bare(KavriCmdStopCameraOnline, KavriReplyStopCameraOnline, "camera-stop");
      else if (verb == "stop")
        StopOnline();
      else if (verb == "help")
        fputs(kHelp, context_.out);
      else
        Complain("unknown command '" + verb + "' (try help)");
    } catch (const std::invalid_argument& error) {
      Complain(error.what());
    }
  }

  void StartOnline() {
    xoIF2013Command_StartOnline command{KavriCmdStartOnline};
    strncpy(command.programName, name_.c_str(), sizeof command.programName - 1);
    link_.Exchange<xoIF2013Command_StartOnline, xoIF2013Reply_Base>(command, KavriReplyStartOnline, "start online");
    Answer("online", {{"name", name_}});
  }

  void StopOnline() {
    Bare(KavriCmdStopOnline, KavriReplyStopOnline, "stop");
    stopped_ = true;
  }

  void Bare(uint32_t code, uint32_t replyCode, const char* what) {
    xoIF2013Command_Base command{code};
    link_.Exchange<xoIF2013Command_Base, xoIF2013Reply_Base>(command, replyCode, what);
    Answer(what);
  }

  // NAME=VALUE for one field, or GROUP=V1,V2,... for a run from its start.
  void Set(const std::vector<std::string>& assignments) {
    if (assignments.empty()) throw std::invalid_argument("set needs NAME=VALUE");
    xoIF2013Command_IoExchange changed = outputs_;
    for (const std::string& assignment : assignments) {
      size_t equals = assignment.find('=');
      if (equals == std::string::npos) throw std::invalid_argument("'" + assignment + "' is not NAME=VALUE");
      std::string name = assignment.substr(0, equals);
      std::vector<long long> values = ParseList(assignment.substr(equals + 1));
      int first = 0;
      size_t bracket = name.find('[');
      if (bracket != std::string::npos) {
        long long index;
        if (name.back() != ']' || !ParseWholeNumber(name.substr(bracket + 1, name.size() - bracket - 2), index) ||
            values.size() != 1)
          throw std::invalid_argument("'" + assignment + "' is not NAME[INDEX]=VALUE");
        first = int(index);
        name.resize(bracket);
      }
      const FieldGroup* group = FindGroup(name);
      if (!group || first < 0 || first + int(values.size()) > group->count)
        throw std::invalid_argument("no output field '" + assignment.substr(0, equals) + "' (try help)");
      for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] < 0 || values[i] > 0xFFFF) throw std::invalid_argument("values are 0..65535");
        uint16_t value = uint16_t(values[i]);
        memcpy(reinterpret_cast<uint8_t*>(&changed) + group->offset + 2 * (first + i), &value, sizeof value);
      }
    }
    outputs_ = changed;
    Answer("set");
  }

  static const FieldGroup* FindGroup(const std::string& name) {
    for (const FieldGroup& group : kOutputGroups)
      if (name == group.name) return &group;
    return nullptr;
  }

  void Exchange(bool onlyChanges) {
    auto reply =
        link_.Exchange<xoIF2013Command_IoExchange, xoIF2013Reply_IoExchange>(outputs_, KavriReplyIoExchange, "exchange");
    bool same = lastInputs_ && memcmp(&*lastInputs_, &reply, sizeof reply) == 0;
    lastInputs_ = reply;
    if (onlyChanges && same) return;
    PrintInputs(reply);
  }

  void PrintInputs(const xoIF2013Reply_IoExchange& reply) {
    nlohmann::ordered_json fields = nlohmann::ordered_json::object();
    std::string text;
    for (const FieldGroup& group : kInputGroups) {
      nlohmann::ordered_json values = nlohmann::ordered_json::array();
      text += group.name + std::string(":");
      for (int i = 0; i < group.count; ++i) {
        uint16_t value = FieldAt(&reply, group.offset + 2 * size_t(i));
        values.push_back(value);
        text += " " + std::to_string(value);
      }
      fields[group.name] = group.count == 1 ? values[0] : values;
      text += "\n";
    }
    nlohmann::ordered_json infrared = nlohmann::ordered_json::array();
    text += "ir:";
    for (const uint8_t* record : reply.infrared) {
      infrared.push_back({{"bytes", {record[0], record[1], record[2], record[3]}}, {"flags", record[4]}});
      char shown[40];
      snprintf(shown, sizeof shown, " [%d %d %d %d flags %d]", record[0], record[1], record[2], record[3], record[4]);
      text += shown;
    }
    fields["ir"] = infrared;
    if (context_.json) {
      Answer("inputs", fields);
    } else {
      fprintf(context_.out, "%s\n", text.c_str());
      fflush(context_.out);
    }
  }

  void UpdateConfig(const std::vector<std::string>& args) {
    long long id;
    if (args.empty() || !ParseWholeNumber(args[0], id)) throw std::invalid_argument("config needs an ID");
    xoIF2013Command_UpdateConfig command{KavriCmdUpdateConfig, int32_t(id)};
    for (size_t i = 1; i < args.size(); ++i) {
      size_t equals = args[i].find('=');
      std::string key = args[i].substr(0, equals);
      std::vector<long long> values = ParseList(equals == std::string::npos ? "" : args[i].substr(equals + 1));
      auto fill = [&](auto* target, size_t count) {
        if (values.size() != count)
          throw std::invalid_argument(key + " takes " + std::to_string(count) + " comma-separated values");
        for (size_t j = 0; j < count; ++j) target[j] = static_cast<std::remove_pointer_t<decltype(target)>>(values[j]);
      };
      if (key == "motor")
        fill(command.motor, 4);
      else if (key == "input")
        fill(command.input, 8);
      else if (key == "counter")
        fill(command.counter, 4);
      else
        throw std::invalid_argument("config knows motor=, input= and counter=, not '" + args[i] + "'");
    }
    link_.Exchange<xoIF2013Command_UpdateConfig, xoIF2013Reply_Base>(command, KavriReplyUpdateConfig, "config");
    Answer("config", {{"id", id}});
  }

  void StartCamera(const std::vector<std::string>& args) {
    long long value[4] = {0, 0, 0, 50};
    if (args.size() < 3 || args.size() > 4) throw std::invalid_argument("camera-start needs W H FPS [PLF]");
    for (size_t i = 0; i < args.size(); ++i)
      if (!ParseWholeNumber(args[i], value[i])) throw std::invalid_argument("'" + args[i] + "' is not a whole number");
    xoIF2013Command_StartCameraOnline command{KavriCmdStartCameraOnline, int32_t(value[0]), int32_t(value[1]),
                                              int32_t(value[2]), int32_t(value[3])};
    link_.Exchange<xoIF2013Command_StartCameraOnline, xoIF2013Reply_Base>(command, KavriReplyStartCameraOnline,
                                                                          "camera-start");
    Answer("camera-start");
  }

  const PcContext& context_;
  LinkClient link_;
  std::string name_;
  double rate_;
  xoIF2013Command_IoExchange outputs_{KavriCmdIoExchange};
  std::optional<xoIF2013Reply_IoExchange> lastInputs_;
  bool stopped_ = false;
};

}  // namespace

void AddOnlineCommands(CLI::App& app, PcContext& context) {
  struct Options {
    std::string name;
    double rate = 0;
  };
  auto options = std::make_shared<Options>();
  CLI::App* online = app.add_subcommand(
      "online", "online session: commands on standard input drive the outputs and read the inputs (try help)");
  online->add_option("NAME", options->name, "program name the controller reports")->required();
  online->add_option("--rate", options->rate, "exchange HZ times a second, printing the inputs when they change")
      ->check(CLI::Range(0.0, 1000.0));
  online->callback([&context, options] {
    context.action = [&context, options] { return OnlineSession(context, options->name, options->rate).Run(); };
  });
}
