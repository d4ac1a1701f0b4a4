#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "app/Targets.h"
#include "companion/module/DoneWatch.h"
#include "companion/module/ModulePlace.h"
#include "companion/module/Step.h"
#include "devices/I2CDev.h"
#include "devices/SPIDevOwner.h"
#include "platform/PCA9535.h"

namespace companion {

/// The devices of one module, opened and driven as the program does it, but for its flash driver:
/// that would lock a lockable chip. Lives in a worker. Steps that fail throw StepFailed; a control
/// file of a wend that fails ends the process, and its parent has the module given back.
class ModuleAccess {
 public:
  /// Switches the SPI path of a pyx to the controller.
  /// @param place,interruption  borrowed
  ModuleAccess(const ModulePlace& place, const Interruption& interruption);
  ModuleAccess(const ModuleAccess&) = delete;
  ModuleAccess& operator=(const ModuleAccess&) = delete;
  /// Gives the module back, unless that has happened.
  ~ModuleAccess();

  /// Addresses the expander and drives its lines so that the FPGA runs from the flash. An FPGA that
  /// runs is not disturbed.
  /// @param resting  directions of the lines before, for LookAfter(); found out where it is empty
  /// @throw StepFailed when they cannot be found out, before anything is changed
  void ConnectLines(std::optional<std::uint16_t>& resting);

  /// Waits until DONE is high, or has been low for 10 s. After ConnectLines().
  /// @throw StepFailed when the line cannot be read
  DoneLine AwaitDone();

  /// Routes the flash to the controller.
  /// @param psMode  brings an FPGA that is not configured into PS mode before, where its type has it
  void TakeFlash(bool psMode);

  /// @return the SPI device, open
  SPIDev& OpenSpi();

  /// Holds the FPGA in reset and looks whether its DONE falls. After ConnectLines().
  /// @return true when it was seen low
  bool ResetFalls();

  /// Resets the FPGA so that it loads its flash, and waits for its DONE.
  /// @return false when it stays low for 10 s
  bool LoadFlash();

  /// Has GiveBack() release a reset that another process may have left.
  void AssumeReset() { inReset_ = true; }

  /// Addresses the expander, where there is one, for GiveBack() without ConnectLines().
  /// @param resting  as ConnectLines() has it
  void AddressExpander(std::optional<std::uint16_t>& resting);

  /// Releases what was taken. Also for a module that another process has left taken.
  void GiveBack();

  /// Looks whether everything is given back, and repeats what is not. After GiveBack().
  /// @param resting  as ConnectLines() found it: the lines that the program does not drive are to be
  ///                 so again. Empty: they are to be inputs, as after power-on.
  /// @return what could not be given back or looked at, for a reader; else empty
  std::string LookAfter(std::optional<std::uint16_t> resting);

  /// @return DONE of a module that is given back; kUnknown when it cannot be read
  DoneLine DoneAfter();

 private:
  [[nodiscard]] bool HasExpander() const { return module_.lines != nullptr; }
  void OpenExpander();
  void FindResting(std::optional<std::uint16_t>& resting);
  [[nodiscard]] StepFailed DoesNotAnswer() const;
  /// @param pattern  what the lines are driven to, or held at by the board
  /// @param driven   the lines that are driven
  DoneLine LookAtLines(unsigned pattern, unsigned driven);
  DoneLine LookAtDone(unsigned pattern);
  [[nodiscard]] bool LinesAreDriven();
  [[nodiscard]] bool ResetIsDriven();
  std::string LookAtExpander(std::optional<std::uint16_t> resting);
  [[nodiscard]] std::string LookAtSelector() const;

  const ModulePlace& place_;
  const Interruption& interruption_;
  I2CDev i2c_;
  PCA9535 expander_;
  SPIDevOwner spi_;
  ModuleProgrammer module_;
  bool taken_ = true;
  bool inReset_ = false;
};

}  // namespace companion
