#pragma once

#include <string>

#include "programmers/FpgaProgrammerInterface.h"

/// @return the text of a status, "Unknown Status." for a value without one
std::string returnStatusDescription(FpgaProgrammerInterface::Status status);

/// Prints the text of a status as one line on standard output: the result line of a run.
/// @return the status value, which is the exit code
int printStatus(FpgaProgrammerInterface::Status status);
