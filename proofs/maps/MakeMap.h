#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "proofs/maps/Scenario.h"
#include "proofs/maps/Verdict.h"

namespace maps {

/// A run of a map. Without an outcome it could not be made.
struct MapRun {
  std::vector<std::string> fault;       ///< target, chip, step, event, what goes wrong
  std::vector<std::string> outcome;     ///< exit, last line, flash, afterwards
  std::vector<std::string> violations;  ///< the rules that it broke, one line each
  std::string how;                      ///< the rules and keys of the instrument, for a violation
};

/// Makes one run. It names the fault before it does anything that can fail, and may throw.
using Job = std::function<void(MapRun&)>;

/// What a run showed, for a reader.
std::vector<std::string> OutcomeOf(const Ending& ending, const Observation& seen);

/// A part of a map: runs that are found together.
struct Part {
  std::function<std::vector<Job>()> jobs;  ///< may make runs itself, and may throw
  std::size_t every = 1;                   ///< the map has every Nth of them
};

/// What a program makes.
struct Map {
  std::string titles;            ///< of MapRun::fault, with tabs between them
  std::vector<Part> (*parts)();  ///< called once, after the command line was read
};

inline constexpr const char* kTitles = "target\tchip\tstep\tevent\twhat goes wrong";

/// The main function of a program that makes a map, on all cores.
/// @param words  the command line, the program's name first
/// @return the exit code: 0, 1 when a run breaks a rule or is not in the data, 2 for usage errors and
///         when the map cannot be made
int Main(const std::vector<std::string>& words,
         const Map& map,
         std::ostream& out,
         std::ostream& err);

}  // namespace maps
