#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace orvane {

/// Why instrument time passes. Each nanosecond has one cause. While a chip works, and until a program
/// has seen that it does not any more, that is the cause, whatever passes meanwhile.
enum class Cause {
  kMessageCost,  // what an SPI message costs before chip select falls
  kWire,         // bits on an SPI or I2C bus
  kChipBusy,     // a flash chip programs, erases or writes a register
  kLatePoll,     // it is ready, and nobody has seen it
  kSleep,        // a program sleeps
  kLook,         // a program looks at its clock
  kWait,         // a program waits for something that does not come
};
inline constexpr std::size_t kCauses = 7;

/// In words, for a table: "chip busy".
std::string_view CauseName(Cause cause);

/// Instrument time by its causes.
class TimeTotals {
 public:
  void Add(Cause cause, std::chrono::nanoseconds time) { At(cause) += time; }
  /// Adds the time of each cause.
  void Add(const TimeTotals& other);
  std::chrono::nanoseconds Of(Cause cause) const {
    return times_.at(static_cast<std::size_t>(cause));
  }
  std::chrono::nanoseconds Sum() const;
  /// What has passed since an earlier moment.
  /// @param earlier  the totals then
  TimeTotals Since(const TimeTotals& earlier) const;

 private:
  std::chrono::nanoseconds& At(Cause cause) { return times_.at(static_cast<std::size_t>(cause)); }

  std::array<std::chrono::nanoseconds, kCauses> times_{};
};

}  // namespace orvane
