#pragma once

#include <string>
#include <vector>

#include "proofs/maps/Faults.h"
#include "proofs/maps/Scenario.h"

namespace maps {

/// How a run ended, for a reader.
struct Ending {
  std::string exit;      ///< the exit code, or what ended it
  std::string lastLine;  ///< the result line; without one the last line of standard error
  bool hasResult = false;
};

/// @param out  standard output of a run
/// @param err  standard error
/// @param lastEvent  the last line of its log
Ending EndingOf(const std::string& out, const std::string& err, const std::string& lastEvent);

/// The rules of every run that this one broke, a line each; empty for none.
std::vector<std::string> ViolationsOf(const Scenario& scenario,
                                      const MappedFault& fault,
                                      const Observation& observation);

}  // namespace maps
