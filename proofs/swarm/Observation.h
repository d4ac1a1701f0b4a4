#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace swarm {

/// What was seen when a step had ended. Its text is one line.
struct Observation {
  std::string step;        ///< its number, from 0 on; inside another one "2.0"; "final"
  char what = 'u';         ///< as in Step
  int code = 0;            ///< exit code of its first process, or minus the signal that ended it
  bool isCut = false;      ///< the driver has killed its first process
  bool hangs = false;      ///< it was ended because it took too long
  bool isHolding = false;  ///< the flash holds the step's image
  bool isLoaded = false;   ///< the FPGA has loaded the step's image
  bool isSame = false;     ///< the flash holds what it held before the step
  unsigned left = 0;       ///< processes of its session, when its first one had ended
  std::string before;      ///< the names in the folder of --state before it, with ',' between them
  std::string files;       ///< the same after it
  std::string state;       ///< of the module, as the instrument tells it

  bool operator==(const Observation&) const = default;
};

std::string Print(const Observation& seen);

/// @throw std::invalid_argument when it is no such line
Observation ParseObservation(const std::string& line);

/// What was seen of a world.
struct Record {
  std::vector<Observation> steps;     ///< in the order in which they ended
  std::vector<std::string> troubles;  ///< why the world could not be made as it should be
};

/// The value of a word of a state, "done" in "done=1 loaded=none"; "" when it has none.
std::string ValueIn(std::string_view state, std::string_view name);

}  // namespace swarm
