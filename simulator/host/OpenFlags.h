#pragma once

#include <string>

namespace orvane {

/// The flags of an open as the log shows them: "O_WRONLY|O_CREAT 0600", the mode only where it
/// counts.
std::string OpenFlagsText(int flags, unsigned mode);

}  // namespace orvane
