#pragma once

#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Scenario.h"

namespace maps {

/// A fault of an update.
struct MappedFault {
  std::string step;
  std::string event;
  std::string what;
  std::string keys;                ///< of the module that has it: ",busy-after=1"
  std::vector<std::string> rules;  ///< for the events that have it
  bool lasts = false;              ///< later accesses have it too
  bool isOfFile = false;           ///< of an ordinary file
};

/// The faults that this event can have.
std::vector<MappedFault> FaultsOf(const Event& event);

/// Faults that are there from the start: lines that never change.
std::vector<MappedFault> StuckLines(const Scenario& scenario);

}  // namespace maps
