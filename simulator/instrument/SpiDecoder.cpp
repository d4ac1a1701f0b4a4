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
constexpr std::size_t kMaxHexBytes = 32;

std::string_view Characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Address(std::span<const std::uint8_t> sent) {
  constexpr std::size_t kDigits = 6;
  return HexNumber(
      std::uint32_t{sent[1]} << 16U | std::uint32_t{sent[2]} << 8U | std::uint32_t{sent[3]},
      kDigits);
}

std::string Count(std::size_t bytes) { return " +" + std::to_string(bytes); }

SpiDescription AsHex(std::span<const std::uint8_t> sent) {
  std::string text = HexBytes(Characters(sent.first(std::min(sent.size(), kMaxHexBytes))));
  if (sent.size() > kMaxHexBytes) {
    text += " ..." + Count(sent.size() - kMaxHexBytes);
  }
  return {text.empty() ? "-" : text, true};
}

}  // namespace

SpiDescription DescribeSpi(std::span<const std::uint8_t> sent, std::size_t receivedBytes) {
  const auto* const command =
      std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& known) {
        return !sent.empty() && known.opcode == sent[0];
      });
  if (command == std::end(kCommands)) {
    return AsHex(sent);
  }
  const std::string name(command->name);
  const std::size_t sentBytes = sent.size();
  switch (command->shape) {
    case Shape::kAlone:
      if (sentBytes == 1 && receivedBytes == 0) {
        return {name};
      }
      break;
    case Shape::kAnswer:
      if (sentBytes == 1) {
        return {name, true};
      }
      break;
    case Shape::kValues:
      if (sentBytes > 1 && sentBytes <= kMaxHexBytes && receivedBytes == 0) {
        return {name + " " + HexBytes(Characters(sent.subspan(1)))};
      }
      break;
    case Shape::kAddress:
      if (sentBytes == kHeaderBytes && receivedBytes == 0) {
        return {name + " " + Address(sent)};
      }
      break;
    case Shape::kAddressAndData:
      if (sentBytes >= kHeaderBytes && receivedBytes == 0) {
        return {name + " " + Address(sent) + Count(sentBytes - kHeaderBytes)};
      }
      break;
    case Shape::kAddressAndRead:
      if (sentBytes == kHeaderBytes) {
        return {name + " " + Address(sent) + Count(receivedBytes)};
      }
      break;
  }
  return AsHex(sent);
}

}  // namespace orvane
