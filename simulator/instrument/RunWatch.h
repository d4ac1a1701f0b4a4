#pragma once

#include <chrono>
#include <memory>
#include <span>
#include <vector>

#include "simulator/boards/Module.h"
#include "simulator/trace/RunObserver.h"

namespace orvane {

/// Tells an observer which chips and lines of the modules have changed.
class RunWatch {
 public:
  /// @param modules   borrowed, the modules too
  /// @param observer  borrowed
  RunWatch(std::span<const std::unique_ptr<Module>> modules, RunObserver& observer);

  /// Tells what has changed since this was called last.
  void Look(std::chrono::nanoseconds now);

 private:
  struct Seen {
    bool busy = false;
    std::vector<LineLevel> lines;
  };
  void LookAt(const Module& module, Seen& seen, std::chrono::nanoseconds now);

  std::span<const std::unique_ptr<Module>> modules_;
  RunObserver& observer_;
  std::vector<Seen> seen_;  // one for each module
};

}  // namespace orvane
