#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "companion/report/ExitCode.h"

namespace companion {

struct ImageOptions {
  std::string path;
  std::optional<std::string> target;  ///< "wend", "dax", "pyx1" or "pyx2"
  std::optional<std::string> dump;  ///< path of a file with the contents of a flash, or their head
  bool json = false;
};

/// The command `image`: tells what is in a file. No device is touched.
/// @param out  takes the report, the verdict last; with `json` exactly one object
/// @return kDone: fit; kNot: unfit; kRefused: a file cannot be read
ExitCode RunImage(const ImageOptions& options, std::ostream& out);

}  // namespace companion
