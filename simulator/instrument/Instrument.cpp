#include "simulator/instrument/Instrument.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <sstream>
#include <utility>

#include "simulator/instrument/ErrnoName.h"
#include "simulator/instrument/Escape.h"
#include "simulator/instrument/SpiDecoder.h"

namespace orvane {

namespace {

constexpr std::size_t kMaxHexBytes = 32;  // of an answer in the log
constexpr const char* kKilled = "kill";
constexpr const char* kLost = "lost";

struct SettingRow {
  const char* name;
  SpiSetting setting;
  std::uint32_t atPowerOn;
};
constexpr SettingRow kSettings[] = {
    {"MODE", SpiSetting::kMode, 0},
    {"LSB_FIRST", SpiSetting::kLsbFirst, 0},
    {"BITS_PER_WORD", SpiSetting::kBitsPerWord, 8},
    {"MAX_SPEED_HZ", SpiSetting::kMaxSpeedHz, Instrument::kMaxSpeedHz},
    {"MODE32", SpiSetting::kMode32, 0},
};

std::string RequestName(SpiSetting setting, const char* direction) {
  const auto* const row = std::find_if(std::begin(kSettings),
                                       std::end(kSettings),
                                       [&](const SettingRow& r) { return r.setting == setting; });
  return std::string("SPI_IOC_") + direction + "_" + row->name;
}

/// Both requests of a mode show the same bits.
SpiSetting StoredAs(SpiSetting setting) {
  return setting == SpiSetting::kMode32 ? SpiSetting::kMode : setting;
}

std::string_view Characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string LimitedHex(std::span<const std::uint8_t> bytes) {
  if (bytes.size() <= kMaxHexBytes) {
    return HexBytes(Characters(bytes));
  }
  return HexBytes(Characters(bytes.first(kMaxHexBytes))) + " ... +" +
         std::to_string(bytes.size() - kMaxHexBytes);
}

/// The largest unit that expresses a duration as a whole number.
std::string DurationText(std::chrono::nanoseconds duration) {
  constexpr struct {
    std::int64_t nanoseconds;
    const char* name;
  } kUnits[] = {{1'000'000'000, " s"}, {1'000'000, " ms"}, {1'000, " us"}, {1, " ns"}};
  for (const auto& unit : kUnits) {
    if (duration.count() % unit.nanoseconds == 0) {
      return std::to_string(duration.count() / unit.nanoseconds) + unit.name;
    }
  }
  return "";
}

/// The text of a fault in place of what was received.
void Overwrite(std::vector<std::uint8_t>& received, const std::string& text) {
  for (std::size_t i = 0; i < received.size(); ++i) {
    received[i] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
  }
}

/// @return whether the fault leaves nothing to do, with `outcome` set so
bool IsSettled(const Fault& fault, Outcome& outcome) {
  outcome.killed = fault.kind == Fault::Kind::kKill;
  outcome.error = fault.error;
  return fault.kind == Fault::Kind::kKill || fault.kind == Fault::Kind::kFail ||
         fault.kind == Fault::Kind::kLose;
}

// --- SPI messages -------------------------------------------------------------------------------

/// One chip select: what goes out, and the positions whose answer the program wants.
struct ChipSelect {
  std::vector<std::uint8_t> mosi;
  std::size_t sentBytes = 0;  // in front; the controller only receives behind them
  struct Window {
    std::size_t at;
    std::size_t length;
  };
  std::vector<Window> received;

  SpiDescription Describe() const {
    return DescribeSpi(std::span(mosi).first(sentBytes), mosi.size() - sentBytes);
  }
};

/// Puts the transfers of a message together: chip select stays low from the first to the last,
/// unless one asks for a change behind it.
std::vector<ChipSelect> ChipSelects(std::span<const link::SpiTransfer> transfers,
                                    std::span<const std::uint8_t> sent) {
  std::vector<ChipSelect> selects(1);
  for (const link::SpiTransfer& transfer : transfers) {
    ChipSelect& select = selects.back();
    const std::size_t at = select.mosi.size();
    if (transfer.sends != 0) {
      const auto bytes = sent.first(transfer.length);
      select.mosi.insert(select.mosi.end(), bytes.begin(), bytes.end());
      select.sentBytes = select.mosi.size();
      sent = sent.subspan(transfer.length);
    } else {
      select.mosi.resize(at + transfer.length);
    }
    if (transfer.receives != 0) {
      select.received.push_back({at, transfer.length});
    }
    if (transfer.chipSelectChange != 0 && &transfer != &transfers.back()) {
      selects.emplace_back();
    }
  }
  return selects;
}

struct Totals {
  std::uint64_t all = 0;
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
};

Totals Add(std::span<const link::SpiTransfer> transfers) {
  Totals totals;
  for (const link::SpiTransfer& transfer : transfers) {
    totals.all += transfer.length;
    totals.sent += transfer.sends != 0 ? transfer.length : 0;
    totals.received += transfer.receives != 0 ? transfer.length : 0;
  }
  return totals;
}

// --- I2C messages -------------------------------------------------------------------------------

std::string AddressText(std::uint16_t address) {
  constexpr std::size_t kDigits = 2;  // more for addresses of ten bits
  return HexNumber(address, kDigits);
}

/// "0x21 w 06 r 40 01"; "r +2" when there are no bytes received.
std::string DescribeI2c(std::span<const link::I2cMessage> messages,
                        std::span<const std::uint8_t> sent,
                        const std::vector<std::uint8_t>* received) {
  std::string text;
  std::size_t sentAt = 0;
  std::size_t receivedAt = 0;
  for (const link::I2cMessage& message : messages) {
    if (&message == &messages.front() || message.address != (&message - 1)->address) {
      text.append(text.empty() ? "" : " ").append(AddressText(message.address));
    }
    std::string bytes;
    if (message.reads == 0) {
      bytes = LimitedHex(sent.subspan(sentAt, message.length));
      sentAt += message.length;
    } else if (received != nullptr) {
      bytes = LimitedHex(std::span(*received).subspan(receivedAt, message.length));
      receivedAt += message.length;
    } else {
      bytes.append("+").append(std::to_string(message.length));
    }
    text += message.reads == 0 ? " w" : " r";
    text.append(bytes.empty() ? "" : " ").append(bytes);
  }
  return text;
}

}  // namespace

Instrument::Instrument(std::vector<std::unique_ptr<Module>> modules,
                       ModuleSelectorFiles& selector,
                       FaultRules faults,
                       std::uint64_t bufsiz,
                       EventLog& log)
    : modules_(std::move(modules)), faults_(std::move(faults)), bufsiz_(bufsiz), log_(log) {
  std::vector<I2cUser> users;
  for (const auto& module : modules_) {
    users.push_back({module->Slot(), module->HasMux()});
  }
  adapters_ = PlanI2cAdapters(users);
  AddNodes();
  std::vector<AttributeFiles*> owners = {&selector};
  for (const auto& module : modules_) {
    owners.push_back(module.get());
  }
  for (AttributeFiles* const owner : owners) {
    for (std::string& path : owner->AttributePaths()) {
      attributes_.emplace(std::move(path), owner);
    }
  }
}

void Instrument::AddNodes() {
  for (const auto& module : modules_) {
    if (module->Options().spiNode) {
      Node node{.module = module.get(), .isSpi = true};
      for (const SettingRow& row : kSettings) {
        node.settings[row.setting] = row.atPowerOn;
      }
      nodes_.emplace("/dev/spidev" + std::to_string(module->Slot()) + ".0", std::move(node));
    }
  }
  for (const I2cAdapter& adapter : adapters_) {
    Module* const module = adapter.slot ? FindModule(*adapter.slot) : nullptr;
    if (module == nullptr || module->Options().i2cNode) {
      nodes_.emplace("/dev/" + adapter.BusName(),
                     Node{.module = module, .channel = adapter.channel});
    }
  }
}

Instrument::Node& Instrument::FindNode(std::string_view path) { return nodes_.find(path)->second; }

Module* Instrument::FindModule(unsigned slot) {
  const auto found = std::find_if(
      modules_.begin(), modules_.end(), [&](const auto& module) { return module->Slot() == slot; });
  return found == modules_.end() ? nullptr : found->get();
}

std::vector<std::string> Instrument::NodePaths() const {
  std::vector<std::string> paths;
  for (const auto& [path, node] : nodes_) {
    paths.push_back(path);
  }
  return paths;
}

std::vector<std::string> Instrument::AttributePaths() const {
  std::vector<std::string> paths;
  for (const auto& [path, module] : attributes_) {
    paths.push_back(path);
  }
  return paths;
}

std::optional<std::string> Instrument::AttributeContents(std::string_view path) {
  const auto found = attributes_.find(path);
  if (found == attributes_.end()) {
    return std::nullopt;
  }
  return found->second->ReadAttribute(path);
}

Fault Instrument::Arrive(EventKind kind, std::string_view text) {
  Fault fault = faults_.Judge(kind, text);
  switch (fault.kind) {
    case Fault::Kind::kFail:
      log_.Event(kind, text, fault.text.empty() ? ErrnoName(fault.error) : fault.text);
      break;
    case Fault::Kind::kLose:
      log_.Event(kind, text, kLost);
      break;
    case Fault::Kind::kKill:
      log_.Event(kind, text, kKilled);
      break;
    case Fault::Kind::kNone:
    case Fault::Kind::kAnswer:
      break;
  }
  return fault;
}

void Instrument::Complete(EventKind kind, std::string_view text, std::string_view result) {
  log_.Event(kind, text, result);
}

void Instrument::LogSpeed(std::string_view path,
                          Node& node,
                          std::span<const link::SpiTransfer> transfers) {
  for (const link::SpiTransfer& transfer : transfers) {
    if (transfer.speedHz == node.lastSpeedHz && transfer.bitsPerWord == node.lastBits) {
      continue;
    }
    node.lastSpeedHz = transfer.speedHz;
    node.lastBits = transfer.bitsPerWord;
    log_.Event(EventKind::kSpi,
               std::string(path) + " speed " + std::to_string(node.lastSpeedHz) + " bits " +
                   std::to_string(unsigned{node.lastBits}));
  }
}

Outcome Instrument::SubmitSpi(std::string_view path,
                              std::span<const link::SpiTransfer> transfers,
                              std::optional<std::span<const std::uint8_t>> sent) {
  Node& node = FindNode(path);
  const Totals totals = Add(transfers);
  const bool isCarried = sent.has_value() && totals.all <= link::kMaxPayloadBytes;
  const std::vector<ChipSelect> selects =
      isCarried ? ChipSelects(transfers, *sent) : std::vector<ChipSelect>();
  std::string text;
  bool answersShown = false;
  if (log_.IsOn() || !faults_.Empty()) {
    LogSpeed(path, node, transfers);
    text = path;
    for (const ChipSelect& select : selects) {
      const SpiDescription description = select.Describe();
      text += (&select == &selects.front() ? " " : " / ") + description.command;
      answersShown = answersShown || description.answersShown;
    }
    if (!isCarried) {
      text += " message of " + std::to_string(totals.all) + " bytes";
    }
  }

  const Fault fault = Arrive(EventKind::kSpi, text);
  Outcome outcome;
  if (!IsSettled(fault, outcome)) {
    if (!node.isSpi) {
      outcome.error = ENOTTY;
    } else if (totals.sent > bufsiz_ || totals.received > bufsiz_) {
      outcome.error = EMSGSIZE;
    } else if (!isCarried) {
      outcome.error = ENOMEM;
    }
    if (outcome.error != 0) {
      Complete(EventKind::kSpi, text, ErrnoName(outcome.error));
    }
  }
  if (outcome.error != 0 || outcome.killed) {
    return outcome;
  }
  outcome.value = static_cast<std::int64_t>(totals.all);
  outcome.bytes.resize(isCarried ? totals.received : 0);  // what a lost message brings back
  if (fault.kind == Fault::Kind::kLose) {
    return outcome;
  }
  std::vector<std::uint8_t> miso;
  auto received = outcome.bytes.begin();
  for (const ChipSelect& select : selects) {
    miso.resize(select.mosi.size());
    node.module->Transfer(select.mosi, miso);
    for (const ChipSelect::Window& window : select.received) {
      const auto bytes = std::span(miso).subspan(window.at, window.length);
      received = std::copy(bytes.begin(), bytes.end(), received);
    }
  }
  if (fault.kind == Fault::Kind::kAnswer) {
    Overwrite(outcome.bytes, fault.text);
  }
  if (log_.IsOn()) {
    Complete(EventKind::kSpi, text, answersShown ? LimitedHex(outcome.bytes) : "");
  }
  return outcome;
}

Outcome Instrument::SubmitI2c(std::string_view path,
                              std::span<const link::I2cMessage> messages,
                              std::span<const std::uint8_t> sent) {
  const Node& node = FindNode(path);
  const std::string request = std::string(path) + " " + DescribeI2c(messages, sent, nullptr);
  const Fault fault = Arrive(EventKind::kI2c, request);
  Outcome outcome{.value = static_cast<std::int64_t>(messages.size())};
  for (const link::I2cMessage& message : messages) {
    outcome.bytes.resize(outcome.bytes.size() + (message.reads != 0 ? message.length : 0U));
  }
  if (IsSettled(fault, outcome)) {
    if (outcome.error != 0 || outcome.killed) {
      outcome.bytes.clear();
    }
    return outcome;
  }
  std::size_t sentAt = 0;
  std::size_t receivedAt = 0;
  for (const link::I2cMessage& message : messages) {
    I2cDevice* const device = node.module == nullptr || node.isSpi
                                  ? nullptr
                                  : node.module->FindI2c(node.channel, message.address);
    if (device == nullptr) {
      outcome.error = node.isSpi ? ENOTTY : ENXIO;
      outcome.bytes.clear();
      Complete(EventKind::kI2c, request, ErrnoName(outcome.error));
      return outcome;
    }
    if (message.reads != 0) {
      device->Read(std::span(outcome.bytes).subspan(receivedAt, message.length));
      receivedAt += message.length;
    } else {
      device->Write(sent.subspan(sentAt, message.length));
      sentAt += message.length;
    }
  }
  if (fault.kind == Fault::Kind::kAnswer) {
    Overwrite(outcome.bytes, fault.text);
  }
  if (log_.IsOn()) {
    Complete(EventKind::kI2c,
             std::string(path) + " " + DescribeI2c(messages, sent, &outcome.bytes));
  }
  return outcome;
}

Outcome Instrument::ReadSetting(std::string_view path, SpiSetting setting) {
  const Node& node = FindNode(path);
  const std::string text = std::string(path) + " " + RequestName(setting, "RD");
  const Fault fault = Arrive(EventKind::kIoctl, text);
  Outcome outcome;
  if (IsSettled(fault, outcome)) {
    return outcome;
  }
  if (!node.isSpi) {
    outcome.error = ENOTTY;
    Complete(EventKind::kIoctl, text, ErrnoName(outcome.error));
    return outcome;
  }
  std::uint32_t value = node.settings.at(StoredAs(setting));
  if (fault.kind == Fault::Kind::kAnswer) {
    std::from_chars(fault.text.data(), fault.text.data() + fault.text.size(), value);
  }
  for (unsigned byte = 0; byte < sizeof value; ++byte) {
    outcome.bytes.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
  }
  Complete(EventKind::kIoctl, text, std::to_string(value));
  return outcome;
}

Outcome Instrument::WriteSetting(std::string_view path, SpiSetting setting, std::uint32_t value) {
  Node& node = FindNode(path);
  const std::string text =
      std::string(path) + " " + RequestName(setting, "WR") + " " + std::to_string(value);
  Outcome outcome;
  if (IsSettled(Arrive(EventKind::kIoctl, text), outcome)) {
    return outcome;
  }
  if (!node.isSpi) {
    outcome.error = ENOTTY;
  } else if (setting == SpiSetting::kMaxSpeedHz && value == 0) {
    outcome.error = EINVAL;
  } else {
    node.settings[StoredAs(setting)] = value;
  }
  Complete(EventKind::kIoctl, text, outcome.error == 0 ? "" : ErrnoName(outcome.error));
  return outcome;
}

Outcome Instrument::RefuseRequest(std::string_view path, std::uint32_t request) {
  constexpr std::size_t kDigits = 8;
  const std::string text = std::string(path) + " " + HexNumber(request, kDigits);
  Outcome outcome;
  if (!IsSettled(Arrive(EventKind::kIoctl, text), outcome)) {
    outcome.error = ENOTTY;
    Complete(EventKind::kIoctl, text, ErrnoName(outcome.error));
  }
  return outcome;
}

Outcome Instrument::WriteAttribute(std::string_view path, std::string_view value) {
  const std::string text = std::string(path) + " " + Quote(value);
  Outcome outcome{.value = static_cast<std::int64_t>(value.size())};
  if (!IsSettled(Arrive(EventKind::kWrite, text), outcome)) {
    outcome.error = attributes_.find(path)->second->WriteAttribute(path, value);
    Complete(EventKind::kWrite, text, outcome.error == 0 ? "" : ErrnoName(outcome.error));
  }
  return outcome;
}

Outcome Instrument::ReadFile(std::string_view path,
                             std::string_view contents,
                             std::size_t offset,
                             std::size_t count) {
  const Fault fault = Arrive(EventKind::kRead, path);
  Outcome outcome;
  if (IsSettled(fault, outcome)) {
    return outcome;
  }
  std::string_view read = contents.substr(std::min(offset, contents.size()));
  if (fault.kind == Fault::Kind::kAnswer) {
    read = fault.text;
  }
  read = read.substr(0, count);
  outcome.bytes.assign(read.begin(), read.end());
  outcome.value = static_cast<std::int64_t>(read.size());
  log_.Event(EventKind::kRead, std::string(path) + " " + Quote(read));
  return outcome;
}

Outcome Instrument::Sleep(std::chrono::nanoseconds duration) {
  const std::string text = DurationText(duration);
  Outcome outcome;
  if (!IsSettled(Arrive(EventKind::kSleep, text), outcome)) {
    for (const auto& module : modules_) {
      module->AdvanceTime(duration);
    }
    Complete(EventKind::kSleep, text);
  }
  return outcome;
}

DBusOutcome Instrument::GetModuleLocations() {
  constexpr const char* kMethod = "GetModuleLocations";
  const Fault fault = Arrive(EventKind::kDBus, kMethod);
  DBusOutcome outcome{.killed = fault.kind == Fault::Kind::kKill};
  if (fault.kind == Fault::Kind::kFail) {
    outcome.error = fault.text;
  }
  if (outcome.killed || !outcome.error.empty()) {
    return outcome;
  }
  if (fault.kind == Fault::Kind::kAnswer) {
    std::istringstream numbers(fault.text);
    for (int number = 0; numbers >> number;) {
      outcome.numbers.push_back(number);
    }
  } else {
    for (const auto& module : modules_) {
      outcome.numbers.push_back(static_cast<int>(module->Slot()));
    }
  }
  std::string result;
  for (const int number : outcome.numbers) {
    result.append(result.empty() ? "" : " ").append(std::to_string(number));
  }
  Complete(EventKind::kDBus, kMethod, result.empty() ? "none" : result);
  return outcome;
}

DBusOutcome Instrument::AnswerName(const char* method, unsigned slot, const std::string& name) {
  const std::string text = std::string(method) + " " + std::to_string(slot);
  const Fault fault = Arrive(EventKind::kDBus, text);
  DBusOutcome outcome{.killed = fault.kind == Fault::Kind::kKill};
  if (fault.kind == Fault::Kind::kFail) {
    outcome.error = fault.text;
  }
  if (outcome.killed || !outcome.error.empty()) {
    return outcome;
  }
  outcome.text = fault.kind == Fault::Kind::kAnswer ? fault.text : name;
  Complete(EventKind::kDBus, text, Quote(outcome.text));
  return outcome;
}

DBusOutcome Instrument::GetI2CBus(unsigned slot) {
  const Module* const module = FindModule(slot);
  std::string name;  // empty for a slot that holds nothing
  if (module != nullptr) {
    name = module->Options().i2cName.value_or("i2c-" + std::to_string(slot));
  }
  return AnswerName("GetI2CBus", slot, name);
}

DBusOutcome Instrument::GetSPIDev(unsigned slot) {
  const Module* const module = FindModule(slot);
  std::string name;
  if (module != nullptr) {
    name = module->Options().spiName.value_or("spidev" + std::to_string(slot) + ".0");
  }
  return AnswerName("GetSPIDev", slot, name);
}

}  // namespace orvane
