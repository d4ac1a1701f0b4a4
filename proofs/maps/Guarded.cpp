#include "proofs/maps/Guarded.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string_view>
#include <utility>

namespace maps {

namespace {

using program_test::Bytes;
using program_test::VirtualInstrument;

constexpr const char* kBegin = "---- update";  // printed before each update
constexpr const char* kEnd = "---- exit ";     // after it, with its exit code
constexpr const char* kBusy = "---- lock is held";

constexpr const char* kStateFolder = "ctl";
constexpr const char* kLock = "lock";

constexpr const char* kUnlocked = "00:0f";
constexpr const char* kLocked = "24:0f";
constexpr const char* kMicronRegisters = "00:00";

constexpr std::ptrdiff_t kHalf = 70'000;  // bytes of the image: its second sector has begun

// What the starts are called.
constexpr const char* kOlderImage = "older image";
constexpr const char* kHalfImage = "half image";
constexpr const char* kImageHeld = "the image";
constexpr const char* kBlank = "blank flash";
constexpr const char* kUnstamped = "unstamped image";
constexpr const char* kInReset = "FPGA in reset";

/// The program under test; the environment can name another build.
std::string Companion() {
  const char* const named = std::getenv("TARNWICKCTL_BINARY");
  return named != nullptr ? named : TARNWICKCTL_BINARY_PATH;
}

bool IsPyx(const Scenario& module) { return module.target.starts_with("pyx"); }
bool IsLockable(const Scenario& module) { return module.chip == "macronix"; }

GuardedScenario Plain(const Scenario& module, const std::string& start) {
  return {.module = module,
          .start = start,
          .registers = IsLockable(module) ? kLocked : kMicronRegisters,
          .prelude = "",
          .rules = {},
          .shown = start == kBlank ? "loaded=none" : "loaded=current"};
}

GuardedScenario After(const Scenario& module,
                      const std::string& start,
                      std::string prelude,
                      const std::string& shown) {
  GuardedScenario scenario = Plain(module, start);
  scenario.prelude = std::move(prelude);
  scenario.shown = shown;
  return scenario;
}

/// A module that `tarnwick` alone has left when it was killed.
GuardedScenario AfterCut(const Scenario& module,
                         const std::string& start,
                         const std::string& image,
                         std::vector<std::string> rules,
                         const std::string& shown) {
  GuardedScenario scenario = After(module, start, UpdateCommand(module, "../" + image), shown);
  scenario.rules = std::move(rules);
  return scenario;
}

GuardedScenario InReset(const Scenario& module) {
  if (module.target == "wend") {
    return After(
        module, kInReset, "printf 0 >/sys/platform_m1/zynq_hw_reset_n/value", "loaded=none");
  }
  if (module.target == "dax") {
    // A DONE that cannot be read counts as low: the FPGA is reset and given no flash to load from.
    return AfterCut(
        module, kInReset, "image.bin", {"i2c:w 00#1:ENXIO", "spi:RDID#1:kill"}, "loaded=none");
  }
  const std::string inReset = module.target == "pyx1" ? "sleep:10 ms#1" : "sleep:5 s#1";
  return AfterCut(module, kInReset, "other.bin", {inReset + ":kill"}, "loaded=none");
}

/// How the instrument describes a module whose flash is routed to the controller.
std::string LinesOf(const Scenario& module) {
  if (module.target == "wend") {
    return "qspi_prg=1";
  }
  return module.target == "pyx2" ? "driven=0x0204" : "driven=0xec9f";
}

GuardedScenario ChipBusy(const Scenario& module) {
  // The first status read after the erase of a sector: a lockable chip's status is read three times
  // before it.
  const std::string afterErase = IsLockable(module) ? "spi:RDSR#4" : "spi:RDSR#1";
  return AfterCut(module, "chip busy", "image.bin", {afterErase + ":kill"}, "loaded=other");
}

GuardedScenario EndpointGone(const Scenario& module) {
  const std::string slot = "/sys/bus/pci/slots/" + std::to_string(module.slot);
  return After(module,
               "endpoint gone",
               "read -r pci <" + slot + "/address; printf 1 >/sys/bus/pci/devices/$pci.0/remove",
               "pcie=absent");
}

GuardedScenario SelectorOnSpiFifo(const Scenario& module) {
  const std::string selector = module.slot == 4 ? "slotA" : "slotB";
  return After(module,
               "selector on SPIFIFO",
               "printf SPIFIFO >/sys/platform/module_selector/" + selector,
               "selector=SPIFIFO");
}

std::vector<GuardedScenario> OtherStartsOf(const Scenario& module) {
  Scenario unstamped = module;
  unstamped.hasStamp = false;
  std::vector<GuardedScenario> starts = {
      Plain(module, kHalfImage),
      Plain(module, kImageHeld),
      Plain(module, kBlank),
      Plain(unstamped, kUnstamped),
      InReset(module),
      AfterCut(module, "lines driven", "image.bin", {"spi:SE#1:kill"}, LinesOf(module)),
      ChipBusy(module)};
  if (IsPyx(module)) {
    starts.push_back(EndpointGone(module));
    starts.push_back(SelectorOnSpiFifo(module));
  }
  if (IsLockable(module)) {
    starts.push_back(Plain(module, "chip unlocked"));
    starts.back().registers = kUnlocked;
    starts.back().shown = std::string("registers=") + kUnlocked;
  }
  return starts;
}

/// What the flash holds when the prelude begins.
Bytes FlashAtStart(const GuardedScenario& scenario) {
  const Scenario& module = scenario.module;
  const bool writesOld = scenario.start == kInReset && IsPyx(module);
  if (scenario.start == kBlank || writesOld) {
    return {};
  }
  if (scenario.start == kImageHeld) {
    return NewImage(module);
  }
  Bytes flash = OldImage(module);
  if (scenario.start == kHalfImage) {
    const Bytes image = NewImage(module);
    flash.assign(image.begin(), image.begin() + kHalf);
  }
  return flash;
}

void SupplyFiles(const GuardedScenario& scenario, const VirtualInstrument& instrument) {
  instrument.WriteFile("flash.bin", FlashAtStart(scenario));
  instrument.WriteFile("image.bin", NewImage(scenario.module));
  instrument.WriteFile("other.bin", OldImage(scenario.module));
  std::filesystem::create_directory(instrument.File("pre"));
}

/// The shell command of the prelude and of several updates. Each update is a session of its own.
std::string Command(const GuardedScenario& scenario, unsigned updates) {
  std::string command = "say() { echo \"$1\"; echo \"$1\" >&2; }; ";
  if (!scenario.prelude.empty()) {
    command += "(cd pre; " + scenario.prelude + ") >pre/out 2>&1; ";
  }
  for (unsigned i = 0; i < updates; ++i) {
    // The chip finishes what it does before the next update starts, which waits for the processes of
    // the one before it.
    command += i == 0 ? "" : "sleep 2; ";
    command += std::string("say '") + kBegin + "'; setsid -w \"$TARNWICKCTL\" update " +
               scenario.module.target + " " + std::to_string(scenario.module.slot) +
               " image.bin --program \"$TARNWICK\" --wait 60 --state " + kStateFolder + "; say \"" +
               kEnd + "$?\"; ";
  }
  if (updates > 0) {
    // Every process of an update inherits its lock.
    const std::string lock = std::string(kStateFolder) + "/" + kLock;
    command += "[ ! -e " + lock + " ] || flock -n " + lock + " true || say '" + kBusy + "'; ";
  }
  return command + "exit 0";
}

std::string StdoutLine(const std::string& text) { return "stdout \"" + text; }

/// The part of a text between two positions that Find() returned.
struct Part {
  std::size_t begin = 0;
  std::size_t end = 0;
};

/// @return the parts between kBegin and kEnd, and the exit codes behind them
std::vector<std::pair<Part, std::string>> PartsOf(const std::string& text) {
  const std::string begin = std::string(kBegin) + "\n";
  const std::string end = kEnd;
  std::vector<std::pair<Part, std::string>> parts;
  std::size_t at = text.find(begin);
  while (at != std::string::npos) {
    const std::size_t first = at + begin.size();
    const std::size_t last = text.find(end, first);
    if (last == std::string::npos) {
      break;
    }
    const std::size_t code = last + end.size();
    parts.push_back({{first, last}, text.substr(code, text.find('\n', code) - code)});
    at = text.find(begin, last);
  }
  return parts;
}

std::vector<GuardedUpdate> UpdatesOf(const Observation& seen) {
  const auto out = PartsOf(seen.out);
  const auto err = PartsOf(seen.err);
  std::vector<GuardedUpdate> updates;
  auto from = seen.log.begin();
  for (std::size_t i = 0; i < out.size() && i < err.size(); ++i) {
    const auto starts = [](const std::string& text) {
      return
          [line = StdoutLine(text)](const std::string& event) { return event.starts_with(line); };
    };
    const auto begin = std::find_if(from, seen.log.end(), starts(kBegin));
    from = std::find_if(begin, seen.log.end(), starts(kEnd));
    const auto& [outPart, code] = out[i];
    const auto& [errPart, same] = err[i];
    updates.push_back({.out = seen.out.substr(outPart.begin, outPart.end - outPart.begin),
                       .err = seen.err.substr(errPart.begin, errPart.end - errPart.begin),
                       .exit = code,
                       .log = {begin, from}});
  }
  return updates;
}

/// The files in the working directory that no run has been given, and processes.
std::vector<std::string> LeftBehind(const VirtualInstrument& instrument, const std::string& out) {
  namespace fs = std::filesystem;
  std::vector<std::string> left;
  for (const auto& entry : fs::directory_iterator(instrument.File(""))) {
    const std::string name = entry.path().filename().string();
    constexpr std::string_view kGiven[] = {
        "flash.bin", "image.bin", "other.bin", "state", "pre", kStateFolder};
    if (std::find(std::begin(kGiven), std::end(kGiven), name) == std::end(kGiven)) {
      left.push_back(name);
    }
  }
  if (fs::exists(instrument.File(kStateFolder))) {
    for (const auto& entry : fs::directory_iterator(instrument.File(kStateFolder))) {
      const std::string name = entry.path().filename().string();
      if (name != kLock) {
        left.push_back(std::string(kStateFolder) + "/" + name);
      }
    }
  }
  if (out.find(kBusy) != std::string::npos) {
    left.emplace_back("a process that holds the lock");
  }
  std::sort(left.begin(), left.end());
  return left;
}

GuardedRun Run(VirtualInstrument& instrument,
               const GuardedScenario& scenario,
               const std::string& keys,
               const std::vector<std::string>& faults,
               unsigned updates) {
  instrument.Option({"--file-events"});
  instrument.Environment("TARNWICKCTL", Companion());
  const Observation seen = RunOn(instrument,
                                 scenario.module,
                                 ",registers=" + scenario.registers + keys,
                                 faults,
                                 Command(scenario, updates));
  const Bytes flash = instrument.ReadFile("flash.bin");
  return {.updates = UpdatesOf(seen),
          .log = seen.log,
          .err = seen.err,
          .state = seen.state,
          .flash = seen.flash,
          .fingerprint = std::hash<std::string_view>()(
              {reinterpret_cast<const char*>(flash.data()), flash.size()}),
          .left = LeftBehind(instrument, seen.out)};
}

/// "24:0f" in "done=1 registers=24:0f loaded=current".
std::string RegistersIn(const std::string& state) {
  const std::string name = "registers=";
  const std::size_t at = state.find(name) + name.size();
  return state.substr(at, state.find(' ', at) - at);
}

std::vector<std::string> Joined(std::vector<std::string> rules,
                                const std::vector<std::string>& more) {
  rules.insert(rules.end(), more.begin(), more.end());
  return rules;
}

}  // namespace

std::vector<GuardedScenario> OlderImages() {
  std::vector<GuardedScenario> all;
  for (const Scenario& module : AllScenarios()) {
    all.push_back(Plain(module, kOlderImage));
  }
  return all;
}

std::vector<GuardedScenario> OtherStarts() {
  std::vector<GuardedScenario> all;
  for (const Scenario& module : AllScenarios()) {
    for (GuardedScenario& scenario : OtherStartsOf(module)) {
      all.push_back(std::move(scenario));
    }
  }
  return all;
}

std::string MarkOf(const GuardedScenario& scenario) {
  return std::string(kStateFolder) + "/slot-" + std::to_string(scenario.module.slot) +
         ".unfinished";
}

GuardedRun ObserveGuarded(const GuardedScenario& scenario,
                          const std::string& keys,
                          const std::vector<std::string>& faults,
                          unsigned updates) {
  VirtualInstrument instrument;
  SupplyFiles(scenario, instrument);
  return Run(instrument, scenario, keys, Joined(scenario.rules, faults), updates);
}

GuardedPowerFailure ObserveGuardedPowerFailure(const GuardedScenario& scenario,
                                               const std::string& rule) {
  VirtualInstrument before;
  SupplyFiles(scenario, before);
  GuardedPowerFailure failure{.cut = Run(before, scenario, "", Joined(scenario.rules, {rule}), 1),
                              .second = {}};
  GuardedScenario next = scenario;
  next.prelude.clear();
  next.registers = RegistersIn(failure.cut.state);
  VirtualInstrument after;
  std::filesystem::copy(before.File(""), after.File(""), std::filesystem::copy_options::recursive);
  failure.second = Run(after, next, "", {}, 1);
  return failure;
}

}  // namespace maps
