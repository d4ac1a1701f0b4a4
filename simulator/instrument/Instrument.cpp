#include "simulator/instrument/Instrument.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "simulator/instrument/ErrnoName.h"
#include "simulator/instrument/Escape.h"
#include "simulator/instrument/FaultAnswer.h"

namespace orvane {

namespace {

constexpr const char* kKilled = "kill";
constexpr const char* kSessionKilled = "kill-session";
constexpr const char* kAllKilled = "kill-all";
constexpr const char* kLost = "lost";

/// Whether the event is carried out, whatever answer the program gets.
bool TakesItsCourse(const Fault& fault) {
  return fault.kind == Fault::Kind::kNone || fault.kind == Fault::Kind::kAnswer;
}

/// What the program gets for an event that is not carried out.
/// @param success  the result when the event is lost: the program is told that it succeeded
EventResult InsteadOf(const Fault& fault, EventResult success = {}) {
  switch (fault.kind) {
    case Fault::Kind::kFail:
      return {.error = fault.error};
    case Fault::Kind::kKill:
      return {.killed = Killed::kCaller};
    case Fault::Kind::kKillSession:
      return {.killed = Killed::kSession};
    case Fault::Kind::kKillAll:
      return {.killed = Killed::kAll};
    case Fault::Kind::kNone:
    case Fault::Kind::kLose:
    case Fault::Kind::kAnswer:
      break;
  }
  return success;
}

/// The same for a call of a D-Bus method, which cannot be lost.
DBusResult InsteadOfCall(const Fault& fault) {
  return {.killed = InsteadOf(fault).killed, .error = fault.text};
}

/// Replaces what was received by the text of a fault, with zeros after it.
void Overwrite(std::vector<std::uint8_t>& received, const std::string& text) {
  for (std::size_t i = 0; i < received.size(); ++i) {
    received[i] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
  }
}

std::string TextOf(int error) { return error == 0 ? "" : ErrnoName(error); }

/// @return the received bytes that the program asked for
std::vector<std::uint8_t> ExchangeSpi(Module& module,
                                      std::span<const ChipSelect> selects,
                                      std::size_t receivedBytes) {
  std::vector<std::uint8_t> all(receivedBytes);
  std::vector<std::uint8_t> miso;
  auto received = all.begin();
  for (const ChipSelect& select : selects) {
    miso.resize(select.mosi.size());
    module.Transfer(select.mosi, miso);
    for (const ChipSelect::Window& window : select.received) {
      const auto bytes = std::span(miso).subspan(window.at, window.length);
      received = std::copy(bytes.begin(), bytes.end(), received);
    }
  }
  return all;
}

std::size_t ReceivedBytes(std::span<const I2cMessage> messages) {
  std::size_t bytes = 0;
  for (const I2cMessage& message : messages) {
    bytes += message.reads ? message.length : 0U;
  }
  return bytes;
}

/// Carries the messages out up to the first one that no chip acknowledges.
/// @param module  null: nothing is connected
/// @return 0 or an errno
int ExchangeI2c(Module* module,
                std::optional<unsigned> channel,
                std::span<const I2cMessage> messages,
                std::span<const std::uint8_t> sent,
                std::span<std::uint8_t> received) {
  for (const I2cMessage& message : messages) {
    I2cDevice* const device =
        module == nullptr ? nullptr : module->FindI2c(channel, message.address);
    if (device == nullptr) {
      return ENXIO;
    }
    if (message.reads) {
      device->Read(received.first(message.length));
      received = received.subspan(message.length);
    } else {
      device->Write(sent.first(message.length));
      sent = sent.subspan(message.length);
    }
  }
  return 0;
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
      nodes_.emplace("/dev/spidev" + std::to_string(module->Slot()) + ".0",
                     Node{.module = module.get(), .isSpi = true});
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

std::string Instrument::DescribeModules() const {
  std::string text;
  for (const auto& module : modules_) {
    text += std::to_string(module->Slot()) + ' ' + module->DescribeState() + '\n';
  }
  return text;
}

Fault Instrument::Arrive(const Event& event) {
  Fault fault = faults_.Judge(event.kind, event.text);
  switch (fault.kind) {
    case Fault::Kind::kFail:
      Complete(event, fault.text.empty() ? ErrnoName(fault.error) : fault.text);
      break;
    case Fault::Kind::kLose:
      Complete(event, kLost);
      break;
    case Fault::Kind::kKill:
      Complete(event, kKilled);
      break;
    case Fault::Kind::kKillSession:
      Complete(event, kSessionKilled);
      break;
    case Fault::Kind::kKillAll:
      Complete(event, kAllKilled);
      break;
    case Fault::Kind::kNone:
    case Fault::Kind::kAnswer:
      break;
  }
  return fault;
}

/// Whether a fault replaces what the program gets. To be asked for events that have an answer only,
/// because its rule has hit then.
bool Instrument::TakesAnswer(const Fault& fault) {
  if (fault.kind != Fault::Kind::kAnswer) {
    return false;
  }
  faults_.CountAnswer(fault);
  return true;
}

/// Ends an event that the instrument cannot carry out.
EventResult Instrument::Refuse(const Event& event, int error) {
  Complete(event, ErrnoName(error));
  return {.error = error};
}

void Instrument::LogSpeed(std::string_view path,
                          Node& node,
                          std::span<const SpiTransfer> transfers) {
  for (const SpiTransfer& transfer : transfers) {
    if (transfer.speedHz == node.lastSpeedHz && transfer.bitsPerWord == node.lastBits) {
      continue;
    }
    node.lastSpeedHz = transfer.speedHz;
    node.lastBits = transfer.bitsPerWord;
    log_.Record(SpiSpeedEvent(path, node.lastSpeedHz, node.lastBits));
  }
}

/// @param fits  whether the message is short enough to be carried out
/// @return the errno that the driver has for such a message, or 0
int Instrument::ProblemOf(const Node& node, const SpiTotals& totals, bool fits) const {
  if (!node.isSpi) {
    return ENOTTY;
  }
  if (totals.sent > bufsiz_ || totals.received > bufsiz_) {
    return EMSGSIZE;
  }
  return fits ? 0 : ENOMEM;
}

EventResult Instrument::SubmitSpi(std::string_view path, const SpiMessage& message) {
  Node& node = FindNode(path);
  const SpiTotals totals = Total(message.transfers);
  const bool fits = message.sent.has_value() && totals.all <= kMaxSpiMessageBytes;
  std::vector<ChipSelect> selects;
  SpiDescription description;
  if (fits) {
    selects = ChipSelects(message.transfers, *message.sent);
  }
  if (log_.IsOn() || !faults_.Empty()) {  // otherwise nothing uses the text
    LogSpeed(path, node, message.transfers);
    description = fits ? Describe(selects) : DescribeLength(totals);
  }
  const Event event = SpiEvent(path, description.command);
  const Fault fault = Arrive(event);
  const auto value = static_cast<std::int64_t>(totals.all);
  const std::size_t receivedBytes = fits ? static_cast<std::size_t>(totals.received) : 0;
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault, {.value = value, .bytes = std::vector<std::uint8_t>(receivedBytes)});
  }
  if (const int problem = ProblemOf(node, totals, fits); problem != 0) {
    return Refuse(event, problem);
  }
  EventResult result{.value = value, .bytes = ExchangeSpi(*node.module, selects, receivedBytes)};
  if (!result.bytes.empty() && TakesAnswer(fault)) {
    Overwrite(result.bytes, fault.text);
  }
  if (log_.IsOn()) {
    Complete(event, description.answersShown ? LimitedHexBytes(result.bytes) : "");
  }
  return result;
}

EventResult Instrument::SubmitI2c(std::string_view path,
                                  std::span<const I2cMessage> messages,
                                  std::span<const std::uint8_t> sent) {
  const Node& node = FindNode(path);
  const Event request = I2cEvent(path, messages, sent);
  const Fault fault = Arrive(request);
  EventResult result{.value = static_cast<std::int64_t>(messages.size()),
                     .bytes = std::vector<std::uint8_t>(ReceivedBytes(messages))};
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault, std::move(result));
  }
  const int problem =
      node.isSpi ? ENOTTY : ExchangeI2c(node.module, node.channel, messages, sent, result.bytes);
  if (problem != 0) {
    return Refuse(request, problem);
  }
  if (!result.bytes.empty() && TakesAnswer(fault)) {
    Overwrite(result.bytes, fault.text);
  }
  if (log_.IsOn()) {
    Complete(I2cEvent(path, messages, sent, result.bytes));
  }
  return result;
}

EventResult Instrument::ReadSetting(std::string_view path, SpiSetting setting) {
  const Node& node = FindNode(path);
  const Event event = ReadSettingEvent(path, setting);
  const Fault fault = Arrive(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault);
  }
  if (!node.isSpi) {
    return Refuse(event, ENOTTY);
  }
  std::uint32_t value = node.settings.Get(setting);
  if (TakesAnswer(fault)) {
    std::from_chars(fault.text.data(), fault.text.data() + fault.text.size(), value);
  }
  EventResult result;
  for (unsigned byte = 0; byte < sizeof value; ++byte) {
    result.bytes.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
  }
  Complete(event, std::to_string(value));
  return result;
}

EventResult Instrument::WriteSetting(std::string_view path,
                                     SpiSetting setting,
                                     std::uint32_t value) {
  Node& node = FindNode(path);
  const Event event = WriteSettingEvent(path, setting, value);
  const Fault fault = Arrive(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault);
  }
  const int error = node.isSpi ? node.settings.Set(setting, value) : ENOTTY;
  Complete(event, TextOf(error));
  return {.error = error};
}

EventResult Instrument::RefuseRequest(std::string_view path, std::uint32_t request) {
  const Event event = OtherRequestEvent(path, request);
  const Fault fault = Arrive(event);
  return TakesItsCourse(fault) ? Refuse(event, ENOTTY) : InsteadOf(fault);
}

EventResult Instrument::WriteAttribute(std::string_view path, std::string_view value) {
  const Event event = WriteEvent(path, value);
  const Fault fault = Arrive(event);
  EventResult result{.value = static_cast<std::int64_t>(value.size())};
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault, std::move(result));
  }
  result.error = attributes_.find(path)->second->WriteAttribute(path, value);
  Complete(event, TextOf(result.error));
  return result;
}

bool Instrument::AcceptWrite(std::string_view path, std::string_view value) {
  const Event event = WriteEvent(path, value);
  if (Arrive(event).kind != Fault::Kind::kNone) {
    return false;
  }
  Complete(event, TextOf(attributes_.find(path)->second->WriteAttribute(path, value)));
  return true;
}

EventResult Instrument::ReadFile(std::string_view path,
                                 std::string_view contents,
                                 std::size_t offset,
                                 std::size_t count) {
  const Fault fault = Arrive(ReadEvent(path));
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault);
  }
  std::string_view read = contents.substr(std::min(offset, contents.size()));
  if (TakesAnswer(fault)) {
    read = fault.text;
  }
  read = read.substr(0, count);
  Complete(ReadEvent(path, read));
  return {.value = static_cast<std::int64_t>(read.size()), .bytes = {read.begin(), read.end()}};
}

EventResult Instrument::Sleep(std::chrono::nanoseconds duration) {
  const Event event = SleepEvent(duration);
  const Fault fault = Arrive(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault);
  }
  for (const auto& module : modules_) {
    module->AdvanceTime(duration);
  }
  Complete(event);
  return {};
}

DBusResult Instrument::GetModuleLocations() {
  const Event event = DBusEvent("GetModuleLocations");
  const Fault fault = Arrive(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOfCall(fault);
  }
  DBusResult result;
  if (TakesAnswer(fault)) {
    result.numbers = ParseNumbers(fault.text).value_or(std::vector<int>{});
  } else {
    for (const auto& module : modules_) {
      result.numbers.push_back(static_cast<int>(module->Slot()));
    }
  }
  std::string text;
  for (const int number : result.numbers) {
    text.append(text.empty() ? "" : " ").append(std::to_string(number));
  }
  Complete(event, text.empty() ? "none" : text);
  return result;
}

DBusResult Instrument::AnswerName(const char* method, unsigned slot, const std::string& name) {
  const Event event = DBusEvent(method, slot);
  const Fault fault = Arrive(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOfCall(fault);
  }
  DBusResult result{.text = TakesAnswer(fault) ? fault.text : name};
  Complete(event, Quote(result.text));
  return result;
}

DBusResult Instrument::GetI2CBus(unsigned slot) {
  const Module* const module = FindModule(slot);
  std::string name;  // empty for a slot that holds nothing
  if (module != nullptr) {
    name = module->Options().i2cName.value_or("i2c-" + std::to_string(slot));
  }
  return AnswerName("GetI2CBus", slot, name);
}

DBusResult Instrument::GetSPIDev(unsigned slot) {
  const Module* const module = FindModule(slot);
  std::string name;
  if (module != nullptr) {
    name = module->Options().spiName.value_or("spidev" + std::to_string(slot) + ".0");
  }
  return AnswerName("GetSPIDev", slot, name);
}

}  // namespace orvane
