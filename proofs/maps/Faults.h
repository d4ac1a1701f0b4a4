#pragma once

#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Scenario.h"

namespace maps {

/// Something that goes wrong in an update.
struct MappedFault {
  std::string step;
  std::string event;
  std::string what;
  std::string keys;                ///< for the module: ",busy-after=1"
  std::vector<std::string> rules;  ///< for events
  bool lasts = false;              ///< it hits later accesses too
};

/// What this event can suffer.
std::vector<MappedFault> FaultsOf(const Event& event);

/// What can be wrong from the start: lines that never change.
std::vector<MappedFault> StuckLines(const Scenario& scenario);

}  // namespace maps
