#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace orvane {

inline constexpr std::size_t kZynqImageMinBytes = 0x98;  // the boot header with its text field

struct ZynqImageOptions {
  std::string fileName = "u-boot-vexa.bin";
  std::string buildDate = "2024-01-01 00:00:00";
  std::size_t bytes = 256U << 10;
  std::uint32_t seed = 1;  // of the pseudo-random bytes after the header
};

/// A Zynq boot image, the same for the same options. All words little-endian:
///   0x20  0xAA995566, width detection
///   0x24  "XLNX"
///   0x28  eight words: key source, header version, source offset and length, load address,
///         start of execution, total length, QSPI configuration (0x28..0x47)
///   0x48  checksum: the inverted sum of the words from 0x20 up to here
///   0x4C  76 bytes of text: file name, '#', build date, '#', NULs to the end
///   0x98  pseudo-random bytes
/// @throw std::invalid_argument, with a text for the user, when `bytes` is below
///        kZynqImageMinBytes, when the file name or the date contains a '#', or when both with
///        their delimiters exceed 76 bytes
std::vector<std::uint8_t> MakeZynqImage(const ZynqImageOptions& options);

/// Whether the boot ROM would take what starts here for a boot image: the width detection word, the
/// "XLNX" and the checksum are right.
bool HasPlausibleBootHeader(std::span<const std::uint8_t> flash);

}  // namespace orvane
