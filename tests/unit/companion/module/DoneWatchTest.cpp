#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

#include "companion/module/DoneWatch.h"
#include "companion/process/Worker.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/FileKernel.h"

namespace companion {
namespace {

/// Looks follow a text: 'H' high, 'L' low, '?' no look. Its last letter is repeated.
class DoneWatchTest : public testing::Test {
 protected:
  DoneWatch Watch(std::string line) {
    line_ = std::move(line);
    looks_ = 0;
    return DoneWatch([this] { return Look(); }, interruption_);
  }

  DoneLine Look() {
    const char letter = line_[std::min(looks_++, line_.size() - 1)];
    return letter == 'H' ? DoneLine::kHigh : letter == 'L' ? DoneLine::kLow : DoneLine::kUnknown;
  }

  FakeClock clock_;
  FileKernel kernel_;
  std::string line_;
  std::size_t looks_ = 0;
  std::atomic<bool> stop_ = false;
  WorkerSide side_{::getppid(), -1};
  Interruption interruption_{stop_, side_};
};

TEST_F(DoneWatchTest, HighTakesThreeLooksAndNoTime) {
  EXPECT_EQ(Watch("HHH").AwaitHigh(), DoneLine::kHigh);
  EXPECT_EQ(looks_, 3U);
  EXPECT_EQ(FakeClock::Passed(), std::chrono::seconds(0));
}

TEST_F(DoneWatchTest, OneWrongLookBetweenHighOnesDoesNotCount) {
  EXPECT_EQ(Watch("HHLHHH").AwaitHigh(), DoneLine::kHigh);
  EXPECT_EQ(looks_, 6U);
}

TEST_F(DoneWatchTest, LowCountsOnlyAfterTenSeconds) {
  EXPECT_EQ(Watch("L").AwaitHigh(), DoneLine::kLow);
  EXPECT_EQ(looks_, 200U);
  EXPECT_GE(FakeClock::Passed(), std::chrono::milliseconds(9950));
}

TEST_F(DoneWatchTest, FpgaThatHasBootedAfterAlmostTenSecondsIsHigh) {
  EXPECT_EQ(Watch(std::string(199, 'L') + "HHH").AwaitHigh(), DoneLine::kHigh);
}

TEST_F(DoneWatchTest, LookThatFailsIsNeitherHighNorLow) {
  EXPECT_EQ(Watch("?L?HHH").AwaitHigh(), DoneLine::kHigh);
  EXPECT_EQ(Watch("??" + std::string(199, 'L') + "?L").AwaitHigh(), DoneLine::kLow);
}

TEST_F(DoneWatchTest, LineThatCannotBeReadIsUnknown) {
  EXPECT_EQ(Watch("?").AwaitHigh(), DoneLine::kUnknown);
  EXPECT_EQ(looks_, 100U);
}

TEST_F(DoneWatchTest, LineThatDoesNotSettleIsUnknown) {
  std::string flutter;
  while (flutter.size() < 4000) {
    flutter += "HHL";
  }
  EXPECT_EQ(Watch(flutter).AwaitHigh(), DoneLine::kUnknown);
}

TEST_F(DoneWatchTest, StopEndsTheWait) {
  stop_ = true;
  EXPECT_THROW(Watch("L").AwaitHigh(), StepFailed);
  EXPECT_THROW(Watch("H").FallsLow(), StepFailed);
}

TEST_F(DoneWatchTest, FallTakesThreeLowLooksInARow) {
  EXPECT_TRUE(Watch("HLLHLLL").FallsLow());
  EXPECT_EQ(looks_, 7U);
}

TEST_F(DoneWatchTest, LineThatDoesNotFallIn100MillisecondsIsHigh) {
  EXPECT_FALSE(Watch("H").FallsLow());
  EXPECT_EQ(FakeClock::Passed(), std::chrono::milliseconds(100));
}

TEST_F(DoneWatchTest, LooksThatFailAreNoFall) { EXPECT_FALSE(Watch("?").FallsLow()); }

TEST_F(DoneWatchTest, NowIsWhatThreeLooksSay) {
  EXPECT_EQ(Watch("HHHL").Now(), DoneLine::kHigh);
  EXPECT_EQ(Watch("LLLH").Now(), DoneLine::kLow);
  EXPECT_EQ(Watch("LLH").Now(), DoneLine::kUnknown);
  EXPECT_EQ(Watch("?").Now(), DoneLine::kUnknown);
}

}  // namespace
}  // namespace companion
