#include "PanelState.h"

#include <charconv>
#include <cstring>

#include <nlohmann/json.hpp>

namespace {

constexpr char kEndLine[] = "Program terminated with code ";
// Streams send at most this often, so a program that changes its outputs
// every cycle costs a browser a few dozen events a second, not a hundred.
constexpr auto kStreamGap = std::chrono::milliseconds(20);

std::string Base64(const uint8_t* data, size_t size) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  for (size_t i = 0; i < size; i += 3) {
    uint32_t n = uint32_t(data[i]) << 16;
    if (i + 1 < size) n |= uint32_t(data[i + 1]) << 8;
    if (i + 2 < size) n |= data[i + 2];
    out += digits[n >> 18];
    out += digits[(n >> 12) & 63];
    out += i + 1 < size ? digits[(n >> 6) & 63] : '=';
    out += i + 2 < size ? digits[n & 63] : '=';
  }
  return out;
}

void AppendEvent(std::string& out, const char* name, const std::string& data) {
  out += "event: ";
  out += name;
  out += "\ndata: ";
  out += data;
  out += "\n\n";
}

nlohmann::json IoJson(const PanelIo& io) {
  return {{"outputs", io.outputs}, {"inputs", io.inputs}, {"forced", io.forced}};
}

nlohmann::json ProgramJson(const PanelProgram& p) {
  nlohmann::json json = {{"name", p.name},       {"state", p.state},     {"text", p.stateText},
                         {"running", p.running}, {"online", p.online}, {"exitCode", nullptr}};
  if (p.exitCode) json["exitCode"] = *p.exitCode;
  return json;
}

// Lines come from a C library's output: whatever bytes it printed.
std::string Dump(const nlohmann::json& json) { return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace); }

}  // namespace

void PanelState::ChangedLocked(uint64_t& version) {
  version = ++clock_;
  changed_.notify_all();
}

void PanelState::SetDisplay(const uint8_t* frame) {
  std::lock_guard lock(mutex_);
  std::memcpy(display_.data(), frame, display_.size());
  ChangedLocked(displayVersion_);
}

void PanelState::SetScreenChanges(uint32_t changes) {
  std::lock_guard lock(mutex_);
  if (changes == screenChanges_ && screenVersion_) return;
  screenChanges_ = changes;
  ChangedLocked(screenVersion_);
}

void PanelState::SetIo(const std::array<uint16_t, kPanelChannels>& outputs,
                       const std::array<uint16_t, kPanelChannels>& inputs) {
  std::lock_guard lock(mutex_);
  if (io_.outputs == outputs && io_.inputs == inputs && ioVersion_) return;
  io_.outputs = outputs;
  io_.inputs = inputs;
  ChangedLocked(ioVersion_);
}

void PanelState::SetForced(int channel, int32_t value) {
  std::lock_guard lock(mutex_);
  io_.forced.at(size_t(channel)) = value < 0 ? -1 : value;
  ChangedLocked(ioVersion_);
}

void PanelState::ProgramInfo(const char* name, int32_t state, const char* stateText) {
  std::lock_guard lock(mutex_);
  if (name) program_.name = name;
  program_.state = state;
  program_.stateText = stateText ? stateText : "";
  if (state == 0) program_.online = true;
  if (state == 1) program_.online = false;
  if (state == 4) program_.exitCode.reset();  // a new start: the old code is history
  ChangedLocked(programVersion_);
}

void PanelState::SetRunning(bool running) {
  std::lock_guard lock(mutex_);
  if (program_.running == running && programVersion_) return;
  program_.running = running;
  ChangedLocked(programVersion_);
}

void PanelState::AddLogLine(const std::string& line) {
  std::lock_guard lock(mutex_);
  if (line.rfind(kEndLine, 0) == 0) {
    const char* first = line.data() + sizeof kEndLine - 1;
    int32_t code = 0;
    if (std::from_chars(first, line.data() + line.size(), code).ec == std::errc()) {
      program_.exitCode = code;
      ChangedLocked(programVersion_);
    }
  }
  uint64_t version = 0;
  ChangedLocked(version);
  log_.emplace_back(version, line);
  if (log_.size() > kPanelLogLines) log_.pop_front();
}

void PanelState::SetCameraFrame(const uint8_t* jpeg, size_t size) {
  std::lock_guard lock(mutex_);
  ++cameraFrames_;
  ++cameraCount_;
  if (!jpeg) return;
  cameraFrame_.assign(jpeg, jpeg + size);
  ChangedLocked(cameraVersion_);
}

void PanelState::TickCameraRate(std::chrono::steady_clock::time_point now) {
  std::lock_guard lock(mutex_);
  const double seconds = std::chrono::duration<double>(now - rateTick_).count();
  if (seconds < 1.0) return;
  const double rate = rateTick_ == std::chrono::steady_clock::time_point{} ? 0 : cameraFrames_ / seconds;
  rateTick_ = now;
  cameraFrames_ = 0;
  if (rate == cameraRate_) return;
  cameraRate_ = rate;
  ChangedLocked(cameraVersion_);
}

bool PanelState::NewerLocked(const PanelCursor& c) const {
  return closed_ || displayVersion_ > c.display || screenVersion_ > c.screen || ioVersion_ > c.io ||
         programVersion_ > c.program || cameraVersion_ > c.camera || (!log_.empty() && log_.back().first > c.log);
}

std::string PanelState::EventsLocked(PanelCursor& c) {
  std::string out;
  if (displayVersion_ > c.display) AppendEvent(out, "display", Base64(display_.data(), display_.size()));
  if (screenVersion_ > c.screen) AppendEvent(out, "screen", Dump({{"changes", screenChanges_}}));
  if (ioVersion_ > c.io) AppendEvent(out, "io", Dump(IoJson(io_)));
  if (programVersion_ > c.program) AppendEvent(out, "program", Dump(ProgramJson(program_)));
  if (cameraVersion_ > c.camera)
    AppendEvent(out, "camera", Dump({{"frames", cameraCount_}, {"fps", cameraRate_}}));
  for (const auto& [version, line] : log_)
    if (version > c.log) AppendEvent(out, "log", Dump(line));
  c = {displayVersion_, screenVersion_, ioVersion_, programVersion_, cameraVersion_,
       log_.empty() ? c.log : log_.back().first};
  return out;
}

std::string PanelState::NextEvents(PanelCursor& cursor, std::chrono::milliseconds wait) {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, wait, [&] { return NewerLocked(cursor); })) return {};
  if (closed_) return {};
  // A stream that just sent waits out the gap, so that changes coming close
  // together leave together; an idle one sends at once, and so does a new
  // display picture, which a person watches for.
  const auto due = cursor.sent + kStreamGap;
  changed_.wait_until(lock, due, [&] { return closed_ || displayVersion_ > cursor.display; });
  cursor.sent = std::chrono::steady_clock::now();
  return EventsLocked(cursor);
}

std::string PanelState::SnapshotJson() {
  std::lock_guard lock(mutex_);
  nlohmann::json json = {{"display", Base64(display_.data(), display_.size())},
                         {"screenChanges", screenChanges_},
                         {"io", IoJson(io_)},
                         {"program", ProgramJson(program_)},
                         {"camera", {{"frames", cameraCount_}, {"fps", cameraRate_}}},
                         {"log", nlohmann::json::array()}};
  for (const auto& entry : log_) json["log"].push_back(entry.second);
  return Dump(json);
}

std::optional<std::vector<uint8_t>> PanelState::CameraJpeg() {
  std::lock_guard lock(mutex_);
  if (cameraFrame_.empty()) return std::nullopt;
  return cameraFrame_;
}

PanelIo PanelState::Io() {
  std::lock_guard lock(mutex_);
  return io_;
}

void PanelState::Close() {
  std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

bool PanelState::Closed() {
  std::lock_guard lock(mutex_);
  return closed_;
}
