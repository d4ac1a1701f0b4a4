#include "proofs/soak/Judge.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "simulator/chips/NorFlashModel.h"

namespace soak {

namespace {

constexpr int kInstrumentFailed = 125;
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;

bool HasLimit(const Plan& plan) { return plan.disturbance > Disturbance::kStop; }

/// Whether a signal is sent to a process of orvane-sim.
bool HitsInstrument(const Plan& plan) { return plan.signal != 0 && plan.target < Target::kCommand; }

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// The last line of a log, when it is the end of one.
std::optional<std::string> EndLine(const std::string& log) {
  if (!log.ends_with('\n')) {
    return std::nullopt;
  }
  std::string line = log.substr(0, log.size() - 1);
  line.erase(0, line.rfind('\n') + 1);
  const bool isEnd = line.starts_with("exit ") || line.starts_with("killed ");
  return isEnd ? std::optional(line) : std::nullopt;
}

/// "exit 3": 3, "killed SIGTERM": 143
int StatusIn(const std::string& endLine) {
  const std::string value = endLine.substr(endLine.find(' ') + 1);
  if (endLine.starts_with("exit ")) {
    return std::stoi(value);
  }
  for (int signal = 1; signal < NSIG; ++signal) {
    const char* const name = ::sigabbrev_np(signal);
    if (name != nullptr && value == std::string("SIG") + name) {
      return 128 + signal;
    }
  }
  return -1;
}

class Judge {
 public:
  Judge(const Plan& plan, const Update& update, const Reference& reference, const Observation& seen)
      : plan_(plan),
        update_(update),
        reference_(reference),
        seen_(seen),
        end_(EndLine(seen.log)),
        code_(ExitCode(seen)) {}

  std::vector<std::string> Violations() {
    if (seen_.hang) {
      Expect(false, "it hangs: " + *seen_.hang);
      return violations_;
    }
    ExpectNothingLeft();
    ExpectDocumentedStatus();
    ExpectOldOrNewFlash();
    ExpectStartOfTheLog();
    ExpectState();
    if (plan_.disturbance == Disturbance::kNone || plan_.disturbance == Disturbance::kStop) {
      ExpectUndisturbed();
    }
    return violations_;
  }

 private:
  void Expect(bool holds, const std::string& otherwise) {
    if (!holds) {
      violations_.push_back(otherwise);
    }
  }

  void ExpectNothingLeft() {
    Expect(seen_.processes.empty(), "processes are left: " + seen_.processes);
    for (const std::string& file : seen_.files) {
      // After the end of both processes nobody is there to remove it.
      const bool isAllowed = plan_.signal == SIGKILL && plan_.target == Target::kBoth &&
                             file.starts_with("beside the flash");
      Expect(isAllowed, "a file is left: " + file);
    }
  }

  void ExpectDocumentedStatus() {
    Expect(IsDocumented(),
           "status " + std::to_string(code_) +
               (WIFSIGNALED(seen_.waitStatus) ? ", ended by a signal" : "") + ", log " +
               end_.value_or("without an end") + ", standard error '" + seen_.err + "'");
  }

  [[nodiscard]] bool IsDocumented() const {
    if (HitsInstrument(plan_) && code_ == 128 + plan_.signal) {
      return true;
    }
    if (WIFSIGNALED(seen_.waitStatus)) {
      return false;
    }
    if (end_ && code_ == StatusIn(*end_)) {
      return true;  // that of the command
    }
    // A limit on the size of files can cut the line.
    const bool says = Contains(seen_.err, "orvane-sim: ") ||
                      (plan_.disturbance == Disturbance::kFileSize &&
                       std::string_view("orvane-sim: ").starts_with(seen_.err));
    if (plan_.signal != 0 && Contains(seen_.err, "COMMAND never connected")) {
      return code_ == kInstrumentFailed;  // the signal came before it did
    }
    if (code_ == kInstrumentFailed) {
      return says && (HasLimit(plan_) || HitsInstrument(plan_));
    }
    return HasLimit(plan_) && IsOfALimit(says);
  }

  /// @param says  whether orvane-sim has shown why
  [[nodiscard]] bool IsOfALimit(bool says) const {
    // The loader ends with 127 when it cannot load a library.
    const bool isLoader =
        code_ == kNotFound && Contains(seen_.err, "error while loading shared libraries");
    return isLoader || (says && (code_ == kNotExecutable || code_ == kNotFound));
  }

  /// The instrument has ended as it should, so everything is saved.
  [[nodiscard]] bool HasSaved() const {
    return end_ && !WIFSIGNALED(seen_.waitStatus) && code_ == StatusIn(*end_) &&
           !Contains(seen_.err, "orvane-sim: ");
  }

  void ExpectOldOrNewFlash() {
    if (!seen_.flash) {
      Expect(false, "the flash file is lost");
      return;
    }
    const bool isOld = *seen_.flash == update_.flashFile;
    if (isOld && !HasSaved()) {
      return;
    }
    Expect(seen_.flash->size() == orvane::NorFlashModel::kBytes,
           "the flash file has " + std::to_string(seen_.flash->size()) + " bytes");
    try {
      const bool isNew = end_ ? *seen_.flash == Replay(update_, seen_.log)
                              : reference_.flashes.count(HashOf(*seen_.flash)) != 0 &&
                                    IsUntouchedAbove(update_, *seen_.flash);
      Expect(isNew, isOld ? "the flash is not saved" : "the flash is neither old nor new");
    } catch (const std::exception& error) {
      Expect(false, std::string("log: ") + error.what());
    }
  }

  /// Up to where it is disturbed, the run is the undisturbed one. With a limit the program itself
  /// may do something else.
  void ExpectStartOfTheLog() {
    if (HasLimit(plan_)) {
      return;
    }
    std::string log = seen_.log;
    if (end_) {
      log.resize(log.size() - end_->size() - 1);
    }
    const std::string& whole = reference_.seen.log;
    if (!whole.starts_with(log)) {
      const auto at = std::mismatch(log.begin(), log.end(), whole.begin(), whole.end()).first;
      const std::size_t line = log.rfind('\n', static_cast<std::size_t>(at - log.begin()));
      Expect(false,
             "the log differs: " + log.substr(line == std::string::npos ? 0 : line + 1, 100));
    }
  }

  void ExpectState() {
    if (HasSaved()) {
      Expect(seen_.state && seen_.state->ends_with('\n') &&
                 std::count(seen_.state->begin(), seen_.state->end(), '\n') == 2,
             "the state is not saved: '" + seen_.state.value_or("no file") + "'");
    }
  }

  void ExpectUndisturbed() {
    Expect(code_ == 0, "status " + std::to_string(code_));
    Expect(seen_.log == reference_.seen.log, "the log is not that of the other runs");
    Expect(seen_.out == reference_.seen.out, "standard output: " + seen_.out);
    Expect(seen_.err == reference_.seen.err, "standard error: " + seen_.err);
    Expect(seen_.state == reference_.seen.state, "state: " + seen_.state.value_or("none"));
    Expect(seen_.flash && seen_.flash->size() > update_.image.size() &&
               std::equal(update_.image.begin(), update_.image.end(), seen_.flash->begin()),
           "the flash does not hold the image");
  }

  const Plan& plan_;
  const Update& update_;
  const Reference& reference_;
  const Observation& seen_;
  std::optional<std::string> end_;
  int code_;
  std::vector<std::string> violations_;
};

}  // namespace

Reference MakeReference(const Update& update, const Observation& seen) {
  const std::vector<std::uint64_t> hashes = HashesAlong(update, seen.log);
  return {.seen = seen, .flashes = {hashes.begin(), hashes.end()}};
}

int ExitCode(const Observation& seen) {
  return WIFSIGNALED(seen.waitStatus) ? 128 + WTERMSIG(seen.waitStatus)
                                      : WEXITSTATUS(seen.waitStatus);
}

std::vector<std::string> ViolationsOf(const Plan& plan,
                                      const Update& update,
                                      const Reference& reference,
                                      const Observation& seen) {
  return Judge(plan, update, reference, seen).Violations();
}

}  // namespace soak
