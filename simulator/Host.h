#pragma once

#include <array>

#include "simulator/CommandProcess.h"
#include "simulator/Options.h"

namespace orvane {

/// Which of the descriptors 0, 1 and 2 this process was started with. The missing ones are opened
/// on /dev/null, so that nothing else takes their numbers.
std::array<bool, 3> SecureStandardDescriptors();

/// Builds the instrument that the options describe, runs the command inside, and takes everything
/// down again.
/// @param standard  the descriptors that the command is to get
/// @return the exit status: the command's, or 128 + the number of the signal that ended it
/// @throw UsageError      for files that cannot be used as the options say
/// @throw CommandError    when the command cannot be executed
/// @throw std::exception  when the instrument cannot be built or the flash not be saved
int RunOnInstrument(const Options& options, const std::array<bool, 3>& standard);

}  // namespace orvane
