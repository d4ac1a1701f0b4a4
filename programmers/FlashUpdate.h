#pragma once

#include <iostream>
#include <string>

#include "programmers/FpgaProgrammerInterface.h"

class MT25QL128;

/// Unlocks, erases and writes the flash from address 0 on, with a progress line for each step.
/// @return Success; EraseFailed or ProgramFailed, the progress line then unfinished
FpgaProgrammerInterface::Status RewriteFlash(MT25QL128& flash, const std::string& imagePath);

/// Pulses the FPGA's reset and waits for DONE, as one progress step.
/// @param toggleReset  called without arguments, result not checked
/// @param waitForDone  called without arguments; true when DONE went high in time
/// @return Success, or ConfigDoneNotAsserted, the progress line then unfinished
template <typename ToggleReset, typename WaitForDone>
FpgaProgrammerInterface::Status ResetAndWaitForDone(ToggleReset toggleReset,
                                                    WaitForDone waitForDone) {
  std::cout << "Toggling reset ... " << std::flush;
  toggleReset();
  if (!waitForDone()) {
    return FpgaProgrammerInterface::ConfigDoneNotAsserted;
  }
  std::cout << "done." << std::endl;
  return FpgaProgrammerInterface::Success;
}
