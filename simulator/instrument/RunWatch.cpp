#include "simulator/instrument/RunWatch.h"

#include <cstddef>
#include <utility>

namespace orvane {

RunWatch::RunWatch(std::span<const std::unique_ptr<Module>> modules, RunObserver& observer)
    : modules_(modules), observer_(observer) {
  for (const auto& module : modules_) {
    seen_.push_back({.busy = module->ChipBusy(), .lines = module->Lines()});
  }
}

void RunWatch::Look(std::chrono::nanoseconds now) {
  for (std::size_t i = 0; i < modules_.size(); ++i) {
    LookAt(*modules_[i], seen_[i], now);
  }
}

void RunWatch::LookAt(const Module& module, Seen& seen, std::chrono::nanoseconds now) {
  if (module.ChipBusy() != seen.busy) {
    seen.busy = !seen.busy;
    if (seen.busy) {
      const NorFlashModel& flash = module.Flash();
      observer_.OnChipBusy(module.Slot(), flash.Work(), flash.WorkAddress(), now);
    } else {
      observer_.OnChipReady(module.Slot(), now);
    }
  }
  std::vector<LineLevel> lines = module.Lines();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].high != seen.lines[i].high) {
      observer_.OnLine(module.Slot(), lines[i], now);
    }
  }
  seen.lines = std::move(lines);
}

}  // namespace orvane
