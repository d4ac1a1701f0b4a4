#include "simulator/host/RunObservers.h"

#include <utility>

#include "simulator/trace/ChromeTrace.h"
#include "simulator/trace/SummaryJson.h"
#include "simulator/trace/SummaryText.h"
#include "simulator/trace/VcdTrace.h"

namespace orvane {

RunObservers::RunObservers(const Options& options,
                           RunFiles& files,
                           std::function<const TimeTotals&()> totals)
    : summaryForm_(options.summary) {
  if (summaryForm_ != SummaryForm::kNone) {
    auto summary = std::make_unique<RunSummary>(options.timing, std::move(totals));
    summary_ = summary.get();
    Add(std::move(summary));
  }
  if (!options.traceFile.empty()) {
    Add(std::make_unique<ChromeTrace>(*files.Stream(StreamKind::kTrace)));
  }
  if (!options.vcdFile.empty()) {
    Add(std::make_unique<VcdTrace>(*files.Stream(StreamKind::kVcd)));
  }
}

std::string RunObservers::Summary() const {
  if (summary_ == nullptr) {
    return "";
  }
  const RunFigures& figures = summary_->Figures();
  return summaryForm_ == SummaryForm::kJson ? SummaryJson(figures) : SummaryText(figures);
}

void RunObservers::Add(std::unique_ptr<RunObserver> observer) {
  all_.Add(*observer);
  observers_.push_back(std::move(observer));
}

}  // namespace orvane
