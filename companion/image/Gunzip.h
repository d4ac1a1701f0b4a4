#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "companion/image/ImageFile.h"

namespace companion {

/// What gzip data hold. Members are put together, as `tarnwick` does.
struct Gunzipped {
  Packing packing = Packing::kGzip;
  std::optional<std::uint64_t> end;  ///< see ImageFile::packingEnd
  std::vector<std::uint8_t> bytes;   ///< up to the end, or up to where the data are damaged
  bool tooLarge = false;             ///< there are more than `limit`: cut there, the rest unread
};

/// @return true for data that zlib takes for gzip
bool IsGzip(std::span<const std::uint8_t> bytes);

/// @param file   for which IsGzip() is true
/// @param limit  most bytes to decompress
/// @throw std::bad_alloc
Gunzipped Gunzip(std::span<const std::uint8_t> file, std::size_t limit);

}  // namespace companion
