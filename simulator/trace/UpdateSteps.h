#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "simulator/trace/RunObserver.h"

namespace orvane {

/// A step of an update, in the usual order.
enum class UpdateStep {
  kFinding,      // the module, its buses and the limit of the SPI driver
  kConnecting,   // the flash is led to the controller, and its identification read
  kProtection,   // block protection is set or cleared
  kReadingHead,  // the first 4 KiB of the flash
  kReadingRest,  // what is behind them
  kErasing,
  kProgramming,
  kVerifying,      // a flash is read that the run has programmed
  kReset,          // of the FPGA, until its DONE is high or not waited for any more
  kPcie,           // the endpoint is removed, found and enabled again
  kDisconnecting,  // the flash is given back
};
inline constexpr std::size_t kUpdateSteps = 11;

/// In words, for a table: "reset and DONE".
std::string_view StepName(UpdateStep step);

/// Tells by the events which step of an update the run is in:
///
///   D-Bus call                           finding
///   selector: SPIFIFO; qspi_prg: 1       connecting
///   expander                             connecting, unless one of the next four is under way
///     after SPI commands that follow     reset when the output register is accessed,
///                                          disconnecting when the configuration register is
///     in the reset                       disconnecting at the configuration register, after DONE was
///                                          looked at and the output register not accessed since
///     after it                           connecting at the output register, else disconnecting
///     after a fall of the reset line     reset when DONE is looked at
///       while connecting
///   RDID                                 connecting, before the next ones
///   WRSR                                 protection
///   READ                                 verifying on a flash that the run has programmed before, else
///                                          reading the head or the rest, by its address
///   SE, SSE, CE / PP                     erasing / programming
///   zynq_hw_reset_n                      reset
///   write to a file of PCI               PCIe
///   selector: another word               disconnecting
///
/// RDSR after WRSR, an erase or a program, sleeps, and everything else are part of the step under way.
/// WREN, WRDI, RDCR, any other RDSR, the opening of the selector (its driver is waited for before the
/// write), qspi_prg: 0, a fall of the reset line while connecting, and what is before the first event
/// of all prepare what follows: they are part of the next step that shows itself by one of the rules.
///
/// Steps can come back: a run of several updates, one after the other, goes through them again.
class UpdateSteps : public RunObserver {
 public:
  /// None: the step is decided by what follows.
  std::optional<UpdateStep> Current() const {
    return isDecided_ ? std::optional(last_) : std::nullopt;
  }
  /// Whether the run is an update so far: it has asked the inventory for a module, and then led its flash
  /// to the controller.
  bool IsUpdate() const { return isUpdate_; }

  void OnSpi(const ObservedSpi& message) override;
  void OnI2c(const ObservedI2c& transfer) override;
  void OnAccess(const ObservedAccess& access) override;
  void OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) override;
  void OnOther(std::string_view text, std::chrono::nanoseconds at) override;
  void OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) override;
  /// What prepared something that did not come is part of the step before it.
  void OnEnd(std::chrono::nanoseconds at) override;

 private:
  void Decide(UpdateStep step);
  void Await() { isDecided_ = false; }
  bool UsesFlash() const;
  void TakeCommand(std::string_view path, const ObservedSelect& select);
  UpdateStep StepOfRead(std::string_view path, const ObservedSelect& select) const;
  void TakeExpander(const ObservedI2c& transfer);

  UpdateStep last_ = UpdateStep::kFinding;  // that was decided
  bool isDecided_ = false;
  bool hasAsked_ = false;  // the inventory
  bool isUpdate_ = false;
  bool isWorking_ = false;                         // the status shows whether the chip still works
  bool hasFallen_ = false;                         // the reset line, while connecting
  bool hasLookedAtDone_ = false;                   // in the reset
  std::set<std::string, std::less<>> programmed_;  // the nodes of flashes that were programmed
};

}  // namespace orvane
