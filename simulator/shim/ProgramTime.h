#pragma once

#include <time.h>

#include <cstdint>

#include "simulator/shim/TimePage.h"

namespace orvane::shim {

inline constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/// The clock of the run. Ends the process when it cannot be mapped.
/// @return null when the program's clock is that of the machine
TimePage* ProgramTime();

/// Whether a look at the clock moves it on. Not so one of a D-Bus library: it looks before each of its
/// waits, and how many there are depends on how soon an answer comes.
/// @param caller  where the call returns to
bool MovesTime(const void* caller);

constexpr std::int64_t Nanoseconds(const timespec& time) {
  return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec;
}

}  // namespace orvane::shim
