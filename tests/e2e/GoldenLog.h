#pragma once

#include <string>

#include "tests/e2e/RunLog.h"

/// The log of a run as a file, golden/NAME.log, that a person can read. Repeated lines are folded:
///
///     20 times:
///         sleep 1 ms
///     3 times, 0x000100 further each:
///         spi /dev/spidev1.0 WREN
///         spi /dev/spidev1.0 PP 0x000000 +256
///
/// The second form is for lines whose six-digit addresses increase by so much each time.
namespace program_test::golden_log {

/// @return the whole log, nothing folded
/// @throw std::runtime_error when there is no such file, or its text cannot be unfolded
run_log::Lines Read(const std::string& name);

/// Replaces the file, or creates it.
/// @throw std::runtime_error
void Write(const std::string& name, const run_log::Lines& log);

/// From this call on, rows write their golden logs before they compare with them.
void WriteFromNowOn();
bool IsWritten();

run_log::Lines Folded(const run_log::Lines& log);

/// @throw std::runtime_error
run_log::Lines Unfolded(const run_log::Lines& text);

}  // namespace program_test::golden_log
