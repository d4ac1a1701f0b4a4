#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simulator/instrument/SpiMessage.h"
#include "simulator/timing/ByteClock.h"
#include "simulator/timing/InstrumentClock.h"
#include "simulator/trace/RunObserver.h"

namespace orvane {

/// @param usualHertz  the rate of a transfer that has none of its own
std::uint32_t RateOf(const SpiTransfer& transfer, std::uint32_t usualHertz);

/// Moves the clock on while the bytes of an SPI message pass, each at the rate of its transfer. The bytes
/// of one transfer take 8 bits each, rounded up to whole nanoseconds in total.
class SpiWire : public ByteClock {
 public:
  /// @param clock      borrowed
  /// @param transfers  borrowed; of the whole message
  /// @param usualHertz  the rate of a transfer that has none of its own; not 0
  SpiWire(InstrumentClock& clock, std::span<const SpiTransfer> transfers, std::uint32_t usualHertz)
      : clock_(clock), transfers_(transfers), usualHertz_(usualHertz) {}

  void Pass(std::size_t bytes) override;

  /// The bytes that have passed since this was called last.
  std::vector<ClockedBytes> TakeClocked();

 private:
  void PassWithin(const SpiTransfer& transfer, std::uint32_t bytes);

  InstrumentClock& clock_;
  std::span<const SpiTransfer> transfers_;  // that have not passed whole
  std::uint32_t usualHertz_;
  std::uint32_t passed_ = 0;                // bytes of the first of them
  std::chrono::nanoseconds passedTime_{0};  // that they have taken
  std::vector<ClockedBytes> clocked_;
};

/// How long the bits of all transfers take.
std::chrono::nanoseconds WireTimeOf(std::span<const SpiTransfer> transfers,
                                    std::uint32_t usualHertz);

}  // namespace orvane
