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

/// The update in which nothing goes wrong. It has been made already.
Job Undisturbed(const GuardedScenario& scenario, std::shared_ptr<const GuardedBase> base);

/// The runs of a map: all of them for an older image, a sample of them for every other start.
/// @param jobsOf  finds those of one scenario
std::vector<Part> GuardedParts(std::vector<Job> (*jobsOf)(const GuardedScenario& scenario));

}  // namespace maps
