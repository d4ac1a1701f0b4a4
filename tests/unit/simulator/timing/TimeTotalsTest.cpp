#include <gtest/gtest.h>

#include "simulator/timing/TimeTotals.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

TEST(TimeTotalsTest, WithoutTimeEachCauseHasNone) {
  const TimeTotals totals;
  EXPECT_EQ(totals.Of(Cause::kMessageCost), nanoseconds(0));
  EXPECT_EQ(totals.Of(Cause::kWait), nanoseconds(0));
  EXPECT_EQ(totals.Sum(), nanoseconds(0));
}

TEST(TimeTotalsTest, TimesOfOneCauseAddUp) {
  TimeTotals totals;
  totals.Add(Cause::kWire, nanoseconds(3));
  totals.Add(Cause::kWire, nanoseconds(4));
  EXPECT_EQ(totals.Of(Cause::kWire), nanoseconds(7));
  EXPECT_EQ(totals.Of(Cause::kSleep), nanoseconds(0));
}

TEST(TimeTotalsTest, SumIsThatOfAllCauses) {
  TimeTotals totals;
  totals.Add(Cause::kMessageCost, nanoseconds(1));
  totals.Add(Cause::kWire, nanoseconds(10));
  totals.Add(Cause::kChipBusy, nanoseconds(100));
  totals.Add(Cause::kLatePoll, nanoseconds(1'000));
  totals.Add(Cause::kSleep, nanoseconds(10'000));
  totals.Add(Cause::kLook, nanoseconds(100'000));
  totals.Add(Cause::kWait, nanoseconds(1'000'000));
  EXPECT_EQ(totals.Sum(), nanoseconds(1'111'111));
}

TEST(TimeTotalsTest, TotalsAreAddedCauseByCause) {
  TimeTotals totals;
  totals.Add(Cause::kSleep, nanoseconds(5));
  TimeTotals others;
  others.Add(Cause::kSleep, nanoseconds(2));
  others.Add(Cause::kLook, nanoseconds(200));
  totals.Add(others);
  EXPECT_EQ(totals.Of(Cause::kSleep), nanoseconds(7));
  EXPECT_EQ(totals.Of(Cause::kLook), nanoseconds(200));
  EXPECT_EQ(totals.Sum(), nanoseconds(207));
}

TEST(TimeTotalsTest, SinceIsTheDifferenceOfEachCause) {
  TimeTotals totals;
  totals.Add(Cause::kSleep, nanoseconds(5));
  const TimeTotals earlier = totals;
  totals.Add(Cause::kSleep, nanoseconds(2));
  totals.Add(Cause::kLook, nanoseconds(200));
  const TimeTotals since = totals.Since(earlier);
  EXPECT_EQ(since.Of(Cause::kSleep), nanoseconds(2));
  EXPECT_EQ(since.Of(Cause::kLook), nanoseconds(200));
  EXPECT_EQ(since.Sum(), nanoseconds(202));
}

TEST(TimeTotalsTest, EachCauseHasItsName) {
  EXPECT_EQ(CauseName(Cause::kMessageCost), "message cost");
  EXPECT_EQ(CauseName(Cause::kWire), "wire");
  EXPECT_EQ(CauseName(Cause::kChipBusy), "chip busy");
  EXPECT_EQ(CauseName(Cause::kLatePoll), "late poll");
  EXPECT_EQ(CauseName(Cause::kSleep), "sleep");
  EXPECT_EQ(CauseName(Cause::kLook), "look");
  EXPECT_EQ(CauseName(Cause::kWait), "wait");
}

}  // namespace
}  // namespace orvane
