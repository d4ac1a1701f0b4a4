#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

namespace companion {

class SignalWatch;

/// How a worker process ended.
struct WorkerEnding {
  std::string problem;          ///< why its task did not come to its end, one line; empty: it did
  std::string console;          ///< what it printed, standard output and error in true order
  std::optional<int> exitCode;  ///< nothing when a signal ended it, or it could not be started
  int signal = 0;               ///< 0: none
};

/// What a task knows about the process that has started it.
class WorkerSide {
 public:
  /// @param parent  process id of the parent
  /// @param wakeUp  descriptor that wakes it, borrowed
  WorkerSide(pid_t parent, int wakeUp) : parent_(parent), wakeUp_(wakeUp) {}

  /// @return true when the parent has ended. A task then brings to an end what it must not leave.
  [[nodiscard]] bool ParentIsGone() const;

  /// Has the parent look at what is in shared memory.
  void WakeParent() const;

 private:
  pid_t parent_;
  int wakeUp_;
};

/// A process that is forked and goes on in this program, for a task that can fail in any way: it may
/// throw, end its process, or hang. Results come back in memory that both share.
class Worker {
 public:
  using Task = std::function<void(const WorkerSide&)>;

  /// Runs the task in a process of its own and waits for its end.
  ///
  /// The process is a process group of its own. SIGINT, SIGTERM, SIGHUP and SIGPIPE are ignored
  /// there, standard input is empty, and what it prints is captured. It lives on when this process
  /// ends; WorkerSide tells it.
  /// @param limitSeconds  SIGALRM ends the process then; at least 1
  /// @param signals       read while waiting; must have SIGCHLD
  /// @param woken         called in this process for each WakeParent(), or for several; may be empty
  /// @param isGivenUp     asked in this process for each signal and each WakeParent(), or for several;
  ///                      once it is true, SIGKILL ends the process; may be empty
  static WorkerEnding Run(const Task& task,
                          unsigned limitSeconds,
                          SignalWatch& signals,
                          const std::function<void()>& woken,
                          const std::function<bool()>& isGivenUp = {});
};

}  // namespace companion
