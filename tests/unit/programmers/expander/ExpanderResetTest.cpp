#include <chrono>
#include <type_traits>

#include "tests/unit/programmers/expander/ExpanderDistinctLines.h"
#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

class ExpanderResetTest : public ExpanderTest {
 protected:
  /// The line is low until the given poll, counted from 1, and high from there on.
  void HighFromPoll(int poll) {
    script_->port = [this, poll](unsigned short bits) -> unsigned short {
      return script_->polls >= poll ? bits : static_cast<unsigned short>(0);
    };
  }

  template <typename Programmer>
  Events ToggleOverDistinctLines() {
    auto programmer =
        Record([&] { return std::make_unique<Programmer>(&expander_, spi(), &distinctLines_, 5); });
    static_cast<void>(Recorded());
    EXPECT_TRUE(Record([&] { return programmer->toggleReset(); }));
    return Recorded();
  }

  ExpanderDistinctLines distinctLines_;
};

// --- toggleReset --------------------------------------------------------------------------------

TEST_F(ExpanderResetTest, DaxPulsesResetFor10MillisecondsThenMakesTheLinesInputs) {
  auto& programmer = Ready<DaxFlashProgrammer>();
  EXPECT_TRUE(Record([&] { return programmer.toggleReset(); }));
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.setPortActually 0x2C00 0xEDDF",
                          "usleep 10000",
                          "expander.setPortActually 0x2C80 0xEDDF",
                          "expander.connect 0x21 0xEDDF 0x0000 0xEDDF 0"));
}

TEST_F(ExpanderResetTest, Pyx1PulsesResetFor10MillisecondsThenMakesTheLinesInputs) {
  auto& programmer = Ready<Pyx1FlashProgrammer>();
  EXPECT_TRUE(Record([&] { return programmer.toggleReset(); }));
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.setPortActually 0x2C00 0xEDDF",
                          "usleep 10000",
                          "expander.setPortActually 0x2C80 0xEDDF",
                          "expander.connect 0x20 0xEDDF 0x0000 0xEDDF 0"));
}

TEST_F(ExpanderResetTest, Pyx2HoldsResetFor5SecondsAndNeverDrivesTheRunPattern) {
  auto& programmer = Ready<Pyx2FlashProgrammer>();
  EXPECT_TRUE(Record([&] { return programmer.toggleReset(); }));
  EXPECT_THAT(Recorded(),
              ElementsAre("expander.setPortActually 0x0000 0x0A17",
                          "sleep 5",
                          "expander.connect 0x20 0x0A17 0x0000 0x0A17 0"));
}

TEST_F(ExpanderResetTest, DaxInSlot5TogglesAtThePlainAddressWithThesePatternsOfTheMap) {
  EXPECT_THAT(ToggleOverDistinctLines<DaxFlashProgrammer>(),
              ElementsAre("expander.setPortActually 0x1005 0x1003",
                          "usleep 10000",
                          "expander.setPortActually 0x1004 0x1003",
                          "expander.connect 0x31 0x1003 0x0000 0x1003 0"));
}

TEST_F(ExpanderResetTest, Pyx1InSlot5TogglesAtThePlainAddressWithThesePatternsOfTheMap) {
  EXPECT_THAT(ToggleOverDistinctLines<Pyx1FlashProgrammer>(),
              ElementsAre("expander.setPortActually 0x1005 0x1003",
                          "usleep 10000",
                          "expander.setPortActually 0x1004 0x1003",
                          "expander.connect 0x31 0x1003 0x0000 0x1003 0"));
}

TEST_F(ExpanderResetTest, Pyx2InSlot5TogglesAtThePlainAddressWithThesePatternsOfTheMap) {
  EXPECT_THAT(ToggleOverDistinctLines<Pyx2FlashProgrammer>(),
              ElementsAre("expander.setPortActually 0x1005 0x1003",
                          "sleep 5",
                          "expander.connect 0x31 0x1003 0x0000 0x1003 0"));
}

// --- What all three do alike --------------------------------------------------------------------

template <typename Programmer>
class ExpanderDoneTest : public ExpanderResetTest {
 protected:
  static constexpr bool kIsPyx2 = std::is_same_v<Programmer, Pyx2FlashProgrammer>;

  /// Watches line 2 for a number of milliseconds, without logging the polls.
  bool WaitFor(milliseconds::rep timeout) {
    script_->logsPolls = false;
    auto& programmer = Ready<Programmer>();
    return Record([&] { return programmer.waitForSignalToGoHigh(0x0004, milliseconds{timeout}); });
  }

  /// What toggleReset() puts into the log.
  static Events Reset() {
    if (kIsPyx2) {
      return {"expander.setPortActually 0x0000 0x0A17",
              "sleep 5",
              "expander.connect 0x20 0x0A17 0x0000 0x0A17 0"};
    }
    return {"expander.setPortActually 0x2C00 0xEDDF",
            "usleep 10000",
            "expander.setPortActually 0x2C80 0xEDDF",
            std::is_same_v<Programmer, DaxFlashProgrammer>
                ? "expander.connect 0x21 0xEDDF 0x0000 0xEDDF 0"
                : "expander.connect 0x20 0xEDDF 0x0000 0xEDDF 0"};
  }

  /// The usleep calls of the reset pulse itself.
  static constexpr int kUsleepsOfReset = kIsPyx2 ? 0 : 1;
};

using Programmers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer, Pyx2FlashProgrammer>;
TYPED_TEST_SUITE(ExpanderDoneTest, Programmers);

TYPED_TEST(ExpanderDoneTest, ToggleResetFailsWhenTheExpanderDoesNotAnswerAtTheEnd) {
  auto& programmer = this->template Ready<TypeParam>();
  this->script_->connectResults = {false};
  EXPECT_FALSE(this->Record([&] { return programmer.toggleReset(); }));
  EXPECT_EQ(this->Recorded(), this->Reset());
}

TYPED_TEST(ExpanderDoneTest, WaitReadsTheWatchedLinesBeforeItSleeps) {
  this->HighFromPoll(3);
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_TRUE(
      this->Record([&] { return programmer.waitForSignalToGoHigh(0x0004, milliseconds{10}); }));
  EXPECT_THAT(this->Recorded(),
              ElementsAre("expander.getPort 0x0004",
                          "usleep 1000",
                          "expander.getPort 0x0004",
                          "usleep 1000",
                          "expander.getPort 0x0004"));
}

TYPED_TEST(ExpanderDoneTest, WaitTakesAnyOfTheWatchedLinesForHigh) {
  this->script_->port = [](unsigned short) { return static_cast<unsigned short>(0x8000); };
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_TRUE(
      this->Record([&] { return programmer.waitForSignalToGoHigh(0x8004, milliseconds{2}); }));
  EXPECT_THAT(this->Recorded(), ElementsAre("expander.getPort 0x8004"));
}

TYPED_TEST(ExpanderDoneTest, WaitOf0ReadsNothingAndTimesOut) {
  this->HighFromPoll(1);
  EXPECT_FALSE(this->WaitFor(0));
  EXPECT_EQ(this->script_->polls, 0);
  EXPECT_EQ(this->script_->usleeps, 0);
}

TYPED_TEST(ExpanderDoneTest, NegativeWaitReadsNothingAndTimesOut) {
  this->HighFromPoll(1);
  EXPECT_FALSE(this->WaitFor(-1));
  EXPECT_EQ(this->script_->polls, 0);
  EXPECT_EQ(this->script_->usleeps, 0);
}

TYPED_TEST(ExpanderDoneTest, WaitOf1ReadsOnceAndTimesOutAlthoughTheLineIsHigh) {
  this->HighFromPoll(1);
  EXPECT_FALSE(this->WaitFor(1));
  EXPECT_EQ(this->script_->polls, 1);
  EXPECT_EQ(this->script_->usleeps, 0);
}

TYPED_TEST(ExpanderDoneTest, WaitOf1ReadsOnceAndSleepsOnceWhenTheLineIsLow) {
  EXPECT_FALSE(this->WaitFor(1));
  EXPECT_EQ(this->script_->polls, 1);
  EXPECT_EQ(this->script_->usleeps, 1);
}

TYPED_TEST(ExpanderDoneTest, WaitOf2SeesALineThatIsHighAtOnce) {
  this->HighFromPoll(1);
  EXPECT_TRUE(this->WaitFor(2));
  EXPECT_EQ(this->script_->polls, 1);
  EXPECT_EQ(this->script_->usleeps, 0);
}

TYPED_TEST(ExpanderDoneTest, ShortestTimeoutThereIsReadsNothing) {
  this->HighFromPoll(1);
  EXPECT_FALSE(this->WaitFor(milliseconds::min().count()));
  EXPECT_EQ(this->script_->polls, 0);
  EXPECT_EQ(this->script_->usleeps, 0);
}

TYPED_TEST(ExpanderDoneTest, WaitOf2TimesOutOnALineSeenHighOnPoll2) {
  this->HighFromPoll(2);
  EXPECT_FALSE(this->WaitFor(2));
  EXPECT_EQ(this->script_->polls, 2);
  EXPECT_EQ(this->script_->usleeps, 1);
}

TYPED_TEST(ExpanderDoneTest, WaitOf50SeesALineOnPoll49) {
  this->HighFromPoll(49);
  EXPECT_TRUE(this->WaitFor(50));
  EXPECT_EQ(this->script_->polls, 49);
  EXPECT_EQ(this->script_->usleeps, 48);
}

TYPED_TEST(ExpanderDoneTest, LineSeenHighOnTheLastPollCountsAsTimeout) {
  this->HighFromPoll(50);
  EXPECT_FALSE(this->WaitFor(50));
  EXPECT_EQ(this->script_->polls, 50);
  EXPECT_EQ(this->script_->usleeps, 49);
}

TYPED_TEST(ExpanderDoneTest, LineThatStaysLowIsPolledAsOftenAsThereAreMilliseconds) {
  EXPECT_FALSE(this->WaitFor(50));
  EXPECT_EQ(this->script_->polls, 50);
  EXPECT_EQ(this->script_->usleeps, 50);
}

TYPED_TEST(ExpanderDoneTest, ResetThenDoneEndsTheProgressLine) {
  this->script_->port = [](unsigned short bits) { return bits; };
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_EQ(this->Record([&] { return programmer.toggleFpgaResetAndWaitForProgramDone(); }), 0);
  ExpanderLog::Events expected = this->Reset();
  expected.insert(expected.begin(), "out| Toggling reset ... ");
  expected.push_back(this->kIsPyx2 ? "expander.getPort 0x0001" : "expander.getPort 0x0100");
  expected.push_back("out| done.\n");
  EXPECT_EQ(this->Recorded(), expected);
}

TYPED_TEST(ExpanderDoneTest, ResetWhoseFinalConnectFailsStillWaitsForDone) {
  this->script_->port = [](unsigned short bits) { return bits; };
  auto& programmer = this->template Ready<TypeParam>();
  this->script_->connectResults = {false};
  EXPECT_EQ(this->Record([&] { return programmer.toggleFpgaResetAndWaitForProgramDone(); }), 0);
  ExpanderLog::Events expected = this->Reset();
  expected.insert(expected.begin(), "out| Toggling reset ... ");
  expected.push_back(this->kIsPyx2 ? "expander.getPort 0x0001" : "expander.getPort 0x0100");
  expected.push_back("out| done.\n");
  EXPECT_EQ(this->Recorded(), expected);
}

TYPED_TEST(ExpanderDoneTest, ResetWithoutDoneLeavesTheProgressLineUnfinishedAfter10000Polls) {
  this->script_->logsPolls = false;
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_EQ(this->Record([&] { return programmer.toggleFpgaResetAndWaitForProgramDone(); }), 7);
  ExpanderLog::Events expected = this->Reset();
  expected.insert(expected.begin(), "out| Toggling reset ... ");
  EXPECT_EQ(this->Recorded(), expected);
  EXPECT_EQ(this->script_->polls, 10000);
  EXPECT_EQ(this->script_->usleeps, 10000 + this->kUsleepsOfReset);
}

TYPED_TEST(ExpanderDoneTest, DoneOnPoll9999IsInTime) {
  this->script_->logsPolls = false;
  this->HighFromPoll(9999);
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_EQ(this->Record([&] { return programmer.toggleFpgaResetAndWaitForProgramDone(); }), 0);
  ExpanderLog::Events expected = this->Reset();
  expected.insert(expected.begin(), "out| Toggling reset ... ");
  expected.push_back("out| done.\n");
  EXPECT_EQ(this->Recorded(), expected);
}

TYPED_TEST(ExpanderDoneTest, DoneOnPoll10000IsTooLate) {
  this->script_->logsPolls = false;
  this->HighFromPoll(10000);
  auto& programmer = this->template Ready<TypeParam>();
  EXPECT_EQ(this->Record([&] { return programmer.toggleFpgaResetAndWaitForProgramDone(); }), 7);
  ExpanderLog::Events expected = this->Reset();
  expected.insert(expected.begin(), "out| Toggling reset ... ");
  EXPECT_EQ(this->Recorded(), expected);
}

}  // namespace
