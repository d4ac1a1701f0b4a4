#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/FileDescriptor.h"
#include "simulator/guard/CommandProcess.h"
#include "simulator/guard/ControlChannel.h"
#include "simulator/guard/StartSignals.h"
#include "simulator/guard/Terminal.h"

namespace orvane {

/// The host's end of what connects it with its guard.
struct HostEnds {
  /// To the guard: once, MakeReadyMessage(). From the guard: once, when all processes of the
  /// command have ended, its wait status and the signal that was to end the run or 0, as numbers.
  ControlChannel control;
  /// Reads the end of the file when the guard has ended, however.
  FileDescriptor lifeline;
  pid_t guard;  // its process, which may have ended
};

/// @param settings  "NAME=VALUE", what the command's environment has beyond the guard's own
std::string MakeReadyMessage(const std::vector<std::string>& settings);

/// What the guard starts.
struct GuardedRun {
  /// Runs in a process of its own, which ends with what this returns.
  std::function<int(HostEnds)> host;
  /// Run when the host has been killed: deletes what it may have left outside of its directory.
  std::function<void(pid_t host)> cleanUp;
  CommandProcess::Start command;  // the environment is the guard's to fill in
  std::function<void()> onStarted;
};

/// The process that the user has started. It is the parent of the host, which is the instrument,
/// and of the command, and every process that the command leaves behind becomes its child. So it
/// knows when the last one has ended; only then it lets the host finish.
///
/// SIGINT, SIGTERM, SIGHUP and SIGQUIT go to every process of the command. One that has not ended
/// two seconds later, or when a second signal arrives, is killed; then, two seconds or one signal
/// later, the host. A stop signal of the terminal stops the host and our own process group too.
/// When the host is killed, all is ended. The host watches its lifeline for the same reason.
class Guard {
 public:
  /// Blocks the signals that a guard handles: from here on they wait for Run(). To be called before
  /// anything is created that has to be removed.
  /// @return what Guard() takes
  /// @throw std::system_error
  static FileDescriptor BlockSignals(const StartSignals& signals);

  /// @param signals  made before anything was changed
  Guard(GuardedRun run, const StartSignals& signals, FileDescriptor blockedSignals);
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard();

  /// @return the exit status: the host's; 128 + the number of the signal that ended it; 125 when it
  ///         was killed otherwise
  /// @throw CommandError    when the command cannot be executed
  /// @throw std::exception  when no process can be created
  int Run();

 private:
  using Clock = std::chrono::steady_clock;

  void StartHost();
  void StartCommand(std::string_view readyMessage);
  void Wait();
  int MillisecondsLeft() const;
  void OnSignal(int signal);
  void OnControl();
  void Reap();
  bool ReapOne();
  void Press();
  void SignalHost(int signal) const;
  void OnCommandStopped(int signal);
  void StopOwnGroup(int signal);
  void EndAll();
  int Status() const;

  GuardedRun run_;
  const StartSignals& signals_;
  Terminal terminal_;
  FileDescriptor signalDescriptor_;
  std::optional<ControlChannel> control_;  // none: the host has closed its end
  std::optional<FileDescriptor> lifeline_;
  pid_t host_ = -1;  // until it has been waited for
  int hostStatus_ = 0;
  std::optional<CommandProcess> command_;
  std::optional<int> commandStatus_;
  bool hostIsFinishing_ = false;  // it has been told that all processes have ended
  bool isStopping_ = false;       // the terminal has told us to stop, and we have told the command
  int endSignal_ = 0;             // the first that is to end everything
  bool isCommandKilled_ = false;
  std::optional<Clock::time_point> deadline_;  // of the processes that the signal was handed to
};

}  // namespace orvane
