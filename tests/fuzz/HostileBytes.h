#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// The fuzzer's bytes, taken from the front. After their end there are zeros, which mean "nothing
/// special" in every target.
class HostileBytes {
 public:
  HostileBytes(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}
  explicit HostileBytes(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  [[nodiscard]] bool IsEmpty() const { return rest_.empty(); }

  std::uint8_t Byte() {
    const std::span<const std::uint8_t> byte = Take(1);
    return byte.empty() ? std::uint8_t{0} : byte.front();
  }

  /// Little-endian.
  std::uint16_t Word() {
    const unsigned low = Byte();
    return static_cast<std::uint16_t>(low | static_cast<unsigned>(Byte()) << 8U);
  }

  /// Little-endian.
  std::uint32_t Long() {
    const std::uint32_t low = Word();
    return low | static_cast<std::uint32_t>(Word()) << 16U;
  }

  /// @return `count` bytes, fewer at the end
  std::span<const std::uint8_t> Take(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  /// Take() as text.
  std::string Text(std::size_t count) {
    const auto bytes = Take(count);
    return {bytes.begin(), bytes.end()};
  }

  /// A part after its length in one byte.
  HostileBytes Part() { return HostileBytes(Take(Byte())); }

  /// A part after its length in two bytes.
  HostileBytes LongPart() { return HostileBytes(Take(Word())); }

  /// Everything that is left, as text.
  std::string RestAsText() { return Text(rest_.size()); }

 private:
  std::span<const std::uint8_t> rest_;
};
