#pragma once

#include <cstddef>
#include <cstdint>
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

/// "0x0021": at least so many digits.
std::string HexNumber(std::uint32_t value, std::size_t digits);

}  // namespace orvane
