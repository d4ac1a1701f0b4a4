#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Faults.h"
#include "proofs/maps/Guarded.h"

namespace maps {

/// A module before the update, and the update without a fault.
struct GuardedBase {
  std::string state;
  std::size_t fingerprint = 0;
  GuardedRun undisturbed;
  std::vector<Event> events;  ///< of that update
};

GuardedBase BaseOf(const GuardedScenario& scenario);

/// What a run showed, for a reader: exit, last line, flash, afterwards.
std::vector<std::string> OutcomeOf(const GuardedBase& base, const GuardedRun& run);

/// The rules that an update with one fault broke, a line each; empty for none.
std::vector<std::string> ViolationsOfFault(const GuardedScenario& scenario,
                                           const GuardedBase& base,
                                           const MappedFault& fault,
                                           const GuardedRun& run);

/// The same for the last update of a run, which nothing disturbs. One before it was cut.
std::vector<std::string> ViolationsAfterCut(const GuardedScenario& scenario, const GuardedRun& run);

}  // namespace maps
