#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvane {

/// One chip select of an SPI bus, as a serial NOR flash understands it.
struct SpiDescription {
  std::string command;        // "PP 0x001000 +256", "RDSR"; what is no command, as hex bytes
  bool answersShown = false;  // whether the bytes that come back are worth showing
};

/// @param sent           what the controller sends before the bytes that it only receives
/// @param receivedBytes  the number of these
SpiDescription DescribeSpi(std::span<const std::uint8_t> sent, std::size_t receivedBytes);

}  // namespace orvane
