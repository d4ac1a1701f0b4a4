#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/trace/RunObserver.h"

namespace orvane {

/// Tells each of several observers everything, in the order in which they were added.
class ObserverList : public RunObserver {
 public:
  /// @param observer  borrowed
  void Add(RunObserver& observer) { observers_.push_back(&observer); }
  bool Empty() const { return observers_.empty(); }

  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override;
  void OnSpi(const ObservedSpi& message) override;
  void OnI2c(const ObservedI2c& transfer) override;
  void OnAccess(const ObservedAccess& access) override;
  void OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) override;
  void OnSleep(Period period) override;
  void OnUnseen(Period period) override;
  void OnConsole(int descriptor, std::string_view bytes, std::chrono::nanoseconds at) override;
  void OnOther(std::string_view text, std::chrono::nanoseconds at) override;
  void OnChipBusy(unsigned slot,
                  ChipWork work,
                  std::uint32_t address,
                  std::chrono::nanoseconds at) override;
  void OnChipReady(unsigned slot, std::chrono::nanoseconds at) override;
  void OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) override;
  void OnEnd(std::chrono::nanoseconds at) override;

 private:
  std::vector<RunObserver*> observers_;
};

}  // namespace orvane
