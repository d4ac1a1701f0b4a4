#pragma once

#include <chrono>

namespace orvane {

/// Keeps a run from being faster than the instrument would be. It begins with this object.
class RealPace {
 public:
  /// What instrument time may be ahead of real time before it is worth a wait.
  static constexpr std::chrono::nanoseconds kLead = std::chrono::milliseconds(20);

  /// Waits until as much real time has passed, if instrument time is more than `lead` ahead of it.
  /// @param instrumentTime  since the start
  void WaitFor(std::chrono::nanoseconds instrumentTime, std::chrono::nanoseconds lead) const;

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace orvane
