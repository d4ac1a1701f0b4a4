#pragma once

#include <sys/types.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {

/// What a finished orvane-sim left.
struct SimulatorOutcome {
  int status = -1;  // its exit status; 1000 + n when signal n ended orvane-sim itself
  std::string out;
  std::string err;
  std::string log;
  std::vector<std::string> leftovers;  // in its directory for temporary files
};

/// One run of orvane-sim in a fresh working directory, which goes with the object.
class SimulatorRun {
 public:
  SimulatorRun();
  SimulatorRun(const SimulatorRun&) = delete;
  SimulatorRun& operator=(const SimulatorRun&) = delete;
  /// A run that has not been waited for is killed.
  ~SimulatorRun();

  /// Options in front of those that every run has: --fast and --log.
  void Option(std::initializer_list<std::string> words);
  void WithoutFast() { fast_ = false; }
  void WithoutLog() { log_ = false; }
  /// Starts orvane-sim with this descriptor closed.
  void CloseStandard(int descriptor) { closed_.push_back(descriptor); }
  /// Starts orvane-sim with one more descriptor, which reads this file.
  void OpenExtra(int descriptor, std::string path) {
    extra_.emplace_back(descriptor, std::move(path));
  }
  void Environment(std::string variable) { environment_.push_back(std::move(variable)); }

  /// Runs the probe with these steps to the end.
  SimulatorOutcome Probe(std::vector<std::string> steps);
  /// Runs a shell command to the end; "$PROBE" in it is the probe.
  SimulatorOutcome Shell(const std::string& command);
  /// Runs orvane-sim with just these words to the end, with neither --fast nor --log.
  SimulatorOutcome Words(std::vector<std::string> words);

  /// Starts a shell command and returns.
  /// @param outputEnd  what its standard output is; -1: a file
  void StartShell(const std::string& command, int outputEnd = -1);
  pid_t Process() const { return process_; }
  SimulatorOutcome Wait();

  std::filesystem::path File(std::string_view name) const { return directory_ / "cwd" / name; }
  std::string ReadFile(std::string_view name) const;
  void WriteFile(std::string_view name, std::string_view contents) const;

 private:
  void Start(std::vector<std::string> words, int outputEnd);
  std::vector<std::string> WithOptions(std::vector<std::string> command) const;

  ::TemporaryDirectory temporary_;
  std::filesystem::path directory_;
  std::vector<std::string> options_;
  bool fast_ = true;
  bool log_ = true;
  std::vector<int> closed_;
  std::vector<std::pair<int, std::string>> extra_;
  std::vector<std::string> environment_;
  pid_t process_ = -1;
};

}  // namespace orvane
