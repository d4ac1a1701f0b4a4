#pragma once

/// Opens /dev/null in place of each of standard input, output and error that is closed. Without
/// this, open() could return 1 or 2 for a device node, and console lines would be written to it.
void openMissingStandardDescriptors();
