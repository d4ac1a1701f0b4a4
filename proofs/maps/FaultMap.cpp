// Updates every kind of module with every fault that each event of an update can suffer, and writes
// down what comes of it.

#include <functional>
#include <string>
#include <vector>

#include "proofs/maps/Events.h"
#include "proofs/maps/Faults.h"
#include "proofs/maps/MakeMap.h"
#include "proofs/maps/Scenario.h"
#include "proofs/maps/Verdict.h"

namespace maps {
namespace {

struct Job {
  Scenario scenario;
  MappedFault fault;
};

std::vector<Job> AllJobs() {
  std::vector<Job> jobs;
  for (const Scenario& scenario : AllScenarios()) {
    const auto add = [&](const std::vector<MappedFault>& faults) {
      for (const MappedFault& fault : faults) {
        jobs.push_back({scenario, fault});
      }
    };
    add(StuckLines(scenario));
    for (const Event& event : EventsOf(Observe(scenario, "", {}).log)) {
      add(FaultsOf(event));
    }
  }
  return jobs;
}

void Carry(const Job& job, MapRun& run) {
  const auto& [scenario, fault] = job;
  run.chip = scenario.chip;
  run.row = {scenario.target, fault.step, fault.event, fault.what, {}};
  const Observation seen = Observe(scenario, fault.keys, fault.rules);
  const Ending ending = EndingOf(seen.out, seen.err, seen.log.back());
  run.flash = seen.flash;
  run.row.outcome = OutcomeOf(ending, seen);
  run.violations = ViolationsOf(scenario, fault, seen);
  if (ending.exit == "11" && seen.flash != Flash::kOld) {
    run.violations.emplace_back("the flash was called up to date, but has been changed");
  }
}

constexpr const char* kIntroduction = R"(# The fault map

What an update does when one thing goes wrong: each event of an update of each kind of module, with
each chip, and each fault that this event can suffer. `scripts/fault-map` makes every run on the
virtual instrument and writes this page; a sample of the runs is compared with it whenever the tests
run.

Each run updates a module that holds an older build with an image of 131,000 bytes (two sectors, 512
pages). Of the pages the first, the second, the middle and the last two are looked at, everything
else event by event.

- *step* is the part of the update, by the line on the console; *event* what was going on: a
  message to the flash by its command, a register of the GPIO expander, a file, a call of a platform
  service.
- *what goes wrong*: an errno is what the call fails with; *lost* is acknowledged, but nothing
  happens, and zeros are read; *answers* takes its course, but something else is read; *from here
  on* and *for ever* last to the end of the run, the rest is over after the event.
- *exit* and *last line* are the exit code and the result line; where a run has no result line, how
  it ended and the last line on standard error.
- *flash*: *image* holds the image, *unchanged* is as before, *damaged* is neither; *damaged, looks
  new* is neither, but its head is the image's, so that the next run finds it up to date.
- *afterwards* is DONE, the lines that the expander still drives (*released*: none), the PCIe
  endpoint and the module selector; for a wend `qspi_prg`.

Every run ends, leaves no sanitizer report, prints exactly one result line with its exit code or
ends in one of the two ways without (an uncaught exception, a control file of a wend that cannot be
used), leaves the lines released and the selector on SPILVDS unless the fault hits that very access,
and touches nothing once the flash was found up to date. A run of the map fails where one does not.

)";

constexpr const char* kNothingTells = R"(## Reported as good, is not, and nothing tells

The program exits with 0 or 11, and the flash does not hold the image. Nobody has asked the FPGA:
the program does not wait for the DONE of a dax, and has nothing to wait for when it says "FPGA is up
to date.".

)";

constexpr const char* kDoneMayTell = R"(## Reported as good, is not, and at most DONE tells

Here too the program exits with 0, and the flash does not hold the image; but it has waited for
DONE. The virtual FPGA is done as soon as the head of its flash is plausible. A real one may check
more of its configuration and stay without DONE; the run would then end in 7.

)";

constexpr const char* kOnlyDoneTells = R"(## Only DONE tells

The program has noticed nothing but that the FPGA does not come up (exit code 7), and the flash does
not hold the image.

)";

bool IsCalledGood(const MapRun& run) {
  return run.row.outcome[0] == "0" || run.row.outcome[0] == "11";
}

bool IsGood(const MapRun& run) { return run.flash == Flash::kImage; }

bool NothingTells(const MapRun& run) {
  return IsCalledGood(run) && !IsGood(run) &&
         (run.row.target == "dax" || run.row.outcome[0] == "11");
}

bool DoneMayTell(const MapRun& run) {
  return IsCalledGood(run) && !IsGood(run) && !NothingTells(run);
}

bool OnlyDoneTells(const MapRun& run) { return run.row.outcome[0] == "7" && !IsGood(run); }

std::string Head(const std::vector<MapRun>& runs) {
  const auto count = [&runs](const std::function<bool(const MapRun&)>& wanted, const char* how) {
    return Count<MapRun>(runs, wanted, how);
  };
  const auto excerpt = [&runs](bool (*wanted)(const MapRun&)) {
    return Tables(Select<MapRun>(runs, wanted), "### ");
  };
  std::string text = kIntroduction;
  text += "| runs | |\n|---|---|\n";
  text += count([](const MapRun&) { return true; }, "in all");
  text += count([](const MapRun& run) { return IsCalledGood(run) && IsGood(run); },
                "succeed all the same: exit 0, and the flash holds the image");
  text += count([](const MapRun& run) { return !IsCalledGood(run) && !IsGood(run); },
                "are reported as failures, and the flash does not hold the image");
  text += count([](const MapRun& run) { return !IsCalledGood(run) && IsGood(run); },
                "are reported as failures though the flash holds the image");
  text += count(NothingTells, "are reported as good, are not, and nothing tells");
  text += count(DoneMayTell, "are reported as good, are not, and at most DONE tells");
  text += "\n";
  text += kNothingTells + excerpt(NothingTells);
  text += kDoneMayTell + excerpt(DoneMayTell);
  text += kOnlyDoneTells + excerpt(OnlyDoneTells);
  return text;
}

int Make(const MapOptions& options) { return MakeMap(options, AllJobs(), Carry, Head); }

}  // namespace
}  // namespace maps

int main(int argc, char** argv) { return maps::Main(argc, argv, maps::Make); }
