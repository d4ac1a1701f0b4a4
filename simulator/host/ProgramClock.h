#pragma once

#include <chrono>
#include <string>

#include "simulator/shim/TimePage.h"

namespace orvane {

/// The host's side of the programs' monotonic clock.
class ProgramClock {
 public:
  /// Creates the file that programs map. It shows the machine's clock at first.
  /// @throw std::system_error
  explicit ProgramClock(const std::string& path);
  ProgramClock(const ProgramClock&) = delete;
  ProgramClock& operator=(const ProgramClock&) = delete;
  ~ProgramClock();

  /// What has passed on the clock without the host since this was called last.
  struct Passed {
    std::chrono::nanoseconds looks{0};
    std::chrono::nanoseconds waits{0};
  };
  Passed Take();

  /// Sets the clock.
  /// @param now  instrument time, with all that has been taken
  void Show(std::chrono::nanoseconds now);

 private:
  TimePage* page_;
  Passed taken_;  // since the start
};

}  // namespace orvane
