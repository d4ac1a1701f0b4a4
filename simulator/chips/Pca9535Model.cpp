#include "simulator/chips/Pca9535Model.h"

namespace orvane {
namespace {

constexpr unsigned kRegisterMask = 0x07;
constexpr unsigned kPortBit = 0x01;  // selects the port within a pair
constexpr unsigned kInput = 0;
constexpr unsigned kOutput = 2;
constexpr unsigned kPolarity = 4;
constexpr unsigned kConfiguration = 6;

/// `word` with the byte of one port replaced.
std::uint16_t WithPort(std::uint16_t word, unsigned port, std::uint8_t byte) {
  const unsigned shift = 8 * port;
  return static_cast<std::uint16_t>((word & ~(0xFFU << shift)) | unsigned{byte} << shift);
}

}  // namespace

void Pca9535Model::Write(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) {
    return;
  }
  command_ = bytes[0];
  unsigned number = command_ & kRegisterMask;
  for (const std::uint8_t byte : bytes.subspan(1)) {
    const unsigned port = number & kPortBit;
    switch (number & ~kPortBit) {
      case kOutput:
        output_ = WithPort(output_, port, byte);
        break;
      case kPolarity:
        polarity_ = WithPort(polarity_, port, byte);
        break;
      case kConfiguration:
        configuration_ = WithPort(configuration_, port, byte);
        break;
      default:  // the input registers cannot be written
        break;
    }
    number ^= kPortBit;
  }
}

void Pca9535Model::Read(std::span<std::uint8_t> bytes) const {
  unsigned number = command_ & kRegisterMask;
  for (std::uint8_t& byte : bytes) {
    byte = Register(number);
    number ^= kPortBit;
  }
}

std::uint8_t Pca9535Model::Register(unsigned number) const {
  std::uint16_t word = 0;
  switch (number & ~kPortBit) {
    case kInput:
      word = Lines() ^ polarity_;
      break;
    case kOutput:
      word = output_;
      break;
    case kPolarity:
      word = polarity_;
      break;
    default:
      word = configuration_;
      break;
  }
  return static_cast<std::uint8_t>(word >> (8 * (number & kPortBit)));
}

std::uint16_t Pca9535Model::Lines() const {
  const unsigned levels = (output_ & ~unsigned{configuration_}) | (outside_ & configuration_);
  return static_cast<std::uint16_t>((levels & ~unsigned{heldMask_}) | heldLevels_);
}

void Pca9535Model::HoldLines(std::uint16_t mask, std::uint16_t levels) {
  heldMask_ = mask;
  heldLevels_ = levels & mask;
}

}  // namespace orvane
