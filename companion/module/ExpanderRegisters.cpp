#include "companion/module/ExpanderRegisters.h"

#include <array>

namespace companion {

namespace {

constexpr std::uint8_t kInputPair = 0x00;
constexpr std::uint8_t kOutputPair = 0x02;
constexpr std::uint8_t kConfigurationPair = 0x06;

}  // namespace

std::optional<std::uint16_t> ExpanderRegisters::Pair(std::uint8_t command) const {
  std::array<std::uint8_t, 2> pair{};
  if (bus_.read(pair.data(), pair.size(), &command, 1) != int{pair.size()}) {
    return std::nullopt;
  }
  return static_cast<std::uint16_t>(pair[0] | pair[1] << 8);
}

bool ExpanderRegisters::SetPair(std::uint8_t command, std::uint16_t word) const {
  std::array<std::uint8_t, 3> message = {
      command, static_cast<std::uint8_t>(word & 0xFF), static_cast<std::uint8_t>(word >> 8)};
  return bus_.write(message.data(), message.size()) == int{message.size()};
}

std::optional<std::uint16_t> ExpanderRegisters::Input() const { return Pair(kInputPair); }

std::optional<std::uint16_t> ExpanderRegisters::Output() const { return Pair(kOutputPair); }

std::optional<std::uint16_t> ExpanderRegisters::Configuration() const {
  return Pair(kConfigurationPair);
}

bool ExpanderRegisters::SetOutput(std::uint16_t levels, std::uint16_t mask) const {
  const std::optional<std::uint16_t> old = Output();
  if (!old || Output() != old) {
    return false;
  }
  const auto wanted = static_cast<std::uint16_t>((*old & ~mask) | (levels & mask));
  return SetPair(kOutputPair, wanted) && Output() == wanted;
}

void ExpanderRegisters::SetConfiguration(std::uint16_t inputs) const {
  static_cast<void>(SetPair(kConfigurationPair, inputs));
}

}  // namespace companion
