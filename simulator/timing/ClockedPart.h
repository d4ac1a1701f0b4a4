#pragma once

#include <chrono>

namespace orvane {

/// Longer than any run.
inline constexpr std::chrono::nanoseconds kNever = std::chrono::nanoseconds::max();

/// A part of the instrument for which time passes.
class ClockedPart {
 public:
  ClockedPart() = default;
  ClockedPart(const ClockedPart&) = delete;
  ClockedPart& operator=(const ClockedPart&) = delete;
  virtual ~ClockedPart() = default;

  /// Advances the instrument time.
  virtual void AdvanceTime(std::chrono::nanoseconds by) = 0;
  /// How long it takes until the part changes although nobody does anything: more than 0, or kNever.
  virtual std::chrono::nanoseconds NextChange() const = 0;
  /// Whether a flash chip of it works.
  virtual bool ChipBusy() const = 0;
  /// Whether a flash chip of it has become ready, and nobody has seen it yet.
  virtual bool AwaitsPoll() const = 0;
};

}  // namespace orvane
