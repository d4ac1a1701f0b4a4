#pragma once

#include <string>
#include <vector>

#include "tests/e2e/VirtualInstrument.h"

namespace maps {

/// An update of one module whose flash holds an older image.
struct Scenario {
  std::string target;
  unsigned slot;
  std::string chip;
};

/// Every target with every chip.
std::vector<Scenario> AllScenarios();

/// The image to be written, a little less than two sectors.
program_test::Bytes NewImage(const Scenario& scenario);

/// Another one, of another date, stamp and length.
program_test::Bytes OldImage(const Scenario& scenario);

/// What the flash holds when a run is over.
enum class Flash {
  kOld,       ///< what it held before, byte for byte
  kImage,     ///< the image
  kDamaged,   ///< neither
  kLooksNew,  ///< not the image, but its head is: the next run finds it up to date
};

/// What was seen of a run from outside.
struct Observation {
  std::string out;
  std::string err;
  int exitCode = -1;  ///< as a shell shows it
  std::vector<std::string> log;
  std::string state;  ///< of the module, as the instrument describes it
  Flash flash = Flash::kOld;
};

/// Updates the module on a fresh instrument.
/// @param keys     what is broken about the module, "" or ",KEY=VALUE..."
/// @param faults   rules for events
/// @param command  for a shell, "" for a single update; "$TARNWICK" is the program, "image.bin" and
///                 "other.bin" lie in the working directory
Observation Observe(const Scenario& scenario,
                    const std::string& keys,
                    const std::vector<std::string>& faults,
                    const std::string& command = "");

/// The words of an update, for a shell.
std::string UpdateCommand(const Scenario& scenario, const std::string& image);

/// What was seen of an update that a power failure cut short, and of the one after it.
struct PowerFailure {
  Observation cut;
  Observation second;
};

/// The flash and the working directory outlive a power failure, nothing else does.
/// @param rule  kills the program
PowerFailure ObservePowerFailure(const Scenario& scenario, const std::string& rule);

}  // namespace maps
