#pragma once

#include <cstdint>
#include <optional>

#include "devices/SerialDeviceInterface.h"

namespace companion {

/// Register pairs of a PCA9535, port 0 in the low byte (data sheet, register descriptions). The
/// platform's driver does not tell a failed read from zeros; this does.
class ExpanderRegisters {
 public:
  /// @param bus  borrowed; open, with the expander's address
  explicit ExpanderRegisters(SerialDeviceInterface& bus) : bus_(bus) {}

  /// @return levels at the pins; nothing when the transfer fails
  [[nodiscard]] std::optional<std::uint16_t> Input() const;
  /// @return levels of the lines that are outputs, or would be; nothing when the transfer fails
  [[nodiscard]] std::optional<std::uint16_t> Output() const;
  /// @return 1 marks an input; nothing when the transfer fails
  [[nodiscard]] std::optional<std::uint16_t> Configuration() const;

  /// Sets the output levels of the lines in `mask`, and reads them back. Those of the other lines are
  /// kept as two readings show them.
  /// @return false when they are not as they should be; nothing is written when the readings differ
  [[nodiscard]] bool SetOutput(std::uint16_t levels, std::uint16_t mask) const;

  /// Sets the directions of all lines, without a reading. Whether it worked, Configuration() shows.
  /// @param inputs  1 marks an input
  void SetConfiguration(std::uint16_t inputs) const;

 private:
  [[nodiscard]] std::optional<std::uint16_t> Pair(std::uint8_t command) const;
  [[nodiscard]] bool SetPair(std::uint8_t command, std::uint16_t word) const;

  SerialDeviceInterface& bus_;
};

}  // namespace companion
