#pragma once

#include <string_view>

/// What the help says first: the program's name, and what it is.
inline constexpr std::string_view kHelpName = "tarnwick - FPGA Download Utility for the Orvane";

/// Prints the help on standard output, 43 lines in the style of a manual page, with its escape
/// sequences also where the output is no terminal.
void showHelp();
