#include "companion/process/SignalWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace companion {

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// @param former  takes what was set before; may be null
void Set(int signal, void (*handler)(int), struct sigaction* former) {
  struct sigaction action {};
  action.sa_handler = handler;
  ::sigemptyset(&action.sa_mask);
  static_cast<void>(::sigaction(signal, &action, former));  // cannot fail for these signals
}

/// The kernel keeps a blocked signal also when it is ignored, so those are left out.
sigset_t WatchedSignals() {
  sigset_t watched;
  ::sigemptyset(&watched);
  ::sigaddset(&watched, SIGCHLD);
  for (const int signal : kStopSignals) {
    if (!IsIgnored(signal)) {
      ::sigaddset(&watched, signal);
    }
  }
  return watched;
}

FileDescriptor OpenDescriptor(const sigset_t& watched) {
  FileDescriptor descriptor(
      ::signalfd(FileDescriptor::kClosed, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!descriptor.IsOpen()) {
    throw std::system_error(errno, std::generic_category(), "signalfd");
  }
  return descriptor;
}

}  // namespace

SignalWatch::SignalWatch() : descriptor_(OpenDescriptor(WatchedSignals())) {
  const sigset_t watched = WatchedSignals();
  ::sigprocmask(SIG_BLOCK, &watched, &formerMask_);
  Set(SIGPIPE, SIG_IGN, &formerPipe_);
  Set(SIGXFSZ, SIG_IGN, &formerSizeLimit_);
  // Where it is ignored, the system forgets how a child has ended.
  Set(SIGCHLD, SIG_DFL, &formerChild_);
}

SignalWatch::~SignalWatch() {
  onStop_ = nullptr;
  Read();
  ::sigaction(SIGPIPE, &formerPipe_, nullptr);
  ::sigaction(SIGXFSZ, &formerSizeLimit_, nullptr);
  ::sigaction(SIGCHLD, &formerChild_, nullptr);
  ::sigprocmask(SIG_SETMASK, &formerMask_, nullptr);
}

void SignalWatch::Read() {
  signalfd_siginfo arrived{};
  while (::read(descriptor_.Get(), &arrived, sizeof arrived) == ssize_t{sizeof arrived}) {
    if (arrived.ssi_signo == SIGCHLD) {
      continue;  // the descriptor has woken who waits for the child
    }
    ++stops_;
    if (onStop_) {
      onStop_(static_cast<int>(arrived.ssi_signo), stops_);
    }
  }
}

void SignalWatch::ResetInChild() {
  for (const int signal : kStopSignals) {
    Set(signal, SIG_IGN, nullptr);
  }
  Set(SIGPIPE, SIG_IGN, nullptr);
  Set(SIGXFSZ, SIG_IGN, nullptr);
  Set(SIGALRM, SIG_DFL, nullptr);
  Set(SIGCHLD, SIG_DFL, nullptr);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace companion
