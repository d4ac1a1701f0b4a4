#pragma once

#include <cstdint>
#include <vector>

#include "proofs/swarm/World.h"

namespace swarm {

using Bytes = std::vector<std::uint8_t>;

/// The contents of an image file.
/// @param letter  'a' or 'b'
Bytes ImageFile(const World& world, char letter);

/// What a flash has to hold after an update with the image: the file, decompressed. For an image that
/// is not fit: the file.
Bytes ImageInFlash(const World& world, char letter);

/// What the flash holds at the start, from address 0.
Bytes StartOfFlash(const World& world);

}  // namespace swarm
