#include "proofs/maps/GuardedVerdict.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "proofs/maps/MakeMap.h"

namespace maps {

namespace {

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool IsDax(const GuardedScenario& scenario) { return scenario.module.target == "dax"; }

bool ChangesFlash(const std::string& line) {
  return line.starts_with("spi ") && (Contains(line, " SE ") || Contains(line, " PP ") ||
                                      Contains(line, " SSE ") || Contains(line, " CE"));
}

class Violations {
 public:
  void Expect(bool holds, const std::string& otherwise) {
    if (!holds) {
      lines_.push_back(otherwise);
    }
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

/// Rules of every run. @return whether it has as many updates as it should
bool CheckRun(const GuardedRun& run, std::size_t updates, Violations& violations) {
  violations.Expect(!run.log.empty() && run.log.back() == "exit 0", "the run does not end");
  violations.Expect(!Contains(run.err, "orvane-sim: "), "the instrument reports:\n" + run.err);
  violations.Expect(!Contains(run.err, "Sanitizer") && !Contains(run.err, "runtime error:"),
                    "a sanitizer reports:\n" + run.err);
  violations.Expect(run.updates.size() == updates, "an update does not end");
  return run.updates.size() == updates;
}

/// A success is a proof: the flash holds the image, and the module is in use.
void CheckSuccess(const GuardedScenario& scenario, const GuardedRun& run, Violations& violations) {
  violations.Expect(run.flash == Flash::kImage, "exit 0, but the flash does not hold the image");
  violations.Expect(IsDax(scenario) || Contains(run.state, " loaded=current"),
                    "exit 0, but the FPGA has not loaded the image: " + run.state);
  violations.Expect(!Contains(run.state, "pcie=") || Contains(run.state, "pcie=enabled"),
                    "exit 0, but the endpoint is not enabled: " + run.state);
}

/// What a fault keeps from being given back: the fault is in that very access.
struct Excused {
  bool lines = false;
  bool protection = false;
};

Excused ExcusedBy(const MappedFault& fault) {
  const auto hits = [&](std::string_view kind) {
    return fault.lasts && !fault.rules.empty() && fault.rules.front().starts_with(kind);
  };
  const bool noLines = hits("i2c");
  return {.lines = noLines,
          .protection = noLines || hits("spi") || (fault.lasts && Contains(fault.keys, "busy"))};
}

/// Whether a lockable chip is protected whole, counted from address 0, and any other chip not at all.
/// The other bits do not count: after a status that is read wrong `tarnwick` writes them as it read
/// them.
bool IsProtectedAsItShould(const GuardedScenario& scenario, const std::string& state) {
  constexpr unsigned long kLevel = 0x3C;   // in the status register: the size of what is protected
  constexpr unsigned long kWhole = 0x24;   // from this level on
  constexpr unsigned long kBottom = 0x08;  // in the configuration register
  constexpr int kHex = 16;
  const std::string name = "registers=";
  const std::size_t at = state.find(name);
  if (at == std::string::npos) {
    return false;
  }
  const std::string text = state.substr(at + name.size(), 5);
  const unsigned long status = std::stoul(text.substr(0, 2), nullptr, kHex);
  const unsigned long configuration = std::stoul(text.substr(3), nullptr, kHex);
  return scenario.module.chip == "macronix"
             ? (status & kLevel) >= kWhole && (configuration & kBottom) != 0
             : status == 0;
}

/// Nothing is left of an update that has ended by itself.
void CheckLeft(const GuardedScenario& scenario,
               const GuardedRun& run,
               const Excused& excused,
               Violations& violations) {
  const bool mayMark = run.updates.back().exit != "0";
  for (const std::string& file : run.left) {
    violations.Expect(mayMark && file == MarkOf(scenario), "left behind: " + file);
  }
  violations.Expect(
      !Contains(run.state, "driven=") || excused.lines || Contains(run.state, "driven=0x0000"),
      "lines are driven: " + run.state);
  violations.Expect(!Contains(run.state, "selector=") || Contains(run.state, "selector=SPILVDS"),
                    "the selector is not on SPILVDS: " + run.state);
  violations.Expect(!Contains(run.state, "qspi_prg=") || Contains(run.state, "qspi_prg=0"),
                    "qspi_prg is not 0: " + run.state);
  violations.Expect(excused.protection || IsProtectedAsItShould(scenario, run.state),
                    "the chip is not protected as it should be: " + run.state);
}

bool IsUntouched(const GuardedBase& base, const GuardedRun& run) {
  return run.state == base.state && run.fingerprint == base.fingerprint;
}

/// The codes in which an update may end when its one fault is over.
bool MayEndSo(const GuardedScenario& scenario,
              const GuardedBase& base,
              const MappedFault& fault,
              const GuardedRun& run) {
  const std::string& exit = run.updates.back().exit;
  const bool isKnockedOut = IsDax(scenario) && Contains(run.state, "done=0");
  return exit == "0" || (exit == "2" && fault.isOfFile && IsUntouched(base, run)) ||
         (exit == "3" && isKnockedOut && run.flash == Flash::kImage);
}

std::string LastLine(const GuardedUpdate& update) {
  std::string text = update.out.empty() ? update.err : update.out;
  while (text.ends_with('\n')) {
    text.pop_back();
  }
  return text.substr(text.rfind('\n') + 1);
}

constexpr std::string_view kStartOfUpdate = R"(stdout "---- update)";
constexpr std::string_view kEndOfUpdate = R"(stdout "---- exit)";

/// The steps of an update by `tarnwickctl`, found by the files with which each begins. Every worker and
/// `tarnwick` itself begin with the size of the SPI driver's buffer, `tarnwick` after its names.
class Steps {
 public:
  std::string operator()(const std::string& line, const std::string& step) {
    if (line.starts_with(kEndOfUpdate)) {
      return "";
    }
    if (line.starts_with(kStartOfUpdate)) {
      return "preflight";
    }
    if (step.empty() || step == "end") {
      return step;
    }
    return Next(line, step);
  }

 private:
  std::string Next(const std::string& line, const std::string& step) {
    if (line.starts_with("file flock")) {
      return "own folder";
    }
    if (line.starts_with("open slot-")) {
      return "mark";
    }
    if (line.starts_with("file unlinkat") && step != "own folder") {
      return "end";
    }
    if (step == "mark" || step == "new head") {
      isInProgram_ = line.starts_with("dbus ");
      if (isInProgram_) {
        return "tarnwick";
      }
    }
    return Contains(line, "/bufsiz ") && line.starts_with("open ") ? AfterBufsiz(step) : step;
  }

  std::string AfterBufsiz(const std::string& step) {
    if (step == "own folder") {
      return "read";
    }
    if (step == "mark") {
      return "new head";
    }
    if (step == "tarnwick") {
      return std::exchange(isInProgram_, false) ? step : "read again";
    }
    return step == "read again" ? "into use" : step;
  }

  bool isInProgram_ = false;  // and its buffer size has not been read yet
};

}  // namespace

GuardedBase BaseOf(const GuardedScenario& scenario) {
  const GuardedRun start = ObserveGuarded(scenario, "", {}, 0);
  GuardedBase base{
      .state = start.state, .fingerprint = start.fingerprint, .undisturbed = {}, .events = {}};
  base.undisturbed = ObserveGuarded(scenario, "", {}, 1);
  base.events = EventsOf(base.undisturbed.log, Steps());
  return base;
}

std::vector<std::string> OutcomeOf(const GuardedBase& base, const GuardedRun& run) {
  const bool isUnchanged = run.flash != Flash::kImage && run.fingerprint == base.fingerprint;
  const Observation seen = {.state = run.state, .flash = isUnchanged ? Flash::kOld : run.flash};
  const bool hasUpdate = !run.updates.empty();
  return OutcomeOf({.exit = hasUpdate ? run.updates.back().exit : "none",
                    .lastLine = hasUpdate ? LastLine(run.updates.back()) : ""},
                   seen);
}

std::vector<std::string> ViolationsOfFault(const GuardedScenario& scenario,
                                           const GuardedBase& base,
                                           const MappedFault& fault,
                                           const GuardedRun& run) {
  Violations violations;
  if (!CheckRun(run, 1, violations)) {
    return violations.Take();
  }
  const std::string& exit = run.updates.back().exit;
  if (exit == "0") {
    CheckSuccess(scenario, run, violations);
  }
  violations.Expect(
      fault.lasts || MayEndSo(scenario, base, fault, run),
      "exit code " + exit + " after one fault that does not last: " + LastLine(run.updates.back()));
  if (!IsUntouched(base, run) || !run.left.empty()) {
    CheckLeft(scenario, run, ExcusedBy(fault), violations);
  }
  return violations.Take();
}

std::vector<std::string> ViolationsAfterCut(const GuardedScenario& scenario,
                                            const GuardedRun& run) {
  Violations violations;
  violations.Expect(!run.updates.empty(), "an update does not end");
  if (run.updates.empty() || !CheckRun(run, run.updates.size(), violations)) {
    return violations.Take();
  }
  const std::string& exit = run.updates.back().exit;
  const bool isKnockedOut = IsDax(scenario) && Contains(run.state, "done=0");
  violations.Expect(exit == "0" || (exit == "3" && isKnockedOut),
                    "exit code " + exit + " after a cut: " + LastLine(run.updates.back()));
  CheckSuccess(scenario, run, violations);
  CheckLeft(scenario, run, {}, violations);
  const bool provesFirst = run.updates.size() == 2 && run.updates.front().exit == "0";
  violations.Expect(
      !provesFirst ||
          std::none_of(run.updates.back().log.begin(), run.updates.back().log.end(), ChangesFlash),
      "the first update ended with 0, but the second one has written");
  return violations.Take();
}

}  // namespace maps
