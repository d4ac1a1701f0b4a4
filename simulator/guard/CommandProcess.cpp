#include "simulator/guard/CommandProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <span>

#include "base/FileDescriptor.h"

namespace orvane {

namespace {

constexpr int kExecFailed = 127;

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) {
    pointers.push_back(const_cast<char*>(text.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

struct Child {
  char* const* words;
  char* const* environment;
  std::array<int, 3> standard;
  std::span<const int> kept;
  bool takesTerminal;
  int failure;  // the pipe that the errno of a failed exec is written to
};

/// Puts the standard descriptors in place. Of those that it gets, one below 3 has the right number
/// already.
void PlaceStandard(const std::array<int, 3>& standard) {
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    const int wanted = standard[static_cast<std::size_t>(descriptor)];
    if (wanted == CommandProcess::kClosed) {
      ::close(descriptor);
    } else if (wanted != descriptor) {
      ::dup2(wanted, descriptor);
    }
  }
}

/// Only calls that are allowed between fork and exec.
[[noreturn]] void RunCommand(const Child& child,
                             const StartSignals& signals,
                             const Terminal& terminal) {
  ::setpgid(0, 0);
  if (child.takesTerminal) {
    terminal.Set(::getpid());
  }
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  signals.Restore();
  PlaceStandard(child.standard);
  // The command does not get what we have open, only what we were started with.
  ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  for (const int descriptor : child.kept) {
    ::fcntl(descriptor, F_SETFD, 0);
  }
  ::execvpe(child.words[0], child.words, child.environment);
  const int error = errno;
  static_cast<void>(!::write(child.failure, &error, sizeof error));
  ::_exit(kExecFailed);
}

}  // namespace

CommandProcess::CommandProcess(const Start& start,
                               const StartSignals& signals,
                               const Terminal& terminal) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), start.words[0]);
  }
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  const std::vector<char*> words = Pointers(start.words);
  const std::vector<char*> environment = Pointers(start.environment);
  const Child child = {.words = words.data(),
                       .environment = environment.data(),
                       .standard = start.standard,
                       .kept = start.kept,
                       .takesTerminal = terminal.IsOurs(),
                       .failure = writer.Get()};
  id_ = ::fork();
  if (id_ < 0) {
    throw std::system_error(errno, std::generic_category(), start.words[0]);
  }
  if (id_ == 0) {
    RunCommand(child, signals, terminal);
  }
  ::setpgid(id_, id_);  // both processes do this: either may be first
  static_cast<void>(writer.Close());
  int error = 0;
  if (::read(reader.Get(), &error, sizeof error) == ssize_t{sizeof error}) {
    ::waitpid(id_, nullptr, 0);
    terminal.TakeBack(id_);
    throw CommandError(error, start.words[0]);
  }
}

void CommandProcess::Signal(int signal) const { ::kill(-id_, signal); }

}  // namespace orvane
