// What SPI_CLOCK_SPEED may hold is shown by the whole-program tables.
#include <gtest/gtest.h>

#include <cstdint>

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

TEST(SpiClockTest, NumberBeyond32BitsIsWhatTheCLibraryMakesOfIt) {
  // It converts to unsigned long first: with 64 bits the number is cut, with 32 it is the largest.
  constexpr bool kLongHas64Bits = sizeof(unsigned long) == sizeof(std::uint64_t);
  {
    const EnvironmentVariable wanted("SPI_CLOCK_SPEED", "4294967297");
    EXPECT_EQ(SpiClockMHz(), kLongHas64Bits ? 1U : 4294967295U);
  }
  const EnvironmentVariable wanted("SPI_CLOCK_SPEED", "18446744073709551616");
  EXPECT_EQ(SpiClockMHz(), 4294967295U);
}

TEST(SpiClockTest, MegahertzHasAMillionHertz) { EXPECT_EQ(kHzPerMHz, 1000000U); }

}  // namespace
