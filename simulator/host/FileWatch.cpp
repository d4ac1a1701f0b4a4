#include "simulator/host/FileWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

namespace orvane {

FileWatch::FileWatch() : descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!descriptor_.IsOpen()) {
    throw std::system_error(errno, std::generic_category(), "cannot watch the control files");
  }
}

int FileWatch::Add(const std::string& path) const {
  const int watch = ::inotify_add_watch(descriptor_.Get(), path.c_str(), IN_MODIFY);
  if (watch < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot watch " + path);
  }
  return watch;
}

void FileWatch::Remove(int watch) const {
  static_cast<void>(::inotify_rm_watch(descriptor_.Get(), watch));
}

std::vector<int> FileWatch::Read() const {
  constexpr std::size_t kEventsPerRead = 256;
  inotify_event events[kEventsPerRead];  // events of watched files have no name behind them
  std::vector<int> watches;
  ssize_t bytes = 0;
  do {
    bytes = ::read(descriptor_.Get(), events, sizeof events);
    const std::size_t count = bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / sizeof events[0];
    for (std::size_t i = 0; i < count; ++i) {
      if ((events[i].mask & IN_Q_OVERFLOW) != 0) {
        throw std::runtime_error("too many writes to control files at once");
      }
      if ((events[i].mask & IN_MODIFY) != 0) {
        watches.push_back(events[i].wd);
      }
    }
  } while (bytes == static_cast<ssize_t>(sizeof events));
  return watches;
}

}  // namespace orvane
