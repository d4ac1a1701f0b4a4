#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace orvane {

/// The memory array of a flash chip, erased at first. A sector that was never programmed and never looked
/// at takes no memory of the process.
class FlashArray {
 public:
  static constexpr std::size_t kSectorBytes = 65536;
  static constexpr std::uint8_t kErased = 0xFF;

  /// @param sectors  of kSectorBytes each
  explicit FlashArray(std::size_t sectors);
  FlashArray(const FlashArray& other);
  /// Keeps the memory that it has: mapping new memory takes longer than copying.
  FlashArray& operator=(const FlashArray& other);
  FlashArray(FlashArray&&) = default;
  FlashArray& operator=(FlashArray&&) = default;
  ~FlashArray() = default;

  /// Puts `contents` at address 0, and erases what is behind them.
  /// @param contents  not longer than the array
  void Load(std::span<const std::uint8_t> contents);

  /// Erases a range within one sector.
  void Erase(std::size_t at, std::size_t count);

  /// Part of the array, for any use; valid as long as the array, and always up to date.
  std::span<std::uint8_t> Part(std::size_t at, std::size_t count) {
    Hold(at, count);
    return {bytes_.get() + at, count};
  }
  std::span<const std::uint8_t> Part(std::size_t at, std::size_t count) const {
    Hold(at, count);
    return {bytes_.get() + at, count};
  }

 private:
  void Hold(std::size_t at, std::size_t count) const;

  // Whether the bytes of a sector are in bytes_. If not, it is erased, and bytes_ not initialised there.
  mutable std::vector<bool> held_;
  std::unique_ptr<std::uint8_t[]> bytes_;
};

}  // namespace orvane
