#include "tests/e2e/VirtualInstrument.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>
#include <system_error>

namespace program_test {

namespace {

namespace fs = std::filesystem;

template <typename Container>
Container Slurp(const fs::path& path) {
  Container contents(static_cast<std::size_t>(fs::file_size(path)), 0);
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(contents.data()),
            static_cast<std::streamsize>(contents.size()));
  if (!file) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return contents;
}

/// The program under test; another build can be named in the environment of the tests.
std::string Program() {
  const char* const named = std::getenv("TARNWICK_BINARY");
  return named != nullptr ? named : TARNWICK_BINARY_PATH;
}

/// Far more than any run takes. A program that hangs where ours does not is ended then, so that the
/// other rows are still judged.
constexpr int kLongestRunMilliseconds = 300'000;

/// @return as waitpid() gives it
int StatusOf(pid_t child) {
  const long descriptor = ::syscall(SYS_pidfd_open, child, 0);  // glibc's has no C++ linkage yet
  pollfd end = {.fd = static_cast<int>(descriptor), .events = POLLIN, .revents = 0};
  if (::poll(&end, 1, kLongestRunMilliseconds) == 0) {
    ::kill(child, SIGTERM);  // the instrument passes it on
  }
  ::close(end.fd);
  int status = 0;
  if (::waitpid(child, &status, 0) != child) {
    throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
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

/// The environment of this process with some variables set, and the SPI clock at its default.
std::vector<std::string> EnvironmentWith(
    const std::vector<std::pair<std::string, std::string>>& wanted) {
  std::map<std::string, std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    const std::size_t equals = text.find('=');
    variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  variables.erase("SPI_CLOCK_SPEED");
  for (const auto& [name, value] : wanted) {
    variables[name] = value;
  }
  std::vector<std::string> texts;
  texts.reserve(variables.size());
  for (const auto& [name, value] : variables) {
    texts.push_back(std::string(name).append("=").append(value));
  }
  return texts;
}

}  // namespace

VirtualInstrument::VirtualInstrument() : directory_(temporary_.path()) {
  fs::create_directory(directory_ / "cwd");
}

void VirtualInstrument::Option(std::vector<std::string> words) {
  options_.insert(options_.end(), words.begin(), words.end());
}

void VirtualInstrument::Environment(std::string name, std::string value) {
  environment_.emplace_back(std::move(name), std::move(value));
}

fs::path VirtualInstrument::File(std::string_view name) const { return directory_ / "cwd" / name; }

void VirtualInstrument::WriteFile(std::string_view name, const Bytes& contents) const {
  std::ofstream file(File(name), std::ios::binary);
  file.write(reinterpret_cast<const char*>(contents.data()),
             static_cast<std::streamsize>(contents.size()));
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + std::string(name));
  }
}

Bytes VirtualInstrument::ReadFile(std::string_view name) const { return Slurp<Bytes>(File(name)); }

Outcome VirtualInstrument::Run(const std::vector<std::string>& words) {
  std::vector<std::string> command = {Program()};
  command.insert(command.end(), words.begin(), words.end());
  return RunCommand(command);
}

Outcome VirtualInstrument::RunLimited(const std::vector<std::string>& words) {
  // The soft limit alone: the hard one would end the run in SIGKILL, as other things may.
  std::vector<std::string> command = {
      "/bin/sh", "-c", R"(ulimit -c 0; ulimit -S -t 1; exec "$@")", "sh", Program()};
  command.insert(command.end(), words.begin(), words.end());
  return RunCommand(command);
}

Outcome VirtualInstrument::RunShell(const std::string& command) {
  Environment("TARNWICK", Program());
  return RunCommand({"/bin/sh", "-c", command});
}

Outcome VirtualInstrument::RunCommand(const std::vector<std::string>& command) {
  const fs::path out = directory_ / "out";
  const fs::path err = directory_ / "err";
  const fs::path log = directory_ / "log";
  std::vector<std::string> words = {ORVANE_SIM_PATH, "--fast", "--log", log.string()};
  words.insert(words.end(), options_.begin(), options_.end());
  words.emplace_back("--");
  words.insert(words.end(), command.begin(), command.end());
  std::vector<std::string> variables = EnvironmentWith(environment_);

  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), kFlags, 0600);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), kFlags, 0600);
  ::posix_spawn_file_actions_addchdir_np(&actions, (directory_ / "cwd").c_str());
  pid_t child = -1;
  const int failed = ::posix_spawn(&child,
                                   words.front().c_str(),
                                   &actions,
                                   nullptr,
                                   Pointers(words).data(),
                                   Pointers(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    throw std::system_error(failed, std::generic_category(), words.front());
  }
  const int status = StatusOf(child);
  return {.out = Slurp<std::string>(out),
          .err = Slurp<std::string>(err),
          .exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
          .log = Slurp<std::string>(log)};
}

}  // namespace program_test
