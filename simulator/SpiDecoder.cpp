#include "simulator/SpiDecoder.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "simulator/Escape.h"

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
  std::uint8_t opcode;
  std::string_view name;
  Shape shape;
};

constexpr Command kCommands[] = {
    {0x01, "WRSR", Shape::kValues},
    {0x02, "PP", Shape::kAddressAndData},
    {0x03, "READ", Shape::kAddressAndRead},
    {0x04, "WRDI", Shape::kAlone},
    {0x05, "RDSR", Shape::kAnswer},
    {0x06, "WREN", Shape::kAlone},
    {0x15, "RDCR", Shape::kAnswer},
    {0x20, "SSE", Shape::kAddress},
    {0x60, "CE", Shape::kAlone},
    {0x9F, "RDID", Shape::kAnswer},
    {0xC7, "CE", Shape::kAlone},
    {0xD8, "SE", Shape::kAddress},
};

constexpr std::size_t kHeaderBytes = 4;  // opcode and address
constexpr std::size_t kMaxHexBytes = 32;

std::string_view Characters(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Address(std::span<const std::uint8_t> sent) {
  char text[] = "0x000000";
  std::snprintf(
      text, sizeof text, "0x%02x%02x%02x", unsigned{sent[1]}, unsigned{sent[2]}, unsigned{sent[3]});
  return text;
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
