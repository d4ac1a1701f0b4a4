#pragma once

#include <chrono>
#include <cstddef>

namespace companion {

/// How long `tarnwick` can take for an update, with a margin. A shorter limit could end it half-way.
/// @param imageBytes   of the plain image
/// @param spiClockMHz  that is asked for; 0 and clocks above the usual one do not make it shorter
std::chrono::seconds LongestUpdate(std::size_t imageBytes, unsigned spiClockMHz);

}  // namespace companion
