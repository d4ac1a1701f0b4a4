#pragma once

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "simulator/timing/ClockedPart.h"
#include "simulator/timing/TimeTotals.h"

namespace orvane {

/// The one clock of an instrument. It stands still unless it is told to advance.
class InstrumentClock {
 public:
  /// @param parts  borrowed; time passes for each of them
  explicit InstrumentClock(std::vector<ClockedPart*> parts) : parts_(std::move(parts)) {}

  /// Since the start.
  std::chrono::nanoseconds Now() const { return now_; }
  const TimeTotals& Totals() const { return totals_; }

  /// Advances, up to kNever, in steps that end where a part changes, so that each change is at its own time.
  /// @param cause  where no chip is the cause
  void Advance(Cause cause, std::chrono::nanoseconds by);

  /// @param step  called after each step
  void OnStep(std::function<void()> step) { onStep_ = std::move(step); }

 private:
  struct Step {
    std::chrono::nanoseconds length;
    Cause cause;
  };
  Step NextStep(Cause cause, std::chrono::nanoseconds most) const;

  std::vector<ClockedPart*> parts_;
  std::chrono::nanoseconds now_{0};
  TimeTotals totals_;
  std::function<void()> onStep_;
};

}  // namespace orvane
