#include <gtest/gtest.h>

#include <chrono>

#include "simulator/chips/FpgaBoot.h"
#include "simulator/timing/ClockedPart.h"

namespace {

using namespace std::chrono_literals;

using orvane::DonePolicy;
using orvane::FpgaBoot;

constexpr DonePolicy kAuto{};
constexpr DonePolicy kHigh{.kind = DonePolicy::Kind::kHigh};
constexpr DonePolicy kLow{.kind = DonePolicy::Kind::kLow};

DonePolicy After(std::chrono::nanoseconds delay) {
  return {.kind = DonePolicy::Kind::kAfter, .delay = delay};
}

TEST(FpgaBootTest, DoneAtPowerOnIsWhatItWasTold) {
  EXPECT_TRUE(FpgaBoot(kAuto, 5ms, true).Done());
  EXPECT_FALSE(FpgaBoot(kAuto, 5ms, false).Done());
}

TEST(FpgaBootTest, UnconfiguredAtPowerOnDoesNotBootByItself) {
  FpgaBoot boot(kAuto, 5ms, false);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_FALSE(boot.Done());
}

TEST(FpgaBootTest, DoneFallsInResetAndRisesExactlyTwentyMillisecondsAfterRelease) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  EXPECT_TRUE(boot.InReset());
  EXPECT_FALSE(boot.Done());
  boot.AdvanceTime(1000ms);
  EXPECT_FALSE(boot.Done());
  boot.Update(false, true);
  EXPECT_FALSE(boot.InReset());
  boot.AdvanceTime(19999999ns);
  EXPECT_FALSE(boot.Done());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, OneLongStepBootsLikeManyShortOnes) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(5000ms);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, FlashMayBeMissingUntilClearingEnds) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, false);
  boot.Update(false, false);
  boot.AdvanceTime(4999999ns);
  boot.Update(false, true);
  boot.AdvanceTime(15000001ns);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, FlashMissingWhenClearingEndsFailsUntilTheNextReset) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, false);
  boot.Update(false, false);
  boot.AdvanceTime(5ms);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_FALSE(boot.Done());
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(20ms);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, FlashLostWhileLoadingFails) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(19ms);
  boot.Update(false, false);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_FALSE(boot.Done());
}

TEST(FpgaBootTest, FlashLostAtTheEndOfLoadingDoesNotMatter) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(20ms);
  boot.Update(false, false);
  boot.AdvanceTime(1ms);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, SecondReleaseChangesNothing) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(10ms);
  boot.Update(false, true);
  boot.AdvanceTime(10ms);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, ResetWhileLoadingStartsOver) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(19ms);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(19999999ns);
  EXPECT_FALSE(boot.Done());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, ClearedFallsInResetAndRisesExactlyWhenClearingEnds) {
  FpgaBoot boot(kAuto, 5ms, false);
  EXPECT_TRUE(boot.Cleared());
  boot.Update(true, false);
  EXPECT_FALSE(boot.Cleared());
  boot.Update(false, false);
  boot.AdvanceTime(4999999ns);
  EXPECT_FALSE(boot.Cleared());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Cleared());
}

TEST(FpgaBootTest, HighPolicyIsHighInResetToo) {
  FpgaBoot boot(kHigh, 5ms, false);
  EXPECT_TRUE(boot.Done());
  boot.Update(true, false);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, LowPolicyIsLowAfterASuccessfulBootToo) {
  FpgaBoot boot(kLow, 5ms, true);
  EXPECT_FALSE(boot.Done());
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_FALSE(boot.Done());
}

TEST(FpgaBootTest, AfterPolicyIsHighAtPowerOn) {
  EXPECT_TRUE(FpgaBoot(After(60000ms), 5ms, false).Done());
}

TEST(FpgaBootTest, AfterPolicyRisesExactlyAtItsDelayWhateverTheFlashHolds) {
  FpgaBoot boot(After(9998ms), 5ms, false);
  boot.Update(true, false);
  EXPECT_FALSE(boot.Done());
  boot.AdvanceTime(60000ms);
  EXPECT_FALSE(boot.Done());
  boot.Update(false, false);
  boot.AdvanceTime(9997999999ns);
  EXPECT_FALSE(boot.Done());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Done());
}

TEST(FpgaBootTest, AfterPolicyWithoutDelayRisesWithTheRelease) {
  FpgaBoot boot(After(0ns), 5ms, false);
  boot.Update(true, false);
  EXPECT_FALSE(boot.Done());
  boot.Update(false, false);
  EXPECT_TRUE(boot.Done());
}

/// A reset and the 20 ms after its release.
void Boot(FpgaBoot& boot, bool flashBootable) {
  boot.Update(true, flashBootable);
  boot.Update(false, flashBootable);
  boot.AdvanceTime(20ms);
}

TEST(FpgaBootTest, ConfiguredAtPowerOnIsWhatItWasToldUnderEveryPolicy) {
  for (const DonePolicy policy : {kAuto, kHigh, kLow, After(0ms), After(60000ms)}) {
    EXPECT_TRUE(FpgaBoot(policy, 5ms, true).Configured());
    EXPECT_FALSE(FpgaBoot(policy, 5ms, false).Configured());
  }
}

TEST(FpgaBootTest, LineThatIsForcedDoesNotChangeTheBoot) {
  for (const DonePolicy policy : {kHigh, kLow}) {
    FpgaBoot boot(policy, 5ms, true);
    boot.Update(true, true);
    EXPECT_FALSE(boot.Configured());
    boot.Update(false, true);
    boot.AdvanceTime(19999999ns);
    EXPECT_FALSE(boot.Configured());
    boot.AdvanceTime(1ns);
    EXPECT_TRUE(boot.Configured());
    Boot(boot, false);
    EXPECT_FALSE(boot.Configured());
  }
}

TEST(FpgaBootTest, AfterPolicyConfiguresWithItsDoneLine) {
  FpgaBoot boot(After(9998ms), 5ms, true);
  Boot(boot, true);
  boot.AdvanceTime(9977999999ns);
  EXPECT_FALSE(boot.Configured());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Done());
  EXPECT_TRUE(boot.Configured());
}

TEST(FpgaBootTest, AfterPolicyThatIsFastConfiguresWithItsDoneLine) {
  FpgaBoot boot(After(7ms), 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(6999999ns);
  EXPECT_FALSE(boot.Configured());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Done());
  EXPECT_TRUE(boot.Configured());
}

TEST(FpgaBootTest, AfterPolicyDoesNotConfigureBeforeClearingEnds) {
  FpgaBoot boot(After(0ms), 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  boot.AdvanceTime(4999999ns);
  EXPECT_TRUE(boot.Done());
  EXPECT_FALSE(boot.Configured());
  boot.AdvanceTime(1ns);
  EXPECT_TRUE(boot.Configured());
}

TEST(FpgaBootTest, AfterPolicyDoesNotConfigureFromAFlashThatItCannotBootFrom) {
  FpgaBoot boot(After(100ms), 5ms, true);
  Boot(boot, false);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_TRUE(boot.Done());
  EXPECT_FALSE(boot.Configured());
}

TEST(FpgaBootTest, AfterPolicyDoesNotConfigureWhenTheFlashIsLostBeforeItsDone) {
  FpgaBoot boot(After(100ms), 5ms, true);
  Boot(boot, true);
  boot.Update(false, false);
  boot.Update(false, true);
  boot.AdvanceTime(1000ms);
  EXPECT_TRUE(boot.Done());
  EXPECT_FALSE(boot.Configured());
}

TEST(FpgaBootTest, NothingChangesByItselfBeforeAReset) {
  EXPECT_EQ(FpgaBoot(kAuto, std::chrono::milliseconds(5), true).NextChange(), orvane::kNever);
  EXPECT_EQ(FpgaBoot(kAuto, std::chrono::milliseconds(5), false).NextChange(), orvane::kNever);
}

TEST(FpgaBootTest, NothingChangesByItselfInReset) {
  FpgaBoot boot(After(10ms), 5ms, true);
  boot.Update(true, true);
  EXPECT_EQ(boot.NextChange(), orvane::kNever);
}

TEST(FpgaBootTest, NextChangeIsTheEndOfClearingThenTheEndOfBooting) {
  FpgaBoot boot(kAuto, 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  EXPECT_EQ(boot.NextChange(), std::chrono::milliseconds(5));
  boot.AdvanceTime(1ms);
  EXPECT_EQ(boot.NextChange(), std::chrono::milliseconds(4));
  boot.AdvanceTime(4ms);
  EXPECT_EQ(boot.NextChange(), std::chrono::milliseconds(15));
  boot.AdvanceTime(15ms);
  EXPECT_EQ(boot.NextChange(), orvane::kNever);
}

TEST(FpgaBootTest, DoneThatIsDelayedIsAChangeOfItsOwn) {
  FpgaBoot boot(After(2ms), 5ms, true);
  boot.Update(true, true);
  boot.Update(false, true);
  EXPECT_EQ(boot.NextChange(), std::chrono::milliseconds(2));
  boot.AdvanceTime(2ms);
  EXPECT_TRUE(boot.Done());
  EXPECT_EQ(boot.NextChange(), std::chrono::milliseconds(3));
}

}  // namespace
