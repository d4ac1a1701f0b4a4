#include <gtest/gtest.h>

#include "simulator/timing/ChipTimes.h"

namespace orvane {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

void ExpectSame(const ChipTimes& times, const ChipTimes& expected) {
  EXPECT_EQ(times.pageProgram, expected.pageProgram);
  EXPECT_EQ(times.subsectorErase, expected.subsectorErase);
  EXPECT_EQ(times.sectorErase, expected.sectorErase);
  EXPECT_EQ(times.chipErase, expected.chipErase);
  EXPECT_EQ(times.registerWrite, expected.registerWrite);
}

TEST(ChipTimesTest, MicronTypicalTimes) {
  ExpectSame(
      MicronTimes(Timing::kTypical),
      {microseconds(120), milliseconds(50), milliseconds(150), seconds(38), microseconds(1'300)});
}

TEST(ChipTimesTest, MicronLongestTimes) {
  ExpectSame(MicronTimes(Timing::kLongest),
             {microseconds(1'800), milliseconds(400), seconds(1), seconds(114), milliseconds(8)});
}

TEST(ChipTimesTest, MacronixTypicalTimes) {
  ExpectSame(
      MacronixTimes(Timing::kTypical),
      {microseconds(500), milliseconds(43), milliseconds(340), seconds(70), milliseconds(40)});
}

TEST(ChipTimesTest, MacronixLongestTimes) {
  ExpectSame(MacronixTimes(Timing::kLongest),
             {microseconds(1'500), milliseconds(200), seconds(2), seconds(200), milliseconds(40)});
}

TEST(ChipTimesTest, TimesForAnEstimateAreTheTypicalOnes) {
  ExpectSame(MicronTimes(Timing::kPolls), MicronTimes(Timing::kTypical));
  ExpectSame(MacronixTimes(Timing::kPolls), MacronixTimes(Timing::kTypical));
}

TEST(ChipTimesTest, EachKindOfWorkHasItsTime) {
  const ChipTimes times = MicronTimes(Timing::kTypical);
  EXPECT_EQ(times.Of(ChipWork::kNone), seconds(0));
  EXPECT_EQ(times.Of(ChipWork::kPageProgram), microseconds(120));
  EXPECT_EQ(times.Of(ChipWork::kSubsectorErase), milliseconds(50));
  EXPECT_EQ(times.Of(ChipWork::kSectorErase), milliseconds(150));
  EXPECT_EQ(times.Of(ChipWork::kChipErase), seconds(38));
  EXPECT_EQ(times.Of(ChipWork::kRegisterWrite), microseconds(1'300));
}

}  // namespace
}  // namespace orvane
