#include "tests/doubles/FakeClock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

namespace {

/// Not zero, which a clock that does not work would show as well.
constexpr std::chrono::nanoseconds kStart = std::chrono::hours(1000);

bool stopped = false;
std::chrono::nanoseconds passed{0};

}  // namespace

FakeClock::FakeClock() {
  if (stopped) {
    throw std::logic_error("one clock at a time");
  }
  stopped = true;
  passed = std::chrono::nanoseconds(0);
}

FakeClock::~FakeClock() { stopped = false; }

void FakeClock::Advance(std::chrono::nanoseconds by) {
  if (stopped) {
    passed += by;
  }
}

std::chrono::nanoseconds FakeClock::Passed() { return passed; }

/// Replaces the function of the C library, also for the C++ library, whose calls --wrap does not
/// replace.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!stopped || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  }
  const std::chrono::nanoseconds now = kStart + passed;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
  time->tv_sec = static_cast<time_t>(seconds.count());
  time->tv_nsec = static_cast<long>((now - seconds).count());
  return 0;
}
