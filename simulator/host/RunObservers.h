#pragma once

#include <memory>
#include <vector>

#include "simulator/host/Options.h"
#include "simulator/host/RunFiles.h"
#include "simulator/trace/ObserverList.h"
#include "simulator/trace/RunObserver.h"

namespace orvane {

/// Whoever the command line lets watch the run.
class RunObservers {
 public:
  /// @param files  borrowed
  RunObservers(const Options& options, RunFiles& files);

  /// All of them, owned here; null: nobody watches.
  RunObserver* Observer() { return all_.Empty() ? nullptr : &all_; }

 private:
  void Add(std::unique_ptr<RunObserver> observer);

  std::vector<std::unique_ptr<RunObserver>> observers_;
  ObserverList all_;
};

}  // namespace orvane
