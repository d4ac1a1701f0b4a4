#include "simulator/host/RealPace.h"

#include <thread>

namespace orvane {

void RealPace::WaitFor(std::chrono::nanoseconds instrumentTime,
                       std::chrono::nanoseconds lead) const {
  const auto then = start_ + instrumentTime;
  if (then - std::chrono::steady_clock::now() > lead) {
    std::this_thread::sleep_until(then);
  }
}

}  // namespace orvane
