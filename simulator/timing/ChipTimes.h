#pragma once

#include <chrono>

#include "simulator/timing/Timing.h"

namespace orvane {

/// What a flash chip is busy with.
enum class ChipWork {
  kNone,
  kPageProgram,
  kSubsectorErase,  // 4 KiB
  kSectorErase,     // 64 KiB
  kChipErase,
  kRegisterWrite,
};

/// How long a flash chip is busy with each kind of work.
struct ChipTimes {
  std::chrono::nanoseconds pageProgram;  // of any number of bytes
  std::chrono::nanoseconds subsectorErase;
  std::chrono::nanoseconds sectorErase;
  std::chrono::nanoseconds chipErase;
  std::chrono::nanoseconds registerWrite;

  /// @return 0 for ChipWork::kNone
  std::chrono::nanoseconds Of(ChipWork work) const;
};

/// @return for kPolls the typical times: those of an estimate
ChipTimes MicronTimes(Timing timing);
/// Likewise.
ChipTimes MacronixTimes(Timing timing);

}  // namespace orvane
