// Updates every kind of module by `tarnwickctl` with every fault that each event can have.

#include <iostream>
#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Faults.h"
#include "proofs/maps/GuardedMap.h"

namespace maps {
namespace {

void Carry(const GuardedScenario& scenario,
           const GuardedBase& base,
           const MappedFault& fault,
           MapRun& run) {
  run.fault = FaultOf(scenario, fault.step, fault.event, fault.what);
  run.how = fault.rules.empty() ? fault.keys : fault.rules.front();
  const GuardedRun seen = ObserveGuarded(scenario, fault.keys, fault.rules, 1);
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
