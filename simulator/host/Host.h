#pragma once

#include <array>
#include <vector>

#include "simulator/host/CommandProcess.h"
#include "simulator/host/Options.h"

namespace orvane {

/// The descriptors that this process was started with. The command gets them.
struct InheritedDescriptors {
  std::array<bool, 3> standard{};  // whether 0, 1 and 2 are among them
  std::vector<int> others;         // above 2
};

/// To be called before anything else is opened. Opens /dev/null for missing standard descriptors,
/// so that nothing else takes their numbers.
InheritedDescriptors SecureDescriptors();

/// Builds the instrument that the options describe, runs the command on it, and removes everything
/// again.
/// @param descriptors  those of ours that the command gets
/// @return the exit status: the command's, or 128 + the number of the signal that ended it
/// @throw UsageError      for files that cannot be used as the options say
/// @throw CommandError    when the command cannot be executed
/// @throw std::exception  when the instrument cannot be built, or the flash, log or state not saved
int RunOnInstrument(const Options& options, const InheritedDescriptors& descriptors);

}  // namespace orvane
