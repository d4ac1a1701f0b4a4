#pragma once

#include <string>

namespace companion {

/// Names come from the bus and become parts of paths.
/// @param name  a device node's, below /dev
/// @return why it cannot be one, for a reader; empty when it can
std::string NameProblem(const std::string& name);

}  // namespace companion
