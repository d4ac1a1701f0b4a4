#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace orvane {

inline constexpr std::size_t kBitstreamMinBytes = 64;

struct BitstreamOptions {
  std::size_t bytes = 256U << 10;
  std::optional<std::uint32_t> userAccess;  // the stamp; none: the image has no stamp
  std::size_t stampWordOffset = 24;         // of the packet header, in words of four bytes
  std::uint32_t seed = 1;                   // of the pseudo-random bytes that follow
};

/// A Xilinx configuration bitstream, the same for the same options: words big-endian,
///   0x00  ff ff ff ff, dummy words with the bus width pattern at 0x20
///   0x30  aa 99 55 66, the sync word
///   0x34  20 00 00 00, no operation, two words
///   0x3C  pseudo-random bytes
/// and, with a stamp, 30 01 a0 01 (write one word to USR_ACCESS) at `stampWordOffset`, then the
/// stamp. The bytes 30 01 a0 01 are at no other multiple of four, except where the stamp itself has
/// them.
/// @throw std::invalid_argument, with a text for the user, when `bytes` is below
///        kBitstreamMinBytes, or when the stamp does not fit before the end or would lie on the
///        sync word
std::vector<std::uint8_t> MakeBitstream(const BitstreamOptions& options);

/// Whether an FPGA would take these contents for a bitstream: the sync word is at a multiple of
/// four within the first 512 bytes.
bool HasPlausibleBitstream(std::span<const std::uint8_t> flash);

/// A date and time as a USR_ACCESS stamp holds it.
struct StampTime {
  int year = 2000;  // 2000..2063
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

/// Bits 31..27 day, 26..23 month, 22..17 year - 2000, 16..12 hour, 11..6 minute, 5..0 second.
/// @throw std::invalid_argument, with a text for the user, when there is no such date or time
std::uint32_t PackStamp(const StampTime& time);

}  // namespace orvane
