#pragma once

#include <chrono>

/// Stops std::chrono::steady_clock for as long as the object lives; time passes only by Advance().
/// The wall clock goes on, which the fuzzer's own time-out reads. One at a time.
class SteadyClock {
 public:
  SteadyClock();
  SteadyClock(const SteadyClock&) = delete;
  SteadyClock& operator=(const SteadyClock&) = delete;
  ~SteadyClock();

  static void Advance(std::chrono::milliseconds by);

  /// @return the time advanced since the start
  static std::chrono::milliseconds Passed();
};
