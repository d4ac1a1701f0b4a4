#include "companion/image/Hex.h"

#include <array>
#include <cstdio>

namespace companion {

std::string Hex(std::uint32_t number, int digits) {
  std::array<char, 16> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "0x%0*x", digits, number));
  return text.data();
}

std::string HexAddress(std::size_t address) {
  constexpr int kDigits = 6;
  return Hex(static_cast<std::uint32_t>(address), kDigits);
}

}  // namespace companion
