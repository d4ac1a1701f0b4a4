#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace predictions {

using Bytes = std::vector<std::uint8_t>;

/// An image file, what the flash holds, and the module: the same for the same seed and index.
struct Triple {
  std::string target;
  unsigned slot = 0;
  std::string chip;
  Bytes file;
  Bytes flash;       ///< from address 0 on; behind it the flash is blank
  std::string kind;  ///< of file and flash, for the report
};

/// Draws what lies around the borders: of the boot header and its '#', of the dumped head, of pages
/// and sectors, plain and in gzip data of every condition. The flash holds the image, its file, a
/// change of it, or something else.
Triple TripleOf(std::uint64_t seed, std::uint64_t index);

}  // namespace predictions
