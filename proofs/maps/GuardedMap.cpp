#include "proofs/maps/GuardedMap.h"

#include <cstddef>
#include <utility>

namespace maps {

namespace {

constexpr std::size_t kSampleOfOtherStarts = 12;

}  // namespace

std::vector<std::string> FaultOf(const GuardedScenario& scenario,
                                 const std::string& step,
                                 const std::string& event,
                                 const std::string& what) {
  return {scenario.module.target, scenario.module.chip, scenario.start, step, event, what};
}

Job Undisturbed(const GuardedScenario& scenario, std::shared_ptr<const GuardedBase> base) {
  return [scenario, base = std::move(base)](MapRun& run) {
    run.fault = FaultOf(scenario, "all along", "none", "nothing");
    run.outcome = OutcomeOf(*base, base->undisturbed);
    run.violations = ViolationsOfFault(scenario, *base, {}, base->undisturbed);
  };
}

std::vector<Part> GuardedParts(std::vector<Job> (*jobsOf)(const GuardedScenario& scenario)) {
  std::vector<Part> parts;
  const auto add = [&](const std::vector<GuardedScenario>& scenarios, std::size_t every) {
    for (const GuardedScenario& scenario : scenarios) {
      parts.push_back({[scenario, jobsOf] { return jobsOf(scenario); }, every});
    }
  };
  add(OlderImages(), 1);
  add(OtherStarts(), kSampleOfOtherStarts);
  return parts;
}

}  // namespace maps
