#pragma once

/// Prints the help on standard output, 43 lines in the style of a manual page, with its escape
/// sequences also where the output is no terminal.
void showHelp();
