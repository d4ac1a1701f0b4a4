#pragma once

#include <string>

namespace orvane {

/// The flags of an open as the log shows them: "O_WRONLY|O_CREAT 0600", the mode only with
/// O_CREAT.
std::string OpenFlagsText(int flags, unsigned mode);

}  // namespace orvane
