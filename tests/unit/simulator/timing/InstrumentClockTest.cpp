#include <gtest/gtest.h>

#include <vector>

#include "simulator/timing/InstrumentClock.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

/// A chip that is busy for a time, and then waits to be asked.
class FakePart : public ClockedPart {
 public:
  void AdvanceTime(nanoseconds by) override {
    steps.push_back(by);
    if (busy > nanoseconds(0)) {
      busy -= by;
      awaitsPoll = busy == nanoseconds(0);
    }
  }
  nanoseconds NextChange() const override { return busy > nanoseconds(0) ? busy : kNever; }
  bool ChipBusy() const override { return busy > nanoseconds(0); }
  bool AwaitsPoll() const override { return awaitsPoll; }

  nanoseconds busy{0};
  bool awaitsPoll = false;
  std::vector<nanoseconds> steps;
};

class InstrumentClockTest : public testing::Test {
 protected:
  FakePart first_;
  FakePart second_;
  InstrumentClock clock_{{&first_, &second_}};
};

TEST_F(InstrumentClockTest, StandsStillAtTheStart) {
  EXPECT_EQ(clock_.Now(), nanoseconds(0));
  EXPECT_EQ(clock_.Totals().Sum(), nanoseconds(0));
}

TEST_F(InstrumentClockTest, AdvancesEveryPart) {
  clock_.Advance(Cause::kSleep, nanoseconds(7));
  EXPECT_EQ(clock_.Now(), nanoseconds(7));
  EXPECT_EQ(first_.steps, std::vector{nanoseconds(7)});
  EXPECT_EQ(second_.steps, std::vector{nanoseconds(7)});
}

TEST_F(InstrumentClockTest, AdvanceByNothingIsNoStep) {
  clock_.Advance(Cause::kSleep, nanoseconds(0));
  EXPECT_TRUE(first_.steps.empty());
}

TEST_F(InstrumentClockTest, TimeHasItsCauseWhileNoChipWorks) {
  clock_.Advance(Cause::kMessageCost, nanoseconds(20));
  clock_.Advance(Cause::kWire, nanoseconds(3));
  EXPECT_EQ(clock_.Totals().Of(Cause::kMessageCost), nanoseconds(20));
  EXPECT_EQ(clock_.Totals().Of(Cause::kWire), nanoseconds(3));
}

TEST_F(InstrumentClockTest, StepsEndWhereAPartChanges) {
  first_.busy = nanoseconds(30);
  second_.busy = nanoseconds(50);
  clock_.Advance(Cause::kSleep, nanoseconds(100));
  const std::vector expected = {nanoseconds(30), nanoseconds(20), nanoseconds(50)};
  EXPECT_EQ(first_.steps, expected);
  EXPECT_EQ(second_.steps, expected);
}

TEST_F(InstrumentClockTest, BusyChipIsTheCauseWhateverPasses) {
  first_.busy = nanoseconds(30);
  clock_.Advance(Cause::kMessageCost, nanoseconds(20));
  clock_.Advance(Cause::kWire, nanoseconds(10));
  EXPECT_EQ(clock_.Totals().Of(Cause::kChipBusy), nanoseconds(30));
  EXPECT_EQ(clock_.Totals().Sum(), nanoseconds(30));
}

TEST_F(InstrumentClockTest, ReadyChipThatNobodyHasSeenIsTheCause) {
  first_.busy = nanoseconds(30);
  clock_.Advance(Cause::kSleep, nanoseconds(100));
  EXPECT_EQ(clock_.Totals().Of(Cause::kChipBusy), nanoseconds(30));
  EXPECT_EQ(clock_.Totals().Of(Cause::kLatePoll), nanoseconds(70));
  EXPECT_EQ(clock_.Totals().Of(Cause::kSleep), nanoseconds(0));
}

TEST_F(InstrumentClockTest, BusyChipCountsBeforeOneThatNobodyHasSeen) {
  first_.busy = nanoseconds(30);
  second_.busy = nanoseconds(50);
  clock_.Advance(Cause::kSleep, nanoseconds(60));
  EXPECT_EQ(clock_.Totals().Of(Cause::kChipBusy), nanoseconds(50));
  EXPECT_EQ(clock_.Totals().Of(Cause::kLatePoll), nanoseconds(10));
}

TEST_F(InstrumentClockTest, CausesAddUpToTheTime) {
  first_.busy = nanoseconds(30);
  clock_.Advance(Cause::kWire, nanoseconds(47));
  first_.awaitsPoll = false;
  clock_.Advance(Cause::kLook, nanoseconds(200));
  EXPECT_EQ(clock_.Totals().Sum(), nanoseconds(247));
  EXPECT_EQ(clock_.Now(), nanoseconds(247));
}

TEST_F(InstrumentClockTest, EndOfItsRangeIsTheEnd) {
  clock_.Advance(Cause::kSleep, kNever - nanoseconds(5));
  clock_.Advance(Cause::kLook, nanoseconds(200));
  EXPECT_EQ(clock_.Now(), kNever);
  EXPECT_EQ(clock_.Totals().Of(Cause::kLook), nanoseconds(5));
}

TEST_F(InstrumentClockTest, EachStepIsTold) {
  first_.busy = nanoseconds(30);
  std::vector<nanoseconds> told;
  clock_.OnStep([&] { told.push_back(clock_.Now()); });
  clock_.Advance(Cause::kSleep, nanoseconds(100));
  EXPECT_EQ(told, (std::vector{nanoseconds(30), nanoseconds(100)}));
}

}  // namespace
}  // namespace orvane
