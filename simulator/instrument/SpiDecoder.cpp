#include "simulator/instrument/SpiDecoder.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "simulator/instrument/Escape.h"

namespace orvane {

namespace {

/// What follows an opcode.
enum class Shape {
  kAlone,           // nothing
  kAnswer,          // bytes that come back
  kValues,          // bytes that are sent
  kAddress,         // three bytes of address
  kAddressAndData,  // an address, then bytes sent
  kAddressAndRead,  // an address, then bytes that come back
};

struct Command {
  std::string_view name;
  Shape shape;
  std::uint8_t opcode;
};

constexpr Command kCommands[] = {
    {"WRSR", Shape::kValues, 0x01},
    {"PP", Shape::kAddressAndData, 0x02},
    {"READ", Shape::kAddressAndRead, 0x03},
    {"WRDI", Shape::kAlone, 0x04},
    {"RDSR", Shape::kAnswer, 0x05},
    {"WREN", Shape::kAlone, 0x06},
    {"RDCR", Shape::kAnswer, 0x15},
    {"SSE", Shape::kAddress, 0x20},
    {"CE", Shape::kAlone, 0x60},
    {"RDID", Shape::kAnswer, 0x9F},
    {"CE", Shape::kAlone, 0xC7},
    {"SE", Shape::kAddress, 0xD8},
};

constexpr std::size_t kHeaderBytes = 4;  // opcode and address

std::string Address(std::span<const std::uint8_t> sent) {
  constexpr std::size_t kDigits = 6;
  return HexNumber(
      std::uint32_t{sent[1]} << 16U | std::uint32_t{sent[2]} << 8U | std::uint32_t{sent[3]},
      kDigits);
}

std::string Count(std::size_t bytes) { return " +" + std::to_string(bytes); }

SpiDescription AsHex(std::span<const std::uint8_t> sent) {
  return {sent.empty() ? "-" : LimitedHexBytes(sent), true};
}

/// Whether a chip select of so many bytes is a whole command of this shape.
bool Fits(Shape shape, std::size_t sentBytes, std::size_t receivedBytes) {
  switch (shape) {
    case Shape::kAlone:
      return sentBytes == 1 && receivedBytes == 0;
    case Shape::kAnswer:
      return sentBytes == 1;
    case Shape::kValues:
      return sentBytes > 1 && sentBytes <= kMaxHexBytes && receivedBytes == 0;
    case Shape::kAddress:
      return sentBytes == kHeaderBytes && receivedBytes == 0;
    case Shape::kAddressAndData:
      return sentBytes >= kHeaderBytes && receivedBytes == 0;
    case Shape::kAddressAndRead:
      return sentBytes == kHeaderBytes;
  }
  return false;
}

/// What follows the name of a command.
std::string Operands(Shape shape, std::span<const std::uint8_t> sent, std::size_t receivedBytes) {
  switch (shape) {
    case Shape::kAlone:
    case Shape::kAnswer:
      return "";
    case Shape::kValues:
      return " " + LimitedHexBytes(sent.subspan(1));
    case Shape::kAddress:
      return " " + Address(sent);
    case Shape::kAddressAndData:
      return " " + Address(sent) + Count(sent.size() - kHeaderBytes);
    case Shape::kAddressAndRead:
      return " " + Address(sent) + Count(receivedBytes);
  }
  return "";
}

}  // namespace

SpiDescription DescribeSpi(std::span<const std::uint8_t> sent, std::size_t receivedBytes) {
  const auto* const command =
      std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& known) {
        return !sent.empty() && known.opcode == sent[0];
      });
  if (command == std::end(kCommands) || !Fits(command->shape, sent.size(), receivedBytes)) {
    return AsHex(sent);
  }
  return {std::string(command->name) + Operands(command->shape, sent, receivedBytes),
          command->shape == Shape::kAnswer};
}

}  // namespace orvane
