#include "companion/process/Worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <utility>

#include "base/FileDescriptor.h"
#include "companion/process/SharedMemory.h"
#include "companion/process/SignalWatch.h"

namespace companion {

namespace {

/// More than any operation prints; the rest of what a worker prints is dropped.
constexpr std::size_t kMostConsoleBytes = std::size_t{64} * 1024;

/// What parent and worker talk through.
struct Channel {
  FileDescriptor consoleOut;  ///< read by the parent, never blocks
  FileDescriptor consoleIn;   ///< standard output and error of the worker
  FileDescriptor wakeUp;      ///< a counter
};

/// @return nothing when a descriptor cannot be made, with its errno
std::optional<Channel> OpenChannel() {
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  Channel channel = {FileDescriptor(pipe[0]),
                     FileDescriptor(pipe[1]),
                     FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))};
  if (!channel.wakeUp.IsOpen() || ::fcntl(pipe[0], F_SETFL, O_NONBLOCK) != 0) {
    return std::nullopt;
  }
  return channel;
}

void FlushConsole() {
  std::cout.flush();
  std::cerr.flush();
  static_cast<void>(std::fflush(nullptr));
}

/// The end of a pipe that nobody writes to: no device has to be opened for it.
void EmptyStandardInput() {
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) == 0) {
    static_cast<void>(::dup2(pipe[0], STDIN_FILENO));
    ::close(pipe[0]);
    ::close(pipe[1]);
  }
}

/// Makes the new process what Worker::Run() promises.
void BecomeWorker(Channel& channel, unsigned limitSeconds) {
  static_cast<void>(::setpgid(0, 0));  // cannot fail: it leads no session
  SignalWatch::ResetInChild();
  EmptyStandardInput();
  static_cast<void>(::dup2(channel.consoleIn.Get(), STDOUT_FILENO));
  static_cast<void>(::dup2(channel.consoleIn.Get(), STDERR_FILENO));
  static_cast<void>(channel.consoleIn.Close());
  static_cast<void>(channel.consoleOut.Close());
  ::alarm(limitSeconds);
}

/// The life of the worker process.
[[noreturn]] void Live(const Worker::Task& task,
                       const WorkerSide& side,
                       std::atomic<bool>& complete) {
  // It ends as the program's own classes end a process when a control file fails.
  try {
    task(side);
  } catch (const std::exception& exception) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    std::cerr << exception.what() << std::endl;
    std::exit(EXIT_FAILURE);
  }
  complete = true;
  std::exit(EXIT_SUCCESS);
}

/// Takes what the worker has printed since the last call.
void TakeConsole(const Channel& channel, std::string& console) {
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = ::read(channel.consoleOut.Get(), buffer.data(), buffer.size());
    if (count <= 0) {
      return;  // nothing more for now, or for ever
    }
    console.append(buffer.data(),
                   std::min(static_cast<std::size_t>(count), kMostConsoleBytes - console.size()));
  }
}

bool WasWoken(const Channel& channel) {
  std::uint64_t count = 0;
  return ::read(channel.wakeUp.Get(), &count, sizeof count) == ssize_t{sizeof count};
}

/// Blocks until the worker prints, wakes its parent or ends, or a signal has come.
void WaitForNews(const Channel& channel, SignalWatch& signals, bool& printing) {
  std::array<pollfd, 3> sources = {
      pollfd{.fd = signals.Descriptor(), .events = POLLIN, .revents = 0},
      pollfd{.fd = channel.wakeUp.Get(), .events = POLLIN, .revents = 0},
      pollfd{.fd = printing ? channel.consoleOut.Get() : -1, .events = POLLIN, .revents = 0}};
  if (::poll(sources.data(), sources.size(), -1) <= 0) {
    return;
  }
  if (sources[0].revents != 0) {
    signals.Read();
  }
  if ((sources[2].revents & (POLLHUP | POLLIN)) == POLLHUP) {
    printing = false;
  }
}

/// Waits for the end of the worker, which is reaped.
/// @return its status, as waitpid() gives it
int Accompany(pid_t worker,
              const Channel& channel,
              SignalWatch& signals,
              const std::function<void()>& woken,
              const std::function<bool()>& isGivenUp,
              std::string& console) {
  int status = 0;
  bool printing = true;
  while (::waitpid(worker, &status, WNOHANG) == 0) {
    WaitForNews(channel, signals, printing);
    TakeConsole(channel, console);
    if (WasWoken(channel) && woken) {
      woken();
    }
    if (isGivenUp && isGivenUp()) {
      ::kill(worker, SIGKILL);
    }
  }
  TakeConsole(channel, console);
  return status;
}

WorkerEnding Describe(int status, bool complete, unsigned limitSeconds) {
  WorkerEnding ending;
  if (WIFEXITED(status)) {
    ending.exitCode = WEXITSTATUS(status);
    if (!complete || *ending.exitCode != EXIT_SUCCESS) {
      ending.problem = "its process ended with " + std::to_string(*ending.exitCode);
    }
    return ending;
  }
  ending.signal = WTERMSIG(status);
  ending.problem = ending.signal == SIGALRM
                       ? "its process did not end within " + std::to_string(limitSeconds) + " s"
                       : "its process was ended by signal " + std::to_string(ending.signal) + " (" +
                             ::strsignal(ending.signal) + ")";
  return ending;
}

WorkerEnding NotStarted(int error) {
  return {.problem = std::string("cannot start a process for it: ") + std::strerror(error)};
}

}  // namespace

bool WorkerSide::ParentIsGone() const { return ::getppid() != parent_; }

void WorkerSide::WakeParent() const {
  const std::uint64_t one = 1;
  static_cast<void>(::write(wakeUp_, &one, sizeof one) == 0);  // a full counter wakes it as well
}

WorkerEnding Worker::Run(const Task& task,
                         unsigned limitSeconds,
                         SignalWatch& signals,
                         const std::function<void()>& woken,
                         const std::function<bool()>& isGivenUp) {
  std::optional<Channel> channel = OpenChannel();
  if (!channel) {
    return NotStarted(errno);
  }
  const SharedMemory<std::atomic<bool>> complete;
  const WorkerSide side(::getpid(), channel->wakeUp.Get());
  FlushConsole();  // or the worker would print it a second time
  const pid_t worker = ::fork();
  if (worker < 0) {
    return NotStarted(errno);
  }
  if (worker == 0) {
    BecomeWorker(*channel, limitSeconds);
    Live(task, side, *complete);
  }
  static_cast<void>(channel->consoleIn.Close());
  std::string console;
  const int status = Accompany(worker, *channel, signals, woken, isGivenUp, console);
  WorkerEnding ending = Describe(status, *complete, limitSeconds);
  ending.console = std::move(console);
  return ending;
}

}  // namespace companion
