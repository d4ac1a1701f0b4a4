#pragma once

#include <chrono>

#include "simulator/chips/DonePolicy.h"

namespace orvane {

/// How an FPGA comes out of reset: it clears its configuration memory, loads from its flash and
/// raises DONE. It tries once: when it cannot boot from its flash at the end of clearing, or at any
/// time before it is configured, it stays unconfigured until the next reset.
///
/// A policy other than DonePolicy::Kind::kAuto forces the DONE line and nothing else: the line then
/// does not tell whether the FPGA is configured. Under kHigh and kLow the FPGA boots as under kAuto.
/// Under kAfter it is configured when its DONE rises, but not before clearing ends; an FPGA that
/// cannot boot raises DONE and is not configured.
class FpgaBoot {
 public:
  static constexpr std::chrono::nanoseconds kBootTime = std::chrono::milliseconds(20);

  /// An FPGA that has been powered for a long time and is not in reset.
  /// @param clearTime   from the release until the FPGA reads the flash, at most kBootTime
  /// @param configured  whether it has booted from its flash at power-on
  FpgaBoot(DonePolicy policy, std::chrono::nanoseconds clearTime, bool configured);

  /// Sets the reset line and whether the FPGA can access a flash that it can boot from. To be
  /// called whenever either may have changed.
  void Update(bool inReset, bool flashBootable);

  void AdvanceTime(std::chrono::nanoseconds by);
  /// How long it takes until time alone may change something; kNever: it cannot.
  std::chrono::nanoseconds NextChange() const;

  bool InReset() const { return phase_ == Phase::kReset; }
  /// Whether the configuration memory is cleared, which an FPGA shows on its INIT_B line.
  bool Cleared() const;
  /// Whether it has loaded what its flash held, and was not reset since. The boot itself decides,
  /// whatever the policy makes of the DONE line.
  bool Configured() const { return phase_ == Phase::kConfigured; }
  /// The DONE line.
  bool Done() const;

 private:
  enum class Phase { kReset, kBooting, kFailed, kConfigured };

  void LookForFlash();

  DonePolicy policy_;
  std::chrono::nanoseconds clearTime_;
  std::chrono::nanoseconds bootTime_;  // from the release until it is configured
  Phase phase_;
  bool flashBootable_ = false;
  std::chrono::nanoseconds sinceRelease_;
};

}  // namespace orvane
