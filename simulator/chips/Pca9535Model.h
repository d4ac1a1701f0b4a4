#pragma once

#include <cstdint>
#include <span>

namespace orvane {

/// A PCA9535 16-bit I2C GPIO expander: its registers and its 16 lines. Bit n of every word is line
/// n; port 0 is bits 0 to 7, port 1 is bits 8 to 15.
///
///   write: command, then data for the register `command` and the other one of its pair in turn
///   read:  the register of the last command and the other one of its pair in turn
///
/// Registers, a pair for the two ports each: 0 input (levels of the lines, inverted where polarity
/// is 1; read-only), 2 output, 4 polarity, 6 configuration (1 = input). Only the low three
/// bits of the command count. At power-on every output is 1, nothing is inverted, and every line is
/// an input.
class Pca9535Model {
 public:
  /// @param undriven  levels of the lines that nothing drives
  explicit Pca9535Model(std::uint16_t undriven) : outside_(undriven) {}

  /// Everything after the address byte of a write; each register changes with its byte.
  void Write(std::span<const std::uint8_t> bytes);
  /// Fills `bytes` as a read does.
  void Read(std::span<std::uint8_t> bytes) const;

  /// The levels that the lines have when the expander does not drive them.
  void SetOutside(std::uint16_t levels) { outside_ = levels; }
  /// The levels on the lines.
  std::uint16_t Lines() const;
  /// The lines that the expander drives.
  std::uint16_t Driven() const { return static_cast<std::uint16_t>(~configuration_); }

  /// A fault: the lines in `mask` stay at `levels`, whoever drives them; mask 0 ends the fault.
  void HoldLines(std::uint16_t mask, std::uint16_t levels);

 private:
  std::uint8_t Register(unsigned number) const;

  std::uint8_t command_ = 0;
  std::uint16_t output_ = 0xFFFF;
  std::uint16_t polarity_ = 0x0000;
  std::uint16_t configuration_ = 0xFFFF;
  std::uint16_t outside_;
  std::uint16_t heldMask_ = 0;
  std::uint16_t heldLevels_ = 0;
};

}  // namespace orvane
