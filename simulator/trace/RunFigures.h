#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulator/timing/TimeTotals.h"
#include "simulator/timing/Timing.h"

namespace orvane {

/// Instrument time of a step.
struct StepTimes {
  std::string name;
  TimeTotals times;
};

/// SPI messages of one command.
struct CommandCount {
  std::string name;  // as the log shows it: "PP"
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;  // that their bits took time for
};

/// What a run has taken, and what for.
struct RunFigures {
  Timing timing = Timing::kTypical;
  TimeTotals times;
  std::vector<StepTimes> steps;        // add up to `times`; in the order in which they began
  std::vector<CommandCount> commands;  // in the order in which they came
  std::uint64_t i2cTransfers = 0;
  std::uint64_t i2cBytes = 0;  // with those of addresses
  std::uint64_t fileReads = 0;
  std::uint64_t fileWrites = 0;
  std::uint64_t dbusCalls = 0;
  // What chips were busy with.
  std::uint64_t pages = 0;       // programmed, of any number of bytes
  std::uint64_t sectors = 0;     // of 64 KiB, erased
  std::uint64_t subsectors = 0;  // of 4 KiB, erased
  std::uint64_t chipErases = 0;
  std::uint32_t hertz = 0;  // the rate of most bytes on SPI buses; 0: there were none
  /// The least that these programs and erases can take at that rate: the bits of a write enable, the
  /// command and two bytes for the status, each rounded up to whole nanoseconds, and the chip's own time.
  std::chrono::nanoseconds limit{0};
};

}  // namespace orvane
