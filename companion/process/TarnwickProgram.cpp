#include "companion/process/TarnwickProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include "app/Help.h"
#include "base/FileDescriptor.h"
#include "companion/process/UpdateTime.h"

namespace companion {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr const char* kProgramName = "tarnwick";
constexpr int kStarts = 3;
constexpr int kExecFailed = 127;

constexpr std::size_t kChunkBytes = 4096;
/// How much of each stream is kept. What comes after it is still passed on.
constexpr std::size_t kMaxKeptBytes = 4 * std::size_t{1024} * 1024;
/// How much is read after the end: more than a pipe holds, and no more, since a process that has left
/// the group could go on writing.
constexpr std::size_t kMaxReadAfterEnd = std::size_t{1024} * 1024;

// --- Where it is --------------------------------------------------------------------------------

bool IsFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

/// @return empty when there is none
fs::path BesideThisExecutable() {
  std::error_code failed;
  const fs::path own = fs::read_symlink("/proc/self/exe", failed);
  fs::path path = own.parent_path() / kProgramName;
  return !failed && IsFile(path) ? path : fs::path();
}

/// Relative folders are passed over: `tarnwick` is started in another one.
/// @return empty when there is none
fs::path InSearchPath() {
  const char* const folders = std::getenv("PATH");
  std::istringstream list(folders == nullptr ? "" : folders);
  for (std::string folder; std::getline(list, folder, ':');) {
    fs::path path = fs::path(folder) / kProgramName;
    if (path.is_absolute() && IsFile(path)) {
      return path;
    }
  }
  return {};
}

/// @return empty when it is not found
std::string FindProgram(const std::string& wanted) {
  if (!wanted.empty()) {
    std::error_code ignored;
    return fs::absolute(wanted, ignored);
  }
  const fs::path path = BesideThisExecutable();
  return path.empty() ? InSearchPath() : path;
}

// --- Starting it --------------------------------------------------------------------------------

struct Pipe {
  FileDescriptor reader;
  FileDescriptor writer;
};

[[noreturn]] void Fail() { throw std::system_error(errno, std::generic_category()); }

/// @throw std::system_error
Pipe MakePipe(bool blocking) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    Fail();
  }
  // Only the reading end: `tarnwick` is to get its console as it would get any other.
  ::fcntl(ends[0], F_SETFL, blocking ? 0 : O_NONBLOCK);
  return {.reader = FileDescriptor(ends[0]), .writer = FileDescriptor(ends[1])};
}

/// @throw std::system_error
FileDescriptor OpenNothing() {
  FileDescriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!nothing.IsOpen()) {
    Fail();
  }
  return nothing;
}

/// What a child needs between fork and exec.
struct Child {
  const char* path;
  char* const* words;
  int in;
  int out;
  int err;
  std::optional<int> folder;  // none: where it is
  int failure;                // the pipe that the errno of a failed call is written to
  milliseconds limit;
};

bool Prepare(const Child& child) {
  ::setpgid(0, 0);
  // GCOVR_EXCL_BR_START: in a child that ends without its counts
  if (::dup2(child.in, STDIN_FILENO) < 0 || ::dup2(child.out, STDOUT_FILENO) < 0 ||
      ::dup2(child.err, STDERR_FILENO) < 0) {
    // GCOVR_EXCL_BR_STOP
    return false;  // GCOVR_EXCL_LINE: in a child that ends without its counts
  }
  if (child.folder && ::fchdir(*child.folder) != 0) {  // GCOVR_EXCL_BR_LINE: in that child
    return false;  // GCOVR_EXCL_LINE: in a child that ends without its counts
  }
  SignalWatch::ResetInChild();
  // Goes on after exec, and whatever becomes of the parent.
  const auto whole = std::chrono::floor<std::chrono::seconds>(child.limit);
  const std::chrono::microseconds rest = child.limit - whole;
  const itimerval limit = {.it_interval = {},
                           .it_value = {.tv_sec = static_cast<time_t>(whole.count()),
                                        .tv_usec = static_cast<suseconds_t>(rest.count())}};
  return ::setitimer(ITIMER_REAL, &limit, nullptr) == 0;
}

/// Makes only calls that are allowed between fork and exec.
[[noreturn]] void RunChild(const Child& child) {
  if (Prepare(child)) {  // GCOVR_EXCL_BR_LINE: in that child
    ::execv(child.path, child.words);
  }
  const int error = errno;
  // GCOVR_EXCL_BR_START: in that child
  static_cast<void>(!::write(child.failure, &error, sizeof error));
  // GCOVR_EXCL_BR_STOP
  ::_exit(kExecFailed);  // GCOVR_EXCL_LINE: a child that ends without its counts
}

std::vector<char*> Pointers(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) {
    pointers.push_back(const_cast<char*>(word.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

/// @return the first line, without what a terminal would obey
std::string FirstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  std::replace_if(
      line.begin(), line.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
  return line;
}

}  // namespace

struct TarnwickProgram::Readers {
  FileDescriptor out;
  FileDescriptor err;
};

struct TarnwickProgram::Start {
  std::vector<std::string> words;
  std::optional<int> folder;
  milliseconds limit{};
  Output output;
};

/// The reading end of one of its streams.
struct TarnwickProgram::Stream {
  FileDescriptor reader;
  const Output& output;
  bool isError;
  std::string kept;
  bool isOpen = true;

  [[nodiscard]] pollfd Poll() const {
    return {.fd = isOpen ? reader.Get() : FileDescriptor::kClosed, .events = POLLIN, .revents = 0};
  }

  /// @return how many bytes there were; 0 at the end and when there are none now
  std::size_t Read() {
    std::array<char, kChunkBytes> buffer{};
    const ssize_t count = ::read(reader.Get(), buffer.data(), buffer.size());
    if (count <= 0) {
      isOpen = isOpen && count < 0 && errno == EAGAIN;
      return 0;
    }
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    kept.append(bytes.substr(0, kMaxKeptBytes - kept.size()));
    if (output) {
      output(bytes, isError);
    }
    return bytes.size();
  }

  void ReadAfterEnd() {
    std::size_t left = kMaxReadAfterEnd;
    while (left > 0) {
      const std::size_t count = Read();
      left = count == 0 ? 0 : left - std::min(left, count);
    }
  }
};

TarnwickProgram::TarnwickProgram(SignalWatch& watch, Settings settings)
    : watch_(watch), settings_(std::move(settings)), path_(FindProgram(settings_.path)) {}

TarnwickProgram::~TarnwickProgram() = default;

std::string TarnwickProgram::Check() {
  Start start;
  // Any number of words but four shows the help.
  start.words = {kProgramName};
  start.limit = settings_.helpTimeout;
  std::string problem;
  for (int attempt = 0; attempt < kStarts; ++attempt) {
    const ProgramRun run = Run(start);
    problem = HelpProblem(run);
    if (problem.empty() || run.killed) {
      break;
    }
  }
  return problem;
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

std::string TarnwickProgram::HelpProblem(const ProgramRun& run) const {
  if (path_.empty()) {
    return "tarnwick is neither beside this program nor in PATH";
  }
  std::error_code ignored;
  std::string subject = "'" + path_ + "'";
  if (!run.problem.empty()) {
    return fs::is_directory(path_, ignored) ? subject.append(" is a folder, not a program")
                                            : run.problem;
  }
  if (run.timedOut) {
    return subject.append(" does not end when it is started for its help");
  }
  if (run.signal != 0) {
    return subject.append(", started for its help, was ended by signal ")
        .append(std::to_string(run.signal));
  }
  if (run.exitCode != 0) {
    const std::string said = FirstLine(run.err);
    subject.append(", started for its help, ended with ").append(std::to_string(*run.exitCode));
    return said.empty() ? subject : subject.append(": ").append(said);
  }
  if (run.out.find(kHelpName) == std::string::npos) {
    return subject.append(" is not tarnwick");
  }
  return "";
}

ProgramRun TarnwickProgram::Update(const std::string& target,
                                   unsigned module,
                                   const std::string& image) {
  Start start;
  start.words = {kProgramName, target, "-sf", std::to_string(module), image};
  start.folder = settings_.workFolder();
  start.limit = UpdateLimit(image);
  start.output = settings_.output;
  ProgramRun run = Run(start);
  for (int attempt = 1; attempt < kStarts && !run.problem.empty(); ++attempt) {
    run = Run(start);
  }
  return run;
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

std::chrono::milliseconds TarnwickProgram::UpdateLimit(const std::string& image) const {
  if (settings_.timeout) {
    return *settings_.timeout;
  }
  struct stat status {};
  // Where it cannot be seen, the size stays 0: `tarnwick` does not find it either.
  static_cast<void>(::fstatat(settings_.workFolder(), image.c_str(), &status, 0));
  return LongestUpdate(static_cast<std::size_t>(status.st_size), settings_.spiClockMHz);
}

void TarnwickProgram::Kill() {
  if (child_ > 0) {
    isKilled_ = true;
    ::kill(-child_, SIGKILL);
  }
}

ProgramRun TarnwickProgram::Run(const Start& start) {
  ProgramRun run;
  const Clock::time_point begin = Clock::now();
  std::optional<Readers> readers = Launch(start, run.problem);
  if (!readers) {
    return run;
  }
  Stream out = {.reader = std::move(readers->out), .output = start.output, .isError = false};
  Stream err = {.reader = std::move(readers->err), .output = start.output, .isError = true};
  Follow(out, err);
  End(run);
  out.ReadAfterEnd();
  err.ReadAfterEnd();
  run.out = std::move(out.kept);
  run.err = std::move(err.kept);
  run.took = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
  return run;
}

/// @return nothing when it could not be started
std::optional<TarnwickProgram::Readers> TarnwickProgram::Launch(const Start& start,
                                                                std::string& problem) {
  try {
    Pipe out = MakePipe(false);
    Pipe err = MakePipe(false);
    Pipe failure = MakePipe(true);
    const FileDescriptor in = OpenNothing();
    const std::vector<char*> words = Pointers(start.words);
    const pid_t id = ::fork();
    if (id == 0) {
      RunChild({.path = path_.c_str(),
                .words = words.data(),
                .in = in.Get(),
                .out = out.writer.Get(),
                .err = err.writer.Get(),
                .folder = start.folder,
                .failure = failure.writer.Get(),
                .limit = start.limit});
    }
    if (id < 0) {
      Fail();
    }
    static_cast<void>(failure.writer.Close());
    int error = 0;
    if (::read(failure.reader.Get(), &error, sizeof error) == ssize_t{sizeof error}) {
      ::waitpid(id, nullptr, 0);
      throw std::system_error(error, std::generic_category());
    }
    child_ = id;
    isKilled_ = false;
    return Readers{.out = std::move(out.reader), .err = std::move(err.reader)};
  } catch (const std::system_error& error) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    problem = "cannot start '" + path_ + "': " + error.code().message();
    return std::nullopt;
  }
}

/// Returns when the child has ended. An end wakes the watch, so none is missed between the question
/// and the poll.
void TarnwickProgram::Follow(Stream& out, Stream& err) {
  while (!HasEnded(child_)) {
    std::array<pollfd, 3> waits = {
        out.Poll(), err.Poll(), {.fd = watch_.Descriptor(), .events = POLLIN, .revents = 0}};
    static_cast<void>(::poll(waits.data(), waits.size(), -1));
    static_cast<void>(out.Read());
    static_cast<void>(err.Read());
    watch_.Read();
  }
}

/// Leaves it to be waited for, so that its id, and its group's, stay its own.
bool TarnwickProgram::HasEnded(pid_t id) {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid != 0;
}

void TarnwickProgram::End(ProgramRun& run) {
  // What is left of its group would go on using the module.
  ::kill(-child_, SIGKILL);
  int status = 0;
  ::waitpid(child_, &status, 0);
  child_ = 0;
  if (WIFEXITED(status)) {
    run.exitCode = WEXITSTATUS(status);
  } else {
    run.signal = WTERMSIG(status);
  }
  run.killed = isKilled_;
  run.timedOut = run.signal == SIGALRM;
}

}  // namespace companion
