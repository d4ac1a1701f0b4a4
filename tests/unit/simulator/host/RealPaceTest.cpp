#include <gtest/gtest.h>

#include "simulator/host/RealPace.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(RealPaceTest, WaitsUntilRealTimeHasCaughtUp) {
  const Clock::time_point before = Clock::now();
  const RealPace pace;
  pace.WaitFor(5ms, 1ms);
  EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(5));
}

TEST(RealPaceTest, WaitsForAnythingWithoutALead) {
  const Clock::time_point before = Clock::now();
  const RealPace pace;
  pace.WaitFor(1ms, 0ms);
  EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(1));
}

TEST(RealPaceTest, DoesNotWaitWithinTheLead) {
  const RealPace pace;
  const Clock::time_point before = Clock::now();
  pace.WaitFor(10h, 11h);
  EXPECT_LT(Clock::now() - before, std::chrono::hours(1));
}

TEST(RealPaceTest, DoesNotWaitForWhatHasPassed) {
  const RealPace pace;
  const Clock::time_point before = Clock::now();
  pace.WaitFor(-10h, 0ms);
  EXPECT_LT(Clock::now() - before, std::chrono::hours(1));
}

}  // namespace
}  // namespace orvane
