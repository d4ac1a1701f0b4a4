#pragma once

#include <string>
#include <vector>

#include "proofs/swarm/Observation.h"
#include "proofs/swarm/World.h"

namespace swarm {

/// A rule that a world broke.
struct Violation {
  std::string rule;     ///< the same for the same rule
  std::string details;  ///< the step, and what was seen

  bool operator==(const Violation&) const = default;
};

/// The rules that a world broke.
///
/// A bare `tarnwick` takes no lock, so one that runs inside an `update` or a `verify` can change the
/// flash after it was read. Of such a step it is not asked what the flash holds at its end; all else is.
/// An `update` inside a bare `tarnwick` is alone until it ends, and is judged as any other. What the FPGA
/// has loaded is not asked of an `update` without --restart that finds the image in the flash, without a
/// mark, after a bare run.
std::vector<Violation> ViolationsOf(const World& world, const Record& record);

}  // namespace swarm
