#pragma once

#include <atomic>
#include <cstdint>

namespace orvane {

/// The monotonic clock of the programs of a run, in a file that the host and each of them map. All
/// times are in nanoseconds, and none ever gets less.
struct TimePage {
  static constexpr std::int64_t kLook = 200;

  std::atomic<std::int64_t> hosted;  // instrument time that the host has let pass
  std::atomic<std::int64_t> looked;  // by looks at this clock, kLook each
  std::atomic<std::int64_t> waited;  // by waits that nothing has ended
  std::int64_t start;                // what the clock shows when all of them are 0

  std::int64_t Now() const { return start + hosted + looked + waited; }
  /// @return what the clock shows after this look
  std::int64_t Look() {
    looked += kLook;
    return Now();
  }
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

}  // namespace orvane
