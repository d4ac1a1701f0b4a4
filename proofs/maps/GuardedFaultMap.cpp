// Updates every kind of module by `tarnwickctl` with every fault that each event can have.

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Faults.h"
#include "proofs/maps/GuardedMap.h"

namespace maps {
namespace {

/// Whether a module that is broken all along can be as the scenario starts: a line that is stuck keeps
/// `tarnwick` from coming so far that it can be killed there.
bool ReachesStart(const GuardedScenario& scenario,
                  const MappedFault& fault,
                  const GuardedRun& seen) {
  return fault.keys.empty() ||
         std::none_of(scenario.rules.begin(), scenario.rules.end(), [&](const std::string& rule) {
           return seen.err.find("fault rule '" + rule + "' never hit") != std::string::npos;
         });
}

void Carry(const GuardedScenario& scenario,
           const GuardedBase& base,
           const MappedFault& fault,
           MapRun& run) {
  run.fault = FaultOf(scenario, fault.step, fault.event, fault.what);
  run.how = fault.rules.empty() ? fault.keys : fault.rules.front();
  const GuardedRun seen = ObserveGuarded(scenario, fault.keys, fault.rules, 1);
  if (!ReachesStart(scenario, fault, seen)) {
    return;
  }
  run.outcome = OutcomeOf(base, seen);
  run.violations = ViolationsOfFault(scenario, base, fault, seen);
}

std::vector<Job> FaultsWith(const GuardedScenario& scenario, const Base& base) {
  std::vector<Job> jobs;
  const auto add = [&](const std::vector<MappedFault>& faults) {
    for (const MappedFault& fault : faults) {
      jobs.emplace_back(
          [scenario, base, fault](MapRun& run) { Carry(scenario, *base, fault, run); });
    }
  };
  add(StuckLines(scenario.module));
  for (const Event& event : base->events) {
    add(FaultsOf(event));
  }
  return jobs;
}

std::vector<Part> AllParts() { return GuardedParts(FaultsWith); }

}  // namespace
}  // namespace maps

int main(int argc, char** argv) {
  return maps::Main(
      {argv, argv + argc}, {maps::kGuardedTitles, maps::AllParts}, std::cout, std::cerr);
}
