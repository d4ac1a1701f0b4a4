#include "platform/PCA9535.h"

#include <cstddef>
#include <cstdint>
#include <optional>

#include "devices/SerialDeviceInterface.h"

namespace {

// PCA9535 data sheet, register descriptions: each register is a pair, port 0 first. The polarity
// pair at 0x04 stays as it is.
constexpr std::uint8_t kInputPair = 0x00;          // levels at the pins
constexpr std::uint8_t kOutputPair = 0x02;         // levels of the lines that are outputs
constexpr std::uint8_t kConfigurationPair = 0x06;  // 1 = input
constexpr std::size_t kPairBytes = 2;
constexpr std::uint16_t kAllInputs = 0xFFFF;

std::optional<std::uint16_t> ReadPair(SerialDeviceInterface& bus, std::uint8_t reg) {
  std::uint8_t command[] = {reg};
  std::uint8_t pair[kPairBytes] = {};
  if (bus.read(pair, sizeof pair, command, sizeof command) != int{kPairBytes}) {
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(pair[0] | pair[1] << 8);
}

bool WritePair(SerialDeviceInterface& bus, std::uint8_t reg, std::uint16_t value) {
  std::uint8_t message[] = {
      reg, static_cast<std::uint8_t>(value & 0xFF), static_cast<std::uint8_t>(value >> 8)};
  return bus.write(message, sizeof message) == int{sizeof message};
}

/// Reads the pair and writes it back with the lines in `mask` changed to `bits`. A failed read
/// skips the write.
/// @return false when either fails
bool ChangePair(SerialDeviceInterface& bus,
                std::uint8_t reg,
                std::uint16_t bits,
                std::uint16_t mask) {
  const std::optional<std::uint16_t> old = ReadPair(bus, reg);
  if (!old) {
    return false;
  }
  return WritePair(bus, reg, static_cast<std::uint16_t>((*old & ~mask) | (bits & mask)));
}

}  // namespace

PCA9535::PCA9535(SerialDeviceInterface* bus, unsigned char /*flags*/) : bus_(bus) {}

// Deliberate: no bus traffic. The lines keep their levels unless disconnect() was called.
PCA9535::~PCA9535() {}

bool PCA9535::connect(unsigned char address,
                      unsigned short direction,
                      unsigned short outputs,
                      unsigned short mask,
                      unsigned char /*flags*/) {
  // Deliberate: the bus is not closed first. One that is open already keeps the address of its
  // first open.
  if (bus_->open(address) < 0) {
    return false;
  }
  // Deliberate: levels before directions, so a line that becomes an output starts at its level.
  return ChangePair(*bus_, kOutputPair, outputs, mask) &&
         ChangePair(*bus_, kConfigurationPair, direction, mask);
}

void PCA9535::setPortActually(unsigned short outputs, unsigned short mask) {
  static_cast<void>(ChangePair(*bus_, kOutputPair, outputs, mask));  // a failure is not reported
}

unsigned short PCA9535::getPort(unsigned short bits) {
  return static_cast<unsigned short>(ReadPair(*bus_, kInputPair).value_or(0) & bits);
}

void PCA9535::disconnect(unsigned short mask) {
  // Deliberate: the bus is closed whether or not the lines could be released.
  static_cast<void>(ChangePair(*bus_, kConfigurationPair, kAllInputs, mask));
  bus_->close();
}
