#include "proofs/swarm/Run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "base/FileDescriptor.h"
#include "proofs/swarm/Images.h"
#include "tests/doubles/ChildProcess.h"

namespace swarm {

namespace {

namespace fs = std::filesystem;

// What the driver finds them under. The link of the instrument has a descriptor from 500 on.
constexpr int kInstrumentsEnd = 10;
constexpr int kDriversEnd = 11;
constexpr int kConsole = 12;
constexpr int kObservations = 13;

constexpr int kPowerCut = 128 + SIGKILL;
constexpr int kPollMilliseconds = 200;
constexpr int kLongestPolls = 5 * 1'000;  // far more than all steps of a world take

volatile sig_atomic_t interrupted = 0;

void Write(const fs::path& path, const Bytes& contents) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(contents.data()),
             static_cast<std::streamsize>(contents.size()));
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::string Slurp(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

FileDescriptor OpenForWriting(const fs::path& path) {
  FileDescriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file.IsOpen()) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
  return file;
}

/// The files of a world.
struct Place {
  fs::path folder;

  [[nodiscard]] fs::path Working() const { return folder / "w"; }
  [[nodiscard]] fs::path Temporary() const { return folder / "t"; }
  [[nodiscard]] fs::path Flash() const { return folder / "flash.bin"; }
  [[nodiscard]] fs::path File(const char* name) const { return folder / name; }
};

struct Actions {
  Actions() { ::posix_spawn_file_actions_init(&actions); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  ~Actions() { ::posix_spawn_file_actions_destroy(&actions); }
  posix_spawn_file_actions_t actions{};
};

/// One instrument.
struct Segment {
  std::size_t firstStep = 0;
  bool isFinal = false;  ///< nothing is wrong any more
};

class Maker {
 public:
  Maker(const World& world, const Programs& programs, const fs::path& folder, bool withLog)
      : world_(world), programs_(programs), place_{folder}, withLog_(withLog) {
    fs::remove_all(folder);
    fs::create_directories(place_.Working());
    fs::create_directories(place_.Temporary());
    Write(place_.Working() / "image.a", ImageFile(world, 'a'));
    Write(place_.Working() / "image.b", ImageFile(world, 'b'));
    Write(place_.Flash(), StartOfFlash(world));
  }
  Maker(const Maker&) = delete;
  Maker& operator=(const Maker&) = delete;
  ~Maker() {
    std::error_code ignored;
    fs::remove_all(place_.folder, ignored);
  }

  Made Make() {
    bool isOver = false;
    for (std::size_t first = 0; !isOver;) {
      const int status = Start({.firstStep = first});
      TakeObservations();
      if (status == kPowerCut) {
        first = std::max(StepsSeen(), first) + 1;  // the step that was cut is over
      } else if (status != 0) {
        AddTrouble(status);
        return Finish();
      }
      isOver = status == 0 || first >= world_.steps.size();
    }
    if (!HasEnd()) {
      const int status = Start({.firstStep = world_.steps.size(), .isFinal = true});
      TakeObservations();
      if (status != 0) {
        AddTrouble(status);
      }
    }
    return Finish();
  }

 private:
  std::vector<std::string> WordsOf(const Segment& segment) const {
    std::string keys = ",registers=" + Registers();
    std::vector<std::string> words = {ORVANE_SIM,
                                      "--fast",
                                      "--allow-unhit",
                                      "--file-events",
                                      "--clock-step",
                                      "500",
                                      "--control",
                                      std::to_string(kInstrumentsEnd)};
    if (withLog_) {
      words.insert(words.end(), {"--log", place_.File("log")});
    }
    for (const std::string& stay : world_.stays) {
      keys += "," + stay;
    }
    if (!segment.isFinal) {
      for (const std::string& key : world_.keys) {
        keys += "," + key;
      }
      for (const std::string& fault : world_.faults) {
        words.insert(words.end(), {"--fault", fault});
      }
    }
    const bool isEnd = segment.isFinal || world_.endsHere;
    words.insert(words.end(),
                 {"--module",
                  world_.type + "@" + std::to_string(SlotOf(world_)) + ",chip=" + world_.chip +
                      ",flash=" + place_.Flash().string() + keys,
                  "--",
                  programs_.driver,
                  "--drive",
                  Print(world_),
                  std::to_string(segment.firstStep),
                  isEnd ? "1" : "0",
                  programs_.program,
                  programs_.companion,
                  std::to_string(kDriversEnd),
                  std::to_string(kConsole),
                  std::to_string(kObservations)});
    return words;
  }

  std::vector<std::string> Environment() const {
    std::vector<std::string> environment = {"TMPDIR=" + place_.Temporary().string()};
    for (char** variable = environ; *variable != nullptr; ++variable) {
      const std::string text = *variable;
      if (!text.starts_with("TMPDIR=") && !text.starts_with("SPI_CLOCK_SPEED=")) {
        environment.push_back(text);
      }
    }
    return environment;
  }

  /// @return the exit status of the instrument
  int Start(const Segment& segment) {
    ++made_.instruments;
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    const FileDescriptor instrumentsEnd(ends[0]);
    const FileDescriptor driversEnd(ends[1]);
    const FileDescriptor console = OpenForWriting(place_.File("console"));
    const FileDescriptor observations = OpenForWriting(place_.File("observations"));
    const FileDescriptor errors = OpenForWriting(place_.File("errors"));

    Actions actions;
    ::posix_spawn_file_actions_addopen(&actions.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions.actions, errors.Get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions.actions, errors.Get(), STDERR_FILENO);
    // First to numbers that none of them has.
    constexpr int kApart = 100;
    const std::array<std::pair<int, int>, 4> places = {{{instrumentsEnd.Get(), kInstrumentsEnd},
                                                        {driversEnd.Get(), kDriversEnd},
                                                        {console.Get(), kConsole},
                                                        {observations.Get(), kObservations}}};
    for (const auto& [from, to] : places) {
      ::posix_spawn_file_actions_adddup2(&actions.actions, from, kApart + to);
    }
    for (const auto& [from, to] : places) {
      ::posix_spawn_file_actions_adddup2(&actions.actions, kApart + to, to);
      ::posix_spawn_file_actions_addclose(&actions.actions, kApart + to);
    }
    ::posix_spawn_file_actions_addchdir_np(&actions.actions, place_.Working().c_str());

    std::vector<std::string> words = WordsOf(segment);
    std::vector<std::string> environment = Environment();
    pid_t process = -1;
    const int error = ::posix_spawn(&process,
                                    ORVANE_SIM,
                                    &actions.actions,
                                    nullptr,
                                    ArgumentPointers(words).data(),
                                    ArgumentPointers(environment).data());
    if (error != 0) {
      throw std::system_error(error, std::generic_category(), ORVANE_SIM);
    }
    const int status = Wait(process);
    CutFlashFile();
    if (withLog_) {
      made_.log += Slurp(place_.File("log"));
    }
    return status;
  }

  /// Shortens the flash file, which is saved whole, so that the next instrument reads it quickly.
  void CutFlashFile() const {
    constexpr std::uintmax_t kUsedBytes = 256U << 10;  // every step leaves 0xFF behind this
    if (fs::file_size(place_.Flash()) > kUsedBytes) {
      fs::resize_file(place_.Flash(), kUsedBytes);
    }
  }

  static int Wait(pid_t process) {
    const FileDescriptor end(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    pollfd ended = {.fd = end.Get(), .events = POLLIN, .revents = 0};
    for (int polls = 0; ::poll(&ended, 1, kPollMilliseconds) <= 0; ++polls) {
      if (polls == kLongestPolls || interrupted != 0) {
        ::kill(process, SIGTERM);
      }
    }
    int status = 0;
    ::waitpid(process, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

  void TakeObservations() {
    std::istringstream lines(Slurp(place_.File("observations")));
    made_.record.steps.clear();
    for (std::string line; std::getline(lines, line);) {
      made_.record.steps.push_back(ParseObservation(line));
    }
  }

  /// The number of steps that are over; those that a power cut ended have left no observation.
  std::size_t StepsSeen() const {
    std::size_t count = 0;
    for (const Observation& seen : made_.record.steps) {
      if (seen.step != "final" && seen.step.find('.') == std::string::npos) {
        count = std::stoul(seen.step) + 1;
      }
    }
    return count;
  }

  /// The registers that the chip has kept; those of a step that a power cut ended are not known, so
  /// those before it.
  std::string Registers() const {
    const std::vector<Observation>& steps = made_.record.steps;
    return steps.empty() ? world_.registers : ValueIn(steps.back().state, "registers");
  }

  bool HasEnd() const {
    return !made_.record.steps.empty() && made_.record.steps.back().step == "final";
  }

  void AddTrouble(int status) {
    made_.record.troubles.push_back("the instrument exits with " + std::to_string(status) + ": " +
                                    Slurp(place_.File("errors")));
  }

  Made Finish() {
    made_.console = Slurp(place_.File("console"));
    return std::move(made_);
  }

  const World& world_;
  const Programs& programs_;
  Place place_;
  bool withLog_;
  Made made_;
};

}  // namespace

Made Make(const World& world, const Programs& programs, const fs::path& folder, bool withLog) {
  return Maker(world, programs, folder, withLog).Make();
}

void Interrupt() { interrupted = 1; }

bool IsInterrupted() { return interrupted != 0; }

}  // namespace swarm
