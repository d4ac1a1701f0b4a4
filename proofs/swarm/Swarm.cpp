// Makes worlds from a seed, judges them, and cuts those that break a rule down.

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "proofs/swarm/Driver.h"
#include "proofs/swarm/Judge.h"
#include "proofs/swarm/Run.h"
#include "proofs/swarm/Shrink.h"
#include "proofs/swarm/World.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace swarm {
namespace {

constexpr const char* kHelp = R"(Usage: swarm [OPTION]...
Draws worlds from a seed: a module, its images, faults, cuts, and the updates that are made meanwhile.
Fails when one of them breaks a rule.

  --worlds N        how many (2000)
  --seconds N       ends earlier, after this time
  --seed N          selects the worlds (1)
  --first N         the number of the first one (0)
  --draw N          only shows world N
  --world TEXT      makes this world only, and shows what was seen
  --log FILE        with --world: writes the log of its instruments to FILE
  --console FILE    with --world: writes what its steps printed to FILE
  --companion PATH  another tarnwickctl
  --program PATH    another tarnwick
  --violations N    ends when that many worlds have broken a rule (20)
  --shrink N        0: worlds that break a rule are not cut down (1)
  --help            shows this text
)";

constexpr int kBroken = 1;
constexpr int kTrouble = 2;
constexpr std::uint64_t kTwiceEvery = 50;  // worlds of which one is made twice, with its log

struct Options {
  std::uint64_t worlds = 2000;
  std::optional<std::uint64_t> seconds;
  std::uint64_t seed = 1;
  std::uint64_t first = 0;
  std::optional<std::uint64_t> draw;
  std::string world;
  std::string log;
  std::string console;
  Programs programs{.driver = "/proc/self/exe", .program = TARNWICK, .companion = TARNWICKCTL};
  std::uint64_t violations = 20;
  bool shrinks = true;
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

std::string Absolute(const std::string& path) { return std::filesystem::absolute(path); }

/// @throw std::invalid_argument
void Take(Options& options, const std::string& name, const std::string& value) {
  if (name == "--worlds") {
    options.worlds = Number(value);
  } else if (name == "--seconds") {
    options.seconds = Number(value);
  } else if (name == "--seed") {
    options.seed = Number(value);
  } else if (name == "--first") {
    options.first = Number(value);
  } else if (name == "--draw") {
    options.draw = Number(value);
  } else if (name == "--world") {
    options.world = value;
  } else if (name == "--log") {
    options.log = value;
  } else if (name == "--console") {
    options.console = value;
  } else if (name == "--companion") {
    options.programs.companion = Absolute(value);
  } else if (name == "--program") {
    options.programs.program = Absolute(value);
  } else if (name == "--shrink") {
    options.shrinks = Number(value) != 0;
  } else if (name == "--violations") {
    options.violations = Number(value);
  } else {
    throw std::invalid_argument("unknown option '" + name + "'");
  }
}

/// @throw std::invalid_argument
Options ParseOptions(const std::vector<std::string>& words) {
  Options options;
  for (std::size_t i = 0; i < words.size(); i += 2) {
    if (words[i] == "--help") {
      return {.help = true};
    }
    if (i + 1 == words.size()) {
      throw std::invalid_argument("unknown option, or one without a value: '" + words[i] + "'");
    }
    Take(options, words[i], words[i + 1]);
  }
  options.programs.driver = std::filesystem::read_symlink("/proc/self/exe");
  if (!options.draw && options.programs.companion.empty()) {
    throw std::invalid_argument("this build has no tarnwickctl: name one with --companion");
  }
  return options;
}

void WriteText(const std::string& path, const std::string& text) {
  if (path.empty()) {
    return;
  }
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

/// A processor for the programs of one world: they ask and answer by turns.
void StayOn(unsigned core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  ::sched_setaffinity(0, sizeof set, &set);
}

class Swarm {
 public:
  Swarm(const Options& options, std::filesystem::path folder)
      : options_(options), folder_(std::move(folder)), start_(std::chrono::steady_clock::now()) {}

  /// @return whether no world broke a rule
  bool MakeAll() {
    {
      std::vector<std::jthread> workers;
      const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
      for (unsigned core = 0; core < cores; ++core) {
        workers.emplace_back([this, core] {
          StayOn(core);
          Work(folder_ / std::to_string(core));
        });
      }
    }
    Report();
    return broken_ == 0;
  }

  /// Makes a world, shows what was seen, and writes its log.
  bool MakeOne(const World& world) {
    const Made made = swarm::Make(world, options_.programs, folder_ / "0", true);
    for (const Observation& seen : made.record.steps) {
      std::cout << Print(seen) << "\n";
    }
    const std::vector<Violation> violations = ViolationsOf(world, made.record);
    for (const Violation& violation : violations) {
      std::cout << violation.rule << ": " << violation.details << "\n";
    }
    WriteText(options_.log, made.log);
    WriteText(options_.console, made.console);
    return violations.empty();
  }

 private:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

  bool IsOver() const {
    return IsInterrupted() || broken_ >= options_.violations ||
           (options_.seconds && Seconds() >= static_cast<double>(*options_.seconds));
  }

  void Work(const std::filesystem::path& folder) {
    for (std::uint64_t i = next_++; i < options_.worlds && !IsOver(); i = next_++) {
      const std::uint64_t index = options_.first + i;
      const World world = Draw(options_.seed, index);
      try {
        MakeAndJudge(world, index, folder);
      } catch (const std::exception& error) {
        const std::scoped_lock lock(mutex_);
        ++broken_;
        std::cout << "world " << index << " of seed " << options_.seed << ": " << error.what()
                  << std::endl;
      }
    }
  }

  void MakeAndJudge(const World& world, std::uint64_t index, const std::filesystem::path& folder) {
    const bool isMadeTwice = index % kTwiceEvery == 0;
    const Made made = swarm::Make(world, options_.programs, folder, isMadeTwice);
    std::vector<Violation> violations = ViolationsOf(world, made.record);
    if (isMadeTwice && violations.empty() &&
        swarm::Make(world, options_.programs, folder, true).log != made.log) {
      violations.push_back({"another log the second time", ""});
    }
    if (IsInterrupted()) {
      return;
    }
    {
      const std::scoped_lock lock(mutex_);
      Count(made);
      broken_ += violations.empty() ? 0 : 1;
    }
    if (!violations.empty()) {
      ShowBroken(world, index, violations, folder);
    }
  }

  /// Cuts the world down to what still breaks the first of its rules, and shows it.
  void ShowBroken(const World& world,
                  std::uint64_t index,
                  const std::vector<Violation>& violations,
                  const std::filesystem::path& folder) {
    const std::string rule = violations.front().rule;
    {
      const std::scoped_lock lock(mutex_);
      std::cout << "world " << index << " of seed " << options_.seed << ": " << rule << "\n    "
                << Replay(world) << "\n    " << violations.front().details << std::endl;
    }
    if (!options_.shrinks) {
      return;
    }
    std::string details;
    const World smallest = Shrink(world, [&](const World& smaller) {
      const Made made = swarm::Make(smaller, options_.programs, folder, false);
      const std::vector<Violation> all = ViolationsOf(smaller, made.record);
      const auto same = std::find_if(all.begin(), all.end(), [&](const Violation& violation) {
        return violation.rule == rule;
      });
      if (IsInterrupted() || same == all.end()) {
        return false;
      }
      details = same->details;
      return true;
    });
    const bool isSameLog = swarm::Make(smallest, options_.programs, folder, true).log ==
                           swarm::Make(smallest, options_.programs, folder, true).log;
    const std::scoped_lock lock(mutex_);
    std::cout << "world " << index << " cut down" << (isSameLog ? "" : ", its log differs")
              << ":\n    " << Replay(smallest) << "\n    " << details << std::endl;
  }

  static std::string Replay(const World& world) {
    return "scripts/swarm --world '" + Print(world) + "'";
  }

  void Count(const Made& made) {
    ++worlds_;
    instruments_ += made.instruments;
    for (const Observation& seen : made.record.steps) {
      const char kind = static_cast<char>(std::tolower(seen.what));
      const std::string name = seen.step == "final" ? "last update"
                               : kind == 't'        ? "bare tarnwick"
                               : kind == 'v'        ? "verify"
                                                    : "update";
      ++codes_[name][seen.code];
    }
  }

  void Report() const {
    for (const auto& [name, codes] : codes_) {
      std::cout << name << ":";
      for (const auto& [code, count] : codes) {
        std::cout << " " << (code < 0 ? "signal " : "exit code ") << std::abs(code) << " (" << count
                  << ")";
      }
      std::cout << "\n";
    }
    const double seconds = Seconds();
    std::cout << worlds_ << " worlds of seed " << options_.seed << " on " << instruments_
              << " instruments in " << static_cast<long>(seconds) << " s, "
              << static_cast<double>(static_cast<long>(worlds_ / seconds * 100)) / 100
              << " a second, " << broken_ << " broke a rule" << std::endl;
  }

  const Options& options_;
  std::filesystem::path folder_;
  std::chrono::steady_clock::time_point start_;
  std::atomic<std::uint64_t> next_ = 0;
  std::mutex mutex_;  // guards what follows, but for reading `broken_`
  std::atomic<std::size_t> broken_ = 0;
  double worlds_ = 0;
  std::size_t instruments_ = 0;
  std::map<std::string, std::map<int, std::size_t>> codes_;
};

volatile sig_atomic_t endedBy = 0;

void OnSignal(int signal) {
  endedBy = signal;
  Interrupt();
}

/// @param words  world, first step, whether it ends here, tarnwick, tarnwickctl, three descriptors
int DriveOnInstrument(const std::vector<std::string>& words) {
  const Drive drive{.world = Parse(words.at(0)),
                    .firstStep = static_cast<std::size_t>(Number(words.at(1))),
                    .endsHere = words.at(2) == "1",
                    .program = words.at(3),
                    .companion = words.at(4),
                    .control = std::stoi(words.at(5)),
                    .console = std::stoi(words.at(6)),
                    .observations = std::stoi(words.at(7))};
  MakeSteps(drive);
  return 0;
}

int MakeWorlds(const Options& options) {
  if (options.draw) {
    std::cout << Print(Draw(options.seed, *options.draw)) << "\n";
    return 0;
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    static_cast<void>(::signal(signal, OnSignal));
  }
  // In memory, where there is such a file system: the flash files are large.
  constexpr const char* kMemory = "/dev/shm";
  const std::string parent = ::access(kMemory, W_OK) == 0
                                 ? std::string(kMemory)
                                 : std::filesystem::temp_directory_path().string();
  const ::TemporaryDirectory folder(parent);
  Swarm swarm(options, folder.Path());
  const bool holds = options.world.empty() ? swarm.MakeAll() : swarm.MakeOne(Parse(options.world));
  return endedBy != 0 ? 128 + endedBy : holds ? 0 : kBroken;
}

int Main(const std::vector<std::string>& words) {
  try {
    if (!words.empty() && words.front() == "--drive") {
      return DriveOnInstrument({words.begin() + 1, words.end()});
    }
    const Options options = ParseOptions(words);
    if (options.help) {
      std::cout << kHelp;
      return 0;
    }
    return MakeWorlds(options);
  } catch (const std::invalid_argument& error) {
    std::cerr << "swarm: " << error.what() << "\nTry 'swarm --help'.\n";
  } catch (const std::exception& error) {
    std::cerr << "swarm: " << error.what() << "\n";
  }
  return kTrouble;
}

}  // namespace
}  // namespace swarm

int main(int argc, char** argv) { return swarm::Main({argv + (argc > 0 ? 1 : 0), argv + argc}); }
