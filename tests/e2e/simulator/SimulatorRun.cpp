#include "tests/e2e/simulator/SimulatorRun.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace orvane {

namespace {

namespace fs = std::filesystem;

constexpr int kEndedBySignal = 1000;

/// In blocks: 16 MiB byte by byte take long in debug builds.
std::string Slurp(const fs::path& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

}  // namespace

// A short path: orvane-sim creates its own directory there, with sockets.
SimulatorRun::SimulatorRun() : temporary_("/tmp"), directory_(temporary_.Path()) {
  fs::create_directory(directory_ / "cwd");
  fs::create_directory(directory_ / "tmp");
}

void SimulatorRun::Option(const std::string& words) {
  std::ranges::move(SplitWords(words), std::back_inserter(options_));
}

std::vector<std::string> SimulatorRun::WithOptions(std::vector<std::string> command) const {
  std::vector<std::string> words = options_;
  if (fast_) {
    words.emplace_back("--fast");
  }
  if (log_) {
    words.insert(words.end(), {"--log", (directory_ / "log").string()});
  }
  words.emplace_back("--");
  std::move(command.begin(), command.end(), std::back_inserter(words));
  return words;
}

SimulatorOutcome SimulatorRun::Probe(const std::vector<std::string>& steps) {
  std::vector<std::string> command = {DEVICE_PROBE};
  for (const std::string& step : steps) {
    std::ranges::move(SplitWords(step), std::back_inserter(command));
  }
  Start(WithOptions(std::move(command)), -1);
  return Wait();
}

SimulatorOutcome SimulatorRun::Shell(const std::string& command) {
  StartShell(command);
  return Wait();
}

SimulatorOutcome SimulatorRun::Words(const std::string& words) {
  Start(SplitWords(words), -1);
  return Wait();
}

void SimulatorRun::StartShell(const std::string& command, int outputEnd) {
  Start(WithOptions({"/bin/sh", "-c", command}), outputEnd);
}

void SimulatorRun::Start(std::vector<std::string> words, int outputEnd) {
  words.insert(words.begin(), ORVANE_SIM);
  words.insert(words.begin(), launcher_.begin(), launcher_.end());
  std::vector<std::pair<std::string, std::string>> variables = {{"TMPDIR", directory_ / "tmp"},
                                                                {"PROBE", DEVICE_PROBE}};
  variables.insert(variables.end(), environment_.begin(), environment_.end());
  process_.emplace(ChildProcess::Start{.words = std::move(words),
                                       .directory = directory_ / "cwd",
                                       .environment = variables,
                                       .out = outputEnd < 0 ? directory_ / "out" : "",
                                       .err = directory_ / "err",
                                       .outEnd = outputEnd,
                                       .closed = closed_,
                                       .readers = extra_});
}

SimulatorOutcome SimulatorRun::Wait() {
  const ChildProcess::End end = process_.value().Wait();
  SimulatorOutcome outcome = {.status = end.isSignal ? kEndedBySignal + end.number : end.number,
                              .out = Slurp(directory_ / "out"),
                              .err = Slurp(directory_ / "err"),
                              .log = Slurp(directory_ / "log")};
  for (const auto& entry : fs::directory_iterator(directory_ / "tmp")) {
    outcome.leftovers.push_back(entry.path().filename().string());
  }
  return outcome;
}

std::string SimulatorRun::ReadFile(std::string_view name) const { return Slurp(File(name)); }

std::string SimulatorRun::ModuleStates() const {
  const std::string state = ReadFile("state");
  return state.substr(0, state.find("instrument "));
}

void SimulatorRun::WriteFile(std::string_view name, std::string_view contents) const {
  std::ofstream file(File(name), std::ios::binary);
  file << contents;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + std::string(name));
  }
}

}  // namespace orvane
