#pragma once

#include <chrono>
#include <cstdint>
#include <span>

#include "simulator/chips/DonePolicy.h"
#include "simulator/chips/FpgaBoot.h"
#include "simulator/chips/FpgaConfiguration.h"
#include "simulator/chips/NorFlashModel.h"
#include "simulator/chips/Pca9535Model.h"

namespace orvane {

enum class ExpanderModule { kDax, kPyx1, kPyx2 };

/// The FPGA of a dax, pyx1 or pyx2 module, its GPIO expander and the lines between them. A line
/// that the expander does not drive is at the level of the board's pull resistors, with which the
/// FPGA runs from its flash. The FPGA drives DONE and INIT_B; INIT_B is low in reset and while the
/// FPGA clears its configuration memory.
///
///                                    dax, pyx1                pyx2
///   in reset while low               line 7 (PROGRAM_B)       line 9
///   INIT_B, DONE                     lines 6, 8               lines 1, 0
///   PROGRAM_B, read only             -                        line 4, follows line 9
///   the lines that route the SPI     0xEC9F                   0x0204
///   pulls, and flash to FPGA         0x2C80                   0x0200
///   controller to flash              0x2C9D                   0x0204
///   controller to FPGA and flash     0xEC9D                   -
///
/// Once released, the FPGA boots when the flash holds a plausible bitstream (pyx2: boot header) and
/// the SPI is routed from flash to FPGA from the end of clearing (5 ms) until DONE
/// (FpgaBoot::kBootTime after the release). It tries once: a routing that is set later has no
/// effect before the next reset. At power-on it has already booted if it could.
class ExpanderFpgaModel {
 public:
  /// @param slot   in slot 5 the address of the expander is one higher
  /// @param flash  borrowed; loaded already, and outlives this object
  ExpanderFpgaModel(ExpanderModule module, unsigned slot, NorFlashModel& flash, DonePolicy policy);

  /// 7-bit I2C address: 0x21 dax, 0x20 pyx1 and pyx2, and one more in slot 5.
  std::uint8_t ExpanderAddress() const { return address_; }
  /// Everything after the address byte; the FPGA sees every single register change.
  void WriteExpander(std::span<const std::uint8_t> bytes);
  void ReadExpander(std::span<std::uint8_t> bytes) const { expander_.Read(bytes); }

  /// False: the controller's spidev reads zeros, and no chip receives what it sends.
  bool FlashAnswersController() const;
  bool InReset() const { return boot_.InReset(); }
  bool Done() const { return boot_.Done(); }
  const FpgaConfiguration& Configuration() const { return configuration_; }
  /// The lines that the expander drives: none once the program has released them.
  std::uint16_t DrivenLines() const { return expander_.Driven(); }
  void AdvanceTime(std::chrono::nanoseconds by);
  /// As FpgaBoot::NextChange().
  std::chrono::nanoseconds NextChange() const { return boot_.NextChange(); }

  /// A fault: the lines in `mask` stay at `levels`, whoever drives them; mask 0 ends the fault.
  void HoldLines(std::uint16_t mask, std::uint16_t levels);

  struct Wiring;  // what differs from module to module

 private:
  void Settle();
  bool FlashBootable() const;

  const Wiring& wiring_;
  const NorFlashModel& flash_;
  std::uint8_t address_;
  Pca9535Model expander_;
  FpgaBoot boot_;
  FpgaConfiguration configuration_;
};

}  // namespace orvane
