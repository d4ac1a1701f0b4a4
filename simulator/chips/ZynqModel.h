#pragma once

#include <chrono>
#include <string_view>

#include "simulator/chips/DonePolicy.h"
#include "simulator/chips/FpgaBoot.h"
#include "simulator/chips/FpgaConfiguration.h"
#include "simulator/chips/NorFlashModel.h"

namespace orvane {

/// The Zynq of a wend module, as its three control files show it. At power-on the Zynq owns its
/// flash, is not in reset, and DONE is high when the flash holds a plausible boot header.
///
/// DONE is low in reset. It rises FpgaBoot::kBootTime after the release when the Zynq owns the
/// flash from the release on and finds a plausible boot header there. It tries once: a flash that
/// it gets back later has no effect before the next reset. Without its flash a configured Zynq
/// stays so.
class ZynqModel {
 public:
  /// @param flash  borrowed; loaded already, and outlives this object
  ZynqModel(NorFlashModel& flash, DonePolicy policy);

  /// "1": the controller owns the flash; "0": the Zynq owns it; anything else is ignored.
  void WriteQspiPrg(std::string_view value);
  /// "0": in reset; "1": released; anything else is ignored.
  void WriteHwReset(std::string_view value);

  /// False: the controller's spidev reads zeros, and no chip receives what it sends.
  bool ControllerOwnsFlash() const { return controllerOwnsFlash_; }
  bool InReset() const { return inReset_; }
  bool Done() const { return boot_.Done(); }
  const FpgaConfiguration& Configuration() const { return configuration_; }
  void AdvanceTime(std::chrono::nanoseconds by);
  /// As FpgaBoot::NextChange().
  std::chrono::nanoseconds NextChange() const { return boot_.NextChange(); }

 private:
  void Update();

  const NorFlashModel& flash_;
  bool controllerOwnsFlash_ = false;
  bool inReset_ = false;
  FpgaBoot boot_;
  FpgaConfiguration configuration_;
};

}  // namespace orvane
