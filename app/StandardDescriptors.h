#pragma once

/// Opens /dev/null in place of each of standard input, output and error that is closed. Without
/// this a device node could become descriptor 1 or 2, and console lines would go out on its bus.
void openMissingStandardDescriptors();
