#include "tests/e2e/VirtualInstrument.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "tests/doubles/ChildProcess.h"

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

/// The program under test; the environment of the tests can name another build.
std::string Program() {
  const char* const named = std::getenv("TARNWICK_BINARY");
  return named != nullptr ? named : TARNWICK_BINARY_PATH;
}

/// Much more than any run takes. A program that hangs is ended then, so that the other rows still
/// run; the instrument passes the signal on.
constexpr int kLongestRunMilliseconds = 300'000;

}  // namespace

VirtualInstrument::VirtualInstrument() : directory_(temporary_.Path()) {
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
  // The soft limit only: the hard limit would end the run with SIGKILL, which other causes can
  // send, too.
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
  ChildProcess simulator({.words = words,
                          .directory = File("").string(),
                          .environment = environment_,
                          .unset = {"SPI_CLOCK_SPEED"},
                          .out = out,
                          .err = err});
  const int exitCode = simulator.Wait(kLongestRunMilliseconds).ExitCode();
  return {.out = Slurp<std::string>(out),
          .err = Slurp<std::string>(err),
          .exitCode = exitCode,
          .log = Slurp<std::string>(log)};
}

}  // namespace program_test
