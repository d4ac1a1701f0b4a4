// Kills an update of every kind of module at each of its events, and updates the module again.

#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/MakeMap.h"
#include "proofs/maps/Scenario.h"
#include "proofs/maps/Verdict.h"

namespace maps {
namespace {

constexpr const char* kMark = "----";  // printed between two updates

struct Cut {
  Scenario scenario;
  Event event;
  bool powerFails = false;  // else only the process ends
};

/// @param action  "kill" or "kill-all"
std::string KillRule(const Event& event, const std::string& action) {
  return event.kind + "#" + std::to_string(event.ordinal) + ":" + action;
}

/// The shell command of several updates, with a mark before each but the first.
std::string Updates(const Scenario& scenario, const std::vector<std::string>& images) {
  std::string command;
  for (const std::string& image : images) {
    if (!command.empty()) {
      // The chip finishes what it does before the next update starts.
      command += std::string("; sleep 2; echo ") + kMark + "; echo " + kMark + " >&2; ";
    }
    command += UpdateCommand(scenario, image);
  }
  return command;
}

/// @return the text after the last mark
std::string LastPart(const std::string& text) {
  const std::string mark = std::string(kMark) + "\n";
  const std::size_t at = text.rfind(mark);
  return at == std::string::npos ? text : text.substr(at + mark.size());
}

/// The observation of the last update alone.
Observation LastUpdate(Observation seen) {
  seen.out = LastPart(seen.out);
  seen.err = LastPart(seen.err);
  const std::string mark = std::string("stdout \"") + kMark + "\\n\"";
  const auto at = std::find(seen.log.rbegin(), seen.log.rend(), mark).base();
  seen.log.erase(seen.log.begin(), at);
  return seen;
}

bool WasCut(const Observation& seen, const Event& event, const std::string& action) {
  const std::string start = event.kind + " ";
  return std::any_of(seen.log.begin(), seen.log.end(), [&](const std::string& line) {
    return line.starts_with(start) && line.ends_with(" = " + action);
  });
}

/// Checks that writing another image and then the right one repairs a flash that is wrongly found
/// up to date.
void CheckRecovery(const Cut& cut, MapRun& run) {
  const Observation seen =
      Observe(cut.scenario,
              "",
              {KillRule(cut.event, "kill")},
              Updates(cut.scenario, {"image.bin", "image.bin", "other.bin", "image.bin"}));
  if (seen.exitCode != 0 || seen.flash != Flash::kImage) {
    run.violations.emplace_back("another image and then the right one do not repair it");
  }
}

Observation SecondUpdate(const Cut& cut, MapRun& run) {
  Observation second;
  bool wasCut = false;
  if (cut.powerFails) {
    PowerFailure failure = ObservePowerFailure(cut.scenario, KillRule(cut.event, "kill-all"));
    wasCut = WasCut(failure.cut, cut.event, "kill-all");
    second = std::move(failure.second);
  } else {
    const Observation both = Observe(cut.scenario,
                                     "",
                                     {KillRule(cut.event, "kill")},
                                     Updates(cut.scenario, {"image.bin", "image.bin"}));
    wasCut = WasCut(both, cut.event, "kill");
    second = LastUpdate(both);
  }
  if (!wasCut) {
    run.violations.emplace_back("the update was not cut there");
  }
  return second;
}

void Carry(const Cut& cut, MapRun& run) {
  run.fault = {cut.scenario.target,
               cut.scenario.chip,
               cut.event.step,
               cut.event.label,
               cut.powerFails ? "power fails" : "killed"};
  const Observation second = SecondUpdate(cut, run);
  const Ending ending = EndingOf(second.out, second.err, second.log.back());
  run.outcome = OutcomeOf(ending, second);
  const std::vector<std::string> violations = ViolationsOf(cut.scenario, {}, second);
  run.violations.insert(run.violations.end(), violations.begin(), violations.end());
  if (!cut.powerFails && ending.exit == "11" && second.flash != Flash::kImage) {
    CheckRecovery(cut, run);
  }
}

std::vector<Job> AllJobs() {
  std::vector<Job> jobs;
  for (const Scenario& scenario : AllScenarios()) {
    for (const Event& event : EventsOf(Observe(scenario, "", {}).log)) {
      for (const bool powerFails : {false, true}) {
        jobs.emplace_back(
            [cut = Cut{scenario, event, powerFails}](MapRun& run) { Carry(cut, run); });
      }
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
