#pragma once

#include <string_view>

namespace orvane {

/// The name of an SPI command: "PP" for "PP 0x001000 +256". Of one that is shown as bytes it is the first
/// one: "ab" for "ab 00".
/// @param command  of one chip select, as the log shows it
constexpr std::string_view CommandName(std::string_view command) {
  return command.substr(0, command.find(' '));
}

}  // namespace orvane
