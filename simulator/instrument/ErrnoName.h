#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

/// "ENOENT" for 2; the number itself for one without a name.
std::string ErrnoName(int error);

/// 2 for "ENOENT"; nothing for a text that is no name of an errno.
std::optional<int> ErrnoFromName(std::string_view name);

}  // namespace orvane
