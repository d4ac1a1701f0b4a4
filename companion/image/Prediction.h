#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "companion/image/ImageFile.h"

namespace companion {

/// How a run of bare `tarnwick` ends that is given an image file as it is, on a module that works and
/// in a folder without old dumps.
struct Prediction {
  enum class End {
    kExit,       ///< with `exitCode`, one of its own
    kException,  ///< 134, as a shell shows it, without a result line
    kNever,      ///< runs until it is killed
    kUnknown,    ///< not predicted: the image is larger than the flash
  };
  End end = End::kUnknown;
  int exitCode = 0;  ///< where there is one
  /// The end and what became of the flash, for a reader: "11 (up to date, nothing is written)".
  std::string text;
};

/// @param head  what the flash holds from address 0 on, at least DumpedHeadBytes(); its bytes behind
///              that are not looked at
Prediction Predict(const ImageFile& image,
                   std::string_view target,
                   std::span<const std::uint8_t> head);

/// Heads of a flash, DumpedHeadBytes() long: of a blank one, of one that was blank and to which the
/// image was written, and of one whose stamp or date is not that of the file.
std::vector<std::uint8_t> BlankHead(std::string_view target);
std::vector<std::uint8_t> HeadThatHolds(const ImageFile& image, std::string_view target);
std::vector<std::uint8_t> HeadOfAnother(const ImageFile& image, std::string_view target);

}  // namespace companion
