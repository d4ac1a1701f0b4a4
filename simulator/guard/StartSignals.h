#pragma once

#include <signal.h>

namespace orvane {

/// How this process was told to treat signals when it started: which of them it ignores, and which
/// are blocked. The command gets the same.
class StartSignals {
 public:
  /// To be made before anything is changed.
  StartSignals();

  bool Ignores(int signal) const { return ::sigismember(&ignored_, signal) == 1; }

  /// Puts both back. May be called between fork and exec.
  void Restore() const;

 private:
  sigset_t ignored_{};
  sigset_t blocked_{};
};

}  // namespace orvane
