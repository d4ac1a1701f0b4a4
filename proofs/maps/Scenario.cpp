#include "proofs/maps/Scenario.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <tuple>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"

namespace maps {

namespace {

using program_test::Bytes;
using program_test::VirtualInstrument;

constexpr std::size_t kNewBytes = 131'000;  // 512 pages, the last one not full
constexpr std::size_t kOldBytes = 200'000;
constexpr std::uint32_t kNewSeed = 2;
constexpr std::uint32_t kOldSeed = 1;

// Each reading of the clock advances it by this much, so that the program soon gives up a chip that
// stays busy.
constexpr const char* kClockStepMilliseconds = "500";

// No run that ends has so many events.
constexpr const char* kEndOfEndlessRuns = "any#2000000:kill-all";

bool HasBootHeader(const Scenario& scenario) {
  return scenario.target == "wend" || scenario.target == "pyx2";
}

Bytes MakeImage(const Scenario& scenario, int year, std::size_t bytes, std::uint32_t seed) {
  if (HasBootHeader(scenario)) {
    const std::string date = std::to_string(year) + "-05-06 07:08:09";
    return orvane::MakeZynqImage(
        {.buildDate = scenario.hasStamp ? date : "", .bytes = bytes, .seed = seed});
  }
  const std::uint32_t stamp = orvane::PackStamp({year, 5, 6, 7, 8, 9});
  return orvane::MakeBitstream(
      {.bytes = bytes,
       .userAccess = scenario.hasStamp ? std::optional(stamp) : std::nullopt,
       .seed = seed});
}

/// Makes each image once: a map has many thousands of runs.
Bytes Image(const Scenario& scenario, int year, std::size_t bytes, std::uint32_t seed) {
  static std::mutex mutex;
  static std::map<std::tuple<bool, bool, std::uint32_t>, Bytes> images;
  const std::lock_guard lock(mutex);
  Bytes& image = images[{HasBootHeader(scenario), scenario.hasStamp, seed}];
  if (image.empty()) {
    image = MakeImage(scenario, year, bytes, seed);
  }
  return image;
}

/// The first bytes of an image. They contain the stamp or build date that an update compares.
constexpr std::ptrdiff_t kHeadBytes = 256;

Flash Classify(const Scenario& scenario, const Bytes& flash) {
  const Bytes old = OldImage(scenario);
  const auto behindOld = flash.begin() + static_cast<std::ptrdiff_t>(old.size());
  const auto isErased = [](std::uint8_t byte) { return byte == 0xFF; };
  if (std::equal(old.begin(), old.end(), flash.begin()) &&
      std::all_of(behindOld, flash.end(), isErased)) {
    return Flash::kOld;
  }
  const Bytes image = NewImage(scenario);
  if (std::equal(image.begin(), image.end(), flash.begin())) {
    return Flash::kImage;
  }
  return std::equal(image.begin(), image.begin() + kHeadBytes, flash.begin()) ? Flash::kLooksNew
                                                                              : Flash::kDamaged;
}

/// Takes the instrument's report off the end of what a run printed: the rule that ends endless runs
/// hits nothing in any other run. The report on a rule of the map stays, it comes first.
void CutReport(program_test::Outcome& outcome) {
  const std::string report = std::string("orvane-sim: fault rule '") + kEndOfEndlessRuns +
                             "' never hit anything; COMMAND ended with ";
  const std::size_t at = outcome.err.rfind(report);
  if (at != std::string::npos) {
    outcome.exitCode = std::stoi(outcome.err.substr(at + report.size()));
    outcome.err.erase(at);
  }
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// "1 done=1 qspi_prg=0 loaded=current\n" without the slot.
std::string StateOf(const VirtualInstrument& instrument) {
  const Bytes file = instrument.ReadFile("state");
  const std::string line(file.begin(), std::find(file.begin(), file.end(), '\n'));
  return line.substr(line.find(' ') + 1);
}

void SupplyFiles(const Scenario& scenario, const VirtualInstrument& instrument) {
  instrument.WriteFile("flash.bin", OldImage(scenario));
  instrument.WriteFile("image.bin", NewImage(scenario));
  instrument.WriteFile("other.bin", OldImage(scenario));
}

}  // namespace

std::vector<Scenario> AllScenarios() {
  std::vector<Scenario> all;
  for (const auto& [target, slot] :
       {std::pair{"wend", 1U}, {"dax", 2U}, {"pyx1", 4U}, {"pyx2", 5U}}) {
    for (const char* const chip : {"micron", "macronix"}) {
      all.push_back({target, slot, chip});
    }
  }
  return all;
}

Bytes NewImage(const Scenario& scenario) { return Image(scenario, 2024, kNewBytes, kNewSeed); }

Bytes OldImage(const Scenario& scenario) { return Image(scenario, 2023, kOldBytes, kOldSeed); }

std::string UpdateCommand(const Scenario& scenario, const std::string& image) {
  return "\"$TARNWICK\" " + scenario.target + " -sf " + std::to_string(scenario.slot) + " " + image;
}

Observation RunOn(VirtualInstrument& instrument,
                  const Scenario& scenario,
                  const std::string& keys,
                  const std::vector<std::string>& faults,
                  const std::string& command) {
  const std::string slot = std::to_string(scenario.slot);
  instrument.Option({"--clock-step",
                     kClockStepMilliseconds,
                     "--state",
                     instrument.File("state").string(),
                     "--module",
                     scenario.target + "@" + slot + ",chip=" + scenario.chip +
                         ",flash=" + instrument.File("flash.bin").string() + keys});
  for (const std::string& fault : faults) {
    instrument.Option({"--fault", fault});
  }
  instrument.Option({"--fault", kEndOfEndlessRuns});
  program_test::Outcome outcome = command.empty()
                                      ? instrument.Run({scenario.target, "-sf", slot, "image.bin"})
                                      : instrument.RunShell(command);
  CutReport(outcome);
  return {.out = outcome.out,
          .err = outcome.err,
          .exitCode = outcome.exitCode,
          .log = Lines(outcome.log),
          .state = StateOf(instrument),
          .flash = Classify(scenario, instrument.ReadFile("flash.bin"))};
}

Observation Observe(const Scenario& scenario,
                    const std::string& keys,
                    const std::vector<std::string>& faults,
                    const std::string& command) {
  VirtualInstrument instrument;
  SupplyFiles(scenario, instrument);
  return RunOn(instrument, scenario, keys, faults, command);
}

PowerFailure ObservePowerFailure(const Scenario& scenario, const std::string& rule) {
  VirtualInstrument before;
  SupplyFiles(scenario, before);
  PowerFailure failure{.cut = RunOn(before, scenario, "", {rule}, ""), .second = {}};
  VirtualInstrument after;
  std::filesystem::copy(before.File(""), after.File(""), std::filesystem::copy_options::recursive);
  failure.second = RunOn(after, scenario, "", {}, "");
  return failure;
}

}  // namespace maps
