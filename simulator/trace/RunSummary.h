#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/timing/ChipTimes.h"
#include "simulator/timing/TimeTotals.h"
#include "simulator/timing/Timing.h"
#include "simulator/trace/RunFigures.h"
#include "simulator/trace/RunObserver.h"
#include "simulator/trace/UpdateSteps.h"

namespace orvane {

/// Sums up what a run takes. Its memory does not grow with the run.
class RunSummary : public RunObserver {
 public:
  /// The name of the only step of a run that is no update.
  static constexpr std::string_view kWholeRun = "whole run";

  /// @param timing  not Timing::kPolls
  /// @param totals  gives the instrument time so far; not called before OnStart has returned
  RunSummary(Timing timing, std::function<const TimeTotals&()> totals)
      : totals_(std::move(totals)) {
    figures_.timing = timing;
  }

  /// Complete after OnEnd.
  const RunFigures& Figures() const { return figures_; }

  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override;
  void OnSpi(const ObservedSpi& message) override;
  void OnI2c(const ObservedI2c& transfer) override;
  void OnAccess(const ObservedAccess& access) override;
  void OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) override;
  void OnSleep(Period period) override;
  void OnUnseen(Period period) override;
  void OnOther(std::string_view text, std::chrono::nanoseconds at) override;
  void OnChipBusy(unsigned slot,
                  ChipWork work,
                  std::uint32_t address,
                  std::chrono::nanoseconds at) override;
  void OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) override;
  void OnEnd(std::chrono::nanoseconds at) override;

 private:
  void Account();
  CommandCount& CountOf(std::string name);

  std::function<const TimeTotals&()> totals_;
  UpdateSteps steps_;
  TimeTotals seen_;     // that has been accounted for
  TimeTotals waiting_;  // of it, what is part of a step that is not decided yet
  std::array<TimeTotals, kUpdateSteps> times_;        // of each step
  std::vector<UpdateStep> order_;                     // in which steps began
  std::map<unsigned, ChipTimes> chips_;               // by slot
  std::map<std::string, std::size_t> commandPlaces_;  // in the figures
  std::map<std::uint32_t, std::uint64_t> bytesAt_;    // SPI bytes by rate
  std::chrono::nanoseconds work_{0};                  // of programs and erases
  RunFigures figures_;
};

}  // namespace orvane
