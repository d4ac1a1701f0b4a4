#pragma once

#include <chrono>

#include "simulator/chips/DonePolicy.h"

namespace orvane {

/// How an FPGA comes out of reset: it clears its configuration memory, loads from its flash and
/// raises DONE. It tries once: when it cannot boot from its flash at the end of clearing, or at any
/// time before DONE, it stays unconfigured until the next reset.
class FpgaBoot {
 public:
  static constexpr std::chrono::nanoseconds kBootTime = std::chrono::milliseconds(20);

  /// An FPGA that has been powered for a long time and is not in reset.
  /// @param clearTime   from the release until the FPGA reads the flash, at most kBootTime
  /// @param configured  whether DONE is high under DonePolicy::Kind::kAuto
  FpgaBoot(DonePolicy policy, std::chrono::nanoseconds clearTime, bool configured);

  /// Sets the reset line and whether the FPGA can access a flash that it can boot from. To be
  /// called whenever either may have changed.
  void Update(bool inReset, bool flashBootable);

  void AdvanceTime(std::chrono::nanoseconds by);

  bool InReset() const { return phase_ == Phase::kReset; }
  /// Whether the configuration memory is cleared, which an FPGA shows on its INIT_B line.
  bool Cleared() const;
  /// The DONE line.
  bool Done() const;

 private:
  enum class Phase { kReset, kBooting, kFailed, kConfigured };

  void LookForFlash();

  DonePolicy policy_;
  std::chrono::nanoseconds clearTime_;
  Phase phase_;
  bool flashBootable_ = false;
  std::chrono::nanoseconds sinceRelease_;
};

}  // namespace orvane
