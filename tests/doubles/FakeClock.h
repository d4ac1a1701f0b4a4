#pragma once

#include <chrono>

/// Stops std::chrono::steady_clock, and what else reads CLOCK_MONOTONIC with clock_gettime(), for
/// as long as the object lives; only Advance() advances it. The wall clock goes on. One object at a
/// time.
class FakeClock {
 public:
  FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;
  ~FakeClock();

  /// Does nothing when no FakeClock lives.
  static void Advance(std::chrono::nanoseconds by);

  /// @return the time advanced since the start
  static std::chrono::nanoseconds Passed();
};
