#pragma once

#include <string>
#include <string_view>

namespace companion {

/// A text of unknown bytes as a part of one line, in quotes: control characters are shown as in JSON,
/// and what is no UTF-8 is replaced.
std::string Quoted(std::string_view text);

}  // namespace companion
