#pragma once

#include <cstddef>

#include "tests/e2e/VirtualInstrument.h"

namespace program_test {

inline constexpr std::size_t kFlashBytes = 16U << 20;

Bytes PaddedTo(std::size_t bytes, Bytes contents);  ///< with erased bytes

/// How many 64 KiB sectors an image of so many bytes takes.
int SectorsOf(std::size_t bytes);

/// What the flash holds after an update: the image, erased bytes to the end of its last sector, and
/// then what was there before.
Bytes Flashed(const Bytes& image, const Bytes& before);

}  // namespace program_test
