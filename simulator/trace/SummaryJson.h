#pragma once

#include <string>

#include "simulator/trace/RunFigures.h"

namespace orvane {

/// The figures for programs: a JSON object, in one line. Times are whole nanoseconds.
std::string SummaryJson(const RunFigures& figures);

}  // namespace orvane
