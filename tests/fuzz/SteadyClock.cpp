#include "tests/fuzz/SteadyClock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "tests/fuzz/Require.h"

namespace {

constexpr std::chrono::milliseconds kStart = std::chrono::hours(1);

bool stopped = false;
std::chrono::milliseconds passed{0};

}  // namespace

SteadyClock::SteadyClock() {
  Require(!stopped, "one clock at a time");
  stopped = true;
  passed = std::chrono::milliseconds(0);
}

SteadyClock::~SteadyClock() { stopped = false; }

void SteadyClock::Advance(std::chrono::milliseconds by) { passed += by; }

std::chrono::milliseconds SteadyClock::Passed() { return passed; }

/// Takes the place of the C library's function, also for the C++ library, which --wrap does not
/// reach.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!stopped || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  }
  const std::chrono::nanoseconds now = kStart + passed;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
  time->tv_sec = seconds.count();
  time->tv_nsec = (now - seconds).count();
  return 0;
}
