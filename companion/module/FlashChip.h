#pragma once

#include <cstdint>
#include <span>

#include "companion/module/ModuleInterface.h"
#include "companion/module/Step.h"
#include "flash/MT25QL128.h"

class SPIDev;

namespace companion {

/// The flash chip behind an SPI device that is open, through the commands of the program's driver.
/// That is never connected: nothing is sent but what an operation here says. Steps that fail throw
/// StepFailed.
class FlashChip {
 public:
  /// @param spi,interruption  borrowed; `spi` is closed when this is destroyed
  FlashChip(SPIDev& spi, const Interruption& interruption)
      : driver_(&spi), interruption_(interruption) {}

  /// Waits until the chip is ready, for about 10 s.
  void AwaitReady();

  /// Identifies the chip and reads its registers; the configuration register of a lockable chip
  /// only.
  Chip Identify();

  /// Sets the protect level of a lockable chip, and looks at it. Nothing on other chips.
  /// @param whole  the whole array; else nothing
  void Protect(bool whole);

  /// Erases the first 64 KiB and programs `page` at address 0. Whether that worked shows when the
  /// flash is read.
  void RewriteHead(std::span<const std::uint8_t> page);

 private:
  std::uint8_t Register(std::uint8_t command, const char* name);
  /// @return what two readings in a row say
  std::uint8_t SteadyRegister(std::uint8_t command, const char* name);

  MT25QL128 driver_;
  const Interruption& interruption_;
};

}  // namespace companion
