#include <gtest/gtest.h>
#include <time.h>

#include <stdexcept>

#include "tests/doubles/FakeClock.h"

namespace {

using namespace std::chrono_literals;

TEST(FakeClockTest, SteadyClockStandsStillUntilAdvanced) {
  const FakeClock clock;
  const auto steady = std::chrono::steady_clock::now();
  timespec first{};
  timespec second{};
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &first), 0);
  EXPECT_EQ(std::chrono::steady_clock::now(), steady);

  FakeClock::Advance(5s + 1ns);
  EXPECT_EQ(std::chrono::steady_clock::now() - steady, 5s + 1ns);
  EXPECT_EQ(FakeClock::Passed(), 5s + 1ns);
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &second), 0);
  EXPECT_EQ(second.tv_sec - first.tv_sec, 5);
  EXPECT_EQ(second.tv_nsec - first.tv_nsec, 1);
}

TEST(FakeClockTest, EachClockStartsAnewAndThereIsOneAtATime) {
  {
    const FakeClock clock;
    FakeClock::Advance(1s);
    EXPECT_THROW(const FakeClock second, std::logic_error);
  }
  const FakeClock clock;
  EXPECT_EQ(FakeClock::Passed(), std::chrono::seconds::zero());
}

TEST(FakeClockTest, WallClockGoesOnAndTheRealClockIsBackAfterwards) {
  const auto realBefore = std::chrono::steady_clock::now();
  {
    const FakeClock clock;
    const auto before = std::chrono::system_clock::now();
    while (std::chrono::system_clock::now() == before) {
    }
  }
  EXPECT_GT(std::chrono::steady_clock::now(), realBefore);
}

}  // namespace
