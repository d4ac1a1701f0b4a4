#pragma once

#include <cstdint>

namespace orvane {

/// One message of an I2C transfer. The bytes of all messages in one direction are kept elsewhere,
/// together, in the order of the messages.
struct I2cMessage {
  std::uint16_t address = 0;
  std::uint16_t length = 0;  // bytes
  bool reads = false;        // from the chip
};

}  // namespace orvane
