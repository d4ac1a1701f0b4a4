#include "tests/e2e/simulator/SimulatorRun.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace orvane {

namespace {

namespace fs = std::filesystem;

constexpr int kEndedBySignal = 1000;

std::string Slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<char*> Pointers(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

void Check(int error, const char* what) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), what);
  }
}

}  // namespace

// A short path: orvane-sim is to take its own directory from it, sockets included.
SimulatorRun::SimulatorRun() : temporary_("/tmp"), directory_(temporary_.path()) {
  fs::create_directory(directory_ / "cwd");
  fs::create_directory(directory_ / "tmp");
}

SimulatorRun::~SimulatorRun() {
  if (process_ > 0) {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
}

void SimulatorRun::Option(std::initializer_list<std::string> words) {
  options_.insert(options_.end(), words.begin(), words.end());
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

SimulatorOutcome SimulatorRun::Probe(std::vector<std::string> steps) {
  steps.insert(steps.begin(), DEVICE_PROBE);
  Start(WithOptions(std::move(steps)), -1);
  return Wait();
}

SimulatorOutcome SimulatorRun::Shell(const std::string& command) {
  StartShell(command);
  return Wait();
}

SimulatorOutcome SimulatorRun::Words(std::vector<std::string> words) {
  Start(std::move(words), -1);
  return Wait();
}

void SimulatorRun::StartShell(const std::string& command, int outputEnd) {
  Start(WithOptions({"/bin/sh", "-c", command}), outputEnd);
}

void SimulatorRun::Start(std::vector<std::string> words, int outputEnd) {
  words.insert(words.begin(), ORVANE_SIM);
  std::vector<std::string> variables = environment_;
  variables.push_back("TMPDIR=" + (directory_ / "tmp").string());
  variables.push_back("PROBE=" DEVICE_PROBE);
  for (char** variable = environ; *variable != nullptr; ++variable) {
    variables.emplace_back(*variable);  // ours come first and count
  }

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (outputEnd >= 0) {
    ::posix_spawn_file_actions_adddup2(&actions, outputEnd, 1);
  } else {
    ::posix_spawn_file_actions_addopen(&actions, 1, (directory_ / "out").c_str(), kFlags, 0600);
  }
  ::posix_spawn_file_actions_addopen(&actions, 2, (directory_ / "err").c_str(), kFlags, 0600);
  // Whoever started the tests may have left descriptors open; the numbers that follow are compared.
  ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  for (const int descriptor : closed_) {
    ::posix_spawn_file_actions_addclose(&actions, descriptor);
  }
  for (const auto& [descriptor, path] : extra_) {
    ::posix_spawn_file_actions_addopen(&actions, descriptor, path.c_str(), O_RDONLY, 0);
  }
  ::posix_spawn_file_actions_addchdir_np(&actions, (directory_ / "cwd").c_str());
  const int failed = ::posix_spawn(
      &process_, ORVANE_SIM, &actions, nullptr, Pointers(words).data(), Pointers(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  Check(failed, ORVANE_SIM);
}

SimulatorOutcome SimulatorRun::Wait() {
  int status = 0;
  if (::waitpid(std::exchange(process_, -1), &status, 0) < 0) {
    Check(errno, "waitpid");
  }
  SimulatorOutcome outcome = {
      .status = WIFEXITED(status) ? WEXITSTATUS(status) : kEndedBySignal + WTERMSIG(status),
      .out = Slurp(directory_ / "out"),
      .err = Slurp(directory_ / "err"),
      .log = Slurp(directory_ / "log")};
  for (const auto& entry : fs::directory_iterator(directory_ / "tmp")) {
    outcome.leftovers.push_back(entry.path().filename().string());
  }
  return outcome;
}

std::string SimulatorRun::ReadFile(std::string_view name) const { return Slurp(File(name)); }

void SimulatorRun::WriteFile(std::string_view name, std::string_view contents) const {
  std::ofstream file(File(name), std::ios::binary);
  file << contents;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + std::string(name));
  }
}

}  // namespace orvane
