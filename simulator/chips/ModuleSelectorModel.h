#pragma once

#include <string_view>

namespace orvane {

/// The platform's multiplexer of the module slots' SPI lines, as its two attributes show it: slotA
/// switches slot 4, slotB every other slot. Written "SPIFIFO", the slot is on the controller's SPI
/// master; written "SPILVDS", as at power-on, it is not. Only pyx modules depend on it.
class ModuleSelectorModel {
 public:
  enum class Attribute { kSlotA, kSlotB };

  /// Exactly "SPIFIFO" or "SPILVDS"; any other text is ignored.
  void Write(Attribute attribute, std::string_view text);
  /// The text in force.
  std::string_view Read(Attribute attribute) const;

  /// False: the spidev of a pyx module in `slot` reads zeros, and no chip receives what it sends.
  bool OnSpiMaster(unsigned slot) const;

 private:
  bool slotAOnSpiMaster_ = false;
  bool slotBOnSpiMaster_ = false;
};

}  // namespace orvane
