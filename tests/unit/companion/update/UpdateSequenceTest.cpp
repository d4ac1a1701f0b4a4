#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "companion/update/UpdateSequence.h"
#include "tests/unit/companion/update/FakeWorld.h"

namespace companion::test {
namespace {

const Calls kBegin = {"find",
                      "check tarnwick",
                      "lock, update wend 1, wait 0",
                      "find",
                      "make work folder, image.bin of 1000"};
const Calls kMarked = {"mark 1, wend sum of the image\n"};
const Calls kWritten = {"tarnwick wend 1 image.bin"};
const Calls kRead = {"read 1000"};
const Calls kTaken = {"take into use"};
const Calls kUnmarked = {"unmark 1"};
const Calls kEnd = {"remove work folder"};

/// All calls of a run, in their order.
Calls Together(std::initializer_list<Calls> parts) {
  Calls all;
  for (const Calls& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

class UpdateSequenceTest : public testing::Test {
 protected:
  UpdateResult Update() {
    const ImageFile file = world_.AsImageFile();
    UpdateRequest request = {.target = target_, .slot = 1, .image = file};
    request.sha256 = sha256_;
    request.attempts = attempts_;
    request.restart = restart_;
    request.force = force_;
    request.waitSeconds = waitSeconds_;
    UpdateSequence sequence(
        std::move(request), world_.AsServices(), world_, [this] { return world_.transferLimit; });
    world_.signalled = [&] { sequence.Signalled(SIGTERM); };
    return sequence.Run();
  }

  /// The module holds the image already.
  void HoldImage() { std::copy(world_.image.begin(), world_.image.end(), world_.flash.begin()); }

  /// So many signals arrive while this call runs; the operation itself knows of them.
  void SignalIn(const std::string& call, int count) {
    world_.onCall = [this, call, count](const std::string& now) {
      for (int i = 0; now == call && i < count; ++i) {
        world_.signalled();
      }
    };
  }

  void Become(const std::string& target) {
    target_ = target;
    if (target == "dax" || target == "pyx1") {
      world_.image[4] = 'S';
      world_.flash[4] = 'S';
    }
    if (target != "wend" && target != "dax") {
      world_.endpoint = Endpoint::kEnabled;
    }
  }

  FakeWorld world_;
  std::string target_ = "wend";
  std::string sha256_;
  unsigned attempts_ = 3;
  bool restart_ = false;
  bool force_ = false;
  unsigned waitSeconds_ = 0;
};

// --- 1: preflight -------------------------------------------------------------------------------

TEST_F(UpdateSequenceTest, UnfitImageIsRefusedBeforeAnythingIsTouched) {
  world_.image.clear();
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the image is unfit for a wend: it is empty. See tarnwickctl image.");
  EXPECT_EQ(world_.calls, Calls{});
}

TEST_F(UpdateSequenceTest, ForceOverrulesTheFormatOfTheImage) {
  world_.image[4] = 'S';
  EXPECT_EQ(
      Update().verdict,
      "Refused: the image is unfit for a wend: it is of another format. See tarnwickctl image.");
  force_ = true;
  EXPECT_EQ(Update().exit, ExitCode::kDone);
}

TEST_F(UpdateSequenceTest, FileWithAnotherSumIsRefusedBeforeAnythingIsTouched) {
  sha256_ = std::string(63, 'a') + 'b';
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the SHA-256 of the file is " + std::string(64, 'a') +
                ", not that of --sha256. Get the file again.");
  EXPECT_EQ(world_.calls, Calls{});
}

TEST_F(UpdateSequenceTest, SumOfTheFileMayBeInCapitals) {
  sha256_ = std::string(64, 'A');
  EXPECT_EQ(Update().exit, ExitCode::kDone);
}

TEST_F(UpdateSequenceTest, TransferLimitThatDoesNotSuitIsRefusedBeforeAnythingIsTouched) {
  world_.transferLimit = "bufsiz is 260";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict, "Refused: bufsiz is 260.");
  EXPECT_EQ(world_.calls, Calls{});
}

TEST_F(UpdateSequenceTest, SlotThatIsNotInTheInventoryIsRefused) {
  world_.names.populated = false;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: slot 1 is not in the inventory. Check MODULE, and that it is switched on.");
  EXPECT_EQ(world_.calls, Calls{"find"});
}

TEST_F(UpdateSequenceTest, BusThatDoesNotAnswerMakesTheModuleUnreachable) {
  world_.findProblem = "no bus";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module cannot be found: no bus. The flash was not changed. Check the platform's "
            "services.");
}

TEST_F(UpdateSequenceTest, ModuleWithoutANameMakesItUnreachable) {
  world_.names.spiDev = "";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(
      result.verdict,
      "The module cannot be reached: the bus names no SPI device. The flash was not changed.");
}

TEST_F(UpdateSequenceTest, HostileNameFromTheBusIsRefused) {
  world_.names.i2cBus = "../i2c-1";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the name of the I2C bus that the bus gives is not used: it contains '/'.");
}

TEST_F(UpdateSequenceTest, ProgramThatIsNotTarnwickIsRefusedBeforeTheLock) {
  world_.programCheck = "/bin/true is not tarnwick";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict, "Refused: /bin/true is not tarnwick. Name tarnwick with --program.");
  EXPECT_EQ(world_.calls, (Calls{"find", "check tarnwick"}));
}

// --- 2 and 3: alone, in a fresh folder ----------------------------------------------------------

TEST_F(UpdateSequenceTest, HolderOfTheLockIsNamed) {
  world_.locked = true;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kLocked);
  EXPECT_EQ(result.verdict,
            "Locked by process 7 (update dax 2). Try again later, or wait with --wait.");
}

TEST_F(UpdateSequenceTest, NamesThatTheBusGivesOnceTheLockIsHeldAreUsed) {
  world_.onCall = [this](const std::string& call) {
    if (call.starts_with("lock")) {
      world_.names.spiDev = "spidev2.0";
    }
  };
  EXPECT_EQ(Update().names.spiDev, "spidev2.0");
}

TEST_F(UpdateSequenceTest, ModuleThatIsGoneOnceTheLockIsHeldIsRefused) {
  world_.onCall = [this](const std::string& call) {
    if (call.starts_with("lock")) {
      world_.names.populated = false;
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(world_.calls, (Calls{"find", "check tarnwick", "lock, update wend 1, wait 0", "find"}));
}

TEST_F(UpdateSequenceTest, StateFolderThatCannotBeUsedIsRefused) {
  world_.stateProblem = "/state: Read-only file system";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: /state: Read-only file system. Choose another folder with --state.");
}

TEST_F(UpdateSequenceTest, WorkFolderThatCannotBeMadeIsRefusedAndRemoved) {
  world_.folderProblem = "image.bin: No space left on device";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: image.bin: No space left on device. Make room there, or choose --state.");
  EXPECT_EQ(world_.calls, Together({kBegin, kEnd}));
}

TEST_F(UpdateSequenceTest, WorkFolderThatIsLeftDoesNotChangeTheVerdict) {
  world_.removeProblem = "work: Input/output error";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.said, Calls{"the work folder is left: work: Input/output error"});
}

// --- 4: read ------------------------------------------------------------------------------------

TEST_F(UpdateSequenceTest, ImageInUseIsFoundSoAndNothingMoreIsTouched) {
  HoldImage();
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict, "The flash holds the image, and it is in use. Nothing was written.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
  EXPECT_FALSE(result.written);
  EXPECT_EQ(result.inUse, InUse::kFoundSo);
  EXPECT_EQ(result.holds, FlashHolds::kImage);
  EXPECT_EQ(result.provenSha256, "sum of the image");
  EXPECT_EQ(world_.said, Calls{});
}

TEST_F(UpdateSequenceTest, ImageInUseOfAPyxIsFoundSo) {
  Become("pyx2");
  HoldImage();
  EXPECT_EQ(Update().inUse, InUse::kFoundSo);
}

/// What keeps a flash that holds the image from being left alone.
struct Doubt {
  const char* name;
  void (*raise)(FakeWorld& world, bool& restart);
};

class DoubtTest : public UpdateSequenceTest, public testing::WithParamInterface<Doubt> {};

TEST_P(DoubtTest, TakesTheImageIntoUseWithoutWriting) {
  Become("pyx2");
  HoldImage();
  GetParam().raise(world_, restart_);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict,
            "The flash holds the image, and it was taken into use. It was not written.");
  EXPECT_EQ(result.inUse, InUse::kTaken);
  EXPECT_FALSE(result.written);
  EXPECT_TRUE(result.runs.empty());
  EXPECT_EQ(result.intoUse.size(), 1U);
  EXPECT_FALSE(world_.marked);
}

INSTANTIATE_TEST_SUITE_P(
    UpdateSequenceTest,
    DoubtTest,
    testing::Values(Doubt{"Mark", [](FakeWorld& world, bool&) { world.marked = true; }},
                    Doubt{"Restart", [](FakeWorld&, bool& restart) { restart = true; }},
                    Doubt{"DoneLow", [](FakeWorld& world, bool&) { world.done = DoneLine::kLow; }},
                    Doubt{"DoneUnknown",
                          [](FakeWorld& world, bool&) { world.done = DoneLine::kUnknown; }},
                    Doubt{"DoneLowAfterTheReading",
                          [](FakeWorld& world, bool&) {
                            world.onRead = [](int, ModuleReading& reading) {
                              reading.doneAfter = DoneLine::kLow;
                            };
                          }},
                    Doubt{"EndpointAbsent",
                          [](FakeWorld& world, bool&) { world.endpoint = Endpoint::kAbsent; }},
                    Doubt{"EndpointDisabled",
                          [](FakeWorld& world, bool&) { world.endpoint = Endpoint::kDisabled; }},
                    Doubt{"EndpointNotListed",
                          [](FakeWorld& world, bool&) {
                            world.onRead = [](int, ModuleReading& reading) {
                              reading.endpoint = Endpoint::kNotListed;
                            };
                          }},
                    Doubt{"EndpointUnknown",
                          [](FakeWorld& world, bool&) {
                            world.onRead = [](int, ModuleReading& reading) {
                              reading.endpoint = Endpoint::kUnknown;
                            };
                          }}),
    [](const auto& row) { return row.param.name; });

TEST_F(UpdateSequenceTest, MarkIsSetBeforeAResetOfAFlashThatHoldsTheImage) {
  HoldImage();
  restart_ = true;
  Update();
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kMarked, kTaken, kUnmarked, kEnd}));
}

TEST_F(UpdateSequenceTest, DaxThatHoldsTheImageNeedsNothingElse) {
  Become("dax");
  HoldImage();
  world_.done = DoneLine::kLow;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict,
            "The flash holds the image. It was not written. The module uses it from its next "
            "power-on.");
  EXPECT_EQ(result.inUse, InUse::kAtPowerOn);
  EXPECT_TRUE(result.intoUse.empty());
}

TEST_F(UpdateSequenceTest, ModuleThatCannotBeReadIsUnreachableAndNotWritten) {
  world_.onRead = [](int, ModuleReading& reading) { reading.problem.text = "no answer"; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module cannot be read for certain: no answer. The flash was not changed.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
  EXPECT_EQ(result.holds, FlashHolds::kNotRead);
}

TEST_F(UpdateSequenceTest, FlashThatReadsDifferentlyEachTimeIsUnreachableAndNotWritten) {
  world_.onRead = [](int, ModuleReading& reading) { reading.unsteadyAddress = 0x1000; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module cannot be read for certain: the flash reads differently each time at "
            "address 0x001000 (lower SPI_CLOCK_SPEED). The flash was not changed.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
}

TEST_F(UpdateSequenceTest, UnsteadyFlashThatAgreesWithTheImageIsNotProven) {
  HoldImage();
  world_.onRead = [](int, ModuleReading& reading) { reading.unsteadyAddress = 0; };
  EXPECT_EQ(Update().exit, ExitCode::kUnreachable);
}

TEST_F(UpdateSequenceTest, FlashWithAnImageOfAnotherFormatIsRefused) {
  world_.flash[4] = 'S';
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the flash now holds a bitstream, and a wend takes a boot image. Check TARGET "
            "and MODULE; --force overrules this.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
}

TEST_F(UpdateSequenceTest, FormatInTheFlashIsSeenUnderAnImageThatIsShorterThanItsHeader) {
  Become("pyx1");
  world_.image = Contents("new1S", 8, 0x22);
  world_.flash[4] = 'B';
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: the flash now holds a boot image, and a pyx1 takes a bitstream. Check TARGET "
            "and MODULE; --force overrules this.");
  EXPECT_EQ(world_.calls[5], "read 8");
  EXPECT_EQ(world_.calls[6], "read 512");
  EXPECT_EQ(world_.calls[7], "remove work folder");
}

TEST_F(UpdateSequenceTest, ForceOverrulesTheFormatInTheFlash) {
  world_.flash[4] = 'S';
  force_ = true;
  EXPECT_EQ(Update().exit, ExitCode::kDone);
}

TEST_F(UpdateSequenceTest, MarkDoesNotOverruleTheFormatInTheFlash) {
  world_.flash[4] = 'S';
  world_.marked = true;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
}

TEST_F(UpdateSequenceTest, UnfinishedUpdateIsFinished) {
  world_.flash[4] = 0xFF;
  world_.marked = true;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_TRUE(result.unfinished);
}

// --- 5: mark, and a head that differs -----------------------------------------------------------

TEST_F(UpdateSequenceTest, MarkIsSetBeforeTheFirstChangeAndRemovedOnlyAfterSuccess) {
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls,
            Together({kBegin, kRead, kMarked, kWritten, kRead, kTaken, kUnmarked, kEnd}));
}

TEST_F(UpdateSequenceTest, MarkThatCannotBeWrittenIsRefusedAndNothingIsChanged) {
  world_.markProblem = "slot-1.unfinished: No space left on device";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: slot-1.unfinished: No space left on device. Nothing was changed. Make room "
            "there, or choose --state.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kMarked, kEnd}));
  EXPECT_FALSE(result.written);
}

TEST_F(UpdateSequenceTest, MarkThatCannotBeWrittenKeepsAFlashThatHoldsTheImageFromAReset) {
  HoldImage();
  restart_ = true;
  world_.markProblem = "slot-1.unfinished: No space left on device";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kMarked, kEnd}));
}

TEST_F(UpdateSequenceTest, MarkThatCannotBeRemovedDoesNotChangeTheVerdict) {
  world_.unmarkProblem = "slot-1.unfinished: Input/output error";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.said,
            Calls{"the mark of an unfinished update is left, so the next update resets the module: "
                  "slot-1.unfinished: Input/output error"});
}

TEST_F(UpdateSequenceTest, MarkStaysWhenTheFlashIsNotProven) {
  world_.programWrites = false;
  EXPECT_EQ(Update().exit, ExitCode::kNot);
  EXPECT_TRUE(world_.marked);
}

TEST_F(UpdateSequenceTest, MarkStaysWhenTheImageIsNotInUse) {
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.done = DoneLine::kLow; };
  EXPECT_EQ(Update().exit, ExitCode::kPowerCycle);
  EXPECT_TRUE(world_.marked);
}

TEST_F(UpdateSequenceTest, MarkOfADaxIsRemovedWhenItsFlashIsProven) {
  Become("dax");
  EXPECT_EQ(Update().exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls.back(), "remove work folder");
  EXPECT_EQ(*(world_.calls.end() - 2), "unmark 1");
}

TEST_F(UpdateSequenceTest, HeadThatTarnwickFindsUpToDateIsMadeToDifferAndDecidedAgain) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);  // same stamp, other contents
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls,
            Together({kBegin,
                      kRead,
                      kMarked,
                      {"write head", "read 512"},
                      kWritten,
                      kRead,
                      kTaken,
                      kUnmarked,
                      kEnd}));
  EXPECT_EQ(result.headWrites, 1U);
}

TEST_F(UpdateSequenceTest, TarnwickIsNotStartedOverAHeadThatStillDoesNotDiffer) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);
  world_.headProblem = "page 0 was not programmed";
  attempts_ = 1;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(world_.calls,
            Together({kBegin, kRead, kMarked, {"write head", "read 512"}, kRead, kEnd}));
  EXPECT_EQ(result.causes,
            (Calls{"attempt 1: the start of the flash could not be made to differ: page 0 was not "
                   "programmed",
                   "attempt 1: the flash differs from address 0x000005 on (0x11 instead of 0x22), "
                   "in 4 pages of 256 bytes"}));
}

TEST_F(UpdateSequenceTest, HeadOfAShortImageIsReadByItself) {
  world_.image = Contents("new1B", 300, 0x22);
  EXPECT_EQ(Update().exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls[5], "read 300");
  EXPECT_EQ(world_.calls[6], "read 512");
  EXPECT_EQ(world_.calls[7], "mark 1, wend sum of the image\n");
}

TEST_F(UpdateSequenceTest, HeadThatCannotBeReadBeforeAnythingIsWrittenIsUnreachable) {
  world_.image = Contents("new1B", 300, 0x22);
  world_.onRead = [](int n, ModuleReading& reading) {
    reading.problem.text = n % 2 == 1 ? "no answer" : "";
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The start of the flash cannot be read for certain. It was not changed.");
  EXPECT_FALSE(world_.marked);
  force_ = true;
  EXPECT_EQ(Update().exit, ExitCode::kUnreachable);
}

TEST_F(UpdateSequenceTest, UnsteadyHeadBeforeAnythingIsWrittenIsUnreachable) {
  world_.image = Contents("new1B", 300, 0x22);
  world_.onRead = [](int n, ModuleReading& reading) {
    if (n == 1) {
      reading.unsteadyAddress = 0;
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The start of the flash cannot be read for certain. It was not changed.");
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, HeadThatIsReadTooShortIsUnreachable) {
  world_.image = Contents("new1B", 300, 0x22);
  world_.onRead = [](int n, ModuleReading& reading) {
    if (n == 1) {
      reading.contents.resize(300);
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, HeadThatCannotBeReadAfterItWasMadeToDifferCostsAnAttempt) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);
  world_.onRead = [](int n, ModuleReading& reading) {
    reading.problem.text = n == 1 ? "no answer" : "";
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls,
            Together({kBegin,
                      kRead,
                      kMarked,
                      {"write head", "read 512"},
                      kRead,
                      kWritten,
                      kRead,
                      kTaken,
                      kUnmarked,
                      kEnd}));
  EXPECT_EQ(result.attempts, 2U);
  EXPECT_EQ(result.headWrites, 1U);
}

TEST_F(UpdateSequenceTest, HeadThatReadsAsNothingAfterItWasMadeToDifferCostsAnAttempt) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);
  world_.onRead = [](int n, ModuleReading& reading) {
    if (n == 1) {
      reading.contents.clear();
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.attempts, 2U);
  EXPECT_EQ(result.runs.size(), 1U);
}

TEST_F(UpdateSequenceTest, HeadThatCannotBeReadLaterCostsAnAttempt) {
  world_.image = Contents("new1B", 300, 0x22);
  world_.programWrites = false;
  world_.onRead = [](int n, ModuleReading& reading) {
    reading.problem.text = n == 3 ? "no answer" : "";
  };
  attempts_ = 2;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(result.attempts, 2U);
  EXPECT_EQ(result.runs.size(), 1U);
}

// --- 6: tarnwick writes -------------------------------------------------------------------------

class ProvenFlashTest : public UpdateSequenceTest, public testing::WithParamInterface<int> {};

TEST_P(ProvenFlashTest, EndsWellWhateverTarnwickEndedWith) {
  world_.onProgram = [](int, ProgramRun& run) { run.exitCode = GetParam(); };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict, "The flash holds the image, and it was taken into use.");
  EXPECT_EQ(result.runs.size(), 1U);
  EXPECT_EQ(result.runs[0].run.exitCode, GetParam());
}

INSTANTIATE_TEST_SUITE_P(UpdateSequenceTest, ProvenFlashTest, testing::Values(0, 6, 7, 10));

TEST_F(UpdateSequenceTest, FlashThatDoesNotHoldTheImageIsWrittenAgain) {
  world_.onProgram = [this](int n, ProgramRun& run) {
    run.exitCode = n == 0 ? 6 : 0;
    world_.programWrites = n > 0;
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.attempts, 2U);
  EXPECT_EQ(result.runs[1].attempt, 2U);
  EXPECT_EQ(world_.calls,
            Together({kBegin,
                      kRead,
                      kMarked,
                      kWritten,
                      {"give back"},
                      kRead,
                      kWritten,
                      kRead,
                      kTaken,
                      kUnmarked,
                      kEnd}));
}

TEST_F(UpdateSequenceTest, AttemptsEndWithTheCauseWhenTheSamePageFailsEachTime) {
  world_.onProgram = [this](int, ProgramRun&) { world_.programWrites = false; };
  world_.flash = Contents("old1B", world_.flash.size(), 0x22);
  world_.flash[700] = 0x33;
  world_.onRead = [](int, ModuleReading& reading) {
    reading.difference =
        Difference{.firstAddress = 700, .expected = 0x22, .found = 0x33, .pages = 1};
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(
      result.verdict,
      "Not proven after 3 attempts: the flash differs from address 0x0002bc on (0x33 instead of "
      "0x22), in 1 page of 256 bytes; the same page as after the attempt before. Update "
      "again.");
  EXPECT_EQ(result.causes.size(), 3U);
  EXPECT_EQ(result.causes[0],
            "attempt 1: the flash differs from address 0x0002bc on (0x33 instead of 0x22), in 1 "
            "page of 256 bytes");
  EXPECT_EQ(result.runs.size(), 3U);
  EXPECT_EQ(result.holds, FlashHolds::kNotTheImage);
}

TEST_F(UpdateSequenceTest, ProtectedChipThatIsNotLockableIsTheCause) {
  world_.chip.status = 0x04;
  world_.programWrites = false;
  attempts_ = 1;
  EXPECT_EQ(
      Update().causes,
      Calls{"attempt 1: the flash differs from address 0x000000 on (0x6f instead of 0x6e), in "
            "4 pages of 256 bytes; the chip is protected against writing"});
}

TEST_F(UpdateSequenceTest, LockableChipIsTheCauseOnlyWhenItCouldNotBeErased) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0x3C};
  world_.programWrites = false;
  attempts_ = 2;
  world_.onProgram = [](int n, ProgramRun& run) { run.exitCode = n == 0 ? 6 : 3; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.causes[0].find("protected"), std::string::npos);
  EXPECT_NE(result.causes[1].find("; the chip is protected against writing"), std::string::npos);
}

TEST_F(UpdateSequenceTest, UnsteadyFlashAfterAWriteIsTheCauseAndIsReadAgainFirst) {
  world_.onRead = [](int n, ModuleReading& reading) {
    if (n == 1) {
      reading.unsteadyAddress = 0x2000;
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.runs.size(), 1U);
  EXPECT_EQ(result.causes,
            Calls{"attempt 1: the flash reads differently each time at address 0x002000 (lower "
                  "SPI_CLOCK_SPEED)"});
}

TEST_F(UpdateSequenceTest, FlashThatCannotBeReadAfterAWriteIsNotProven) {
  world_.onRead = [](int n, ModuleReading& reading) {
    reading.problem.text = n > 0 ? "no answer" : "";
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(result.runs.size(), 1U);
  EXPECT_EQ(result.holds, FlashHolds::kNotKnown);
  EXPECT_EQ(result.verdict, "Not proven after 3 attempts: no answer. Update again.");
}

TEST_F(UpdateSequenceTest, ModuleIsGivenBackAfterAKilledTarnwick) {
  world_.onProgram = [this](int n, ProgramRun& run) {
    if (n == 0) {
      run = {.signal = 9};
    }
    world_.programWrites = n > 0;
  };
  EXPECT_EQ(Update().exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls[8], "give back");
  EXPECT_EQ(world_.said[0], "tarnwick was ended by signal 9");
}

TEST_F(UpdateSequenceTest, TarnwickThatUsedUpItsTimeIsNamed) {
  world_.onProgram = [](int n, ProgramRun& run) {
    if (n == 0) {
      run = {.signal = 14, .timedOut = true};
    }
  };
  EXPECT_EQ(Update().exit, ExitCode::kDone);
  EXPECT_EQ(world_.said[0],
            "tarnwick was ended: it had used up its time (give it more with --timeout)");
}

TEST_F(UpdateSequenceTest, EndOfTarnwickIsInTheVerdictWhereTheFlashDoesNotHoldTheImage) {
  world_.programWrites = false;
  attempts_ = 1;
  const std::string differs =
      "the flash differs from address 0x000000 on (0x6f instead of 0x6e), in 4 pages of 256 bytes";
  world_.onProgram = [](int, ProgramRun& run) { run = {.signal = 14, .timedOut = true}; };
  EXPECT_EQ(Update().verdict,
            "Not proven after 1 attempt: tarnwick was ended: it had used up its time (give it more "
            "with --timeout); " +
                differs + ". Update again.");
  world_.onProgram = [](int, ProgramRun& run) { run = {.exitCode = 4}; };
  EXPECT_EQ(Update().verdict,
            "Not proven after 1 attempt: tarnwick ended with 4; " + differs + ". Update again.");
  world_.onProgram = [](int, ProgramRun& run) { run = {.exitCode = 0}; };
  EXPECT_EQ(Update().verdict, "Not proven after 1 attempt: " + differs + ". Update again.");
}

TEST_F(UpdateSequenceTest, TarnwickThatEndsHalfWayAndCannotBeGivenBackAfterIsNamed) {
  world_.programWrites = false;
  world_.giveBackProblem = "no answer";
  world_.onProgram = [](int, ProgramRun& run) { run = {.signal = 9}; };
  attempts_ = 1;
  EXPECT_EQ(Update().exit, ExitCode::kNot);
  EXPECT_EQ(world_.said[0], "tarnwick was ended by signal 9");
  EXPECT_EQ(world_.said[1], "not given back: no answer");
}

/// `tarnwick` passed the check before, and cannot be started any more.
class NotStartedTest : public UpdateSequenceTest {
 protected:
  NotStartedTest() {
    world_.programWrites = false;
    world_.onProgram = [](int, ProgramRun& run) {
      run = {.problem = "cannot start 'tarnwick': No such file or directory"};
    };
  }
};

TEST_F(NotStartedTest, NothingIsWrittenAndNoMarkIsLeft) {
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "Refused: tarnwick could not be started: cannot start 'tarnwick': No such file or "
            "directory. The flash was not changed. Name tarnwick with --program.");
  EXPECT_FALSE(result.written);
  EXPECT_EQ(result.holds, FlashHolds::kOther);
  EXPECT_EQ(result.runs.size(), 1U);
  EXPECT_FALSE(world_.marked);
}

TEST_F(NotStartedTest, MarkOfAnEarlierUpdateStays) {
  world_.marked = true;
  EXPECT_EQ(Update().exit, ExitCode::kRefused);
  EXPECT_TRUE(world_.marked);
}

TEST_F(NotStartedTest, SignalMeanwhileEndsIn5AndNothingIsChanged) {
  SignalIn(kWritten[0], 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash was not changed; it does not hold the image.");
}

TEST_F(NotStartedTest, HeadThatWasMadeToDifferIsAChange) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);  // the image's stamp
  attempts_ = 1;
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_TRUE(result.written);
  EXPECT_TRUE(world_.marked);
}

// --- 7: into use --------------------------------------------------------------------------------

TEST_F(UpdateSequenceTest, DoneThatNeverRisesEndsIn3AndTheFlashIsWrittenAtMostOnce) {
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.done = DoneLine::kLow; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kPowerCycle);
  EXPECT_EQ(
      result.verdict,
      "The flash holds the image, but it is not in use: DONE does not rise. Switch the module "
      "off and on.");
  EXPECT_EQ(result.runs.size(), 1U);
  EXPECT_EQ(result.intoUse.size(), 3U);
  EXPECT_EQ(result.inUse, InUse::kNo);
  world_.calls.clear();
  EXPECT_EQ(Update().exit, ExitCode::kPowerCycle);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kTaken, kTaken, kTaken, kEnd}));
}

/// What an attempt to take the image into use can come to, although the flash is proven.
struct NotInUse {
  const char* name;
  void (*fail)(IntoUse& inUse);
  const char* why;
};

class NotInUseTest : public UpdateSequenceTest, public testing::WithParamInterface<NotInUse> {};

TEST_P(NotInUseTest, EndsIn3WhenItLasts) {
  Become("pyx2");
  world_.giveBackProblem = "lines are driven";
  world_.onIntoUse = [](int, IntoUse& inUse) { GetParam().fail(inUse); };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kPowerCycle);
  EXPECT_EQ(result.verdict,
            "The flash holds the image, but it is not in use: " + std::string(GetParam().why) +
                ". Switch the module off and on.");
}

TEST_P(NotInUseTest, EndsWellWhenItDoesNotLast) {
  Become("pyx2");
  world_.onIntoUse = [](int n, IntoUse& inUse) {
    if (n == 0) {
      GetParam().fail(inUse);
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.runs.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    UpdateSequenceTest,
    NotInUseTest,
    testing::Values(NotInUse{"Problem",
                             [](IntoUse& inUse) { inUse.problem.text = "reset refused"; },
                             "reset refused"},
                    NotInUse{"DoneStuckHigh",
                             [](IntoUse& inUse) { inUse.seenLow = false; },
                             "DONE did not fall in reset"},
                    NotInUse{"DoneUnknown",
                             [](IntoUse& inUse) { inUse.done = DoneLine::kUnknown; },
                             "DONE does not rise"},
                    NotInUse{"EndpointAbsent",
                             [](IntoUse& inUse) { inUse.endpoint = Endpoint::kAbsent; },
                             "the PCIe endpoint is not enabled"},
                    NotInUse{"NotGivenBack",
                             [](IntoUse& inUse) { inUse.notGivenBack.text = "selector"; },
                             "the module could not be given back: lines are driven"}),
    [](const auto& row) { return row.param.name; });

TEST_F(UpdateSequenceTest, EndpointOfASlotThatIsNotListedIsJudgedByTheOperations) {
  Become("pyx2");
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.endpoint = Endpoint::kNotListed; };
  EXPECT_EQ(Update().exit, ExitCode::kDone);
}

TEST_F(UpdateSequenceTest, FlashOfZerosIsWritten) {
  world_.flash.assign(world_.flash.size(), 0);
  world_.onRead = [](int n, ModuleReading& reading) { reading.looksSilent = n == 0; };
  EXPECT_EQ(Update().exit, ExitCode::kDone);
  EXPECT_EQ(std::vector(world_.flash.begin(), world_.flash.begin() + FakeWorld::kImageBytes),
            world_.image);
}

TEST_F(UpdateSequenceTest, SilenceIsNoProof) {
  world_.onRead = [](int n, ModuleReading& reading) { reading.looksSilent = n > 0; };
  EXPECT_EQ(Update().exit, ExitCode::kNot);
}

TEST_F(UpdateSequenceTest, EndpointThatCannotBeReadIsNotInUse) {
  Become("pyx2");
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.endpoint = Endpoint::kUnknown; };
  EXPECT_EQ(Update().exit, ExitCode::kPowerCycle);
}

TEST_F(UpdateSequenceTest, DaxIsNotReset) {
  Become("dax");
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict,
            "The flash holds the image. The module uses it from its next power-on.");
  EXPECT_TRUE(result.intoUse.empty());
}

TEST_F(UpdateSequenceTest, DaxWhoseDoneWasHighAndIsLowEndsIn3) {
  Become("dax");
  world_.onProgram = [this](int, ProgramRun&) { world_.done = DoneLine::kLow; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kPowerCycle);
  EXPECT_EQ(result.verdict,
            "The flash holds the image, but it is not in use: DONE was high and is low. Switch the "
            "module off and on.");
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, DaxThatCannotBeGivenBackEndsIn3) {
  Become("dax");
  world_.onRead = [](int, ModuleReading& reading) {
    reading.notGivenBack.text = "lines are driven";
  };
  world_.giveBackProblem = "lines are still driven";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kPowerCycle);
  EXPECT_EQ(result.verdict,
            "The flash holds the image, but it is not in use: the module could not be given back: "
            "lines are still driven. Switch the module off and on.");
}

TEST_F(UpdateSequenceTest, ModuleThatIsGivenBackLaterEndsWell) {
  HoldImage();
  world_.onRead = [](int, ModuleReading& reading) {
    reading.notGivenBack.text = "lines are driven";
  };
  EXPECT_EQ(Update().inUse, InUse::kFoundSo);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, {"give back"}, kEnd}));
  EXPECT_EQ(world_.said, Calls{"not given back: lines are driven; it is tried again"});
}

TEST_F(UpdateSequenceTest, ModuleThatHoldsTheImageButCannotBeGivenBackIsTakenIntoUse) {
  HoldImage();
  world_.onRead = [](int, ModuleReading& reading) {
    reading.notGivenBack.text = "lines are driven";
  };
  world_.giveBackProblem = "lines are still driven";
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.inUse, InUse::kTaken);
  EXPECT_EQ(world_.calls,
            Together({kBegin, kRead, {"give back"}, kMarked, kTaken, kUnmarked, kEnd}));
}

// --- 8: protection ------------------------------------------------------------------------------

TEST_F(UpdateSequenceTest, LockableChipThatReadsUnlockedIsLockedAtTheEnd) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  HoldImage();
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, {"protect"}, kEnd}));
  EXPECT_EQ(result.lockedWhole, true);
}

TEST_F(UpdateSequenceTest, LockableChipOfAFlashThatIsRefusedIsLeftAlone) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  world_.flash[4] = 'S';
  EXPECT_EQ(Update().exit, ExitCode::kRefused);
  EXPECT_EQ(std::count(world_.calls.begin(), world_.calls.end(), "protect"), 0);
}

TEST_F(UpdateSequenceTest, LockableChipOfAFlashThatASignalHasSparedIsLeftAlone) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  SignalIn("read 1000", 1);
  EXPECT_EQ(Update().exit, ExitCode::kStopped);
  EXPECT_EQ(std::count(world_.calls.begin(), world_.calls.end(), "protect"), 0);
}

TEST_F(UpdateSequenceTest, LockableChipThatReadsLockedIsLeftAlone) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0x3C};
  HoldImage();
  const UpdateResult result = Update();
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
  EXPECT_EQ(result.lockedWhole, true);
}

TEST_F(UpdateSequenceTest, LockableChipIsLockedWhenTheFlashIsNotProvenToo) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  world_.programWrites = false;
  EXPECT_EQ(Update().exit, ExitCode::kNot);
  EXPECT_EQ(*(world_.calls.end() - 2), "protect");
}

TEST_F(UpdateSequenceTest, ChipThatCannotBeReadAfterAWriteIsLocked) {
  world_.onRead = [](int n, ModuleReading& reading) {
    reading.problem.text = n > 0 ? "no answer" : "";
  };
  Update();
  EXPECT_EQ(*(world_.calls.end() - 2), "protect");
}

TEST_F(UpdateSequenceTest, ChipThatCannotBeLockedIsSaid) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  world_.lockProblem = "status reads 0x00";
  HoldImage();
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.lockedWhole, false);
  EXPECT_EQ(world_.said, Calls{"the chip could not be protected: status reads 0x00"});
}

// --- 9: signals ---------------------------------------------------------------------------------

constexpr const char* kFirst =
    "SIGTERM asks to stop: what has begun is brought to its end; a second signal ends it early";
constexpr const char* kSecond =
    "stopped by SIGTERM: what runs is ended as soon as the module can be given back";

TEST_F(UpdateSequenceTest, FirstSignalInThePreflightStillHasTheFlashRead) {
  SignalIn("check tarnwick", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash was not changed; it does not hold the image.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
  EXPECT_EQ(world_.said, Calls{kFirst});
  HoldImage();
  EXPECT_EQ(Update().inUse, InUse::kFoundSo);
}

TEST_F(UpdateSequenceTest, LockIsNotWaitedForAfterASignal) {
  waitSeconds_ = 60;
  world_.locked = true;
  SignalIn("check tarnwick", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was neither read nor changed.");
  EXPECT_EQ(world_.calls.back(), "lock, update wend 1, wait 0");
}

TEST_F(UpdateSequenceTest, SecondSignalWhileTheBusIsAskedIsNoModuleThatCannotBeFound) {
  world_.findProblem = "stopped";
  SignalIn("find", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.calls, Calls{"find"});
  EXPECT_EQ(world_.stops, 1);
}

TEST_F(UpdateSequenceTest, SecondSignalWhileTarnwickIsCheckedIsNoWrongProgram) {
  world_.programCheck = "'tarnwick', started for its help, was ended by signal 9";
  SignalIn("check tarnwick", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.calls, (Calls{"find", "check tarnwick"}));
  EXPECT_EQ(world_.kills, 1);
}

TEST_F(UpdateSequenceTest, SecondSignalBeforeTheLockTouchesNoModule) {
  SignalIn("find", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.calls, Calls{"find"});
}

TEST_F(UpdateSequenceTest, SignalsThatHaveArrivedMeanwhileAreFetched) {
  world_.signalsWaiting = 1;
  EXPECT_EQ(Update().exit, ExitCode::kStopped);
}

TEST_F(UpdateSequenceTest, SignalWhileWaitingForTheLockEndsTheWaiting) {
  world_.locked = true;
  SignalIn("lock, update wend 1, wait 0", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was neither read nor changed.");
}

TEST_F(UpdateSequenceTest, FirstSignalInTheFirstReadingWritesNothing) {
  SignalIn("read 1000", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash was not changed; it does not hold the image.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, kEnd}));
  EXPECT_EQ(world_.stops, 0);
}

TEST_F(UpdateSequenceTest, FirstSignalInTheReadingOfTheHeadWritesNothing) {
  world_.image = Contents("new1B", 300, 0x22);
  force_ = true;  // the head is not needed for the format
  world_.onCall = [this](const std::string& call) {
    if (call.starts_with("read ") && call != "read 300") {
      world_.signalled();
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_FALSE(result.written);
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, SecondSignalInTheReadingOfTheHeadGivesBackAndEnds) {
  world_.image = Contents("new1B", 300, 0x22);
  force_ = true;  // the head is not needed for the format
  SignalIn("read 512", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash was not changed; it does not hold the image.");
  EXPECT_EQ(Calls(world_.calls.end() - 4, world_.calls.end()),
            Together({{"read 300", "read 512", "give back"}, kEnd}));
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, FirstSignalInTheReadingOfALaterHeadBringsTheAttemptToItsEnd) {
  world_.image = Contents("new1B", 300, 0x22);
  world_.onProgram = [this](int n, ProgramRun&) { world_.programWrites = n > 0; };
  int heads = 0;
  world_.onCall = [&](const std::string& call) {
    if (call == "read 512" && ++heads == 2) {
      world_.signalled();
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.attempts, 2U);
  EXPECT_EQ(result.signals, 1);
}

TEST_F(UpdateSequenceTest, FirstSignalInTheFirstReadingLeavesTheVerdictWhereItHoldsTheImage) {
  HoldImage();
  SignalIn("read 1000", 1);
  EXPECT_EQ(Update().inUse, InUse::kFoundSo);
  world_.marked = true;
  EXPECT_EQ(Update().inUse, InUse::kTaken);
}

TEST_F(UpdateSequenceTest, FirstSignalWhileTarnwickWritesBringsTheAttemptToItsEnd) {
  SignalIn("tarnwick wend 1 image.bin", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.signals, 1);
  EXPECT_EQ(world_.kills, 0);
  EXPECT_EQ(world_.said, Calls{kFirst});
}

TEST_F(UpdateSequenceTest, FirstSignalWhileTarnwickWritesAllowsNoFurtherAttempt) {
  world_.programWrites = false;
  SignalIn("tarnwick wend 1 image.bin", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kNot);
  EXPECT_EQ(result.attempts, 1U);
}

TEST_F(UpdateSequenceTest, FirstSignalInAResetAllowsNoFurtherReset) {
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.done = DoneLine::kLow; };
  SignalIn("take into use", 1);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kPowerCycle);
  EXPECT_EQ(result.intoUse.size(), 1U);
}

TEST_F(UpdateSequenceTest, SecondSignalInTheFirstReadingGivesBackAndEnds) {
  SignalIn("read 1000", 2);
  world_.onRead = [](int, ModuleReading& reading) { reading.problem.text = "stopped"; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, {"give back"}, kEnd}));
  EXPECT_EQ(world_.stops, 1);
  EXPECT_EQ(world_.kills, 1);
  EXPECT_EQ(world_.said, (Calls{kFirst, kSecond}));
}

TEST_F(UpdateSequenceTest, SecondSignalWhileTarnwickWritesKillsItAndGivesBack) {
  SignalIn("tarnwick wend 1 image.bin", 3);
  world_.programWrites = false;
  world_.onProgram = [](int, ProgramRun& run) { run = {.signal = 9, .killed = true}; };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash may have been changed; what it holds now is not known. "
            "Update "
            "again.");
  EXPECT_EQ(world_.kills, 1);
  EXPECT_TRUE(world_.marked);
  EXPECT_EQ(world_.calls,
            Together({kBegin, kRead, kMarked, kWritten, {"give back", "give back"}, kEnd}));
}

TEST_F(UpdateSequenceTest, LockableChipIsLockedAgainAfterASecondSignalWhileTarnwickWrites) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0x3C};
  world_.programWrites = false;
  SignalIn("tarnwick wend 1 image.bin", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.lockedWhole, true);
  EXPECT_EQ(world_.calls,
            Together({kBegin, kRead, kMarked, kWritten, {"give back", "protect"}, kEnd}));
}

TEST_F(UpdateSequenceTest, LockableChipThatCannotBeLockedAfterASecondSignalIsInTheVerdict) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0x3C};
  world_.programWrites = false;
  world_.lockProblem = "no answer";
  SignalIn("tarnwick wend 1 image.bin", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.lockedWhole, false);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash may have been changed; what it holds now is not known. "
            "Update "
            "again. The chip may be left without its protection.");
}

TEST_F(UpdateSequenceTest, LockableChipIsLeftAsItIsWhenASecondSignalComesBeforeAnyWrite) {
  world_.chip = {.id = {0xC2, 0x20, 0x18}, .status = 0};
  SignalIn("read 1000", 2);
  EXPECT_EQ(Update().lockedWhole, std::nullopt);
  EXPECT_EQ(world_.calls, Together({kBegin, kRead, {"give back"}, kEnd}));
}

TEST_F(UpdateSequenceTest, SecondSignalAfterAReadingThatDiffersSaysSo) {
  world_.programWrites = false;
  int readings = 0;
  world_.onCall = [&](const std::string& call) {
    readings += call == "read 1000" ? 1 : 0;
    if (readings == 2) {
      world_.signalled();
      world_.signalled();
      readings = 3;
    }
  };
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(
      result.verdict,
      "Stopped by a signal. The flash was changed; it holds part of the image at most. Update "
      "again.");
}

TEST_F(UpdateSequenceTest, SecondSignalInTheHeadEndsBeforeTarnwick) {
  world_.flash = Contents("new1B", world_.flash.size(), 0x11);
  SignalIn("write head", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_TRUE(result.runs.empty());
  EXPECT_TRUE(result.written);
}

TEST_F(UpdateSequenceTest, SecondSignalInAResetEndsItWithTheFlashProven) {
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.problem.text = "stopped"; };
  world_.giveBackProblem = "no answer";
  SignalIn("take into use", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict,
            "Stopped by a signal. The flash holds the image; whether it is in use is not known.");
  EXPECT_EQ(result.provenSha256, "sum of the image");
  EXPECT_EQ(world_.said.back(), "not given back: no answer");
}

TEST_F(UpdateSequenceTest, SecondSignalInAResetThatSucceedsLeavesTheVerdict) {
  SignalIn("take into use", 2);
  const UpdateResult result = Update();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.inUse, InUse::kTaken);
  EXPECT_FALSE(world_.marked);
}

TEST_F(UpdateSequenceTest, SecondSignalInAResetOfAFlashThatHeldTheImageSaysSo) {
  HoldImage();
  restart_ = true;
  world_.onIntoUse = [](int, IntoUse& inUse) { inUse.problem.text = "stopped"; };
  SignalIn("take into use", 2);
  EXPECT_EQ(Update().verdict,
            "Stopped by a signal. The flash holds the image; it was not changed.");
}

// --- The result ---------------------------------------------------------------------------------

TEST_F(UpdateSequenceTest, ResultNamesImageModuleStampsAndTimes) {
  const UpdateResult result = Update();
  EXPECT_EQ(result.target, "wend");
  EXPECT_EQ(result.slot, 1U);
  EXPECT_EQ(result.names.spiDev, "spidev1.0");
  EXPECT_EQ(result.image->path, "new.bin");
  EXPECT_EQ(result.image->stamp, "new1");
  EXPECT_EQ(result.stampBefore, "old1");
  EXPECT_EQ(result.readings.size(), 2U);
  EXPECT_EQ(result.readings[0].bytes, 1000U);
  EXPECT_EQ(result.readings[0].took.count(), 1);
  EXPECT_TRUE(result.readings[0].found.contents.empty());
  EXPECT_EQ(result.intoUse[0].took.count(), 1);
  EXPECT_GT(result.took.count(), 0);
}

TEST_F(UpdateSequenceTest, UnchangedModuleIsReadOnceAndAChangedOneTwice) {
  EXPECT_EQ(Update().readings.size(), 2U);
  EXPECT_EQ(Update().readings.size(), 1U);
}

}  // namespace
}  // namespace companion::test
