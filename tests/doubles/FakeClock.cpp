#include "tests/doubles/FakeClock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>

namespace {

/// Any time but zero, which a broken clock would show as well.
constexpr std::chrono::nanoseconds kStart = std::chrono::hours(1000);

std::optional<std::chrono::nanoseconds> now;

}  // namespace

FakeClock::FakeClock() {
  if (now.has_value()) {
    throw std::logic_error("one clock at a time");
  }
  now = kStart;
}

FakeClock::~FakeClock() { now.reset(); }

void FakeClock::Advance(std::chrono::nanoseconds by) {
  if (!now.has_value()) {
    throw std::logic_error("no clock to advance");
  }
  *now += by;
}

/// Takes the place of the C library's function, also for the C++ library, which --wrap does not
/// reach.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!now.has_value()) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  }
  const auto seconds = std::chrono::floor<std::chrono::seconds>(*now);
  time->tv_sec = seconds.count();
  time->tv_nsec = (*now - seconds).count();
  return 0;
}
