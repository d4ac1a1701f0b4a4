// Several updates at once, and updates whose companion was killed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>

#include "tests/e2e/companion/Bench.h"
#include "tests/e2e/companion/Gate.h"

namespace companion_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr Board kOtherPyx1 = {"pyx1", 6};  // shares its selector with every pyx outside slot 4

// --- tarnwick

constexpr std::size_t kMoreThanAPipeHolds = 100'000;

/// Starts `tarnwick` in the background with an image that comes through pipes. It has erased the
/// flash when the script goes on, and 8 KiB of the image are on their way to it.
/// @param name    a process as of InBackground(); the pipes are named so, too, and the image NAME.bin
/// @param descriptor  for RestOf()
std::string UpToThePages(const Bench& bench,
                         const std::string& name,
                         const std::string& descriptor) {
  const std::string pipe = name + ".pipe";
  const std::string open = "exec " + descriptor + ">" + pipe;
  const std::string close = "exec " + descriptor + ">&-";
  const std::string feed = "cat " + name + ".bin >&" + descriptor + " 2>/dev/null";
  return Script("mkfifo " + name + "1 " + name + "2 " + name + "3; ln " + name + "1 " + pipe,
                InBackground(name, bench.Tarnwick(pipe) + " 3>&-"),  // not the other's pipe
                // Looks for the stamp, and reads no further.
                open + "; ln -f " + name + "2 " + pipe + "; " + feed + "; " + close,
                // A dax opens the image before the erase without reading it. What does not fit into
                // a pipe has been read for the erase.
                open + "; " + feed + "; ln -f " + name + "3 " + pipe + "; " + close,
                open + "; head -c 8192 " + name + ".bin >&" + descriptor);
}

std::string RestOf(const std::string& name, const std::string& descriptor) {
  return Script("tail -c +8193 " + name + ".bin >&" + descriptor + "; exec " + descriptor + ">&-",
                ExitCodeOf(name));
}

TEST(TwoTarnwicksTest, InOneSlotBothSucceedOverASpoiltFlash) {
  Bench bench(kDax);
  const Bytes other = bench.Build(2025, kMoreThanAPipeHolds);
  bench.StoreImage(bench.Build(2024, kMoreThanAPipeHolds));
  bench.WriteFile("first.bin", bench.Image());
  bench.WriteFile("second.bin", other);
  const Ended ended = bench.Run(Script(UpToThePages(bench, "first", "3"),
                                       UpToThePages(bench, "second", "4"),
                                       RestOf("first", "3"),
                                       RestOf("second", "4")));
  EXPECT_EQ(ended.out, "0\n0\n");
  ExpectFlashIsNeither(ended, bench);
  EXPECT_FALSE(ended.flash == program_test::Flashed(other, bench.Old()));
}

TEST(TwoTarnwicksTest, OnTwoPyxThatShareASelectorBothSucceedOverASpoiltFlash) {
  Bench bench(kOtherPyx1);
  bench.StoreImage(bench.Build(2024, kMoreThanAPipeHolds));
  bench.WriteFile("first.bin", bench.Image());
  bench.PlugIn("pyx1@5");  // its blank flash has no stamp, so it is written
  const Ended ended =
      bench.Run(Script(UpToThePages(bench, "first", "3"),
                       Quoted(Bench::TarnwickPath()) + " pyx1 -sf 5 image.bin >second.out; echo $?",
                       RestOf("first", "3")));
  EXPECT_EQ(ended.out, "0\n0\n");
  ExpectFlashIsNeither(ended, bench);
}

// --- tarnwickctl

class ConcurrencyTest : public testing::Test {
 protected:
  ConcurrencyTest() { PutGate(bench_); }

  /// Image in flash and written once, nothing left.
  void ExpectWrittenOnce(const Ended& ended) {
    ExpectFlash(ended, bench_.New());
    EXPECT_EQ(CountStarts(ended.log, "spi /dev/spidev4.0 SE 0x000000"), 1);
    EXPECT_EQ(ended.state, bench_.InUse());
    EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "work"));
    EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "slot-4.unfinished"));
  }

  Bench bench_{kPyx1};
};

TEST_F(ConcurrencyTest, SecondUpdateIsToldWhoHoldsTheLock) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        bench_.Update(">second.out 2>second.err; echo $?"),
                                        OpenGate(),
                                        "echo $first >first.id",
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  std::string holder = bench_.ReadText("first.id");
  holder.pop_back();
  const std::string told = bench_.ReadText("second.out") + bench_.ReadText("second.err");
  EXPECT_THAT(told, HasSubstr("update pyx1 4"));
  EXPECT_THAT(told, HasSubstr(holder));
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, ReadAndVerifyTakeTheSameLock) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        bench_.Verify(">/dev/null 2>&1; echo $?"),
                                        bench_.Read(">/dev/null 2>&1; echo $?"),
                                        OpenGate(),
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n4\n0\n") << bench_.ReadText("first.err");
  EXPECT_FALSE(std::filesystem::exists(bench_.File("read.bin")));
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, SecondUpdateOfAnotherModuleIsLockedOut) {
  bench_.PlugIn("pyx1@5");
  const std::string other = Bench::Companion("update pyx1 5 image.bin --state ") +
                            Quoted(bench_.StateFolder()) + " --program " +
                            Quoted(Bench::TarnwickPath());
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        other + " >/dev/null 2>&1; echo $?",
                                        OpenGate(),
                                        ExitCodeOf("first"),
                                        other + " >/dev/null 2>&1; echo $?"));
  EXPECT_EQ(ended.out, "4\n0\n0\n") << bench_.ReadText("first.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, SecondUpdateWaitsAndFindsTheWorkDone) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        InBackground("second", bench_.Update("--wait 60")),
                                        OpenGate(),
                                        ExitCodeOf("first"),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "0\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, TwoPyxThatShareASelectorAreUpdatedOneAfterTheOther) {
  bench_.PlugIn("pyx1@5");
  bench_.PlugIn("pyx1@6");
  const auto update = [&](const std::string& slot) {
    return Bench::Companion("update pyx1 ") + slot + " image.bin --wait 60 --state " +
           Quoted(bench_.StateFolder()) + " --program " + Quoted(Bench::TarnwickPath());
  };
  const Ended ended = bench_.Run(Script(InBackground("first", update("5")),
                                        InBackground("second", update("6")),
                                        ExitCodeOf("first"),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "0\n0\n") << bench_.ReadText("first.err") << bench_.ReadText("second.err");
  EXPECT_EQ(ended.states.at(1), "5 " + bench_.InUse());
  EXPECT_EQ(ended.states.at(2), "6 " + bench_.InUse());
}

TEST_F(ConcurrencyTest, OfTenUpdatesOneDoesTheWork) {
  std::string others;
  for (int i = 0; i < 9; ++i) {
    const std::string name = "other" + std::to_string(i);
    others += InBackground(name, bench_.Update()) + "\n";
  }
  for (int i = 0; i < 9; ++i) {
    others += ExitCodeOf("other" + std::to_string(i)) + "\n";
  }
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        others,
                                        OpenGate(),
                                        ExitCodeOf("first")));
  EXPECT_EQ(ended.out, "4\n4\n4\n4\n4\n4\n4\n4\n4\n0\n") << bench_.ReadText("first.err");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, OfTenUpdatesThatWaitAllSucceed) {
  std::string start;
  std::string end;
  for (int i = 0; i < 10; ++i) {
    const std::string name = "update" + std::to_string(i);
    start += InBackground(name, bench_.Update("--wait 120")) + "\n";
    end += ExitCodeOf(name) + "\n";
  }
  const Ended ended = bench_.Run(Script(MakeGate(), start, AwaitArrival(), OpenGate(), end));
  EXPECT_EQ(ended.out, "0\n0\n0\n0\n0\n0\n0\n0\n0\n0\n");
  ExpectWrittenOnce(ended);
}

TEST_F(ConcurrencyTest, KilledCompanionLeavesTheLockToItsTarnwickWhichStillWrites) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("first", bench_.Update()),
                                        AwaitArrival(),
                                        "kill -KILL $first",
                                        ExitCodeOf("first"),
                                        InBackground("second", bench_.Update("--wait 60")),
                                        bench_.Update(">third.out 2>third.err; echo $?"),
                                        OpenGate(),
                                        ExitCodeOf("second")));
  EXPECT_EQ(ended.out, "137\n4\n0\n") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);  // by the one whose companion was killed
}

TEST_F(ConcurrencyTest, OrphanThatHangsIsEndedByItsTimeLimit) {
  PutGate(bench_, WaitForEver());
  const Ended ended =
      bench_.Run(Script(MakeGate(),
                        InBackground("first", bench_.Update("--timeout 1")),
                        AwaitArrival(),
                        "kill -KILL $first",
                        ExitCodeOf("first"),
                        bench_.Update("--wait 60 >second.out 2>second.err; echo $?")));
  EXPECT_EQ(ended.out, "137\n0\n") << bench_.ReadText("second.err");
  ExpectWrittenOnce(ended);
}

// --- The companion is killed with its tarnwick

struct Kill {
  Board board;
  const char* rule;  ///< kills `tarnwick` between the last page and the reset
};

void PrintTo(const Kill& kill, std::ostream* out) { *out << kill.board.word; }

class KilledUpdateTest : public testing::TestWithParam<Kill> {};

INSTANTIATE_TEST_SUITE_P(Boards,
                         KilledUpdateTest,
                         testing::Values(Kill{kWend, "write:zynq_hw_reset_n#1:kill"},
                                         Kill{kPyx1, "i2c:w 02 20 3e#1:kill"},
                                         Kill{kPyx2, "i2c:w 02 e8 f5#1:kill"}),
                         [](const auto& row) { return std::string(row.param.board.word); });

TEST_P(KilledUpdateTest, BeforeTheResetIsBroughtIntoUseByTheNextWithoutAWrite) {
  const Kill& kill = GetParam();
  Bench bench(kill.board);
  bench.BeforeTarnwick("\"$tarnwick\" \"$@\"; kill -KILL $PPID; exit 1");
  bench.Fault(kill.rule);
  const Ended ended = bench.Run(Script(bench.Update(">first.out 2>first.err; echo $?"),
                                       bench.Update(">second.out 2>second.err; echo $?")));
  EXPECT_EQ(ended.out, "137\n0\n") << bench.ReadText("second.err");
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(CountStarts(ended.log,
                        "spi /dev/spidev" + std::to_string(kill.board.slot) + ".0 SE 0x000000"),
            1);
  EXPECT_EQ(ended.state, bench.InUse());
  EXPECT_THAT(Bench::NamesIn(bench.StateFolder()), ElementsAre("lock"));
}

}  // namespace
}  // namespace companion_test
