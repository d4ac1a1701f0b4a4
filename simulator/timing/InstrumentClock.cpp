#include "simulator/timing/InstrumentClock.h"

#include <algorithm>

namespace orvane {

InstrumentClock::Step InstrumentClock::NextStep(Cause cause, std::chrono::nanoseconds most) const {
  bool isBusy = false;
  bool awaitsPoll = false;
  for (const ClockedPart* const part : parts_) {
    most = std::min(most, part->NextChange());
    isBusy = isBusy || part->ChipBusy();
    awaitsPoll = awaitsPoll || part->AwaitsPoll();
  }
  if (isBusy) {
    return {most, Cause::kChipBusy};
  }
  return {most, awaitsPoll ? Cause::kLatePoll : cause};
}

void InstrumentClock::Advance(Cause cause, std::chrono::nanoseconds by) {
  by = std::min(by, kNever - now_);
  while (by.count() > 0) {
    const Step step = NextStep(cause, by);
    for (ClockedPart* const part : parts_) {
      part->AdvanceTime(step.length);
    }
    now_ += step.length;
    totals_.Add(step.cause, step.length);
    by -= step.length;
    if (onStep_) {
      onStep_();
    }
  }
}

}  // namespace orvane
