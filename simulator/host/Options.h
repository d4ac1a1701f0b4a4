#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "simulator/boards/ModuleOptions.h"
#include "simulator/instrument/FaultRules.h"
#include "simulator/timing/Timing.h"

namespace orvane {

using cli::UsageError;

/// A key of --module that nothing on the module's board depends on.
struct KeyWithoutEffect {
  std::string text;    // "held=3:1"
  std::string module;  // "wend@1"
};

/// What is said at the end about what the run has taken.
enum class SummaryForm { kNone, kText, kJson };

/// The command line of orvane-sim.
struct Options {
  static constexpr std::chrono::microseconds kUsualMessageCost{20};
  static constexpr std::uint32_t kArmAlignment = 64;

  std::optional<std::string> answer;  // to --help or --version: print it and run nothing
  bool fast = false;
  Timing timing = Timing::kPolls;                             // that of every module
  std::chrono::microseconds messageCost = kUsualMessageCost;  // not with Timing::kPolls
  std::chrono::milliseconds clockStep{0};                     // 0 without Timing::kPolls
  std::string logFile;                                        // empty: no log
  std::string traceFile;                                      // empty: none
  std::string vcdFile;                                        // empty: none
  std::string stateFile;                                      // empty: none
  SummaryForm summary = SummaryForm::kNone;                   // not with Timing::kPolls
  std::optional<int> control;  // a descriptor of the socket for whoever drives the run
  std::vector<ModuleOptions> modules;
  std::vector<KeyWithoutEffect> keysWithoutEffect;
  std::vector<FaultRule> faults;
  bool fileEvents = false;  // whether all calls on ordinary files are events
  bool allowUnhit = false;  // neither fault rules without a hit nor these keys are reported
  std::optional<std::string> bufsiz = "4096";  // contents of the parameter file; none: no file
  std::uint32_t spiAlignment = kArmAlignment;  // of the spidev driver's transfers, in bytes
  bool i2cClients = false;                     // whether udev lists the multiplexers too
  bool withBus = true;
  bool withInventory = true;
  bool withResources = true;
  bool withSelector = true;
  std::vector<std::string> command;

  /// Whether the run takes down what the command prints.
  bool KeepsConsole() const { return !logFile.empty() || !traceFile.empty(); }
  /// The limit of the spidev driver, in bytes: what `bufsiz` says when it is a positive number,
  /// else the driver's default.
  std::uint64_t SpiLimit() const;
};

/// @param words  without the program's name
/// @throw UsageError
Options ParseOptions(std::span<const char* const> words);

}  // namespace orvane
