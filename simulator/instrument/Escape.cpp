#include "simulator/instrument/Escape.h"

#include <charconv>
#include <cstddef>
#include <stdexcept>

namespace orvane {

namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kLastPrintable = 0x7E;
constexpr std::size_t kHexEscapeDigits = 2;

void AppendHex(std::string& text, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  text += kDigits[value >> 4U];
  text += kDigits[value & 0xFU];
}

/// @return the letter after the backslash, or NUL when there is none for this byte
char EscapeLetter(char byte) {
  switch (byte) {
    case '\n':
      return 'n';
    case '\t':
      return 't';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return byte;
    default:
      return '\0';
  }
}

}  // namespace

std::string Quote(std::string_view bytes) {
  std::string text = "\"";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    const char letter = EscapeLetter(byte);
    if (letter != '\0') {
      text += '\\';
      text += letter;
    } else if (value < kFirstPrintable || value > kLastPrintable) {
      text += "\\x";
      AppendHex(text, byte);
    } else {
      text += byte;
    }
  }
  return text + '"';
}

std::string Unescape(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    const std::string_view rest = text.substr(i + 1);
    const std::size_t known = std::string_view("ntr\"\\").find(rest.empty() ? '\0' : rest[0]);
    if (known != std::string_view::npos) {
      bytes += "\n\t\r\"\\"[known];
      ++i;
      continue;
    }
    unsigned value = 0;
    const std::string_view digits = rest.substr(rest.empty() ? 0 : 1, kHexEscapeDigits);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (rest.empty() || rest[0] != 'x' || error != std::errc() ||
        end != digits.data() + kHexEscapeDigits) {
      throw std::invalid_argument(
          "the backslash must be followed by n, t, r, \", \\ or x and two "
          "hexadecimal digits");
    }
    bytes += static_cast<char>(value);
    i += 1 + kHexEscapeDigits;
  }
  return bytes;
}

std::string HexBytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    if (!text.empty()) {
      text += ' ';
    }
    AppendHex(text, byte);
  }
  return text;
}

std::string LimitedHexBytes(std::span<const std::uint8_t> bytes) {
  const std::string_view characters(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::string text = HexBytes(characters.substr(0, kMaxHexBytes));
  if (bytes.size() > kMaxHexBytes) {
    text.append(" ... +").append(std::to_string(bytes.size() - kMaxHexBytes));
  }
  return text;
}

std::string HexNumber(std::uint32_t value, std::size_t digits) {
  std::string text;
  for (; value != 0 || text.size() < digits; value >>= 4U) {
    text.insert(text.begin(), kDigits[value & 0xFU]);
  }
  return "0x" + text;
}

}  // namespace orvane
