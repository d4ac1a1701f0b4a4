#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/boards/ModuleOptions.h"
#include "simulator/instrument/FaultRules.h"

namespace orvane {

/// A command line that says nothing that can be done; the text is one line for the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line of orvane-sim.
struct Options {
  bool help = false;
  bool fast = false;
  std::chrono::milliseconds clockStep{0};
  std::string logFile;    // empty: no log
  std::string stateFile;  // empty: none
  std::vector<ModuleOptions> modules;
  std::vector<FaultRule> faults;
  std::optional<std::string> bufsiz = "4096";  // contents of the parameter file; none: no file
  bool withBus = true;
  bool withInventory = true;
  bool withResources = true;
  bool withSelector = true;
  std::vector<std::string> command;

  /// The limit of the spidev driver, in bytes: what `bufsiz` says when it is a positive number,
  /// else the driver's default.
  std::uint64_t SpiLimit() const;
};

/// @param words  without the program's name
/// @throw UsageError
Options ParseOptions(std::span<const char* const> words);

/// What --help prints.
std::string_view HelpText();

}  // namespace orvane
