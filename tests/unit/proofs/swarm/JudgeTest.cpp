#include <gtest/gtest.h>
#include <signal.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "proofs/swarm/Judge.h"

namespace swarm {
namespace {

using Rules = std::vector<std::string>;

constexpr const char* kRest = "done=1 driven=0x0000 pcie=enabled selector=SPILVDS loaded=current";

/// The observation of an update that succeeds.
Observation Good(const std::string& step = "0") {
  return {.step = step,
          .what = 'u',
          .code = 0,
          .isHolding = true,
          .isLoaded = true,
          .before = "",
          .files = "lock",
          .state = kRest};
}

/// A world on a pyx1, and what was seen of it.
struct Case {
  explicit Case(const std::string& settings = "steps=u")
      : world(Parse("pyx1 micron " + settings)), record{.steps = {Good(), Good("final")}} {}

  Observation& Step() { return record.steps.front(); }
  Observation& Final() { return record.steps.back(); }
  Rules Broken() const {
    Rules rules;
    for (const Violation& violation : ViolationsOf(world, record)) {
      rules.push_back(violation.rule);
    }
    return rules;
  }

  World world;
  Record record{};
};

TEST(JudgeTest, GoodWorldBreaksNothing) { EXPECT_EQ(Case().Broken(), Rules()); }

TEST(JudgeTest, DetailsShowWhatWasSeen) {
  Case made;
  made.Step().isHolding = false;
  EXPECT_EQ(ViolationsOf(made.world, made.record),
            (std::vector<Violation>{{"0 over a flash without the image",
                                     "step 0 u code=0 cut=0 hangs=0 holds=0 loads=1 same=0 left=0 "
                                     "before=- files=lock state " +
                                         std::string(kRest)}}));
}

TEST(JudgeTest, ZeroWithoutTheImageInUseIsBroken) {
  Case made;
  made.Step().isLoaded = false;
  EXPECT_EQ(made.Broken(), Rules{"0 with the image not in use"});
}

TEST(JudgeTest, UpdateThatFindsTheImageOfABareRunCannotTellWhatIsLoaded) {
  Case made("steps=t,u");
  made.record.steps = {Good("0"), Good("1"), Good("final")};
  made.record.steps[0].what = 't';
  Observation& update = made.record.steps[1];
  update.isSame = true;
  update.isLoaded = false;
  EXPECT_EQ(made.Broken(), Rules());
  update.isSame = false;
  EXPECT_EQ(made.Broken(), Rules{"0 with the image not in use"});
  update.isSame = true;
  update.what = 'r';
  EXPECT_EQ(made.Broken(), Rules{"0 with the image not in use"});
  update.what = 'u';
  made.record.steps[0].files = "lock,slot-4.unfinished";
  EXPECT_EQ(made.Broken(), Rules{"0 with the image not in use"});
}

TEST(JudgeTest, LockableChipIsLockedAtTheEnd) {
  Case made;
  made.world.chip = "macronix";
  EXPECT_EQ(made.Broken(), Rules{"the chip is not locked at the end"});
  made.Final().state = std::string(kRest) + " registers=24:08";
  EXPECT_EQ(made.Broken(), Rules());
  made.Final().state = std::string(kRest) + " registers=24:00";
  EXPECT_EQ(made.Broken(), Rules{"the chip is not locked at the end"});
  made.Final().state = std::string(kRest) + " registers=20:08";
  EXPECT_EQ(made.Broken(), Rules{"the chip is not locked at the end"});
}

TEST(JudgeTest, ZeroWithoutTheEndpointIsBroken) {
  Case made;
  made.Step().state = "done=1 driven=0x0000 pcie=present selector=SPILVDS loaded=current";
  EXPECT_EQ(made.Broken(), Rules{"0 with the image not in use"});
}

TEST(JudgeTest, DaxNeedsTheImageInTheFlashOnly) {
  Case made;
  made.world.type = "dax";
  made.Step().isLoaded = false;
  made.Final().isLoaded = false;
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, PowerCycleNeedsTheImageInTheFlash) {
  Case made;
  made.Step().code = 3;
  EXPECT_EQ(made.Broken(), Rules());
  made.Step().isHolding = false;
  EXPECT_EQ(made.Broken(), Rules{"3 over a flash without the image"});
}

TEST(JudgeTest, BareRunInsideAnUpdateExcusesItsFlash) {
  Case made("steps=u@9[t]");
  made.Step().isHolding = false;
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, UpdateInsideABareRunIsJudged) {
  Case made("steps=t@9[u]");
  made.record.steps = {Good("0.0"), Good("0"), Good("final")};
  made.record.steps[0].isHolding = false;
  made.record.steps[1].what = 't';
  made.record.steps[1].isHolding = false;
  EXPECT_EQ(made.Broken(), Rules{"0 over a flash without the image"});
}

TEST(JudgeTest, BareRunIsNotJudged) {
  Case made("steps=t");
  made.Step() = {
      .step = "0", .what = 't', .code = -6, .hangs = true, .before = "", .files = "", .state = ""};
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, EqualOverAFlashThatDiffersIsBroken) {
  Case made("steps=v");
  made.Step().what = 'v';
  made.Step().isSame = true;
  EXPECT_EQ(made.Broken(), Rules());
  made.Step().isHolding = false;
  EXPECT_EQ(made.Broken(), Rules{"equal over a flash that differs"});
}

TEST(JudgeTest, VerifyThatChangesTheFlashIsBroken) {
  Case made("steps=v");
  made.Step().what = 'v';
  EXPECT_EQ(made.Broken(), Rules{"verify changes the flash"});
}

TEST(JudgeTest, UpdateInsideAVerifyThatHasNotTakenTheLockMayChangeTheFlash) {
  Case made("steps=v@1[u]");
  made.record.steps = {Good("0.0"), Good("0"), Good("final")};
  made.record.steps[1].what = 'v';
  EXPECT_EQ(made.Broken(), Rules());
  made.record.steps[0].isSame = true;
  EXPECT_EQ(made.Broken(), Rules{"verify changes the flash"});
}

TEST(JudgeTest, UnfitImageMayBeCompared) {
  Case made("a=short:1000 steps=v");
  made.Step().what = 'v';
  made.Step().isSame = true;
  made.Final().what = 'U';
  EXPECT_EQ(made.Broken(), Rules());
  made.Step().isHolding = false;
  EXPECT_EQ(made.Broken(), Rules{"equal over a flash that differs"});
}

TEST(JudgeTest, DiffersOverAnEqualFlashNeedsAFault) {
  Case made("steps=v");
  made.Step().what = 'v';
  made.Step().isSame = true;
  made.Step().code = 1;
  EXPECT_EQ(made.Broken(), Rules{"differs over a flash that is equal"});
  made.world.faults = {"spi:READ#1:lost"};
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, CodesThatPromiseAnUnchangedFlashAreHeldToIt) {
  for (const int code : {2, 4, 6}) {
    Case made;
    made.Step().code = code;
    EXPECT_EQ(made.Broken(), Rules{"says that the flash is not changed, but it is"}) << code;
    made.Step().isSame = true;
    EXPECT_EQ(made.Broken(), Rules()) << code;
  }
}

TEST(JudgeTest, UnfitImageIsNotTaken) {
  Case made("a=cut:1000 steps=u");
  made.Final().what = 'U';
  made.Step().isSame = true;
  EXPECT_EQ(made.Broken(), Rules{"takes an unfit image"});
  made.Step().code = 2;
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, OwnEndIsADocumentedCode) {
  Case made;
  made.Step().code = 7;
  EXPECT_EQ(made.Broken(), Rules{"ends as it should not"});
  made.Step().code = -SIGABRT;
  EXPECT_EQ(made.Broken(), Rules{"ends as it should not"});
  made.Step().code = -SIGKILL;
  EXPECT_EQ(made.Broken(), Rules{"ends as it should not"});
  made.Step().isCut = true;
  EXPECT_EQ(made.Broken(), Rules());
  made.Step().isCut = false;
  made.world.faults = {"any#5:kill"};
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, HangIsBroken) {
  Case made;
  made.Step().hangs = true;
  made.Step().code = -SIGKILL;
  EXPECT_EQ(made.Broken(), Rules{"hangs"});
}

TEST(JudgeTest, ProcessThatIsLeftIsBroken) {
  Case made;
  made.Step().left = 1;
  EXPECT_EQ(made.Broken(), Rules{"leaves processes"});
  made.Step().isCut = true;
  made.Step().code = -SIGKILL;
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, FileThatIsLeftIsBrokenUnlessItsAccessFails) {
  Case made;
  made.Step().files = "lock,work";
  EXPECT_EQ(made.Broken(), Rules{"leaves files"});
  made.world.faults = {"spi:PP#1:EIO", "any#900:kill"};
  EXPECT_EQ(made.Broken(), Rules{"leaves files"});
  made.world.faults = {"open#3:EACCES"};
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, MarkIsLeftOnlyByAnUpdateThatHasNotSucceeded) {
  Case made;
  made.Step().files = "lock,slot-4.unfinished";
  EXPECT_EQ(made.Broken(), Rules{"leaves files"});
  made.Step().code = 1;
  EXPECT_EQ(made.Broken(), Rules());
  made.Step().files = "lock,slot-5.unfinished";
  EXPECT_EQ(made.Broken(), Rules{"leaves files"});
}

TEST(JudgeTest, StoppedRunNeedNotRemoveWhatAnotherOneHasLeft) {
  for (const int code : {2, 4, 5}) {
    Case made;
    made.Step().code = code;
    made.Step().isSame = true;
    made.Step().before = "lock,work";
    made.Step().files = "lock,work";
    EXPECT_EQ(made.Broken(), Rules()) << code;
    made.Step().before = "lock";
    EXPECT_EQ(made.Broken(), Rules{"leaves files"}) << code;
  }
}

TEST(JudgeTest, ModuleIsGivenBackUnlessItsAccessFails) {
  for (const char* const state :
       {"done=1 driven=0x0080 pcie=enabled selector=SPILVDS loaded=current",
        "done=1 driven=0x0000 pcie=enabled selector=SPIFIFO loaded=current",
        "done=1 qspi_prg=1 pcie=enabled loaded=current"}) {
    Case made;
    made.Step().state = state;
    EXPECT_EQ(made.Broken(), Rules{"does not give the module back"}) << state;
    made.Step().code = 4;
    made.Step().isSame = true;
    EXPECT_EQ(made.Broken(), Rules()) << state;
    made.Step().code = 0;
    made.world.faults = {"i2c#3:lost"};
    EXPECT_EQ(made.Broken(), Rules()) << state;
  }
}

TEST(JudgeTest, StoppedRunNeedNotGiveBackWhatItHasNotTaken) {
  Case made("steps=t,u");
  made.record.steps = {Good("0"), Good("1"), Good("final")};
  const std::string driven = "done=1 driven=0x0080 pcie=enabled selector=SPILVDS loaded=current";
  made.record.steps[0].what = 't';
  made.record.steps[1].code = 5;
  made.record.steps[1].state = driven;
  EXPECT_EQ(made.Broken(), Rules{"does not give the module back"});
  made.record.steps[0].state = driven;
  EXPECT_EQ(made.Broken(), Rules());
  made.record.steps[1].code = 1;
  EXPECT_EQ(made.Broken(), Rules{"does not give the module back"});
}

TEST(JudgeTest, LastUpdateSucceeds) {
  Case made;
  made.Final().code = 1;
  EXPECT_EQ(made.Broken(), Rules{"the last update does not succeed"});
  made.Final().isHolding = false;
  EXPECT_EQ(
      made.Broken(),
      (Rules{"the last update does not succeed", "the image is not in the flash at the end"}));
}

TEST(JudgeTest, LastUpdateLeavesNothingWhateverWasWrongBefore) {
  Case made;
  made.world.faults = {"i2c#3:lost", "open#3:EACCES"};
  made.Final().files = "lock,work";
  made.Final().state = "done=1 driven=0x0080 pcie=enabled selector=SPILVDS loaded=current";
  EXPECT_EQ(made.Broken(), (Rules{"leaves files", "does not give the module back"}));
}

TEST(JudgeTest, LastUpdateReleasesTheLinesOfOthersToo) {
  Case made;
  made.world.faults = {"i2c:r#1+:lost"};
  made.Final().state = "done=1 driven=0x1220 pcie=enabled selector=SPILVDS loaded=current";
  EXPECT_EQ(made.Broken(), Rules{"does not give the module back"});
}

TEST(JudgeTest, LastUpdateNeedsAPowerCycleOnlyWhereNothingElseHelps) {
  Case made;
  made.Final().code = 3;
  EXPECT_EQ(made.Broken(), Rules{"the last update does not succeed"});
  made.world.stays = {"done=low"};
  EXPECT_EQ(made.Broken(), Rules());
  made.world.stays.clear();
  made.world.type = "dax";
  EXPECT_EQ(made.Broken(), Rules{"the last update does not succeed"});
  made.Final().state = "done=0 driven=0x0000 loaded=none";
  EXPECT_EQ(made.Broken(), Rules());
}

TEST(JudgeTest, WorldWithoutALastUpdateIsBroken) {
  Case made;
  made.record.steps.pop_back();
  EXPECT_EQ(made.Broken(), Rules{"the last update is missing"});
  made.record.troubles = {"the instrument exits with 125"};
  EXPECT_EQ(made.Broken(), Rules{"the world cannot be made"});
}

TEST(ObservationTest, EveryFieldIsPrintedAndRead) {
  const Observation seen{.step = "2.1",
                         .what = 'V',
                         .code = -9,
                         .isCut = true,
                         .hangs = true,
                         .isHolding = true,
                         .isLoaded = true,
                         .isSame = true,
                         .left = 3,
                         .before = "lock",
                         .files = "lock,work",
                         .state = "done=1 loaded=none"};
  EXPECT_EQ(
      Print(seen),
      "2.1 V code=-9 cut=1 hangs=1 holds=1 loads=1 same=1 left=3 before=lock files=lock,work state "
      "done=1 loaded=none");
  EXPECT_EQ(ParseObservation(Print(seen)), seen);
  EXPECT_EQ(ParseObservation(Print(Good())), Good());
  EXPECT_EQ(
      ParseObservation(Print(Observation{.step = "0", .before = "", .files = "", .state = ""})),
      (Observation{.step = "0", .before = "", .files = "", .state = ""}));
}

TEST(ObservationTest, OtherTextIsRefused) {
  EXPECT_THROW(static_cast<void>(ParseObservation("2 u code=0")), std::invalid_argument);
}

}  // namespace
}  // namespace swarm
