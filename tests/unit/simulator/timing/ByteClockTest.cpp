#include <gtest/gtest.h>

#include "simulator/timing/ByteClock.h"

namespace orvane {
namespace {

TEST(ByteClockTest, StillClockTakesAnyNumberOfBytes) {
  EXPECT_NO_THROW(ByteClock::Still().Pass(0));
  EXPECT_NO_THROW(ByteClock::Still().Pass(16U << 20));
}

TEST(ByteClockTest, ThereIsOneStillClock) { EXPECT_EQ(&ByteClock::Still(), &ByteClock::Still()); }

}  // namespace
}  // namespace orvane
