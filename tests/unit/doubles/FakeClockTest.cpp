#include <gtest/gtest.h>
#include <time.h>

#include "tests/doubles/FakeClock.h"

namespace {

using namespace std::chrono_literals;

TEST(FakeClockTest, ClocksStandStillUntilAdvanced) {
  const FakeClock clock;
  const auto steady = std::chrono::steady_clock::now();
  const auto system = std::chrono::system_clock::now();
  timespec first{};
  timespec second{};
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &first), 0);
  EXPECT_EQ(std::chrono::steady_clock::now(), steady);

  FakeClock::Advance(5s + 1ns);
  EXPECT_EQ(std::chrono::steady_clock::now() - steady, 5s + 1ns);
  EXPECT_EQ(std::chrono::system_clock::now() - system, 5s + 1ns);
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &second), 0);
  EXPECT_EQ(second.tv_sec - first.tv_sec, 5);
  EXPECT_EQ(second.tv_nsec - first.tv_nsec, 1);
}

TEST(FakeClockTest, RealClockIsBackAfterwards) {
  const auto before = std::chrono::system_clock::now();
  { const FakeClock clock; }
  const auto after = std::chrono::system_clock::now();
  EXPECT_GE(after, before);  // the fake one stands in the year 1970
}

}  // namespace
