// What SPI_CLOCK_SPEED may hold is shown by the whole-program tables.
#include <gtest/gtest.h>

#include "app/SpiClock.h"
#include "tests/doubles/EnvironmentVariable.h"

namespace {

TEST(SpiClockTest, NumberIsTakenAndTextLeaves19MHz) {
  {
    const EnvironmentVariable wanted("SPI_CLOCK_SPEED", "25");
    EXPECT_EQ(SpiClockMHz(), 25U);
  }
  const EnvironmentVariable wanted("SPI_CLOCK_SPEED", "fast");
  EXPECT_EQ(SpiClockMHz(), 19U);
}

TEST(SpiClockTest, MegahertzHasAMillionHertz) { EXPECT_EQ(kHzPerMHz, 1000000U); }

}  // namespace
