#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

/// Scratch memory for one SPI transfer: up to kInlineBytes inside the object, which its users have
/// on the stack; on the heap for more. Uninitialised.
class TransferBuffer {
 public:
  static constexpr std::size_t kInlineBytes = std::size_t{64} * 1024;

  /// Throws std::bad_alloc when there is no memory.
  explicit TransferBuffer(std::size_t bytes);
  TransferBuffer(const TransferBuffer&) = delete;
  TransferBuffer& operator=(const TransferBuffer&) = delete;

  [[nodiscard]] std::uint8_t* Data() { return data_; }

 private:
  std::array<std::uint8_t, kInlineBytes> inline_;
  std::unique_ptr<std::uint8_t[]> heap_;
  std::uint8_t* data_;
};
