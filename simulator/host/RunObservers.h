#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulator/host/Options.h"
#include "simulator/host/RunFiles.h"
#include "simulator/timing/TimeTotals.h"
#include "simulator/trace/ObserverList.h"
#include "simulator/trace/RunObserver.h"
#include "simulator/trace/RunSummary.h"

namespace orvane {

/// Whoever the command line lets watch the run.
class RunObservers {
 public:
  /// @param files   borrowed
  /// @param totals  gives the instrument time so far; not called before the instrument is complete
  RunObservers(const Options& options, RunFiles& files, std::function<const TimeTotals&()> totals);

  /// All of them, owned here; null: nobody watches.
  RunObserver* Observer() { return all_.Empty() ? nullptr : &all_; }

  /// What --summary says, whole lines; empty without it. For after the end of the run.
  std::string Summary() const;

 private:
  void Add(std::unique_ptr<RunObserver> observer);

  std::vector<std::unique_ptr<RunObserver>> observers_;
  ObserverList all_;
  const SummaryForm summaryForm_;
  const RunSummary* summary_ = nullptr;  // one of them; null: none
};

}  // namespace orvane
