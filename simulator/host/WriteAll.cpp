#include "simulator/host/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace orvane {

namespace {

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
