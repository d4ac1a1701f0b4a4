#include "proofs/swarm/Judge.h"

#include <signal.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>
#include <stdexcept>

namespace swarm {

namespace {

// What tarnwickctl exits with.
constexpr int kDone = 0;
constexpr int kNot = 1;
constexpr int kRefused = 2;
constexpr int kPowerCycle = 3;
constexpr int kLocked = 4;
constexpr int kStopped = 5;
constexpr int kUnreachable = 6;

constexpr const char* kFinal = "final";

bool IsKill(const std::string& fault) {
  return fault.ends_with(":kill") || fault.ends_with(":kill-all");
}

/// Whether every fault kills, or is of one of these kinds.
bool AreFaultsOf(const World& world, const std::set<std::string>& kinds) {
  return std::all_of(world.faults.begin(), world.faults.end(), [&](const std::string& fault) {
    return IsKill(fault) || kinds.count(fault.substr(0, fault.find_first_of(":#"))) != 0;
  });
}

/// The step that an observation is about.
Step StepOf(const World& world, const Observation& seen) {
  if (seen.step == kFinal) {
    return {.what = seen.what, .holds = {}};
  }
  const std::size_t dot = seen.step.find('.');
  if (dot != std::string::npos) {
    return {.what = seen.what, .holds = {}};
  }
  return world.steps.at(std::stoul(seen.step));
}

bool HasBareRunInside(const Step& step) {
  return std::any_of(step.holds.begin(), step.holds.end(), [](const Hold& hold) {
    return std::any_of(hold.inside.begin(), hold.inside.end(), [](const Step& inside) {
      return Contains(inside, 't');
    });
  });
}

/// @param files  with ',' between them
std::set<std::string> Names(const std::string& files) {
  std::istringstream stream(files);
  std::set<std::string> names;
  for (std::string name; std::getline(stream, name, ',');) {
    names.insert(name);
  }
  return names;
}

/// Whether no programmer has a module any more.
bool AreLinesReleased(const std::string& state) {
  const auto isAt = [&](const char* name, const std::string& rest) {
    const std::string value = ValueIn(state, name);
    return value.empty() || value == rest;
  };
  return isAt("driven", "0x0000") && isAt("selector", "SPILVDS") && isAt("qspi_prg", "0");
}

/// What has happened before the end of a step.
struct Before {
  bool wasBareRun = false;
  bool wasMarked = false;         ///< an update was not finished
  bool wasGivenBack = true;       ///< no programmer had the module
  bool wasChangedInside = false;  ///< a step inside this one has changed the flash
};

/// The rules for one step.
class StepJudge {
 public:
  StepJudge(const World& world, const Observation& seen, const Before& before)
      : world_(world),
        seen_(seen),
        kind_(static_cast<char>(std::tolower(seen.what))),
        isUnmarkedAfterBareRun_(before.wasBareRun && !before.wasMarked),
        wasChangedInside_(before.wasChangedInside),
        wasGivenBack_(before.wasGivenBack),
        isFinal_(seen.step == kFinal),
        isFit_(IsFit(std::islower(seen.what) != 0 ? world.a : world.b)),
        isAlone_(!HasBareRunInside(StepOf(world, seen))) {}

  std::vector<Violation> Violations() {
    if (kind_ == 't') {
      return {};
    }
    Expect(!seen_.hangs, "hangs");
    ExpectOwnEnd();
    if (isAlone_) {
      ExpectFlash();
    }
    if (EndsByItself()) {
      ExpectNothingLeft();
    }
    if (isFinal_) {
      ExpectFinal();
    }
    return violations_;
  }

 private:
  void Expect(bool holds, const std::string& rule) {
    if (!holds) {
      violations_.push_back({rule, "step " + Print(seen_)});
    }
  }

  [[nodiscard]] bool EndsByItself() const { return seen_.code >= 0 && !seen_.isCut; }

  [[nodiscard]] bool CanBeKilled() const {
    return seen_.isCut || seen_.hangs ||
           std::any_of(world_.faults.begin(), world_.faults.end(), IsKill);
  }

  void ExpectOwnEnd() {
    const bool isKilled = seen_.code == -SIGKILL && CanBeKilled();
    Expect(isKilled || (seen_.code >= kDone && seen_.code <= kUnreachable),
           "ends as it should not");
    const bool isTaken = seen_.code == kDone || seen_.code == kPowerCycle || seen_.code == kNot;
    Expect(isFit_ || kind_ == 'v' || !isTaken, "takes an unfit image");
  }

  [[nodiscard]] bool IsInUse() const {
    const bool isEnabled = !IsPyx(world_) || ValueIn(seen_.state, "pcie") == "enabled";
    return world_.type == "dax" || (seen_.isLoaded && isEnabled);
  }

  /// A bare run can leave the image in the flash and an older one in the FPGA, with DONE high. An update
  /// finds this out only when it is told to restart the FPGA.
  [[nodiscard]] bool IsAfterBareRun() const {
    return kind_ == 'u' && seen_.isSame && isUnmarkedAfterBareRun_;
  }

  void ExpectFlash() {
    if (kind_ == 'v') {
      Expect(seen_.code != kDone || seen_.isHolding, "equal over a flash that differs");
      Expect(seen_.isSame || wasChangedInside_, "verify changes the flash");
      Expect(seen_.code != kNot || !seen_.isHolding || !world_.faults.empty() ||
                 !world_.keys.empty() || !world_.stays.empty(),
             "differs over a flash that is equal");
      return;
    }
    Expect(seen_.code != kDone || seen_.isHolding, "0 over a flash without the image");
    Expect(seen_.code != kDone || IsInUse() || IsAfterBareRun(), "0 with the image not in use");
    Expect(seen_.code != kPowerCycle || seen_.isHolding, "3 over a flash without the image");
    const bool isUntouched =
        seen_.code == kRefused || seen_.code == kLocked || seen_.code == kUnreachable || !isFit_;
    Expect(!isUntouched || seen_.isSame || wasChangedInside_,
           "says that the flash is not changed, but it is");
  }

  void ExpectNothingLeft() {
    Expect(seen_.left == 0, "leaves processes");
    const bool areFilesSafe =
        isFinal_ || AreFaultsOf(world_, {"spi", "i2c", "ioctl", "dbus", "sleep"});
    Expect(!areFilesSafe || HasOnlyKnownFiles(), "leaves files");
    const bool areLinesSafe =
        isFinal_ || (world_.keys.empty() && AreFaultsOf(world_, {"spi", "sleep"}));
    // One that is stopped, or cannot reach the module, may not have come so far.
    const bool mayNotHaveTakenModule = seen_.code == kStopped || seen_.code == kUnreachable;
    const bool hasTakenModule = seen_.code != kRefused && seen_.code != kLocked &&
                                (wasGivenBack_ || !mayNotHaveTakenModule);
    Expect(!areLinesSafe || !hasTakenModule || !isAlone_ || AreLinesReleased(seen_.state),
           "does not give the module back");
  }

  /// Whether a file is left that was not there before, or that an update has to take away.
  [[nodiscard]] bool HasOnlyKnownFiles() const {
    const std::set<std::string> before = Names(seen_.before);
    const std::set<std::string> after = Names(seen_.files);
    return std::all_of(after.begin(), after.end(), [&](const std::string& name) {
      const bool isMark = name == "slot-" + std::to_string(SlotOf(world_)) + ".unfinished";
      const bool canBeMarked = seen_.code != kDone || kind_ == 'v';
      // One that is refused or stopped early has not got as far as to remove what a killed one has
      // left, or what is that of one at work.
      const bool canBeOld =
          seen_.code == kRefused || seen_.code == kLocked || seen_.code == kStopped;
      const bool isOld = canBeOld && before.count(name) != 0;
      return name == "lock" || (isMark && canBeMarked) || isOld;
    });
  }

  /// A lockable chip: level 9 or above, counted from address 0.
  [[nodiscard]] bool IsLockedWhole() const {
    constexpr unsigned long kLevelShift = 2;
    constexpr unsigned long kLevelMask = 15;
    constexpr unsigned long kWholeLevel = 9;
    constexpr unsigned long kBottom = 8;
    constexpr int kHex = 16;
    const std::string registers = ValueIn(seen_.state, "registers");
    const std::size_t colon = registers.find(':');
    if (world_.chip != "macronix" || colon == std::string::npos) {
      return world_.chip != "macronix";
    }
    const unsigned long level = std::stoul(registers, nullptr, kHex) >> kLevelShift & kLevelMask;
    const bool isFromStart =
        (std::stoul(registers.substr(colon + 1), nullptr, kHex) & kBottom) != 0;
    return level >= kWholeLevel && isFromStart;
  }

  void ExpectFinal() {
    const bool isKnockedOut = world_.type == "dax" && ValueIn(seen_.state, "done") == "0";
    const bool canNeedPowerCycle = isKnockedOut || !world_.stays.empty();
    Expect(seen_.code == kDone || (seen_.code == kPowerCycle && canNeedPowerCycle),
           "the last update does not succeed");
    Expect(seen_.isHolding, "the image is not in the flash at the end");
    Expect(seen_.code != kDone || IsInUse(), "the image is not in use at the end");
    Expect(IsLockedWhole(), "the chip is not locked at the end");
  }

  const World& world_;
  const Observation& seen_;
  char kind_;
  bool isUnmarkedAfterBareRun_;
  bool wasChangedInside_;
  bool wasGivenBack_;
  bool isFinal_;
  bool isFit_;
  bool isAlone_;
  std::vector<Violation> violations_;
};

}  // namespace

std::vector<Violation> ViolationsOf(const World& world, const Record& record) {
  std::vector<Violation> violations;
  for (const std::string& trouble : record.troubles) {
    violations.push_back({"the world cannot be made", trouble});
  }
  Before before{.wasGivenBack = world.starts.empty()};
  for (const Observation& seen : record.steps) {
    // A step inside a bare run ends before it.
    const bool isInside = seen.step.find('.') != std::string::npos;
    const bool isInBareRun = isInside && Contains(world.steps.at(std::stoul(seen.step)), 't');
    before.wasBareRun = before.wasBareRun || isInBareRun;
    std::vector<Violation> more = StepJudge(world, seen, before).Violations();
    violations.insert(violations.end(), more.begin(), more.end());
    before.wasBareRun = before.wasBareRun || std::tolower(seen.what) == 't';
    before.wasGivenBack = AreLinesReleased(seen.state);
    before.wasMarked = seen.files.find(".unfinished") != std::string::npos;
    before.wasChangedInside = isInside && (before.wasChangedInside || !seen.isSame);
  }
  const bool hasEnd = !record.steps.empty() && record.steps.back().step == kFinal;
  if (!hasEnd && record.troubles.empty()) {
    violations.push_back({"the last update is missing", ""});
  }
  return violations;
}

}  // namespace swarm
