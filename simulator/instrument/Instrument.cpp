#include "simulator/instrument/Instrument.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include "simulator/instrument/ErrnoName.h"
#include "simulator/instrument/Escape.h"
#include "simulator/instrument/FaultAnswer.h"
#include "simulator/timing/WireTime.h"

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

/// Whether nothing becomes of the event, and nobody is told that it happened.
bool Kills(const Fault& fault) { return InsteadOf(fault).killed != Killed::kNo; }

Outcome OutcomeOf(const Fault& fault) {
  if (TakesItsCourse(fault)) {
    return Outcome::kDone;
  }
  return fault.kind == Fault::Kind::kLose ? Outcome::kLost : Outcome::kFailed;
}

std::vector<ClockedPart*> PartsOf(const std::vector<std::unique_ptr<Module>>& modules) {
  std::vector<ClockedPart*> parts;
  parts.reserve(modules.size());
  for (const auto& module : modules) {
    parts.push_back(module.get());
  }
  return parts;
}

std::string TypeName(ModuleType type) {
  const auto* const found = std::find_if(std::begin(kModuleTypes),
                                         std::end(kModuleTypes),
                                         [type](const auto& known) { return known.first == type; });
  return std::string(found->second);
}

/// The bits of the whole transfer: a start before each message, and a stop at the end.
std::uint64_t I2cBits(std::span<const I2cMessage> messages) {
  std::uint64_t bits = kI2cStopBits;
  for (const I2cMessage& message : messages) {
    bits += kI2cStartBits + kBitsPerI2cByte * (std::uint64_t{1} + message.length);
  }
  return bits;
}

std::size_t ReceivedBytes(std::span<const I2cMessage> messages) {
  std::size_t bytes = 0;
  for (const I2cMessage& message : messages) {
    bytes += message.reads ? message.length : 0U;
  }
  return bytes;
}

}  // namespace

Instrument::Instrument(std::vector<std::unique_ptr<Module>> modules,
                       ModuleSelectorFiles& selector,
                       FaultRules faults,
                       SpiBuffers buffers,
                       EventLog& log,
                       TimingOptions timing)
    : modules_(std::move(modules)),
      faults_(std::move(faults)),
      buffers_(buffers),
      log_(log),
      timing_(timing),
      clock_(PartsOf(modules_)) {
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
  if (timing_.observer != nullptr) {
    StartWatch();
  }
}

void Instrument::StartWatch() {
  std::vector<ObservedModule> modules;
  for (const auto& module : modules_) {
    modules.push_back({.slot = module->Slot(),
                       .type = TypeName(module->Options().type),
                       .spiPath = {},
                       .i2cPaths = {},
                       .lines = module->Lines(),
                       .chipTimes = module->Flash().Times()});
  }
  std::vector<std::string> chassisI2c;
  for (const auto& [path, node] : nodes_) {
    const auto module = std::find_if(
        modules_.begin(), modules_.end(), [owner = node.module](const auto& candidate) {
          return candidate.get() == owner;
        });
    if (module == modules_.end()) {
      chassisI2c.push_back(path);
      continue;
    }
    ObservedModule& observed = modules.at(static_cast<std::size_t>(module - modules_.begin()));
    if (node.isSpi) {
      observed.spiPath = path;
    } else {
      observed.i2cPaths.push_back(path);
    }
  }
  timing_.observer->OnStart(modules, chassisI2c);
  watch_.emplace(modules_, *timing_.observer);
  clock_.OnStep([this] { watch_->Look(clock_.Now()); });
}

std::chrono::nanoseconds Instrument::Now() const {
  if (IsTimed()) {
    return clock_.Now();
  }
  std::chrono::nanoseconds time = estimate_;
  for (const auto& module : modules_) {
    time += module->Flash().TimeOfWork();
  }
  return time;
}

void Instrument::NoteConsole(int descriptor, std::string_view bytes) {
  if (timing_.observer != nullptr) {
    timing_.observer->OnConsole(descriptor, bytes, clock_.Now());
  }
}

void Instrument::NoteEnd() {
  if (timing_.observer != nullptr) {
    timing_.observer->OnEnd(clock_.Now());
  }
}

void Instrument::PassTime(Cause cause, std::chrono::nanoseconds by) {
  const std::chrono::nanoseconds begin = clock_.Now();
  clock_.Advance(cause, by);
  if (timing_.observer != nullptr && by.count() > 0) {
    timing_.observer->OnUnseen({begin, clock_.Now()});
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

std::string Instrument::DescribeTime() const {
  constexpr std::size_t kDigits = 9;
  const std::chrono::nanoseconds now = Now();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
  const std::string fraction = std::to_string((now - seconds).count());
  return std::string("instrument ") + (IsTimed() ? "time=" : "estimate=") +
         std::to_string(seconds.count()) + "." + std::string(kDigits - fraction.size(), '0') +
         fraction + "\n";
}

Fault Instrument::Arrive(const Event& event) {
  Fault fault = Judge(event);
  if (!TakesItsCourse(fault) && !Kills(fault)) {
    ObserveOther(event, fault.kind == Fault::Kind::kLose ? kLost : ErrnoName(fault.error));
  }
  return fault;
}

void Instrument::Complete(const Event& event, std::string_view result) {
  log_.Record(event, result);
  ObserveOther(event, result);
}

void Instrument::ObserveOther(const Event& event, std::string_view result) {
  if (timing_.observer == nullptr) {
    return;
  }
  std::string text = std::string(Word(event.kind)) + " " + event.text;
  if (!result.empty()) {
    text.append(" = ").append(result);
  }
  timing_.observer->OnOther(text, clock_.Now());
}

/// Counts the event and asks the fault rules, which may end it.
Fault Instrument::Judge(const Event& event) {
  Fault fault = faults_.Judge(event.kind, event.text);
  switch (fault.kind) {
    case Fault::Kind::kFail:
      log_.Record(event, fault.text.empty() ? ErrnoName(fault.error) : fault.text);
      break;
    case Fault::Kind::kLose:
      log_.Record(event, kLost);
      break;
    case Fault::Kind::kKill:
      log_.Record(event, kKilled);
      break;
    case Fault::Kind::kKillSession:
      log_.Record(event, kSessionKilled);
      break;
    case Fault::Kind::kKillAll:
      log_.Record(event, kAllKilled);
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
  // A node that is no SPI device has nothing that a transfer could fall back on.
  const std::uint32_t usualHertz = node.isSpi ? node.settings.Get(SpiSetting::kMaxSpeedHz) : 0;
  const auto usualBits =
      static_cast<std::uint8_t>(node.isSpi ? node.settings.Get(SpiSetting::kBitsPerWord) : 0U);
  for (const SpiTransfer& transfer : transfers) {
    const std::uint32_t hertz = RateOf(transfer, usualHertz);
    const std::uint8_t bits = transfer.bitsPerWord == 0 ? usualBits : transfer.bitsPerWord;
    if (hertz == node.lastSpeedHz && bits == node.lastBits) {
      continue;
    }
    node.lastSpeedHz = hertz;
    node.lastBits = bits;
    log_.Record(SpiSpeedEvent(path, hertz, bits));
  }
}

/// @param fits  whether the message is short enough to be carried out
/// @return the errno that the driver has for such a message, or 0
int Instrument::ProblemOf(const Node& node, const SpiMessage& message, bool fits) const {
  if (!node.isSpi) {
    return ENOTTY;
  }
  if (!FitsInto(buffers_, message)) {
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
  const Fault fault = Judge(event);
  const bool isLost = fault.kind == Fault::Kind::kLose;
  EventResult result{.value = static_cast<std::int64_t>(totals.all)};
  auto end =
      isLost ? std::nullopt : EndBeforeBus(path, event, fault, ProblemOf(node, message, fits));
  if (end) {
    return *std::move(end);
  }
  result.bytes = RunSpi(node,
                        {.path = path,
                         .transfers = message.transfers,
                         .selects = selects,
                         .receivedBytes = fits ? static_cast<std::size_t>(totals.received) : 0,
                         .isLost = isLost});
  if (!result.bytes.empty() && TakesAnswer(fault)) {
    Overwrite(result.bytes, fault.text);
  }
  if (log_.IsOn() && !isLost) {
    log_.Record(event, description.answersShown ? LimitedHexBytes(result.bytes) : "");
  }
  return result;
}

/// @param problem  an errno, or 0
/// @return the end of a message that does not reach the bus; none: it does
std::optional<EventResult> Instrument::EndBeforeBus(std::string_view path,
                                                    const Event& event,
                                                    const Fault& fault,
                                                    int problem) {
  const bool takesItsCourse = TakesItsCourse(fault);
  if (takesItsCourse && problem == 0) {
    return std::nullopt;
  }
  if (IsTimed() && !Kills(fault)) {  // one that kills does not happen at all
    const std::chrono::nanoseconds begin = clock_.Now();
    clock_.Advance(Cause::kMessageCost, timing_.messageCost);
    if (timing_.observer != nullptr) {
      timing_.observer->OnSpi({.path = path,
                               .period = {begin, clock_.Now()},
                               .cost = timing_.messageCost,
                               .selects = {},
                               .outcome = Outcome::kFailed});
    }
  }
  if (!takesItsCourse) {
    return InsteadOf(fault);
  }
  log_.Record(event, ErrnoName(problem));
  return EventResult{.error = problem};
}

/// @return the received bytes that the program asked for
std::vector<std::uint8_t> Instrument::RunSpi(const Node& node, const SpiRun& run) {
  Module* const module = run.isLost ? nullptr : node.module;
  const std::uint32_t usualHertz = node.settings.Get(SpiSetting::kMaxSpeedHz);
  std::vector<ObservedSelect> observed;
  if (!IsTimed()) {
    if (node.module == nullptr || !node.module->ChipBusy()) {
      estimate_ += WireTimeOf(run.transfers, usualHertz);
    }
    return ExchangeSpi(module, run, ByteClock::Still(), observed);
  }
  const std::chrono::nanoseconds begin = clock_.Now();
  clock_.Advance(Cause::kMessageCost, timing_.messageCost);
  SpiWire wire(clock_, run.transfers, usualHertz);
  std::vector<std::uint8_t> received = ExchangeSpi(module, run, wire, observed);
  if (timing_.observer != nullptr) {
    timing_.observer->OnSpi({.path = run.path,
                             .period = {begin, clock_.Now()},
                             .cost = timing_.messageCost,
                             .selects = observed,
                             .outcome = run.isLost ? Outcome::kLost : Outcome::kDone});
  }
  return received;
}

/// @param module    null: the bytes pass, but reach nothing
/// @param wire      of this message
/// @param observed  gets each chip select if anybody watches
std::vector<std::uint8_t> Instrument::ExchangeSpi(Module* module,
                                                  const SpiRun& run,
                                                  ByteClock& wire,
                                                  std::vector<ObservedSelect>& observed) {
  std::vector<std::uint8_t> all(run.receivedBytes);
  std::vector<std::uint8_t> miso;
  auto received = all.begin();
  for (const ChipSelect& select : run.selects) {
    const std::chrono::nanoseconds begin = clock_.Now();
    miso.resize(select.mosi.size());
    if (module == nullptr) {
      wire.Pass(miso.size());
    } else {
      module->Transfer(select.mosi, miso, wire);
    }
    for (const ChipSelect::Window& window : select.received) {
      const auto bytes = std::span(miso).subspan(window.at, window.length);
      received = std::copy(bytes.begin(), bytes.end(), received);
    }
    if (watch_) {
      watch_->Look(clock_.Now());
      observed.push_back({.period = {begin, clock_.Now()},
                          .command = Describe(std::span(&select, 1)).command,
                          .mosi = select.mosi,
                          .miso = miso,
                          .clocked = static_cast<SpiWire&>(wire).TakeClocked()});
    }
  }
  return all;
}

EventResult Instrument::SubmitI2c(std::string_view path,
                                  std::span<const I2cMessage> messages,
                                  std::span<const std::uint8_t> sent) {
  const Node& node = FindNode(path);
  const Event request = I2cEvent(path, messages, sent);
  const Fault fault = Judge(request);
  const std::chrono::nanoseconds begin = clock_.Now();
  EventResult result{.value = static_cast<std::int64_t>(messages.size()),
                     .bytes = std::vector<std::uint8_t>(ReceivedBytes(messages))};
  std::vector<ObservedI2cMessage> observed;
  Outcome outcome = OutcomeOf(fault);
  if (outcome == Outcome::kLost) {
    PassI2cBits(I2cBits(messages));
  } else if (outcome == Outcome::kDone) {
    result.error = node.isSpi ? ENOTTY : ExchangeI2c(node, messages, sent, result.bytes, observed);
    outcome = result.error == 0 ? outcome : Outcome::kFailed;
  }
  if (timing_.observer != nullptr && !Kills(fault)) {
    timing_.observer->OnI2c(
        {.path = path, .period = {begin, clock_.Now()}, .messages = observed, .outcome = outcome});
  }
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault, std::move(result));
  }
  if (result.error != 0) {
    log_.Record(request, ErrnoName(result.error));
    return {.error = result.error};
  }
  if (!result.bytes.empty() && TakesAnswer(fault)) {
    Overwrite(result.bytes, fault.text);
  }
  if (log_.IsOn()) {
    log_.Record(I2cEvent(path, messages, sent, result.bytes));
  }
  return result;
}

void Instrument::PassI2cBits(std::uint64_t bits) {
  const std::chrono::nanoseconds time = WireTime(bits, kI2cHz);
  if (IsTimed()) {
    clock_.Advance(Cause::kWire, time);
  } else {
    estimate_ += time;
  }
}

/// Carries the messages out up to the first one that no chip acknowledges.
/// @param observed  gets each message if anybody watches
/// @return 0 or an errno
int Instrument::ExchangeI2c(const Node& node,
                            std::span<const I2cMessage> messages,
                            std::span<const std::uint8_t> sent,
                            std::span<std::uint8_t> received,
                            std::vector<ObservedI2cMessage>& observed) {
  int problem = 0;
  for (const I2cMessage& message : messages) {
    I2cDevice* const device =
        node.module == nullptr ? nullptr : node.module->FindI2c(node.channel, message.address);
    problem = device == nullptr ? ENXIO : 0;
    const std::size_t length = problem == 0 ? message.length : 0;
    PassI2cBits(kI2cStartBits + kBitsPerI2cByte * (std::uint64_t{1} + length));
    std::span<const std::uint8_t> bytes;
    if (problem == 0 && message.reads) {
      device->Read(received.first(length));
      bytes = received.first(length);
      received = received.subspan(length);
    } else if (problem == 0) {
      device->Write(sent.first(length));
      bytes = sent.first(length);
      sent = sent.subspan(length);
    }
    if (watch_) {
      watch_->Look(clock_.Now());
      ObservedI2cMessage& seen = observed.emplace_back();
      seen.address = message.address;
      seen.reads = message.reads;
      seen.acknowledged = problem == 0;
      seen.bytes.assign(bytes.begin(), bytes.end());
    }
    if (problem != 0) {
      break;
    }
  }
  PassI2cBits(kI2cStopBits);
  return problem;
}

void Instrument::ObserveAccess(std::string_view path,
                               bool writes,
                               std::string_view bytes,
                               Outcome outcome) {
  if (timing_.observer == nullptr) {
    return;
  }
  timing_.observer->OnAccess(
      {.path = path, .writes = writes, .bytes = bytes, .at = clock_.Now(), .outcome = outcome});
  watch_->Look(clock_.Now());
}

void Instrument::ObserveDBus(const Event& event, const Fault& fault) {
  if (timing_.observer != nullptr && !Kills(fault)) {
    timing_.observer->OnDBus(event.text, clock_.Now(), OutcomeOf(fault));
  }
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
  const Fault fault = Judge(event);
  EventResult result{.value = static_cast<std::int64_t>(value.size())};
  if (!TakesItsCourse(fault)) {
    if (!Kills(fault)) {
      ObserveAccess(path, true, value, OutcomeOf(fault));
    }
    return InsteadOf(fault, std::move(result));
  }
  result.error = attributes_.find(path)->second->WriteAttribute(path, value);
  ObserveAccess(path, true, value, result.error == 0 ? Outcome::kDone : Outcome::kFailed);
  log_.Record(event, TextOf(result.error));
  return result;
}

bool Instrument::AcceptWrite(std::string_view path, std::string_view value) {
  const Event event = WriteEvent(path, value);
  if (Judge(event).kind != Fault::Kind::kNone) {
    return false;
  }
  const int error = attributes_.find(path)->second->WriteAttribute(path, value);
  ObserveAccess(path, true, value, error == 0 ? Outcome::kDone : Outcome::kFailed);
  log_.Record(event, TextOf(error));
  return true;
}

EventResult Instrument::ReadFile(std::string_view path,
                                 std::string_view contents,
                                 std::size_t offset,
                                 std::size_t count) {
  const Fault fault = Judge(ReadEvent(path));
  if (!TakesItsCourse(fault)) {
    if (!Kills(fault)) {
      ObserveAccess(path, false, {}, OutcomeOf(fault));
    }
    return InsteadOf(fault);
  }
  std::string_view read = contents.substr(std::min(offset, contents.size()));
  if (TakesAnswer(fault)) {
    read = fault.text;
  }
  read = read.substr(0, count);
  ObserveAccess(path, false, read, Outcome::kDone);
  log_.Record(ReadEvent(path, read));
  return {.value = static_cast<std::int64_t>(read.size()), .bytes = {read.begin(), read.end()}};
}

EventResult Instrument::Sleep(std::chrono::nanoseconds duration) {
  const Event event = SleepEvent(duration);
  const Fault fault = Judge(event);
  if (!TakesItsCourse(fault)) {
    return InsteadOf(fault);
  }
  if (IsTimed()) {
    const std::chrono::nanoseconds begin = clock_.Now();
    clock_.Advance(Cause::kSleep, duration);
    if (timing_.observer != nullptr) {
      timing_.observer->OnSleep({begin, clock_.Now()});
    }
  } else {
    for (const auto& module : modules_) {
      module->AdvanceTime(duration);
    }
    estimate_ += std::min(duration, kNever / 2 - estimate_);  // the work of chips comes on top
  }
  log_.Record(event);
  return {};
}

DBusResult Instrument::GetModuleLocations() {
  const Event event = DBusEvent("GetModuleLocations");
  const Fault fault = Judge(event);
  ObserveDBus(event, fault);
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
  log_.Record(event, text.empty() ? "none" : text);
  return result;
}

DBusResult Instrument::AnswerName(const char* method, unsigned slot, const std::string& name) {
  const Event event = DBusEvent(method, slot);
  const Fault fault = Judge(event);
  ObserveDBus(event, fault);
  if (!TakesItsCourse(fault)) {
    return InsteadOfCall(fault);
  }
  DBusResult result{.text = TakesAnswer(fault) ? fault.text : name};
  log_.Record(event, Quote(result.text));
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
