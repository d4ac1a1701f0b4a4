#pragma once

#include <cstddef>
#include <string>

#include "proofs/swarm/World.h"

namespace swarm {

/// What a driver is started with.
struct Drive {
  World world;
  std::size_t firstStep = 0;  ///< those before it are over; the start is made before step 0 only
  bool endsHere = true;       ///< the last update is made too
  std::string program;        ///< path of `tarnwick`
  std::string companion;      ///< path of `tarnwickctl`
  int control = -1;           ///< descriptors: the socket of --control,
  int console = -1;           ///< what the steps print,
  int observations = -1;      ///< and a line for each step
};

/// Makes the steps of a world, one after another, and says what it sees after each. Runs on the
/// instrument, in the folder with image.a and image.b; makes no event itself.
/// @throw std::exception when the steps cannot be made
void MakeSteps(const Drive& drive);

}  // namespace swarm
