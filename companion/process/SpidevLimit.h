#pragma once

#include <string>

namespace companion {

/// Reads the limit of a SPI transfer as `tarnwick` does, and prints nothing.
/// @return why an update over it would go wrong, one line, with what to do; empty when it would not
std::string SpidevLimitProblem();

}  // namespace companion
