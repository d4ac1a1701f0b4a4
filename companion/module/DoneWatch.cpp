#include "companion/module/DoneWatch.h"

#include <unistd.h>

namespace companion {

namespace {

constexpr int kLooksInARow = 3;

constexpr useconds_t kBootPollMicroseconds = 50'000;
constexpr int kBootPolls = 200;  // 10 s
constexpr int kMostFailedLooks = 100;
constexpr int kMostLooks = 3 * kBootPolls;  // of a line that does not settle

constexpr useconds_t kFallPollMicroseconds = 1000;
constexpr int kFallPolls = 100;

}  // namespace

DoneLine DoneWatch::AwaitHigh() {
  int high = 0;
  int low = 0;
  int failed = 0;
  for (int looks = 0; looks < kMostLooks && failed < kMostFailedLooks; ++looks) {
    interruption_.Check();
    const DoneLine line = look_();
    if (line == DoneLine::kHigh) {
      low = 0;
      if (++high == kLooksInARow) {
        return DoneLine::kHigh;
      }
      continue;
    }
    high = 0;
    if (line == DoneLine::kUnknown) {
      ++failed;
    } else if (++low == kBootPolls) {
      return DoneLine::kLow;
    }
    ::usleep(kBootPollMicroseconds);
  }
  return DoneLine::kUnknown;
}

bool DoneWatch::FallsLow() {
  int low = 0;
  for (int poll = 0; poll < kFallPolls; ++poll) {
    interruption_.Check();
    if (look_() != DoneLine::kLow) {
      low = 0;
      ::usleep(kFallPollMicroseconds);
    } else if (++low == kLooksInARow) {
      return true;
    }
  }
  return false;
}

DoneLine DoneWatch::Now() {
  const DoneLine first = look_();
  for (int look = 1; look < kLooksInARow; ++look) {
    if (look_() != first) {
      return DoneLine::kUnknown;
    }
  }
  return first;
}

}  // namespace companion
