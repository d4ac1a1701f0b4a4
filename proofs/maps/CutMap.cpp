// Kills an update of every kind of module at each of its events, updates the module again and
// writes down what comes of it.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/MakeMap.h"
#include "proofs/maps/Scenario.h"
#include "proofs/maps/Verdict.h"

namespace maps {
namespace {

constexpr const char* kMark = "----";  // on the console, between two updates

struct Job {
  Scenario scenario;
  Event event;
  bool powerFails = false;  // else only the process is killed
};

struct Run : MapRun {
  bool isDeceived = false;    // the second update found a flash up to date that is not
  bool isNotRunning = false;  // it was right, but the FPGA or its endpoint is not in use
};

std::vector<Job> AllJobs() {
  std::vector<Job> jobs;
  for (const Scenario& scenario : AllScenarios()) {
    for (const Event& event : EventsOf(Observe(scenario, "", {}).log)) {
      jobs.push_back({scenario, event, false});
      jobs.push_back({scenario, event, true});
    }
  }
  return jobs;
}

std::string KillRule(const Event& event) {
  return event.kind + "#" + std::to_string(event.ordinal) + ":kill";
}

/// Several updates in a row, with a mark in front of each but the first.
std::string Updates(const Scenario& scenario, const std::vector<std::string>& images) {
  std::string command;
  for (const std::string& image : images) {
    if (!command.empty()) {
      // Whoever starts the next one has let the chip finish what it was at.
      command += std::string("; sleep 2; echo ") + kMark + "; echo " + kMark + " >&2; ";
    }
    command += UpdateCommand(scenario, image);
  }
  return command;
}

/// What stands behind the last mark.
std::string LastPart(const std::string& text) {
  const std::string mark = std::string(kMark) + "\n";
  const std::size_t at = text.rfind(mark);
  return at == std::string::npos ? text : text.substr(at + mark.size());
}

/// Only what was seen of the last update.
Observation LastUpdate(Observation seen) {
  seen.out = LastPart(seen.out);
  seen.err = LastPart(seen.err);
  const std::string mark = std::string("stdout \"") + kMark + "\\n\"";
  const auto at = std::find(seen.log.rbegin(), seen.log.rend(), mark).base();
  seen.log.erase(seen.log.begin(), at);
  return seen;
}

bool WasCut(const Observation& seen, const Event& event) {
  const std::string start = event.kind + " ";
  return std::any_of(seen.log.begin(), seen.log.end(), [&](const std::string& line) {
    return line.starts_with(start) && line.ends_with(" = kill");
  });
}

/// A flash that is wrongly found up to date takes the image again after another one.
void CheckRecovery(const Job& job, Run& run) {
  const Observation seen =
      Observe(job.scenario,
              "",
              {KillRule(job.event)},
              Updates(job.scenario, {"image.bin", "image.bin", "other.bin", "image.bin"}));
  if (seen.exitCode != 0 || seen.flash != Flash::kImage) {
    run.violations.emplace_back("another image and then the right one do not mend it");
  }
}

Observation SecondUpdate(const Job& job, Run& run) {
  Observation second;
  bool wasCut = false;
  if (job.powerFails) {
    PowerFailure failure = ObservePowerFailure(job.scenario, KillRule(job.event));
    wasCut = WasCut(failure.cut, job.event);
    second = std::move(failure.second);
  } else {
    const Observation both = Observe(
        job.scenario, "", {KillRule(job.event)}, Updates(job.scenario, {"image.bin", "image.bin"}));
    wasCut = WasCut(both, job.event);
    second = LastUpdate(both);
  }
  if (!wasCut) {
    run.violations.emplace_back("the update was not cut there");
  }
  return second;
}

bool IsInUse(const Observation& seen) {
  return seen.state.find("done=1") != std::string::npos &&
         seen.state.find("pcie=absent") == std::string::npos &&
         seen.state.find("pcie=present") == std::string::npos;
}

void Carry(const Job& job, Run& run) {
  run.chip = job.scenario.chip;
  run.row = {.target = job.scenario.target,
             .step = job.event.step,
             .event = job.event.label,
             .what = job.powerFails ? "power fails" : "killed",
             .outcome = {}};
  const Observation second = SecondUpdate(job, run);
  const Ending ending = EndingOf(second.out, second.err, second.log.back());
  run.flash = second.flash;
  run.row.outcome = OutcomeOf(ending, second);
  const std::vector<std::string> violations = ViolationsOf(job.scenario, {}, second);
  run.violations.insert(run.violations.end(), violations.begin(), violations.end());
  const bool isUpToDate = ending.exit == "11";
  run.isDeceived = isUpToDate && second.flash != Flash::kImage;
  run.isNotRunning = isUpToDate && !run.isDeceived && !IsInUse(second);
  if (run.isDeceived && !job.powerFails) {
    CheckRecovery(job, run);
  }
}

constexpr const char* kIntroduction = R"(# The cut map

What a second update does when the first one was cut short, for each event of an update of each kind
of module, with each chip. `scripts/cut-map` makes every run on the virtual instrument and writes
this page; a sample of the runs is compared with it whenever the tests run.

The first update of a run ends just before the event, in one of two ways. *killed*: the process is
gone at once (SIGKILL), the instrument stays as it is, lines and selector included. *power fails*:
flash and working directory are what is left; the instrument starts anew, the registers of its
flashes as delivered. Then the same update is made again with nothing wrong, and the columns say how
that one ends; the words are those of [the fault map](fault-map.md).

)";

constexpr const char* kDeceived = R"(## Up to date, and is not

The build stamp stands in the first page of the flash, which is written first. An update that is cut
short behind it leaves a flash that has the new stamp and not the whole image: the next update says
"FPGA is up to date." (exit code 11) and writes nothing. So after an update that did not come to its
end, do not trust an 11.

To recover, on site and with the program as it is: write an image with any other build stamp first,
the former release for instance, then the right one.

    tarnwick dax -sf 2 former.bin     # exit code 0: its stamp differs, everything is rewritten
    tarnwick dax -sf 2 right.bin      # exit code 0

The map does this behind each of these rows whose first update was killed, and fails if the flash
does not hold the image then; a test does it for each kind of module.

)";

constexpr const char* kNotRunning = R"(## Up to date, and not in use

Here the flash holds the whole image, and the second update is right to write nothing. But the first
one was cut between taking the module out of use and bringing it back: its FPGA is not configured
(DONE 0), or its PCIe endpoint is gone or not enabled, and an update that has nothing to write does
not touch either. Switch the module off and on, or recover as above.

)";

std::string Head(const std::vector<Run>& runs) {
  const auto count = [&runs](const std::function<bool(const Run&)>& wanted, const char* how) {
    return Count<Run>(runs, wanted, how);
  };
  const auto excerpt = [&runs](bool Run::*wanted) {
    return Tables(Select<Run>(runs, [wanted](const Run& run) { return run.*wanted; }), "### ");
  };
  const auto ends = [](const Run& run, const char* exit) { return run.row.outcome[0] == exit; };
  std::string text = kIntroduction;
  text += "| second updates | |\n|---|---|\n";
  text += count([](const Run&) { return true; }, "in all");
  text += count([&](const Run& run) { return ends(run, "0"); }, "write the image (exit 0)");
  text +=
      count([&](const Run& run) { return ends(run, "11") && !run.isDeceived && !run.isNotRunning; },
            "find it there already, and in use (exit 11)");
  text += count([](const Run& run) { return run.isNotRunning; },
                "find it there already, but not in use (exit 11)");
  text += count([](const Run& run) { return run.isDeceived; },
                "are deceived: exit 11, and the flash does not hold the image");
  text += count([&](const Run& run) { return !ends(run, "0") && !ends(run, "11"); },
                "end in another way");
  text += "\n";
  text += kDeceived + excerpt(&Run::isDeceived);
  text += kNotRunning + excerpt(&Run::isNotRunning);
  return text;
}

int Make(const MapOptions& options) { return MakeMap(options, AllJobs(), Carry, Head); }

}  // namespace
}  // namespace maps

int main(int argc, char** argv) { return maps::Main(argc, argv, maps::Make); }
