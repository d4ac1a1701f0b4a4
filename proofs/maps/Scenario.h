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
  bool hasStamp = true;  ///< whether both images have a stamp or a date
};

/// Every target with every chip.
std::vector<Scenario> AllScenarios();

/// The image that is written, a little shorter than two sectors.
program_test::Bytes NewImage(const Scenario& scenario);

/// An image with another date, stamp and length.
program_test::Bytes OldImage(const Scenario& scenario);

/// What the flash holds after a run.
enum class Flash {
  kOld,       ///< what it held before, byte for byte
  kImage,     ///< the image
  kDamaged,   ///< neither
  kLooksNew,  ///< not the image, but its head is: the next run finds it up to date
};

/// What a run did, as seen from outside.
struct Observation {
  std::string out;
  std::string err;
  int exitCode = -1;  ///< as a shell shows it
  std::vector<std::string> log;
  std::string state;  ///< of the module, as the instrument describes it
  Flash flash = Flash::kOld;
};

/// Runs a command on an instrument with this module, whose flash file is "flash.bin".
/// @param keys     further keys of the module, "" or ",KEY=VALUE..."
/// @param faults   rules for events
/// @param command  for a shell, "" for a single update
Observation RunOn(program_test::VirtualInstrument& instrument,
                  const Scenario& scenario,
                  const std::string& keys,
                  const std::vector<std::string>& faults,
                  const std::string& command);

/// Updates the module on a fresh instrument.
/// @param keys     what is broken about the module, "" or ",KEY=VALUE..."
/// @param faults   rules for events
/// @param command  for a shell, "" for a single update; "$TARNWICK" is the program, "image.bin" and
///                 "other.bin" are in the working directory
Observation Observe(const Scenario& scenario,
                    const std::string& keys,
                    const std::vector<std::string>& faults,
                    const std::string& command = "");

/// The shell command of an update.
std::string UpdateCommand(const Scenario& scenario, const std::string& image);

/// An update that a power failure cut short, and the one after it.
struct PowerFailure {
  Observation cut;
  Observation second;
};

/// Only the flash and the working directory are kept over the power failure: the lines, the selector
/// and what the FPGA has loaded are those of an instrument that is switched on.
/// @param rule  with kill-all
PowerFailure ObservePowerFailure(const Scenario& scenario, const std::string& rule);

}  // namespace maps
