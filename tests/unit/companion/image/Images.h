#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

/// Image files, spelled out. All of them can be changed before they are used.
namespace images {

using Bytes = std::vector<std::uint8_t>;

inline std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

inline void Put(Bytes& bytes, std::size_t offset, const Bytes& piece) {
  std::copy(piece.begin(), piece.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

inline void PutText(Bytes& bytes, std::size_t offset, const std::string& piece) {
  Put(bytes, offset, Bytes(piece.begin(), piece.end()));
}

inline Bytes Joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

inline Bytes CutTo(std::size_t count, Bytes bytes) {
  bytes.resize(count);
  return bytes;
}

/// A Zynq boot image of `count` bytes, at least 152, with this text in the user-defined field.
inline Bytes BootImage(const std::string& field, std::size_t count = 600) {
  Bytes bytes(count, 0x5A);
  Put(bytes, 0x20, {0x66, 0x55, 0x99, 0xAA, 'X', 'N', 'L', 'X'});
  Put(bytes, 0x28, Bytes(32, 0));
  Put(bytes, 0x48, {0x41, 0x5C, 0x1A, 0xFD});  // the inverse of 0xAA995566 + 0x584C4E58
  PutText(bytes, 0x4C, field + std::string(76 - field.size(), '\0'));
  return bytes;
}

/// A bitstream of `count` bytes, at least 52, without a time stamp.
inline Bytes Bitstream(std::size_t count = 600) {
  Bytes bytes(count, 0x20);
  Put(bytes, 0, Bytes(48, 0xFF));
  Put(bytes, 48, {0xAA, 0x99, 0x55, 0x66});
  return bytes;
}

/// A bitstream with the time stamp 11/05/2015 03:35:05, or the one given.
inline Bytes StampedBitstream(std::size_t offset = 64,
                              std::size_t count = 600,
                              const Bytes& stamp = {0x5A, 0x9E, 0x38, 0xC5}) {
  Bytes bytes = Bitstream(count);
  Put(bytes, offset, Joined({0x30, 0x01, 0xA0, 0x01}, stamp));
  return bytes;
}

/// One gzip member with a block that is stored as it is. Between them are `name` bytes and a NUL,
/// which put the block where a test wants it.
inline Bytes Gzip(const Bytes& content, const std::string& name = "") {
  Bytes file = {0x1F, 0x8B, 8, std::uint8_t{name.empty() ? std::uint8_t{0} : std::uint8_t{8}}};
  file.resize(10, 0);
  if (!name.empty()) {
    file = Joined(Joined(file, Bytes(name.begin(), name.end())), {0});
  }
  const auto size = static_cast<std::uint32_t>(content.size());
  const auto crc =
      static_cast<std::uint32_t>(::crc32(0, content.data(), static_cast<unsigned>(content.size())));
  file.push_back(1);  // the last block, stored
  for (const std::uint32_t word : {size, ~size}) {
    file.push_back(static_cast<std::uint8_t>(word));
    file.push_back(static_cast<std::uint8_t>(word >> 8U));
  }
  file = Joined(file, content);
  for (const std::uint32_t word : {crc, size}) {
    for (const unsigned shift : {0U, 8U, 16U, 24U}) {
      file.push_back(static_cast<std::uint8_t>(word >> shift));
    }
  }
  return file;
}

}  // namespace images
