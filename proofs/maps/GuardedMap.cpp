#include "proofs/maps/GuardedMap.h"

#include <cstddef>
#include <utility>

namespace maps {

namespace {

constexpr std::size_t kSampleOfOtherStarts = 12;

std::vector<Job> WithViolationsOf(const GuardedScenario& scenario,
                                  const Base& base,
                                  std::vector<Job> jobs) {
  std::vector<std::string> broken = ViolationsOfFault(scenario, *base, {}, base->undisturbed);
  if (base->state.find(scenario.shown) == std::string::npos) {
    broken.push_back("the module is not '" + scenario.start + "': " + base->state);
  }
  if (broken.empty()) {
    return jobs;
  }
  for (std::string& violation : broken) {
    violation.insert(0, "without a fault: ");
  }
  for (Job& job : jobs) {
    job = [job = std::move(job), broken](MapRun& run) {
      job(run);
      run.violations.insert(run.violations.end(), broken.begin(), broken.end());
    };
  }
  return jobs;
}

}  // namespace

std::vector<std::string> FaultOf(const GuardedScenario& scenario,
                                 const std::string& step,
                                 const std::string& event,
                                 const std::string& what) {
  return {scenario.module.target, scenario.module.chip, scenario.start, step, event, what};
}

std::vector<Part> GuardedParts(std::vector<Job> (*jobsOf)(const GuardedScenario& scenario,
                                                          const Base& base)) {
  std::vector<Part> parts;
  const auto add = [&](const std::vector<GuardedScenario>& scenarios, std::size_t every) {
    for (const GuardedScenario& scenario : scenarios) {
      parts.push_back({[scenario, jobsOf] {
                         const auto base = std::make_shared<const GuardedBase>(BaseOf(scenario));
                         return WithViolationsOf(scenario, base, jobsOf(scenario, base));
                       },
                       every});
    }
  };
  add(OlderImages(), 1);
  add(OtherStarts(), kSampleOfOtherStarts);
  return parts;
}

}  // namespace maps
