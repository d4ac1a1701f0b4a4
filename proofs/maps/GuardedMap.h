#pragma once

#include <memory>
#include <string>
#include <vector>

#include "proofs/maps/Guarded.h"
#include "proofs/maps/GuardedVerdict.h"
#include "proofs/maps/MakeMap.h"

namespace maps {

inline constexpr const char* kGuardedTitles = "target\tchip\tstart\tstep\tevent\twhat goes wrong";

/// MapRun::fault of a run.
std::vector<std::string> FaultOf(const GuardedScenario& scenario,
                                 const std::string& step,
                                 const std::string& event,
                                 const std::string& what);

using Base = std::shared_ptr<const GuardedBase>;

/// The runs of a map: all of them for an older image, a sample of them for every other start. The rules
/// that an update without a fault breaks are noted in each run.
/// @param jobsOf  finds those of one scenario
std::vector<Part> GuardedParts(std::vector<Job> (*jobsOf)(const GuardedScenario& scenario,
                                                          const Base& base));

}  // namespace maps
