#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace orvane {

/// One gzip member that holds `data`; the same for the same data (no time, no name).
/// @throw std::runtime_error when zlib fails
std::vector<std::uint8_t> Gzip(std::span<const std::uint8_t> data);

}  // namespace orvane
