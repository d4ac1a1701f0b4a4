#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "simulator/host/Options.h"

namespace orvane {

/// Writes a line for each fault rule that never hit and each key without effect, unless the options
/// allow them.
/// @param rules   those that never hit, as their user typed them
/// @param status  the exit status that the command stands for
/// @return the exit status of orvane-sim: `status` when there was nothing to write, else 125
int ReportUnhit(const Options& options,
                const std::vector<std::string>& rules,
                int status,
                std::ostream& out);

}  // namespace orvane
