#include "simulator/chips/FpgaBoot.h"

#include <algorithm>

#include "simulator/timing/ClockedPart.h"

namespace orvane {

FpgaBoot::FpgaBoot(DonePolicy policy, std::chrono::nanoseconds clearTime, bool configured)
    : policy_(policy),
      clearTime_(clearTime),
      bootTime_(policy.kind == DonePolicy::Kind::kAfter ? std::max(policy.delay, clearTime)
                                                        : kBootTime),
      phase_(configured ? Phase::kConfigured : Phase::kFailed),
      sinceRelease_(bootTime_) {}  // so that every wait is over

void FpgaBoot::Update(bool inReset, bool flashBootable) {
  flashBootable_ = flashBootable;
  if (inReset) {
    phase_ = Phase::kReset;
    return;
  }
  if (phase_ == Phase::kReset) {
    phase_ = Phase::kBooting;
    sinceRelease_ = std::chrono::nanoseconds(0);
  }
  LookForFlash();
}

void FpgaBoot::AdvanceTime(std::chrono::nanoseconds by) {
  if (phase_ != Phase::kReset) {
    sinceRelease_ += by;
    LookForFlash();
  }
}

std::chrono::nanoseconds FpgaBoot::NextChange() const {
  std::chrono::nanoseconds next = kNever;
  if (phase_ == Phase::kReset) {
    return next;
  }
  // The end of clearing shows in every phase, that of booting as well when its DONE line is forced.
  for (const std::chrono::nanoseconds at : {clearTime_, bootTime_, policy_.delay}) {
    if (at > sinceRelease_) {
      next = std::min(next, at - sinceRelease_);
    }
  }
  return next;
}

void FpgaBoot::LookForFlash() {
  if (phase_ != Phase::kBooting || sinceRelease_ < clearTime_) {
    return;
  }
  if (!flashBootable_) {
    phase_ = Phase::kFailed;
  } else if (sinceRelease_ >= bootTime_) {
    phase_ = Phase::kConfigured;
  }
}

bool FpgaBoot::Cleared() const { return phase_ != Phase::kReset && sinceRelease_ >= clearTime_; }

bool FpgaBoot::Done() const {
  switch (policy_.kind) {
    case DonePolicy::Kind::kAuto:
      return Configured();
    case DonePolicy::Kind::kHigh:
      return true;
    case DonePolicy::Kind::kLow:
      return false;
    case DonePolicy::Kind::kAfter:
      return phase_ != Phase::kReset && sinceRelease_ >= policy_.delay;
  }
  return false;
}

}  // namespace orvane
