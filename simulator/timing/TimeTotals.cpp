#include "simulator/timing/TimeTotals.h"

#include <numeric>

namespace orvane {

std::string_view CauseName(Cause cause) {
  constexpr std::array<std::string_view, kCauses> kNames = {
      "message cost", "wire", "chip busy", "late poll", "sleep", "look", "wait"};
  return kNames.at(static_cast<std::size_t>(cause));
}

std::chrono::nanoseconds TimeTotals::Sum() const {
  return std::accumulate(times_.begin(), times_.end(), std::chrono::nanoseconds(0));
}

void TimeTotals::Add(const TimeTotals& other) {
  for (std::size_t cause = 0; cause < kCauses; ++cause) {
    times_.at(cause) += other.times_.at(cause);
  }
}

TimeTotals TimeTotals::Since(const TimeTotals& earlier) const {
  TimeTotals difference;
  for (std::size_t cause = 0; cause < kCauses; ++cause) {
    difference.times_.at(cause) = times_.at(cause) - earlier.times_.at(cause);
  }
  return difference;
}

}  // namespace orvane
