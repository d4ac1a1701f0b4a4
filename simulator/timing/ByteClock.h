#pragma once

#include <cstddef>

namespace orvane {

/// Moves instrument time on while the bytes of one chip select pass on the wire.
class ByteClock {
 public:
  ByteClock() = default;
  ByteClock(const ByteClock&) = delete;
  ByteClock& operator=(const ByteClock&) = delete;
  virtual ~ByteClock() = default;

  /// The next `bytes` bytes pass. Every chip of the instrument sees the time that this takes, also the
  /// one that calls.
  virtual void Pass(std::size_t bytes) = 0;

  /// One whose bytes take no time.
  static ByteClock& Still();
};

}  // namespace orvane
