#include <gtest/gtest.h>

#include "companion/report/Summary.h"
#include "tests/unit/companion/report/SampleResults.h"

namespace companion::test {
namespace {

TEST(SummaryTest, EachExitCodeHasAWord) {
  EXPECT_EQ(VerdictWord("update", ExitCode::kDone), "proven");
  EXPECT_EQ(VerdictWord("verify", ExitCode::kDone), "equal");
  EXPECT_EQ(VerdictWord("read", ExitCode::kDone), "read");
  EXPECT_EQ(VerdictWord("update", ExitCode::kNot), "not-proven");
  EXPECT_EQ(VerdictWord("verify", ExitCode::kNot), "differs");
  EXPECT_EQ(VerdictWord("update", ExitCode::kRefused), "refused");
  EXPECT_EQ(VerdictWord("update", ExitCode::kPowerCycle), "power-cycle");
  EXPECT_EQ(VerdictWord("update", ExitCode::kLocked), "locked");
  EXPECT_EQ(VerdictWord("update", ExitCode::kStopped), "stopped");
  EXPECT_EQ(VerdictWord("update", ExitCode::kUnreachable), "unreachable");
}

TEST(SummaryTest, WordsOfDoneEndpointFlashAndUse) {
  EXPECT_EQ(NameOf(DoneLine::kUnknown), "unknown");
  EXPECT_EQ(NameOf(DoneLine::kLow), "low");
  EXPECT_EQ(NameOf(DoneLine::kHigh), "high");
  EXPECT_EQ(NameOf(Endpoint::kNone), "none");
  EXPECT_EQ(NameOf(Endpoint::kNotListed), "not-listed");
  EXPECT_EQ(NameOf(Endpoint::kUnknown), "unknown");
  EXPECT_EQ(NameOf(Endpoint::kAbsent), "absent");
  EXPECT_EQ(NameOf(Endpoint::kDisabled), "disabled");
  EXPECT_EQ(NameOf(Endpoint::kEnabled), "enabled");
  EXPECT_EQ(NameOf(FlashHolds::kNotRead), "not-read");
  EXPECT_EQ(NameOf(FlashHolds::kOther), "other");
  EXPECT_EQ(NameOf(FlashHolds::kImage), "image");
  EXPECT_EQ(NameOf(FlashHolds::kNotTheImage), "not-the-image");
  EXPECT_EQ(NameOf(FlashHolds::kNotKnown), "not-known");
  EXPECT_EQ(NameOf(InUse::kNo), "no");
  EXPECT_EQ(NameOf(InUse::kFoundSo), "found");
  EXPECT_EQ(NameOf(InUse::kTaken), "taken");
  EXPECT_EQ(NameOf(InUse::kAtPowerOn), "at-power-on");
}

TEST(SummaryTest, NothingIsKnownWithoutAReading) {
  const ModuleResult none;
  EXPECT_FALSE(ChipOf(none).has_value());
  EXPECT_EQ(DoneBefore(none), DoneLine::kUnknown);
  EXPECT_EQ(DoneAfter(none), DoneLine::kUnknown);
  EXPECT_EQ(EndpointAfter(none), Endpoint::kUnknown);
}

TEST(SummaryTest, ChipIsThatOfTheLastReadingThatIdentifiedIt) {
  UpdateResult result = WrittenWend();
  result.readings[0].found.chip.status = 7;
  result.readings[1].found.chip = {};
  EXPECT_EQ(ChipOf(result)->status, 7);
  EXPECT_EQ(IdOf(*ChipOf(result)), "20ba18");
}

TEST(SummaryTest, StateAtTheEndIsThatOfTheLastOperation) {
  UpdateResult result = WrittenWend();
  result.readings[0].found.done = DoneLine::kLow;
  result.readings[1].found.doneAfter = DoneLine::kLow;
  result.readings[1].found.endpoint = Endpoint::kDisabled;
  result.intoUse[0].found.endpoint = Endpoint::kEnabled;
  EXPECT_EQ(DoneBefore(result), DoneLine::kLow);
  EXPECT_EQ(DoneAfter(result), DoneLine::kHigh);
  EXPECT_EQ(EndpointAfter(result), Endpoint::kEnabled);
  result.intoUse.clear();
  EXPECT_EQ(DoneAfter(result), DoneLine::kLow);
  EXPECT_EQ(EndpointAfter(result), Endpoint::kDisabled);
}

}  // namespace
}  // namespace companion::test
