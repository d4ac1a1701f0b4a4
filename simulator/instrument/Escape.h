#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace orvane {

/// `bytes` in double quotes, on one line: \n \t \r \" \\, and \x with two digits for every other
/// byte outside of printable ASCII.
std::string Quote(std::string_view bytes);

/// The bytes that a text with these escapes stands for, without the quotes.
/// @throw std::invalid_argument for a backslash followed by something else
std::string Unescape(std::string_view text);

/// "0a ff": two digits a byte, blanks between.
std::string HexBytes(std::string_view bytes);

/// The same for the first kMaxHexBytes bytes, then the number of the others: "0a ff ... +7".
std::string LimitedHexBytes(std::span<const std::uint8_t> bytes);
inline constexpr std::size_t kMaxHexBytes = 32;

/// "0x0021": lower case, with at least `digits` digits.
std::string HexNumber(std::uint32_t value, std::size_t digits);

}  // namespace orvane
