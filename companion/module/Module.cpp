#include "companion/module/Module.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "app/ModuleResources.h"
#include "app/SpiClock.h"
#include "companion/module/EndpointFiles.h"
#include "companion/module/FlashChip.h"
#include "companion/module/FlashReader.h"
#include "companion/module/ModuleAccess.h"

namespace companion {

namespace {

/// Far more than anything takes that is not a transfer of the flash.
constexpr unsigned kLimitSeconds = 300;
constexpr unsigned kBitsPerByte = 8;
constexpr unsigned kMostReadings = 8;  // of the same place, and a margin

/// What `tarnwick` dumps of the flash, at most.
constexpr std::size_t kHeadBytes = 4096;

constexpr std::size_t kBytesBetweenReports = std::size_t{256} * 1024;

/// A question that is asked until two answers in a row agree: one alone can be wrong.
template <typename Ask>
auto AskTwice(Ask ask) {
  auto before = ask();
  for (int attempt = 0; attempt < kTries; ++attempt) {
    auto now = ask();
    if (now == before) {
      return now;
    }
    before = std::move(now);
  }
  throw StepFailed("the platform's services give a different answer each time");
}

void FindNames(const Target& target, unsigned slot, WorkerReport& report) {
  report.populated = AskTwice([&] { return checkAddress(static_cast<int>(slot)); });
  if (!report.populated) {
    return;
  }
  const std::string i2cBus = AskTwice([&] { return FindI2CBusName(target, slot); });
  if (i2cBus.empty()) {
    throw StepFailed(target.muxChannel ? "the module has no I2C bus with a multiplexer"
                                       : "the module has no I2C bus");
  }
  const std::string spiDev = AskTwice([&] { return getSolutionSpiDev(slot); });
  if (spiDev.empty()) {
    throw StepFailed("the module has no SPI device");
  }
  report.i2cBus.Set(i2cBus);
  report.spiDev.Set(spiDev);
}

/// Routes the flash to the controller without disturbing an FPGA that runs.
void Take(ModuleAccess& access,
          const ModulePlace& place,
          ModuleMemory& memory,
          const Interruption& interruption) {
  WorkerReport& report = memory.report;
  access.ConnectLines(memory.resting);
  report.done = access.AwaitDone();
  report.psMode = report.done == DoneLine::kLow && place.HasPsMode();
  if (report.psMode) {
    interruption.WakeParent();
  }
  access.TakeFlash(report.psMode);
}

std::optional<Difference> Compare(std::span<const std::uint8_t> contents,
                                  std::span<const std::uint8_t> expected) {
  std::optional<Difference> difference;
  for (std::size_t at = 0; at < expected.size(); at += kPageBytes) {
    const std::size_t bytes = std::min(kPageBytes, expected.size() - at);
    const auto wanted = expected.subspan(at, bytes);
    const auto found = contents.subspan(at, bytes);
    const auto where = std::mismatch(wanted.begin(), wanted.end(), found.begin());
    if (where.first == wanted.end()) {
      continue;
    }
    if (!difference) {
      difference = {.firstAddress = static_cast<std::uint32_t>(
                        at + static_cast<std::size_t>(where.first - wanted.begin())),
                    .expected = *where.first,
                    .found = *where.second};
    }
    ++difference->pages;
  }
  return difference;
}

/// Erased, but for a page at its begin.
std::vector<std::uint8_t> HeadWith(std::span<const std::uint8_t> page) {
  std::vector<std::uint8_t> head(kHeadBytes, kErased);
  std::copy(page.begin(), page.end(), head.begin());
  return head;
}

/// Why a worker did not come to its end. One that a control file has ended has printed why.
std::string Describe(const WorkerEnding& ending) {
  std::string_view console = ending.console;
  while (console.ends_with('\n')) {
    console.remove_suffix(1);
  }
  const std::string_view lastLine = console.substr(console.rfind('\n') + 1);
  return ending.exitCode != EXIT_FAILURE || lastLine.empty() ? ending.problem
                                                             : std::string(lastLine);
}

/// What a run of a worker that did not succeed ended with: its own report, else how it ended.
Problem ProblemOf(const std::string& reported, const WorkerEnding& ending) {
  return {.text = reported.empty() ? Describe(ending) : reported, .console = ending.console};
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

}  // namespace

Module::Module(const Target& target, unsigned slot, SignalWatch& signals, OtherLines others)
    : target_(target), slot_(slot), signals_(signals), others_(others) {}

std::optional<std::uint16_t> Module::Resting() const {
  return others_ == OtherLines::kAsFound ? memory_->resting : std::nullopt;
}

void Module::Stop() { memory_->stop = true; }

unsigned Module::LimitSeconds(std::size_t bytes) {
  const unsigned hertz = std::max(SpiClockMHz(), 1U) * kHzPerMHz;
  return kLimitSeconds +
         static_cast<unsigned>(std::size_t{kMostReadings} * kBitsPerByte * bytes / hertz);
}

Problem Module::Run(const Conditions& conditions,
                    const std::function<void(const Interruption&)>& task) {
  Problem problem = {.text = "stopped", .console = ""};
  memory_->report = {};
  // A worker that does not touch the module has nothing to give back, and may hang in a service.
  const bool canBeKilled = conditions.place == nullptr;
  static const std::atomic<bool> kNever = false;
  const std::atomic<bool>& stop = conditions.heedsStop ? memory_->stop : kNever;
  const auto woken = [&] {
    AnnouncePsMode();
    conditions.woken();
  };
  for (int attempt = 0; attempt < conditions.tries && !stop; ++attempt) {
    memory_->report = {};
    memory_->advanced = 0;
    const WorkerEnding ending =
        Worker::Run([&](const WorkerSide& side) { task(Interruption(stop, side)); },
                    conditions.limitSeconds,
                    signals_,
                    woken,
                    [&] { return canBeKilled && memory_->stop; });
    AnnouncePsMode();  // a worker that has ended meanwhile wakes nobody
    if (conditions.place != nullptr && !memory_->report.ended) {
      TakeOver(Restore(*conditions.place, conditions.releasesReset));
    }
    if (memory_->report.succeeded && (memory_->report.ended || !conditions.takesWholeRun)) {
      return {};
    }
    const std::string reported = memory_->report.problem.Get();
    problem = ProblemOf(reported, ending);
    if (!reported.empty() && !conditions.repeatsReportedFailure) {
      break;
    }
  }
  return problem;
}

Problem Module::RunOnModule(const Conditions& conditions,
                            const Work& work,
                            const std::function<void()>& afterwards) {
  const auto task = [&](const Interruption& interruption) {
    WorkerReport& report = memory_->report;
    ModuleAccess access(*conditions.place, interruption);
    try {
      work(access, interruption);
      report.succeeded = true;
    } catch (const StepFailed& failed) {  // GCOVR_EXCL_BR_LINE: an exception of another type
      report.problem.Set(failed.what());
    }
    access.GiveBack();
    report.notGivenBack.Set(access.LookAfter(Resting()));
    report.doneAfter = access.DoneAfter();
    afterwards();
    report.ended = true;
  };
  return Run(conditions, task);
}

void Module::AnnouncePsMode() {
  if (memory_->report.psMode && announcePsMode_) {
    std::exchange(announcePsMode_, {})();
  }
}

/// What another worker has done in place of the one that did not come to its end.
void Module::TakeOver(const Problem& restoring) {
  memory_->report.notGivenBack.Set(restoring.text);
  memory_->report.doneAfter = memory_->restoration.doneAfter;
}

Problem Module::Restore(const ModulePlace& place, bool releasesReset) {
  WorkerReport& report = memory_->restoration;
  const auto task = [&](const WorkerSide& side) {
    const Interruption interruption(memory_->stop, side);
    ModuleAccess access(place, interruption);
    access.AddressExpander(memory_->resting);
    if (releasesReset) {
      access.AssumeReset();
    }
    access.GiveBack();
    report.notGivenBack.Set(access.LookAfter(Resting()));
    report.doneAfter = access.DoneAfter();
    report.ended = true;
  };
  Problem problem;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    report = {};
    const WorkerEnding ending = Worker::Run(task, kLimitSeconds, signals_, {});
    const std::string left = report.notGivenBack.Get();
    if (report.ended && left.empty()) {
      return {};
    }
    problem = {.text = report.ended ? left : "the module cannot be given back: " + Describe(ending),
               .console = ending.console};
  }
  return problem;
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

Problem Module::Find(ModuleNames& names) {
  names = {};
  const auto task = [&](const Interruption& /*interruption*/) {
    WorkerReport& report = memory_->report;
    try {
      FindNames(target_, slot_, report);
      report.succeeded = true;
      report.ended = true;
    } catch (const std::exception& failed) {  // GCOVR_EXCL_BR_LINE: an exception of another type
      // The platform's clients throw, too.
      report.problem.Set(failed.what());
    }
  };
  Problem problem = Run({.limitSeconds = kLimitSeconds}, task);
  const WorkerReport& report = memory_->report;
  if (!problem) {
    names = {.populated = report.populated,
             .i2cBus = report.i2cBus.Get(),
             .spiDev = report.spiDev.Get()};
  }
  return problem;
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

ModuleReading Module::Read(const ModuleNames& names,
                           std::size_t length,
                           std::span<const std::uint8_t> expected,
                           const Progress& progress) {
  const ModulePlace place = {target_, slot_, names};
  const std::size_t total = expected.empty() ? 2 * length : length;
  const Conditions conditions = {
      .limitSeconds = LimitSeconds(length), .place = &place, .woken = [&] {
        if (progress) {
          progress(std::min<std::size_t>(memory_->advanced, total), total);
        }
      }};
  const auto work = [&](ModuleAccess& access, const Interruption& interruption) {
    WorkerReport& report = memory_->report;
    if (target_.hasPcieEndpoint) {
      report.endpoint = EndpointFiles(slot_).State();
    }
    Take(access, place, *memory_, interruption);
    SPIDev& spi = access.OpenSpi();
    FlashChip chip(spi, interruption);
    chip.AwaitReady();
    report.chip = chip.Identify();
    std::size_t unreported = 0;
    const auto advance = [&](std::size_t bytes) {
      memory_->advanced += bytes;
      unreported += bytes;
      if (unreported >= kBytesBetweenReports) {
        unreported = 0;
        interruption.WakeParent();
      }
    };
    FlashReader reader(spi, interruption, advance);
    const FlashReader::Result result =
        reader.Read(std::span(memory_->contents).first(length), expected);
    report.unsteadyAddress = result.unsteadyAddress;
    report.blocksReadAgain = result.blocksReadAgain;
    report.looksSilent = result.looksSilent;
    if (chip.Identify().id != report.chip.id) {
      throw StepFailed("the flash chip's identification has changed while it was read");
    }
  };
  ModuleReading reading;
  reading.problem = RunOnModule(conditions, work, [] {});
  const WorkerReport& report = memory_->report;
  reading.chip = report.chip;
  reading.done = report.done;
  reading.doneAfter = report.doneAfter;
  reading.psMode = report.psMode;
  reading.endpoint = report.endpoint;
  reading.notGivenBack.text = report.notGivenBack.Get();
  if (reading.problem) {
    return reading;
  }
  reading.contents.assign(memory_->contents.begin(),
                          memory_->contents.begin() + static_cast<std::ptrdiff_t>(length));
  reading.unsteadyAddress = report.unsteadyAddress;
  reading.blocksReadAgain = report.blocksReadAgain;
  reading.looksSilent = report.looksSilent;
  reading.difference = Compare(reading.contents, expected);
  return reading;
}

Problem Module::WriteHead(const ModuleNames& names, std::span<const std::uint8_t> page) {
  const ModulePlace place = {target_, slot_, names};
  const auto work = [&](ModuleAccess& access, const Interruption& interruption) {
    Take(access, place, *memory_, interruption);
    SPIDev& spi = access.OpenSpi();
    FlashChip chip(spi, interruption);
    chip.AwaitReady();
    chip.Protect(false);
    chip.RewriteHead(page);
    chip.AwaitReady();
    const std::vector<std::uint8_t> head = HeadWith(page);
    const std::span<std::uint8_t> contents = std::span(memory_->contents).first(head.size());
    const FlashReader::Result result =
        FlashReader(spi, interruption, [](std::size_t) {}).Read(contents, head);
    if (result.unsteadyAddress || Compare(contents, head)) {
      throw StepFailed("the first 4 KiB of the flash do not hold what was written to them");
    }
  };
  return NotGivenBackOr(RunOnModule({.limitSeconds = kLimitSeconds, .place = &place}, work, [] {}));
}

Problem Module::Lock(const ModuleNames& names) {
  const ModulePlace place = {target_, slot_, names};
  const auto work = [&](ModuleAccess& access, const Interruption& interruption) {
    Take(access, place, *memory_, interruption);
    FlashChip chip(access.OpenSpi(), interruption);
    chip.AwaitReady();
    chip.Protect(true);
  };
  // A chip that a stopped run has unlocked must not be left so.
  return NotGivenBackOr(RunOnModule(
      {.limitSeconds = kLimitSeconds, .place = &place, .heedsStop = false}, work, [] {}));
}

IntoUse Module::TakeIntoUse(const ModuleNames& names) {
  const ModulePlace place = {target_, slot_, names};
  WorkerReport& report = memory_->report;
  const auto fail = [&](const std::string& problem) {
    report.succeeded = false;
    report.problem.Set(problem);
  };
  const auto work = [&](ModuleAccess& access, const Interruption& /*interruption*/) {
    access.ConnectLines(memory_->resting);
    report.seenLow = access.ResetFalls();
    const bool loaded = access.LoadFlash();
    if (!report.seenLow) {
      throw StepFailed("the FPGA's DONE does not fall while it is held in reset");
    }
    if (!loaded) {
      throw StepFailed("the FPGA's DONE does not rise within 10 s after its reset");
    }
  };
  const auto afterwards = [&] {
    if (report.succeeded && report.doneAfter != DoneLine::kHigh) {
      fail("the FPGA's DONE does not stay high after its reset");
    }
    if (!target_.hasPcieEndpoint) {
      return;
    }
    const EndpointFiles endpoint(slot_);
    const std::string problem =
        report.doneAfter == DoneLine::kHigh ? endpoint.EnumerateAgain() : "";
    report.endpoint = endpoint.State();
    if (report.succeeded && !problem.empty()) {
      fail(problem);
    }
  };
  const Conditions conditions = {.limitSeconds = kLimitSeconds,
                                 .place = &place,
                                 .tries = 2,
                                 .repeatsReportedFailure = false,
                                 .takesWholeRun = true,
                                 .releasesReset = true};
  IntoUse use;
  use.problem = RunOnModule(conditions, work, afterwards);
  use.done = report.doneAfter;
  use.seenLow = report.seenLow;
  use.endpoint = report.endpoint;
  use.notGivenBack.text = report.notGivenBack.Get();
  return use;
}

Problem Module::GiveBack(const ModuleNames& names) {
  return Restore({target_, slot_, names}, true);
}

Problem Module::NotGivenBackOr(Problem problem) const {
  if (!problem) {
    problem.text = memory_->report.notGivenBack.Get();
  }
  return problem;
}

}  // namespace companion
