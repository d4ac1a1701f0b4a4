#pragma once

#include <chrono>

/// Stops every clock of this process that is read with clock_gettime(), <chrono> included, for as
/// long as the object lives; time passes only by Advance(). One at a time.
class FakeClock {
 public:
  FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;
  ~FakeClock();

  /// Throws std::logic_error when no FakeClock lives.
  static void Advance(std::chrono::nanoseconds by);
};
