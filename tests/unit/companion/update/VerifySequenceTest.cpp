#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "companion/update/VerifySequence.h"
#include "tests/unit/companion/update/FakeWorld.h"

namespace companion::test {
namespace {

class VerifySequenceTest : public testing::Test {
 protected:
  VerifyResult Verify() {
    const ImageFile image = world_.AsImageFile();
    VerifySequence sequence({.target = "wend", .slot = 1, .image = image, .waitSeconds = 5},
                            world_.AsServices());
    world_.signalled = [&] { sequence.Signalled(SIGTERM); };
    return sequence.Run();
  }

  FakeWorld world_;
};

TEST_F(VerifySequenceTest, FlashThatHoldsTheImageIsEqual) {
  std::copy(world_.image.begin(), world_.image.end(), world_.flash.begin());
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict, "The flash holds the image.");
  EXPECT_EQ(result.equal, true);
  EXPECT_EQ(result.stampThere, "new1");
  EXPECT_EQ(world_.calls, (Calls{"find", "lock, verify wend 1, wait 5", "find", "read 1000"}));
}

TEST_F(VerifySequenceTest, FlashThatDiffersIsNamedByItsFirstAddress) {
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(result.verdict,
            "The flash differs from address 0x000000 on (0x6f instead of 0x6e), in 4 pages of 256 "
            "bytes.");
  EXPECT_EQ(result.equal, false);
  EXPECT_EQ(result.stampThere, "old1");
  EXPECT_EQ(result.image->stamp, "new1");
}

TEST_F(VerifySequenceTest, FlashThatCannotBeReadIsNeitherEqualNorDifferent) {
  world_.onRead = [](int, ModuleReading& reading) { reading.problem.text = "no answer"; };
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.equal, std::nullopt);
}

TEST_F(VerifySequenceTest, UnfitImageIsRefusedBeforeAnythingIsTouched) {
  world_.image.clear();
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the image is unfit for a wend: it is empty. See tarnwickctl image.");
  EXPECT_EQ(world_.calls, Calls{});
}

TEST_F(VerifySequenceTest, ImageOfAnotherFormatIsCompared) {
  world_.image[4] = 'S';
  EXPECT_EQ(Verify().exit, ExitCode::kNot);
}

TEST_F(VerifySequenceTest, FlashThatReadsAsZerosEverywhereIsNotCertain) {
  world_.flash.assign(world_.flash.size(), 0);
  world_.onRead = [](int, ModuleReading& reading) { reading.looksSilent = true; };
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module cannot be read for certain: the whole flash reads as zeros, as a line does "
            "that nobody drives. The flash was not changed.");
}

TEST_F(VerifySequenceTest, SlotThatIsEmptyIsRefused) {
  world_.names.populated = false;
  EXPECT_EQ(Verify().exit, ExitCode::kRefused);
}

TEST_F(VerifySequenceTest, HolderOfTheLockIsNamed) {
  world_.locked = true;
  EXPECT_EQ(Verify().exit, ExitCode::kLocked);
}

TEST_F(VerifySequenceTest, UnfinishedUpdateIsReported) {
  world_.marked = true;
  EXPECT_TRUE(Verify().unfinished);
}

TEST_F(VerifySequenceTest, SignalWhileTheBusIsAskedEndsItBeforeTheLock) {
  world_.signalsWaiting = 1;
  world_.findProblem = "stopped";
  const VerifyResult result = Verify();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.calls, Calls{"find"});
}

TEST_F(VerifySequenceTest, PsModeIsAnnouncedWhileTheModuleIsRead) {
  world_.onCall = [this](const std::string& call) {
    if (call == "read 1000") {
      world_.announcePsMode();
    }
  };
  const VerifyResult result = Verify();
  EXPECT_EQ(world_.said, Calls{"DONE has been low for 10 s: the FPGA goes through PS mode"});
  EXPECT_EQ(result.notes, world_.said);
}

TEST_F(VerifySequenceTest, SignalAfterTheLockTouchesNothing) {
  world_.onCall = [this](const std::string& call) {
    if (call.starts_with("lock")) {
      world_.signalled();
    }
  };
  EXPECT_EQ(Verify().exit, ExitCode::kStopped);
  EXPECT_EQ(world_.calls, (Calls{"find", "lock, verify wend 1, wait 5", "find"}));
}

}  // namespace
}  // namespace companion::test
