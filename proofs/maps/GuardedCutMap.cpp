// Cuts an update by `tarnwickctl` of every kind of module at each of its events, and updates the
// module again.

#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/GuardedMap.h"

namespace maps {
namespace {

/// Who ends at the event.
struct Cut {
  const char* what;    ///< for a reader
  const char* action;  ///< of the instrument
};

constexpr Cut kProcess = {"process killed", "kill"};
constexpr Cut kAll = {"all killed", "kill-session"};
constexpr Cut kPower = {"power fails", "kill-all"};

std::string KillRule(const Event& event, const Cut& cut) {
  return event.kind + "#" + std::to_string(event.ordinal) + ":" + cut.action;
}

/// @param cuts  those of the prelude
bool WasCut(const std::vector<std::string>& log, const Cut& cut, std::ptrdiff_t cuts) {
  return std::count_if(log.begin(), log.end(), [&](const std::string& line) {
           return line.ends_with(std::string(" = ") + cut.action);
         }) == cuts + 1;
}

/// @param log  gets that of the update that was cut
GuardedRun LastUpdate(const GuardedScenario& scenario,
                      const Event& event,
                      const Cut& cut,
                      std::vector<std::string>& log) {
  const std::string rule = KillRule(event, cut);
  if (std::string(cut.action) == kPower.action) {
    GuardedPowerFailure failure = ObserveGuardedPowerFailure(scenario, rule);
    log = std::move(failure.cut.log);
    return std::move(failure.second);
  }
  GuardedRun both = ObserveGuarded(scenario, "", {rule}, 2);
  log = both.log;
  return both;
}

void Carry(const GuardedScenario& scenario,
           const GuardedBase& base,
           const Event& event,
           const Cut& cut,
           MapRun& run) {
  run.fault = FaultOf(scenario, event.step, event.label, cut.what);
  run.how = KillRule(event, cut);
  std::vector<std::string> log;
  const GuardedRun last = LastUpdate(scenario, event, cut, log);
  run.outcome = OutcomeOf(base, last);
  run.violations = ViolationsAfterCut(scenario, last);
  const bool isCutBefore = std::string(cut.action) == kProcess.action;
  const auto before =
      std::count_if(scenario.rules.begin(), scenario.rules.end(), [&](const std::string& rule) {
        return isCutBefore && rule.ends_with(":kill");
      });
  if (!WasCut(log, cut, before)) {
    run.violations.emplace_back("the update was not cut there");
  }
}

std::vector<Job> CutsWith(const GuardedScenario& scenario, const Base& base) {
  std::vector<Job> jobs;
  for (const Event& event : base->events) {
    for (const Cut& cut : {kProcess, kAll, kPower}) {
      jobs.emplace_back(
          [scenario, base, event, cut](MapRun& run) { Carry(scenario, *base, event, cut, run); });
    }
  }
  return jobs;
}

std::vector<Part> AllParts() { return GuardedParts(CutsWith); }

}  // namespace
}  // namespace maps

int main(int argc, char** argv) {
  return maps::Main(
      {argv, argv + argc}, {maps::kGuardedTitles, maps::AllParts}, std::cout, std::cerr);
}
