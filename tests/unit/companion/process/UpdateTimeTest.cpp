#include <gtest/gtest.h>

#include "companion/process/UpdateTime.h"

namespace {

using companion::LongestUpdate;

// Twice the longest times, and a minute: 116.5 s of waiting; for each 64 KiB 1 s; for each 256 bytes
// 1.8 ms, 0.6 ms, and 2104 bits at the clock.

TEST(UpdateTimeTest, EmptyImageHasTheTimesOfWaiting) {
  EXPECT_EQ(LongestUpdate(0, 19).count(), 2 * 116.5 + 60);
}

TEST(UpdateTimeTest, WholeFlashHasTheTimesOfItsSectorsAndPages) {
  // 2 x (116.5 + 256 + 65536 x 0.0024 + 65536 x 2104 / 19e6) = 1074.1, rounded up
  EXPECT_EQ(LongestUpdate(16'777'216, 19).count(), 1075 + 60);
}

TEST(UpdateTimeTest, BegunSectorsAndPagesCountAsWhole) {
  EXPECT_EQ(LongestUpdate(1, 19), LongestUpdate(256, 19));
  // 2 x (116.5 + 1 + 0.0024 + ...) = 235.005, rounded up
  EXPECT_EQ(LongestUpdate(1, 19).count(), 236 + 60);
  // 2 x (116.5 + 2 + 257 x 0.0024 + 257 x 2104 / 19e6) = 238.3
  EXPECT_EQ(LongestUpdate(65'537, 19).count(), 239 + 60);
}

TEST(UpdateTimeTest, SlowClockTakesLonger) {
  // 2 x (116.5 + 256 + 65536 x 0.0024 + 65536 x 2104 / 1e6) = 1335.3
  EXPECT_EQ(LongestUpdate(16'777'216, 1).count(), 1336 + 60);
}

TEST(UpdateTimeTest, ClockOfZeroCountsAsTheSlowest) {
  EXPECT_EQ(LongestUpdate(16'777'216, 0), LongestUpdate(16'777'216, 1));
}

TEST(UpdateTimeTest, ClockAboveTheUsualOneDoesNotMakeItShorter) {
  EXPECT_EQ(LongestUpdate(16'777'216, 4'294'967'295U), LongestUpdate(16'777'216, 19));
}

}  // namespace
