#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace companion {

/// @return "0x" and the number in small letters, at least `digits` long
std::string Hex(std::uint32_t number, int digits);

/// @param address  in the flash, below 4 GiB
/// @return "0x01a300"
std::string HexAddress(std::size_t address);

}  // namespace companion
