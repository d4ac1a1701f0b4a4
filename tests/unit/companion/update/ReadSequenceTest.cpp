#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "companion/update/ReadSequence.h"
#include "tests/unit/companion/update/FakeWorld.h"

namespace companion::test {
namespace {

class ReadSequenceTest : public testing::Test {
 protected:
  ReadResult Read() {
    ReadRequest request = {.target = "dax", .slot = 2, .file = "flash.bin", .length = 1000};
    ReadSequence sequence(request,
                          world_.AsServices(),
                          {.prepare = [this] { return prepareProblem_; },
                           .store =
                               [this](std::span<const std::uint8_t> contents) {
                                 stored_.assign(contents.begin(), contents.end());
                                 return storeProblem_;
                               }});
    world_.signalled = [&] { sequence.Signalled(SIGTERM); };
    return sequence.Run();
  }

  FakeWorld world_;
  std::string prepareProblem_;
  std::string storeProblem_;
  Bytes stored_;
};

TEST_F(ReadSequenceTest, ContentsAreStoredUnderTheLockOfUpdate) {
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kDone);
  EXPECT_EQ(result.verdict, "Read: 1000 bytes, SHA-256 sum of 1000.");
  EXPECT_EQ(stored_, Bytes(world_.flash.begin(), world_.flash.begin() + 1000));
  EXPECT_EQ(world_.calls, (Calls{"find", "lock, read dax 2, wait 0", "find", "read 1000"}));
  EXPECT_EQ(result.bytes, 1000U);
  EXPECT_EQ(result.sha256, "sum of 1000");
  EXPECT_EQ(result.file, "flash.bin");
  EXPECT_GT(result.took.count(), 0);
}

TEST_F(ReadSequenceTest, FileThatCannotBeWrittenIsRefusedBeforeAnythingIsTouched) {
  prepareProblem_ = "flash.bin: Permission denied";
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict, "Refused: flash.bin: Permission denied");
  EXPECT_EQ(world_.calls, Calls{});
}

TEST_F(ReadSequenceTest, ContentsThatCannotBeStoredEndIn2) {
  storeProblem_ = "flash.bin: No space left on device";
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kRefused);
  EXPECT_EQ(result.verdict,
            "The flash was read, but not stored: flash.bin: No space left on device");
}

TEST_F(ReadSequenceTest, UncertainContentsAreNotStored) {
  world_.onRead = [](int, ModuleReading& reading) { reading.unsteadyAddress = 0x3000; };
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module cannot be read for certain: the flash reads differently each time at "
            "address 0x003000 (lower SPI_CLOCK_SPEED). The flash was not changed.");
  EXPECT_EQ(stored_, Bytes{});
}

TEST_F(ReadSequenceTest, ModuleThatIsNotGivenBackEndsIn6) {
  world_.onRead = [](int, ModuleReading& reading) { reading.notGivenBack.text = "driven"; };
  world_.giveBackProblem = "still driven";
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kUnreachable);
  EXPECT_EQ(result.verdict,
            "The module was read, but could not be given back: still driven. The flash was not "
            "changed. Switch the module off and on.");
  EXPECT_EQ(result.notes,
            (Calls{"not given back: driven; it is tried again", "not given back: still driven"}));
}

TEST_F(ReadSequenceTest, HolderOfTheLockIsNamed) {
  world_.locked = true;
  EXPECT_EQ(Read().exit, ExitCode::kLocked);
  EXPECT_EQ(world_.calls.back(), "lock, read dax 2, wait 0");
}

TEST_F(ReadSequenceTest, SlotThatIsEmptyIsRefused) {
  world_.names.populated = false;
  EXPECT_EQ(Read().exit, ExitCode::kRefused);
}

TEST_F(ReadSequenceTest, UnfinishedUpdateIsReported) {
  world_.marked = true;
  EXPECT_TRUE(Read().unfinished);
}

TEST_F(ReadSequenceTest, SignalBeforeTheReadingTouchesNothing) {
  world_.signalsWaiting = 2;
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(world_.calls, Calls{"find"});
}

TEST_F(ReadSequenceTest, FirstSignalInTheReadingStopsIt) {
  world_.onCall = [this](const std::string& call) {
    if (call == "read 1000") {
      world_.signalled();
    }
  };
  world_.onRead = [](int, ModuleReading& reading) { reading.problem.text = "stopped"; };
  const ReadResult result = Read();
  EXPECT_EQ(result.exit, ExitCode::kStopped);
  EXPECT_EQ(result.verdict, "Stopped by a signal. The flash was not changed.");
  EXPECT_EQ(world_.stops, 1);
  EXPECT_EQ(world_.said, Calls{"stopped by SIGTERM: the module is given back"});
  EXPECT_EQ(stored_, Bytes{});
}

TEST_F(ReadSequenceTest, SignalAfterTheReadingLeavesTheVerdict) {
  world_.onCall = [this](const std::string& call) {
    if (call == "read 1000") {
      world_.signalled();
    }
  };
  EXPECT_EQ(Read().exit, ExitCode::kDone);
}

}  // namespace
}  // namespace companion::test
