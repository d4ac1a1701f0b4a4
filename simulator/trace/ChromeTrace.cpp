#include "simulator/trace/ChromeTrace.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include <nlohmann/json.hpp>

namespace orvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kShownBytes = 8;  // of each direction of a chip select
constexpr unsigned kAddressDigits = 6;

double Microseconds(std::chrono::nanoseconds time) {
  constexpr double kNanosecondsPerMicrosecond = 1000;
  return static_cast<double>(time.count()) / kNanosecondsPerMicrosecond;
}

Json Slice(std::string_view category, std::string_view name, Period period) {
  return {{"ph", "X"},
          {"cat", category},
          {"name", name},
          {"ts", Microseconds(period.begin)},
          {"dur", Microseconds(period.end - period.begin)}};
}

/// Something that takes no time, on its track alone.
Json Instant(std::string_view category, std::string_view name, std::chrono::nanoseconds at) {
  return {{"ph", "i"}, {"cat", category}, {"name", name}, {"ts", Microseconds(at)}, {"s", "t"}};
}

/// About a process or a track. Some readers want a category and a time of every event.
Json Metadata(std::string_view name, const char* key, const Json& value) {
  return {{"ph", "M"}, {"cat", "__metadata"}, {"name", name}, {"ts", 0}, {"args", {{key, value}}}};
}

/// What has not had its effect says so, and has a colour of its own.
Json Judged(Json event, Outcome outcome) {
  if (outcome != Outcome::kDone) {
    const bool isLost = outcome == Outcome::kLost;
    event["args"]["outcome"] = isLost ? "lost" : "failed";
    event["cname"] = isLost ? "bad" : "terrible";
  }
  return event;
}

void AppendHex(std::string& text, std::uint32_t value, unsigned digits) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (unsigned digit = digits; digit > 0; --digit) {
    text += kDigits[(value >> (4 * (digit - 1))) & 0x0FU];
  }
}

std::string HexNumber(std::uint32_t value, unsigned digits) {
  std::string text = "0x";
  AppendHex(text, value, digits);
  return text;
}

/// "0a ff", and at most so many bytes of it: "0a ff ... +7".
std::string HexBytes(std::span<const std::uint8_t> bytes, std::size_t most) {
  std::string text;
  for (const std::uint8_t byte : bytes.first(std::min(bytes.size(), most))) {
    text += text.empty() ? "" : " ";
    AppendHex(text, byte, 2);
  }
  if (bytes.size() > most) {
    text += " ... +" + std::to_string(bytes.size() - most);
  }
  return text;
}

std::string_view WorkName(ChipWork work) {
  constexpr std::array<std::string_view, 6> kNames = {
      "nothing", "page program", "erase 4 KiB", "erase 64 KiB", "erase chip", "register write"};
  return kNames.at(static_cast<std::size_t>(work));
}

bool HasAddress(ChipWork work) {
  return work != ChipWork::kChipErase && work != ChipWork::kRegisterWrite;
}

std::string_view NameOf(Line line, bool isWend) {
  switch (line) {
    case Line::kDone:
      return "DONE";
    case Line::kReset:
      return isWend ? "zynq_hw_reset_n" : "PROGRAM_B";
    case Line::kQspiPrg:
      return "qspi_prg";
    case Line::kSelector:
      return "selector on SPIFIFO";
    case Line::kEndpointPresent:
      return "endpoint present";
    case Line::kEndpointEnabled:
      return "endpoint enabled";
  }
  return "";
}

/// "spidev1.0" of "/dev/spidev1.0"
std::string_view FileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

/// The first line that is not empty, without its end.
std::string_view FirstLine(std::string_view bytes) {
  constexpr std::string_view kEnds = "\r\n";
  const std::size_t begin = bytes.find_first_not_of(kEnds);
  if (begin == std::string_view::npos) {
    return "(empty line)";
  }
  const std::string_view rest = bytes.substr(begin);
  return rest.substr(0, rest.find_first_of(kEnds));
}

/// "write 0x21", "write and read 0x21"
std::string TransferName(const ObservedI2c& transfer) {
  std::string name;
  for (const ObservedI2cMessage& message : transfer.messages) {
    name += name.empty() ? "" : " and ";
    name += message.reads ? "read" : "write";
  }
  if (name.empty()) {
    constexpr std::array kNames = {"empty transfer", "lost transfer", "failed transfer"};
    return kNames.at(static_cast<std::size_t>(transfer.outcome));
  }
  return name + " " + HexNumber(transfer.messages.front().address, 2);
}

/// "0x21 r 40 01"
std::string MessageText(const ObservedI2cMessage& message) {
  std::string text = HexNumber(message.address, 2);
  if (!message.acknowledged) {
    return text + " not acknowledged";
  }
  text += message.reads ? " r " : " w ";
  return text + HexBytes(message.bytes, message.bytes.size());
}

}  // namespace

ChromeTrace::ChromeTrace(std::ostream& out) : out_(out) {
  out_ << R"({"displayTimeUnit":"ns","traceEvents":[)";
  command_ = AddProcess("command");
  console_ = AddTrack(command_, "console");
  sleeps_ = AddTrack(command_, "sleeps");
  looks_ = AddTrack(command_, "looks and waits");
  accesses_ = AddTrack(command_, "control files");
  calls_ = AddTrack(command_, "D-Bus");
  others_ = AddTrack(command_, "other events");
}

ChromeTrace::~ChromeTrace() { Complete(); }

void ChromeTrace::Complete() {
  if (!isComplete_) {
    isComplete_ = true;
    out_ << "\n]}\n";
  }
}

void ChromeTrace::Write(const Track& track, Json event) {
  event["pid"] = track.process;
  event["tid"] = track.thread;
  Write(event);
}

void ChromeTrace::Write(const Json& event) {
  out_ << (isFirst_ ? "\n" : ",\n") << event.dump(-1, ' ', false, Json::error_handler_t::replace);
  isFirst_ = false;
}

// --- Processes and tracks

// No thread has the number of its process: viewers take such a one for the main thread.
unsigned ChromeTrace::AddProcess(std::string_view name) {
  const unsigned process = ++lastId_;
  Json named = Metadata("process_name", "name", name);
  Json sorted = Metadata("process_sort_index", "sort_index", process);
  for (Json* const event : {&named, &sorted}) {
    (*event)["pid"] = process;
    Write(*event);
  }
  return process;
}

ChromeTrace::Track ChromeTrace::AddTrack(unsigned process, std::string_view name) {
  const Track track{.process = process, .thread = ++lastId_};
  Write(track, Metadata("thread_name", "name", name));
  Write(track, Metadata("thread_sort_index", "sort_index", track.thread));
  return track;
}

void ChromeTrace::AddNode(unsigned process, std::string_view path) {
  nodes_.emplace(path, AddTrack(process, FileName(path)));
}

void ChromeTrace::AddModule(const ObservedModule& module) {
  const unsigned process = AddProcess(module.type + "@" + std::to_string(module.slot));
  if (!module.spiPath.empty()) {
    AddNode(process, module.spiPath);
  }
  ModuleTracks& tracks = modules_[module.slot];
  tracks.process = process;
  tracks.flash = AddTrack(process, "flash");
  tracks.isWend = module.type == "wend";
  for (const std::string& path : module.i2cPaths) {
    AddNode(process, path);
  }
  for (const LineLevel& level : module.lines) {
    tracks.lines[level.line] = level.high;
    WriteLevel(tracks, level, std::chrono::nanoseconds(0));
  }
}

const ChromeTrace::Track& ChromeTrace::TrackOf(std::string_view path) const {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? others_ : found->second;
}

void ChromeTrace::OnStart(std::span<const ObservedModule> modules,
                          std::span<const std::string> chassisI2c) {
  for (const ObservedModule& module : modules) {
    AddModule(module);
  }
  const unsigned chassis = AddProcess("chassis");
  for (const std::string& path : chassisI2c) {
    AddNode(chassis, path);
  }
}

// --- Events

void ChromeTrace::OnSpi(const ObservedSpi& message) {
  const Track& track = TrackOf(message.path);
  if (message.outcome == Outcome::kFailed) {
    Write(track, Judged(Slice("spi", "failed message", message.period), message.outcome));
    return;
  }
  if (message.cost.count() > 0) {
    Json cost =
        Slice("spi", "message cost", {message.period.begin, message.period.begin + message.cost});
    cost["cname"] = "grey";
    Write(track, std::move(cost));
  }
  for (const ObservedSelect& select : message.selects) {
    const std::size_t end = select.command.find(' ');
    Json slice = Slice("spi", select.command.substr(0, end), select.period);
    if (end != std::string::npos) {
      slice["args"]["operands"] = select.command.substr(end + 1);
    }
    slice["args"]["mosi"] = HexBytes(select.mosi, kShownBytes);
    slice["args"]["miso"] = HexBytes(select.miso, kShownBytes);
    Write(track, Judged(std::move(slice), message.outcome));
  }
}

void ChromeTrace::OnI2c(const ObservedI2c& transfer) {
  Json slice = Slice("i2c", TransferName(transfer), transfer.period);
  for (const ObservedI2cMessage& message : transfer.messages) {
    slice["args"]["messages"].push_back(MessageText(message));
  }
  Write(TrackOf(transfer.path), Judged(std::move(slice), transfer.outcome));
}

void ChromeTrace::OnAccess(const ObservedAccess& access) {
  std::string name = access.writes ? "write " : "read ";
  name += access.path;
  Json instant = Instant("control file", name, access.at);
  instant["args"]["bytes"] = access.bytes;
  Write(accesses_, Judged(std::move(instant), access.outcome));
}

void ChromeTrace::OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) {
  Write(calls_, Judged(Instant("D-Bus", call, at), outcome));
}

void ChromeTrace::OnSleep(Period period) { Write(sleeps_, Slice("sleep", "sleep", period)); }

void ChromeTrace::OnUnseen(Period period) {
  Write(looks_, Slice("look", "looks or waits", period));
}

void ChromeTrace::OnConsole(int descriptor, std::string_view bytes, std::chrono::nanoseconds at) {
  constexpr std::size_t kMostJoined = 4096;
  const bool continuesALine = printed_ && printed_->descriptor == descriptor &&
                              printed_->at == at && !printed_->bytes.ends_with('\n') &&
                              printed_->bytes.size() < kMostJoined;
  if (continuesALine) {  // programs write standard error in pieces
    printed_->bytes += bytes;
    return;
  }
  WritePrinted(at);
  printed_ = {.descriptor = descriptor, .bytes = std::string(bytes), .at = at};
}

void ChromeTrace::OnOther(std::string_view text, std::chrono::nanoseconds at) {
  Write(others_, Instant("other", text, at));
}

void ChromeTrace::OnChipBusy(unsigned slot,
                             ChipWork work,
                             std::uint32_t address,
                             std::chrono::nanoseconds at) {
  modules_[slot].work = {.what = work, .address = address, .begin = at};
}

void ChromeTrace::OnChipReady(unsigned slot, std::chrono::nanoseconds at) {
  WriteWork(modules_[slot], at, true);
}

void ChromeTrace::OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) {
  ModuleTracks& module = modules_[slot];
  module.lines[level.line] = level.high;
  WriteLevel(module, level, at);
}

void ChromeTrace::OnEnd(std::chrono::nanoseconds at) {
  WritePrinted(at);
  for (auto& [slot, module] : modules_) {
    WriteWork(module, at, false);
    for (const auto& [line, high] : module.lines) {  // so that a viewer draws it up to the end
      WriteLevel(module, {line, high}, at);
    }
  }
  Write(console_, Instant("console", "end of the run", at));
  Complete();
}

// --- What lasts until something else happens

void ChromeTrace::WriteLevel(const ModuleTracks& module,
                             LineLevel level,
                             std::chrono::nanoseconds at) {
  Write({{"ph", "C"},
         {"cat", "line"},
         {"name", NameOf(level.line, module.isWend)},
         {"ts", Microseconds(at)},
         {"args", {{"level", level.high ? 1 : 0}}},
         {"pid", module.process}});
}

/// @param isOver  false: the run ends before the chip is ready
void ChromeTrace::WriteWork(ModuleTracks& module, std::chrono::nanoseconds end, bool isOver) {
  const std::optional<Work> work = std::exchange(module.work, std::nullopt);
  if (!work) {
    return;
  }
  Json slice = Slice("flash", WorkName(work->what), {work->begin, end});
  if (HasAddress(work->what)) {
    slice["args"]["address"] = HexNumber(work->address, kAddressDigits);
  }
  if (!isOver) {
    slice["args"]["outcome"] = "busy at the end of the run";
    slice["cname"] = "terrible";
  }
  Write(module.flash, std::move(slice));
}

/// A text is a slice up to the next one, so that a viewer has room to show it.
void ChromeTrace::WritePrinted(std::chrono::nanoseconds end) {
  constexpr int kStandardOutput = 1;
  const std::optional<Printed> printed = std::exchange(printed_, std::nullopt);
  if (!printed) {
    return;
  }
  Json slice = Slice("console", FirstLine(printed->bytes), {printed->at, end});
  slice["args"]["stream"] = printed->descriptor == kStandardOutput ? "stdout" : "stderr";
  slice["args"]["text"] = printed->bytes;
  Write(console_, std::move(slice));
}

}  // namespace orvane
