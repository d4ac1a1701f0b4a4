#pragma once

#include <functional>

#include "companion/module/ModuleInterface.h"
#include "companion/module/Step.h"

namespace companion {

/// Judges an FPGA's DONE line by several looks at it. A look that says kUnknown was no look.
class DoneWatch {
 public:
  using Look = std::function<DoneLine()>;

  /// @param interruption  borrowed
  DoneWatch(Look look, const Interruption& interruption)
      : look_(std::move(look)), interruption_(interruption) {}

  /// Waits until the line is high, which takes three looks in a row.
  /// @return kHigh; kLow when it has stayed low for 10 s, so that an FPGA that is booting has time;
  ///         kUnknown when too many looks fail
  DoneLine AwaitHigh();

  /// Waits, for 100 ms, until the line is low in three looks in a row.
  bool FallsLow();

  /// @return what three looks in a row say; kUnknown when they differ
  DoneLine Now();

 private:
  Look look_;
  const Interruption& interruption_;
};

}  // namespace companion
