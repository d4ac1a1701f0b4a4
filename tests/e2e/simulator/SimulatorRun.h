#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {

/// What is there after orvane-sim has ended.
struct SimulatorOutcome {
  int status = -1;  // its exit status; 1000 + n when signal n ended orvane-sim itself
  std::string out;
  std::string err;
  std::string log;
  std::vector<std::string> leftovers;  // in its directory for temporary files
};

/// One run of orvane-sim in a new working directory, which is removed with the object. A run that
/// has not been waited for is killed. Options and commands are split into words, see SplitWords().
class SimulatorRun {
 public:
  SimulatorRun();
  SimulatorRun(const SimulatorRun&) = delete;
  SimulatorRun& operator=(const SimulatorRun&) = delete;

  /// Adds options before those that every run has: --fast and --log.
  void Option(const std::string& words);
  void WithoutFast() { fast_ = false; }
  void WithoutLog() { log_ = false; }
  /// Starts orvane-sim with this descriptor closed.
  void CloseStandard(int descriptor) { closed_.push_back(descriptor); }
  /// Starts orvane-sim with one more descriptor, which reads this file.
  void OpenExtra(int descriptor, std::string path) {
    extra_.emplace_back(descriptor, std::move(path));
  }
  /// Starts orvane-sim by another program, whose last arguments are the words of orvane-sim.
  /// @param words  the path of that program, and its first arguments
  void Launcher(std::vector<std::string> words) { launcher_ = std::move(words); }
  void Environment(std::string name, std::string value) {
    environment_.emplace_back(std::move(name), std::move(value));
  }

  /// Runs the probe with these steps to the end.
  SimulatorOutcome Probe(const std::vector<std::string>& steps);
  /// Runs a shell command to the end; "$PROBE" in it is the probe.
  SimulatorOutcome Shell(const std::string& command);
  /// Runs orvane-sim with just these words to the end, with neither --fast nor --log.
  SimulatorOutcome Words(const std::string& words);

  /// Starts a shell command and returns.
  /// @param outputEnd  what its standard output is; -1: a file
  void StartShell(const std::string& command, int outputEnd = -1);
  pid_t Process() const { return process_.value().Id(); }
  SimulatorOutcome Wait();

  /// Where orvane-sim creates its own directory. Its TMPDIR is this.
  std::filesystem::path Temporary() const { return directory_ / "tmp"; }
  std::filesystem::path File(std::string_view name) const { return directory_ / "cwd" / name; }
  std::string ReadFile(std::string_view name) const;
  /// The lines about modules in the file "state", without the last one, about the instrument.
  std::string ModuleStates() const;
  void WriteFile(std::string_view name, std::string_view contents) const;

 private:
  void Start(std::vector<std::string> words, int outputEnd);
  std::vector<std::string> WithOptions(std::vector<std::string> command) const;

  ::TemporaryDirectory temporary_;
  std::filesystem::path directory_;
  std::vector<std::string> launcher_;
  std::vector<std::string> options_;
  bool fast_ = true;
  bool log_ = true;
  std::vector<int> closed_;
  std::vector<std::pair<int, std::string>> extra_;
  std::vector<std::pair<std::string, std::string>> environment_;
  std::optional<ChildProcess> process_;
};

}  // namespace orvane
