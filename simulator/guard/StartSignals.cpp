#include "simulator/guard/StartSignals.h"

namespace orvane {

StartSignals::StartSignals() {
  ::sigemptyset(&ignored_);
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
      ::sigaddset(&ignored_, signal);
    }
  }
  ::sigprocmask(SIG_SETMASK, nullptr, &blocked_);
}

void StartSignals::Restore() const {
  for (int signal = 1; signal < NSIG; ++signal) {
    // Fails for those that cannot be set, which are never ignored.
    static_cast<void>(::signal(signal, Ignores(signal) ? SIG_IGN : SIG_DFL));
  }
  ::sigprocmask(SIG_SETMASK, &blocked_, nullptr);
}

}  // namespace orvane
