#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvane {

/// One chip select of an SPI bus, decoded as a command of a serial NOR flash.
struct SpiDescription {
  std::string command;        // "PP 0x001000 +256", "RDSR"; anything else as hex bytes
  bool answersShown = false;  // whether the log shows the bytes that come back
};

/// @param sent           what the controller sends before the bytes that it only receives
/// @param receivedBytes  the number of these
SpiDescription DescribeSpi(std::span<const std::uint8_t> sent, std::size_t receivedBytes);

}  // namespace orvane
