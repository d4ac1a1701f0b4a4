#pragma once

#include <signal.h>

#include <functional>
#include <utility>

#include "base/FileDescriptor.h"

namespace companion {

/// The signals that a terminal or a service manager sends, and the ends of child processes, as a
/// descriptor: nothing interrupts the code between two reads. One object at a time, made before any
/// child is started.
///
/// SIGINT, SIGTERM and SIGHUP are stop signals. One that was ignored when the object was made (nohup)
/// stays ignored and is not counted. SIGPIPE and SIGXFSZ are ignored: a write to a closed console, or
/// beyond the limit of a file's size, fails instead.
class SignalWatch {
 public:
  /// @param signal  SIGINT, SIGTERM or SIGHUP
  /// @param count   how many stop signals there have been, with this one
  using Callback = std::function<void(int signal, int count)>;

  /// @throw std::system_error when there is no descriptor left
  SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  /// Forgets what has not been read, and restores what was set before.
  ~SignalWatch();

  /// @return readable (POLLIN) when a stop signal has arrived or a child has ended; then Read()
  [[nodiscard]] int Descriptor() const { return descriptor_.Get(); }

  /// @param callback  called in Read(), for each stop signal
  void OnStop(Callback callback) { onStop_ = std::move(callback); }

  /// Takes everything that has arrived; returns at once when there is nothing. A signal that arrives
  /// twice between two calls counts once.
  void Read();

  /// @return how many stop signals have been read
  [[nodiscard]] int StopSignals() const { return stops_; }

  /// For a child, between fork and exec or instead of exec: SIGINT, SIGTERM, SIGHUP, SIGPIPE and
  /// SIGXFSZ are ignored, also after exec; SIGALRM and SIGCHLD have their default action; none is blocked. Makes
  /// only calls that are allowed after fork.
  static void ResetInChild();

 private:
  FileDescriptor descriptor_;
  Callback onStop_;
  int stops_ = 0;
  sigset_t formerMask_{};
  struct sigaction formerPipe_ {};
  struct sigaction formerSizeLimit_ {};
  struct sigaction formerChild_ {};
};

}  // namespace companion
