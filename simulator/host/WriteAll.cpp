#include "simulator/host/WriteAll.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <ctime>

namespace orvane {

namespace {

/// Keeps SIGXFSZ, whose default action ends the process, from the calling thread.
class FileSizeSignalBlocked {
 public:
  FileSizeSignalBlocked() {
    ::sigemptyset(&signal_);
    ::sigaddset(&signal_, SIGXFSZ);
    ::pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  FileSizeSignalBlocked(const FileSizeSignalBlocked&) = delete;
  FileSizeSignalBlocked& operator=(const FileSizeSignalBlocked&) = delete;
  ~FileSizeSignalBlocked() {
    const int error = errno;
    const timespec now{};
    ::sigtimedwait(&signal_, nullptr, &now);  // takes one that is pending
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
  }

 private:
  sigset_t signal_{};
  sigset_t before_{};
};

/// After a write that failed.
/// @return whether it can be tried again
bool CanGoOn(int descriptor) {
  if (errno == EAGAIN) {
    pollfd writable{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return ::poll(&writable, 1, -1) >= 0 || errno == EINTR;
  }
  return errno == EINTR;
}

}  // namespace

bool WriteAll(int descriptor, std::string_view bytes) {
  const FileSizeSignalBlocked blocked;
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (!CanGoOn(descriptor)) {
      return false;
    }
  }
  return true;
}

}  // namespace orvane
