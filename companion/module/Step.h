#pragma once

#include <atomic>
#include <stdexcept>
#include <string>

#include "companion/process/Worker.h"

namespace companion {

/// Attempts at one access to a device before it counts as failed.
inline constexpr int kTries = 3;

/// A step of an operation on a module that failed. Its text is one line for a reader.
class StepFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Tells a worker's steps when to end early.
class Interruption {
 public:
  /// @param stop  set by the parent; borrowed
  /// @param side  borrowed
  Interruption(const std::atomic<bool>& stop, const WorkerSide& side) : stop_(stop), side_(side) {}

  /// Called between accesses, where the module can be given back.
  /// @throw StepFailed when the operation is to end
  void Check() const;

  /// Has the parent look at the progress.
  void WakeParent() const { side_.WakeParent(); }

 private:
  const std::atomic<bool>& stop_;
  const WorkerSide& side_;
};

}  // namespace companion
