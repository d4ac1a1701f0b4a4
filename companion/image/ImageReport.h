#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companion/image/ImageFile.h"
#include "companion/image/Prediction.h"

#include <nlohmann/json.hpp>

namespace companion {

/// Where a time stamp or a build date is found.
struct BuildPlaces {
  std::optional<std::string> inFile;   ///< as it is: what `tarnwick` sees
  std::optional<std::string> inImage;  ///< decompressed
  std::optional<std::string> inHead;   ///< of a flash that holds the image: what `tarnwick` dumps
};

/// What an image file means for one module type.
struct TargetReport {
  std::string target;
  std::optional<std::string> unfit;  ///< why `update` does not take it
  Prediction overBlank;
  Prediction overSame;   ///< over a flash that holds the image
  Prediction overOther;  ///< over one with another stamp or date
  std::optional<Prediction> overDump;
};

/// Everything that the command `image` tells.
struct ImageReport {
  ImageFile image;
  std::optional<std::size_t> synchronisationWord;  ///< its offset in the image
  BuildPlaces timeStamp;
  BuildPlaces buildDate;
  std::vector<TargetReport> targets;  ///< of every module type
  std::optional<std::string> unfit;   ///< for the target asked for; without one, for every type
};

/// @param target  for which the verdict is: "wend", "dax", "pyx1" or "pyx2"; none: for any of them
/// @param dump    what a flash holds from address 0 on. Without enough bytes for a type there is no
///                prediction for that type.
ImageReport Examine(ImageFile image,
                    const std::optional<std::string>& target,
                    const std::optional<std::vector<std::uint8_t>>& dump);

/// The report as lines, the verdict last: "fit", or "unfit: why".
std::string ImageText(const ImageReport& report);

/// The report as an object. Texts that are no UTF-8 are in it as they are: to be dumped with
/// error_handler_t::replace.
nlohmann::json ImageJson(const ImageReport& report);

}  // namespace companion
