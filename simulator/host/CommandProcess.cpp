#include "simulator/host/CommandProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <system_error>

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
  const int* kept;
  std::size_t keptCount;
  bool takesTerminal;
  int failure;  // the pipe that the errno of a failed exec is written to
  pid_t parent;
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

/// Only calls that are allowed between fork and exec of a process with threads.
[[noreturn]] void RunCommand(const Child& child) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != child.parent) {
    ::_exit(kExecFailed);
  }
  ::setpgid(0, 0);
  if (child.takesTerminal) {
    static_cast<void>(::signal(SIGTTOU, SIG_IGN));  // or tcsetpgrp() would stop us
    ::tcsetpgrp(STDIN_FILENO, ::getpid());
  }
  for (const int signal : {SIGTTOU, SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
    static_cast<void>(::signal(signal, SIG_DFL));
  }
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  PlaceStandard(child.standard);
  // The command does not get what our libraries have open, only what we were started with.
  ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  for (std::size_t i = 0; i < child.keptCount; ++i) {
    ::fcntl(child.kept[i], F_SETFD, 0);
  }
  ::execvpe(child.words[0], child.words, child.environment);
  const int error = errno;
  static_cast<void>(!::write(child.failure, &error, sizeof error));
  ::_exit(kExecFailed);
}

}  // namespace

CommandProcess::CommandProcess(const std::vector<std::string>& words,
                               const std::vector<std::string>& environment,
                               const std::array<int, 3>& standard,
                               const std::vector<int>& kept) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), words[0]);
  }
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  hasTerminal_ = standard[0] == STDIN_FILENO && ::isatty(STDIN_FILENO) == 1 &&
                 ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
  const std::vector<char*> wordPointers = Pointers(words);
  const std::vector<char*> environmentPointers = Pointers(environment);
  const Child child = {.words = wordPointers.data(),
                       .environment = environmentPointers.data(),
                       .standard = standard,
                       .kept = kept.data(),
                       .keptCount = kept.size(),
                       .takesTerminal = hasTerminal_,
                       .failure = writer.Get(),
                       .parent = ::getpid()};
  id_ = ::fork();
  if (id_ < 0) {
    throw std::system_error(errno, std::generic_category(), words[0]);
  }
  if (id_ == 0) {
    RunCommand(child);
  }
  ::setpgid(id_, id_);  // both processes do this: either may be first
  static_cast<void>(writer.Close());
  int error = 0;
  if (::read(reader.Get(), &error, sizeof error) == ssize_t{sizeof error}) {
    ::waitpid(id_, nullptr, 0);
    throw CommandError(error, words[0]);
  }
}

CommandProcess::~CommandProcess() {
  ::kill(-id_, SIGKILL);
  if (hasTerminal_) {
    static_cast<void>(::signal(SIGTTOU, SIG_IGN));
    ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
    static_cast<void>(::signal(SIGTTOU, SIG_DFL));
  }
}

void CommandProcess::Signal(int signal) const { ::kill(-id_, signal); }

}  // namespace orvane
