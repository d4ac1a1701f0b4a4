#include <gtest/gtest.h>

#include "simulator/timing/WireTime.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

TEST(WireTimeTest, OneByteAt1MHzTakes8Microseconds) {
  EXPECT_EQ(WireTime(8, 1'000'000), nanoseconds(8'000));
}

TEST(WireTimeTest, PartOfANanosecondCountsAsAWholeOne) {
  EXPECT_EQ(WireTime(8, 19'000'000), nanoseconds(422));  // 421.05
}

TEST(WireTimeTest, WholeNanosecondsAreNotRounded) {
  EXPECT_EQ(WireTime(8, 50'000'000), nanoseconds(160));
}

TEST(WireTimeTest, NoBitsTakeNoTime) { EXPECT_EQ(WireTime(0, 1), nanoseconds(0)); }

TEST(WireTimeTest, LongestMessageAtTheSlowestClockFits) {
  EXPECT_EQ(WireTime(8ULL * (64U << 20), 1), nanoseconds(536'870'912'000'000'000));
}

TEST(WireTimeTest, OneI2cByteWithItsAcknowledgeTakes90Microseconds) {
  EXPECT_EQ(WireTime(kBitsPerI2cByte, kI2cHz), nanoseconds(90'000));
}

}  // namespace
}  // namespace orvane
