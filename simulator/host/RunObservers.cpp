#include "simulator/host/RunObservers.h"

#include <utility>

#include "simulator/trace/ChromeTrace.h"
#include "simulator/trace/VcdTrace.h"

namespace orvane {

RunObservers::RunObservers(const Options& options, RunFiles& files) {
  if (!options.traceFile.empty()) {
    Add(std::make_unique<ChromeTrace>(*files.Stream(StreamKind::kTrace)));
  }
  if (!options.vcdFile.empty()) {
    Add(std::make_unique<VcdTrace>(*files.Stream(StreamKind::kVcd)));
  }
}

void RunObservers::Add(std::unique_ptr<RunObserver> observer) {
  all_.Add(*observer);
  observers_.push_back(std::move(observer));
}

}  // namespace orvane
