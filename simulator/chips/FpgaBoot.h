#pragma once

#include <chrono>

#include "simulator/chips/DonePolicy.h"

namespace orvane {

/// How an FPGA comes out of reset: it clears itself, looks for its flash, loads from it and raises
/// DONE. It looks once: when its flash cannot be booted from at the end of clearing, or is out of
/// reach before DONE, it stays unconfigured until the next reset.
class FpgaBoot {
 public:
  static constexpr std::chrono::nanoseconds kBootTime = std::chrono::milliseconds(20);

  /// Powered for a long time, not in reset.
  /// @param clearTime   from release until the flash must be there, at most kBootTime
  /// @param configured  whether DONE is high under DonePolicy::Kind::kAuto
  FpgaBoot(DonePolicy policy, std::chrono::nanoseconds clearTime, bool configured);

  /// Sets the reset line and whether a flash that can be booted from is within reach. To be called
  /// whenever either may have changed.
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
