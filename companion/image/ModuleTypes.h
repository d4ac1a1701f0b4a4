#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "companion/image/ImageFile.h"

namespace companion {

/// What differs between the module types, as far as their images are concerned.
struct ModuleType {
  std::string_view target;
  ImageFormat format;       ///< of its images; it also tells a boot header from a time stamp
  std::size_t headBytes;    ///< that `tarnwick` dumps from the flash, and compares
  bool comparesAfterWrite;  ///< dumps and compares the head again when it has written
  bool resetsAfterWrite;    ///< resets the FPGA then, and waits for DONE
};

inline constexpr std::array<ModuleType, 4> kModuleTypes = {{
    {"wend", ImageFormat::kBootImage, 4096, true, true},
    {"dax", ImageFormat::kBitstream, 512, false, false},
    {"pyx1", ImageFormat::kBitstream, 512, false, true},
    {"pyx2", ImageFormat::kBootImage, 512, false, true},
}};

/// @throw std::invalid_argument when there is no such type
const ModuleType& TypeOf(std::string_view target);

}  // namespace companion
