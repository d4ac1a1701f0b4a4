#pragma once

#include <string_view>

namespace orvane {

/// Writes all bytes, however many calls that takes: calls that a signal interrupts or that write a
/// part are continued, and a descriptor that does not block is waited for. SIGXFSZ has to be
/// ignored, so that a limit on the size of files is an error (EFBIG).
/// @return false, with errno set, when not everything could be written
[[nodiscard]] bool WriteAll(int descriptor, std::string_view bytes);

}  // namespace orvane
