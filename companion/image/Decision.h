#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace companion {

/// Bytes of the flash that `tarnwick` dumps and compares, from address 0.
/// @param target  "wend", "dax", "pyx1" or "pyx2"
std::size_t DumpedHeadBytes(std::string_view target);

/// @param image  a plain image, as the copy that `tarnwick` is given; at least 152 bytes for a type
///               with boot images
/// @param head   the flash from address 0 on, at least DumpedHeadBytes()
/// @return true when `tarnwick` finds the flash up to date: it then writes nothing
bool FindsUpToDate(std::string_view target,
                   std::span<const std::uint8_t> head,
                   std::span<const std::uint8_t> image);

/// One page for address 0 of an erased flash, with a build stamp or date that is not the image's.
/// FindsUpToDate() is false over it, also for an image without a stamp or date.
std::vector<std::uint8_t> PageThatDiffers(std::string_view target,
                                          std::span<const std::uint8_t> image);

/// The build stamp or date of an image or of the head of a flash, for a reader: "21/11/2026
/// 10:15:00", or the date of a boot header (bytes that are no UTF-8 included).
/// @return nothing when there is none
std::optional<std::string> StampText(std::string_view target, std::span<const std::uint8_t> bytes);

}  // namespace companion
