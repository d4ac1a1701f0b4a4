// Disturbs many runs of the virtual instrument, and checks how each ends.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "proofs/soak/Judge.h"
#include "proofs/soak/Plan.h"
#include "proofs/soak/Trial.h"
#include "proofs/soak/Update.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace soak {
namespace {

constexpr const char* kHelp = R"(Usage: soak [OPTION]...
Makes runs of orvane-sim from a seed, on all cores. Most are killed, stopped or starved. Fails when
one of them breaks a rule.

  --runs N     how many (2200)
  --seconds N  ends earlier, after this time
  --seed N     selects the runs (1)
  --only N     makes run N only, and shows what it left
  --help       shows this text
)";

constexpr int kBroken = 1;
constexpr int kTrouble = 2;

struct Options {
  std::uint64_t runs = 2200;
  std::optional<std::uint64_t> seconds;
  std::uint64_t seed = 1;
  std::optional<std::uint64_t> only;
  bool help = false;
};

std::uint64_t Number(const std::string& text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || at != end || error != std::errc()) {
    throw std::invalid_argument("not a number: '" + text + "'");
  }
  return number;
}

/// @throw std::invalid_argument
Options Parse(const std::vector<std::string>& words) {
  Options options;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    const std::string& name = words[i];
    if (name == "--help") {
      return {.help = true};
    }
    if (name != "--runs" && name != "--seconds" && name != "--seed" && name != "--only") {
      throw std::invalid_argument("unknown option '" + name + "'");
    }
    if (i + 1 == words.size()) {
      throw std::invalid_argument("option '" + name + "' needs a value");
    }
    const std::uint64_t value = Number(words[i + 1]);
    if (name == "--runs") {
      options.runs = value;
    } else if (name == "--seconds") {
      options.seconds = value;
    } else if (name == "--seed") {
      options.seed = value;
    } else {
      options.only = value;
    }
  }
  return options;
}

/// What this machine cannot do, with the reason.
struct Lacks {
  std::map<Disturbance, std::string> reasons;

  [[nodiscard]] bool Has(Disturbance disturbance) const { return reasons.count(disturbance) != 0; }
};

/// Whether orvane-sim starts at all when memory is limited to this much. With the address sanitizer
/// it does not.
bool StartsWithMemory(rlim_t bytes) {
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit limit = {.rlim_cur = bytes, .rlim_max = bytes};
    ::setrlimit(RLIMIT_AS, &limit);
    ::close(STDOUT_FILENO);
    ::close(STDERR_FILENO);
    ::execl(ORVANE_SIM, ORVANE_SIM, "--version", nullptr);
    ::_exit(1);
  }
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

Lacks WhatIsLacking() {
  constexpr rlim_t kPlenty = rlim_t{1} << 30U;
  Lacks lacks;
  if (!EnterMountNamespace()) {
    for (const Disturbance small : {Disturbance::kSmallTemporary, Disturbance::kSmallFlash}) {
      lacks.reasons[small] = "this user may not mount file systems";
    }
  }
  if (!StartsWithMemory(kPlenty)) {
    lacks.reasons[Disturbance::kMemory] = "this build does not start in 1 GiB of memory";
  }
  return lacks;
}

/// The numbers of a class of runs.
struct Count {
  std::size_t runs = 0;
  std::size_t missed = 0;  // the signal did not find its target
  std::size_t broken = 0;
  std::map<int, std::size_t> codes;
};

std::string Line(const std::string& name, const Count& count) {
  std::string text = name + ": " + std::to_string(count.runs) + " runs, exit code";
  for (const auto& [code, runs] : count.codes) {
    text += " " + std::to_string(code) + " (" + std::to_string(runs) + ")";
  }
  if (count.missed > 0) {
    text += ", " + std::to_string(count.missed) + " times the target was not there";
  }
  return text + ", " + std::to_string(count.broken) + " broke a rule";
}

/// All runs, their results, and what they are compared with.
class Soak {
 public:
  Soak(const Options& options, std::filesystem::path folder, const Lacks& lacks)
      : options_(options), folder_(std::move(folder)), lacks_(lacks), updates_(AllUpdates()) {}

  /// @return whether no run broke a rule
  bool Make() {
    if (!MakeReferences()) {
      return false;
    }
    if (options_.only) {
      MakeRun(Trial(folder_ / "0", MayMount()), *options_.only);
    } else {
      MakeAll();
    }
    if (!IsInterrupted()) {
      Report();
    }
    return broken_ == 0;
  }

 private:
  [[nodiscard]] bool MayMount() const { return !lacks_.Has(Disturbance::kSmallFlash); }

  /// Runs that nothing else disturbs, one after another, for the duration too.
  bool MakeReferences() {
    const Trial trial(folder_ / "0", false);
    for (std::size_t i = 0; i < updates_.size() && !IsInterrupted(); ++i) {
      const Plan plan{.update = i};
      const Observation seen = trial.Make(plan, updates_[i], 0);
      references_.push_back(MakeReference(updates_[i], seen));
      if (!IsInterrupted() && !Judge("undisturbed", plan, seen).empty()) {
        return false;
      }
    }
    return true;
  }

  std::vector<std::string> Judge(const std::string& name,
                                 const Plan& plan,
                                 const Observation& seen) {
    std::vector<std::string> violations =
        ViolationsOf(plan, updates_[plan.update], references_[plan.update], seen);
    for (const std::string& violation : violations) {
      std::cout << "run " << plan.index << " of seed " << plan.seed << " (" << name << ", "
                << updates_[plan.update].target << "): " << violation << std::endl;
    }
    return violations;
  }

  void MakeAll() {
    const auto start = std::chrono::steady_clock::now();
    std::atomic<std::uint64_t> next = 0;
    std::vector<std::jthread> workers;
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned core = 0; core < cores; ++core) {
      workers.emplace_back([&, core] {
        const Trial trial(folder_ / std::to_string(core), MayMount());
        for (std::uint64_t index = next++; index < options_.runs; index = next++) {
          const auto passed = std::chrono::steady_clock::now() - start;
          if (IsInterrupted() ||
              (options_.seconds &&
               passed >= std::chrono::seconds(static_cast<std::int64_t>(*options_.seconds)))) {
            return;
          }
          MakeRun(trial, index);
        }
      });
    }
  }

  void MakeRun(const Trial& trial, std::uint64_t index) {
    const Plan plan = PlanOf(options_.seed, index, updates_.size());
    if (lacks_.Has(plan.disturbance)) {
      return;
    }
    const Reference& reference = references_[plan.update];
    std::optional<Observation> seen;
    std::string trouble;
    try {
      seen = trial.Make(plan, updates_[plan.update], reference.seen.seconds);
    } catch (const std::exception& error) {
      trouble = error.what();
    }
    if (IsInterrupted()) {
      return;
    }
    const std::scoped_lock lock(mutex_);
    Count& count = counts_[ClassOf(plan)];
    ++count.runs;
    if (!seen) {
      std::cout << "run " << index << " of seed " << plan.seed << ": " << trouble << std::endl;
      ++count.broken;
      ++broken_;
      return;
    }
    ++count.codes[ExitCode(*seen)];
    count.missed += plan.signal != 0 && !seen->isHit ? 1 : 0;
    if (!Judge(ClassOf(plan), plan, *seen).empty()) {
      ++count.broken;
      ++broken_;
    }
    if (options_.only) {
      std::cout << "standard output:\n"
                << seen->out << "standard error:\n"
                << seen->err << "log:\n"
                << seen->log << "state:\n"
                << seen->state.value_or("") << std::flush;
    }
  }

  void Report() const {
    std::size_t runs = 0;
    for (const auto& [name, count] : counts_) {
      std::cout << Line(name, count) << "\n";
      runs += count.runs;
    }
    for (const auto& [disturbance, reason] : lacks_.reasons) {
      std::cout << ClassOf({.disturbance = disturbance}) << ": left out, " << reason << "\n";
    }
    std::cout << runs << " runs of seed " << options_.seed << ", " << broken_ << " broke a rule"
              << std::endl;
  }

  const Options& options_;
  std::filesystem::path folder_;
  const Lacks& lacks_;
  std::vector<Update> updates_;
  std::vector<Reference> references_;
  std::mutex mutex_;  // guards what follows
  std::map<std::string, Count> counts_;
  std::size_t broken_ = 0;
};

volatile sig_atomic_t endedBy = 0;

void OnSignal(int signal) {
  endedBy = signal;
  Interrupt();
}

int Main(const std::vector<std::string>& words) {
  try {
    const Options options = Parse(words);
    if (options.help) {
      std::cout << kHelp;
      return 0;
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      static_cast<void>(::signal(signal, OnSignal));
    }
    const Lacks lacks = WhatIsLacking();
    const ::TemporaryDirectory folder;
    const bool holds = Soak(options, folder.Path(), lacks).Make();
    return endedBy != 0 ? 128 + endedBy : holds ? 0 : kBroken;
  } catch (const std::invalid_argument& error) {
    std::cerr << "soak: " << error.what() << "\nTry 'soak --help'.\n";
  } catch (const std::exception& error) {
    std::cerr << "soak: " << error.what() << "\n";
  }
  return kTrouble;
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) { return soak::Main({argv + (argc > 0 ? 1 : 0), argv + argc}); }
