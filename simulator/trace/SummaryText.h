#pragma once

#include <string>

#include "simulator/trace/RunFigures.h"

namespace orvane {

/// The figures for people: lines, of which the first one begins with "orvane-sim: ". Times are whole to the
/// nanosecond.
std::string SummaryText(const RunFigures& figures);

}  // namespace orvane
