// Updates every kind of module with every fault that each event of an update can have.

#include <iostream>
#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Faults.h"
#include "proofs/maps/MakeMap.h"
#include "proofs/maps/Scenario.h"
#include "proofs/maps/Verdict.h"

namespace maps {
namespace {

void Carry(const Scenario& scenario, const MappedFault& fault, MapRun& run) {
  run.fault = {scenario.target, scenario.chip, fault.step, fault.event, fault.what};
  const Observation seen = Observe(scenario, fault.keys, fault.rules);
  const Ending ending = EndingOf(seen.out, seen.err, seen.log.back());
  run.outcome = OutcomeOf(ending, seen);
  run.violations = ViolationsOf(scenario, fault, seen);
  if (ending.exit == "11" && seen.flash != Flash::kOld) {
    run.violations.emplace_back("the flash was called up to date, but has been changed");
  }
}

std::vector<Job> AllJobs() {
  std::vector<Job> jobs;
  for (const Scenario& scenario : AllScenarios()) {
    const auto add = [&](const std::vector<MappedFault>& faults) {
      for (const MappedFault& fault : faults) {
        jobs.emplace_back([scenario, fault](MapRun& run) { Carry(scenario, fault, run); });
      }
    };
    add(StuckLines(scenario));
    for (const Event& event : EventsOf(Observe(scenario, "", {}).log)) {
      add(FaultsOf(event));
    }
  }
  return jobs;
}

std::vector<Part> AllParts() { return {{AllJobs}}; }

}  // namespace
}  // namespace maps

int main(int argc, char** argv) {
  return maps::Main({argv, argv + argc}, {maps::kTitles, maps::AllParts}, std::cout, std::cerr);
}
