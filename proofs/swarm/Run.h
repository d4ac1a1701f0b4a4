#pragma once

#include <filesystem>
#include <string>

#include "proofs/swarm/Observation.h"
#include "proofs/swarm/World.h"

namespace swarm {

/// The programs of a world, absolute paths.
struct Programs {
  std::string driver;  ///< starts MakeSteps() for `--drive`
  std::string program;
  std::string companion;
};

/// What came of a world.
struct Made {
  Record record;
  std::string log;      ///< of all instruments, one after another, when it was asked for
  std::string console;  ///< what the steps printed
  std::size_t instruments = 0;
};

/// Makes a world: on one instrument until its power is cut, then on the next one, which has what was
/// in the flash and in the files. Its power is cut before the last update too, unless the world ends
/// here.
/// @param folder   a short path, of a folder that does not exist; it is removed at the end
/// @param withLog  the log is kept; this takes longer
/// @throw std::exception when it cannot be made at all
Made Make(const World& world,
          const Programs& programs,
          const std::filesystem::path& folder,
          bool withLog);

/// Ends the worlds that are being made; they are not to be judged. May be called by a signal handler.
void Interrupt();
bool IsInterrupted();

}  // namespace swarm
