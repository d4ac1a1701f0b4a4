#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "proofs/maps/Scenario.h"

namespace maps {

/// A module before an update by `tarnwickctl`.
struct GuardedScenario {
  Scenario module;
  std::string start;      ///< how the module is: "half image"
  std::string registers;  ///< of its chip, a key of the module: "24:0f"
  std::string prelude;    ///< a shell command on the instrument that brings the module there, or ""
  std::vector<std::string> rules;  ///< for events of the prelude
  std::string shown;  ///< how the instrument describes the module then, a part of it: "pcie=absent"
};

/// A module that holds an older image and needs nothing else, for every target with every chip.
std::vector<GuardedScenario> OlderImages();

/// Every other start, for every target and chip that can have it.
std::vector<GuardedScenario> OtherStarts();

/// One update of a run.
struct GuardedUpdate {
  std::string out;
  std::string err;
  std::string exit;              ///< the exit code, as a shell shows it
  std::vector<std::string> log;  ///< its events, and what other processes did meanwhile
};

/// What a run of several updates did, as seen from outside.
struct GuardedRun {
  std::vector<GuardedUpdate> updates;  ///< those that have ended, also by a signal
  std::vector<std::string> log;        ///< of the whole run
  std::string err;                     ///< likewise
  std::string state;                   ///< of the module, as the instrument describes it
  Flash flash = Flash::kOld;
  std::size_t fingerprint = 0;    ///< of what the flash holds
  std::vector<std::string> left;  ///< what the updates have left: files but `lock`, processes
};

/// The file that an unfinished update leaves, as GuardedRun::left has it.
std::string MarkOf(const GuardedScenario& scenario);

/// Updates the module on a fresh instrument, several times one after the other.
/// @param keys    what is broken about the module, "" or ",KEY=VALUE..."
/// @param faults  rules for events, behind those of the prelude
/// @param updates  how many; 0: the prelude only
GuardedRun ObserveGuarded(const GuardedScenario& scenario,
                          const std::string& keys,
                          const std::vector<std::string>& faults,
                          unsigned updates);

/// An update that a power failure cuts short, and the one after it. Only the flash, the chip's registers
/// and the files are kept over it.
/// @param rule  with kill-all
struct GuardedPowerFailure {
  GuardedRun cut;
  GuardedRun second;
};
GuardedPowerFailure ObserveGuardedPowerFailure(const GuardedScenario& scenario,
                                               const std::string& rule);

}  // namespace maps
