#pragma once

namespace orvane {

// What orvane-sim exits with when it does not exit with the status of its command.

inline constexpr int kInstrumentFailed = 125;
inline constexpr int kNotExecutable = 126;
inline constexpr int kNotFound = 127;
/// Added to the number of the signal that ended the command, or orvane-sim itself.
inline constexpr int kSignalStatus = 128;

}  // namespace orvane
