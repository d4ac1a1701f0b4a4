#pragma once

#include <array>
#include <functional>
#include <vector>

#include "simulator/guard/StartSignals.h"
#include "simulator/host/Options.h"

namespace orvane {

/// How this process was started, as far as the command is to find it again.
struct StartState {
  StartSignals signals;
  std::array<bool, 3> standard{};  // which of the descriptors 0, 1 and 2 it was started with
  std::vector<int> others;         // those above 2
};

/// To be called before anything else is opened. Opens /dev/null for missing standard descriptors,
/// so that nothing else takes their numbers.
/// @throw std::exception  when /proc cannot be read
StartState SecureStart();

/// Runs the command on the instrument that the options describe, and removes everything again.
/// @return the exit status
/// @throw CommandError    when the command cannot be executed
/// @throw std::exception  when the instrument cannot be built, or has been killed
int RunOnInstrument(const Options& options, const StartState& start);

/// Runs a part of orvane-sim that ends with an exit status, and shows what it throws in a line on
/// standard error.
/// @return the exit status
int Reported(const std::function<int()>& part);

}  // namespace orvane
