// Compares what the companion predicts for image files with what the program does.

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "cli/CommandLine.h"
#include "proofs/predictions/Judge.h"
#include "proofs/predictions/Triple.h"

namespace predictions {
namespace {

constexpr const char* kHelp = R"(Usage: predictions [OPTION]...
Draws image files, contents of the flash and module types from a seed, predicts how tarnwick ends,
and runs it on the virtual instrument, on all cores. Fails when a prediction is wrong.

  --runs N     how many (2000)
  --seconds N  ends earlier, after this time
  --seed N     selects the runs (1)
  --only N     makes run N only
  --help       shows this text
  --version    shows the version
)";

constexpr int kWrong = 1;

struct Options {
  std::uint64_t runs = 2000;
  std::optional<std::uint64_t> seconds;
  std::uint64_t seed = 1;
  std::optional<std::uint64_t> only;
};

std::uint64_t Number(const std::string& text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || at != end || error != std::errc()) {
    throw std::invalid_argument("'" + text + "' is no number");
  }
  return number;
}

/// All runs, and what they came to.
class Proof {
 public:
  explicit Proof(const Options& options) : options_(options) {}

  /// @return whether every prediction was right
  bool Make() {
    if (options_.only) {
      MakeRun(*options_.only);
    } else {
      MakeAll();
    }
    Report();
    return wrong_ == 0;
  }

 private:
  void MakeAll() {
    std::atomic<std::uint64_t> next = 0;
    std::vector<std::jthread> workers;
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned core = 0; core < cores; ++core) {
      workers.emplace_back([&] {
        for (std::uint64_t index = next++; index < options_.runs && !IsOver(); index = next++) {
          MakeRun(index);
        }
      });
    }
  }

  [[nodiscard]] bool IsOver() const {
    return options_.seconds &&
           Passed() >= std::chrono::duration<double>(static_cast<double>(*options_.seconds));
  }

  [[nodiscard]] std::chrono::duration<double> Passed() const {
    return std::chrono::steady_clock::now() - start_;
  }

  void MakeRun(std::uint64_t index) {
    const Triple triple = TripleOf(options_.seed, index);
    Comparison result;
    try {
      result = Compare(triple);
    } catch (const std::exception& error) {
      result.wrong = error.what();
    }
    const std::string name = triple.target + ", " + triple.kind;
    const std::scoped_lock lock(mutex_);
    ++runs_;
    ++counts_[result.prediction.text];
    kinds_.insert({triple.kind, 0}).first->second += 1;
    if (!result.wrong.empty()) {
      ++wrong_;
    }
    if (!result.wrong.empty() || options_.only) {
      std::cout << "run " << index << " of seed " << options_.seed << " (" << name
                << "): predicted " << result.prediction.text
                << (result.wrong.empty() ? "" : ", but " + result.wrong) << std::endl;
    }
  }

  void Report() const {
    for (const auto& [kind, runs] : kinds_) {
      std::cout << runs << " runs: " << kind << "\n";
    }
    for (const auto& [text, runs] : counts_) {
      std::cout << runs << " predictions: " << text << "\n";
    }
    std::cout << runs_ << " runs of seed " << options_.seed << " in "
              << static_cast<std::uint64_t>(Passed().count()) << " s, " << wrong_
              << " wrong predictions" << std::endl;
  }

  const Options& options_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::mutex mutex_;  // guards what follows
  std::map<std::string, std::size_t> counts_;
  std::map<std::string, std::size_t> kinds_;
  std::size_t runs_ = 0;
  std::size_t wrong_ = 0;
};

int Main(const std::vector<const char*>& words) {
  Options options;
  cli::CommandLine line("predictions", kHelp);
  cli::OptionSet& known = line.Options();
  known.AddOption("--runs", [&](const std::string& text) { options.runs = Number(text); });
  known.AddOption("--seconds", [&](const std::string& text) { options.seconds = Number(text); });
  known.AddOption("--seed", [&](const std::string& text) { options.seed = Number(text); });
  known.AddOption("--only", [&](const std::string& text) { options.only = Number(text); });
  try {
    if (const std::optional<std::string> answer = line.Read(words)) {
      std::cout << *answer;
      return 0;
    }
  } catch (const cli::UsageError& error) {
    std::cerr << cli::UsageText("predictions", error.what());
    return cli::kExitUsage;
  }
  return Proof(options).Make() ? 0 : kWrong;
}

}  // namespace
}  // namespace predictions

int main(int argc, char* argv[]) { return predictions::Main({argv + 1, argv + argc}); }
