// Signals, closed consoles, and a `tarnwick` that is killed or hangs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/companion/Bench.h"
#include "tests/e2e/companion/Gate.h"

namespace companion_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/// What the first signal is answered with.
std::string AnswerTo(const std::string& signal) {
  return "tarnwickctl: SIG" + signal +
         " asks to stop: what has begun is brought to its end; a second signal ends it early\n";
}

constexpr const char* kAllSignals[] = {"INT", "TERM", "HUP", "PIPE"};

// --- tarnwick today

TEST(TarnwickSignalTest, InterruptInTheResetPulseLeavesTheFpgaInReset) {
  Bench bench(kWend);
  bench.WithoutFast();  // the pulse takes 5 s
  // A shell ignores the signal in what it starts in the background.
  const Ended ended =
      bench.Run(Script(InBackground("update", "env --default-signal=INT " + bench.Tarnwick()),
                       "while [ \"$(cat /sys/platform_m1/zynq_done/value)\" = 1 ]; do :; done",
                       "kill -INT $update",
                       ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "130\n");
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(ended.state, "done=0 qspi_prg=0 loaded=none");
}

/// `tarnwick` with an image that comes through a pipe. It waits for the image before it erases the
/// flash, until its console has been closed.
TEST(TarnwickSignalTest, ConsoleThatClosesKillsItAfterTheErase) {
  Bench bench(kPyx1);
  const Ended ended = bench.Run(
      "mkfifo pipe1 pipe2 closed; ln pipe1 piped.bin\n"
      "{ " +
      bench.Tarnwick("piped.bin") +
      "; echo $? >code; } |\n"
      "  { exec 3>piped.bin; ln -f pipe2 piped.bin; cat image.bin >&3 2>/dev/null; exec 3>&-\n"
      "    exec 3>piped.bin 0<&-; cat image.bin >&3; exec 3>&-; }");
  EXPECT_EQ(bench.ReadText("code"), "141\n");
  ExpectFlash(ended, program_test::Flashed({0xFF}, bench.Old()));
  EXPECT_THAT(ended.state, HasSubstr("selector=SPIFIFO"));
}

// --- tarnwickctl

class SignalsTest : public testing::Test {
 protected:
  SignalsTest() { PutGate(bench_); }

  std::string Send(const std::string& signal) const { return "kill -" + signal + " $update"; }

  Bench bench_{kPyx1};
};

class EachSignalTest : public SignalsTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Signals,
                         EachSignalTest,
                         testing::ValuesIn(kAllSignals),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(EachSignalTest, ReachesTarnwickAndIsIgnoredThere) {
  PutGate(bench_, std::string("kill -") + GetParam() + " $$");
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("update", bench_.Update()),
                                        AwaitArrival(),
                                        OpenGate(),
                                        ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "0\n") << bench_.ReadText("update.err");
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, bench_.InUse());
}

TEST_P(EachSignalTest, OnceInMidWriteTheUpdateIsBroughtToItsEnd) {
  const Ended ended = bench_.Run(Script(
      MakeGate(),
      InBackground("update",
                   std::string("env --default-signal=") + GetParam() + " " + bench_.Update()),
      AwaitArrival(),
      Send(GetParam()),
      OpenGate(),
      ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "0\n") << bench_.ReadText("update.err");
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_EQ(bench_.ReadText("update.err"),
            GetParam() == std::string("PIPE") ? "" : AnswerTo(GetParam()));
}

TEST_F(SignalsTest, SecondSignalEndsTarnwickAndTheModuleIsGivenBack) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("update", bench_.Update()),
                                        AwaitArrival(),
                                        Send("TERM"),
                                        Send("HUP"),
                                        ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "5\n") << bench_.ReadText("update.err");
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "work"));
  EXPECT_TRUE(std::filesystem::exists(bench_.StateFolder() / "slot-4.unfinished"));
}

TEST_F(SignalsTest, UpdateAfterTheSecondSignalIsFinishedByTheNext) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("update", bench_.Update()),
                                        AwaitArrival(),
                                        Send("TERM"),
                                        Send("HUP"),
                                        ExitCodeOf("update"),
                                        bench_.Update(">next.out 2>next.err; echo $?")));
  EXPECT_EQ(ended.out, "5\n0\n") << bench_.ReadText("next.err");
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "slot-4.unfinished"));
}

/// A command that starts with a signal that has been sent already.
std::string WithPending(const std::string& signal, const std::string& command) {
  return "env --default-signal=" + signal + " --block-signal=" + signal + " sh -c " +
         Quoted("kill -" + signal + " $$; exec " + command);
}

TEST_F(SignalsTest, SignalBeforeTheMarkStopsTheUpdateWithNothingWritten) {
  const Ended ended = bench_.Run(WithPending("TERM", bench_.Update()));
  EXPECT_EQ(ended.exitCode, 5) << ended.out << ended.err;
  ExpectFlash(ended, bench_.Old());
  EXPECT_THAT(FlashWrites(ended.log), IsEmpty());
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_FALSE(std::filesystem::exists(bench_.StateFolder() / "slot-4.unfinished"));
}

TEST_F(SignalsTest, SignalStopsVerify) {
  const Ended ended = bench_.Run(WithPending("INT", bench_.Verify()));
  EXPECT_EQ(ended.exitCode, 5) << ended.out << ended.err;
  EXPECT_EQ(ended.state, bench_.InUse());
}

TEST_F(SignalsTest, SignalStopsReadWithoutAFile) {
  const Ended ended = bench_.Run(WithPending("HUP", bench_.Read()));
  EXPECT_EQ(ended.exitCode, 5) << ended.out << ended.err;
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_THAT(Bench::NamesIn(bench_.File("")), testing::ElementsAre("image.bin"));
}

TEST_F(SignalsTest, SignalEndsTheWaitForTheLock) {
  const Ended ended = bench_.Run(Script(
      MakeGate(),
      InBackground("update", bench_.Update()),
      AwaitArrival(),
      InBackground("verify", bench_.Verify("--wait 600")),
      "while kill -0 $verify && ! ls -l /proc/$verify/fd 2>/dev/null | grep -q /lock; do :; done",
      "kill -TERM $verify",
      ExitCodeOf("verify"),
      OpenGate(),
      ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "5\n0\n") << bench_.ReadText("verify.err");
}

TEST(SlowSignalTest, InterruptInTheResetPulseIsBroughtToItsEnd) {
  Bench bench(kWend);
  bench.WithoutFast();  // the pulse takes 5 s
  bench.BeforeTarnwick(
      "{ while [ \"$(cat /sys/platform_m1/zynq_done/value)\" = 1 ]; do :; done\n"
      "  kill -INT $$ $PPID; } &");
  const Ended ended = bench.Run("env --default-signal=INT " + bench.Update());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  EXPECT_EQ(ended.err, AnswerTo("INT"));
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(ended.state, bench.InUse());
}

// --- The console is closed

TEST_F(SignalsTest, ConsoleThatIsClosedInMidWriteDoesNotStopTheUpdate) {
  const Ended ended = bench_.Run(
      Script(MakeGate(),
             "{ " + bench_.Update("2>&1") + "; echo $? >code; } |",
             "{ timeout 60 cat ../arrived >/dev/null; exec 0<&-; " + OpenGate() + "; }"));
  EXPECT_EQ(bench_.ReadText("code"), "0\n");
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, bench_.InUse());
}

TEST_F(SignalsTest, ConsoleThatIsClosedFromTheStartDoesNotStopTheUpdate) {
  const Ended ended = bench_.Run(Script(MakeGate(),
                                        InBackground("update", bench_.Update() + " 1>&- 2>&- <&-"),
                                        AwaitArrival(),
                                        OpenGate(),
                                        ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "0\n");
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, bench_.InUse());
}

// --- tarnwick

TEST(TarnwickEndTest, KilledFromOutsideItIsStartedAgain) {
  Bench bench(kPyx1);
  PutGate(bench, "kill -KILL $$");
  const Ended ended = bench.Run(Script(MakeGate(),
                                       InBackground("update", bench.Update()),
                                       AwaitArrival(),
                                       OpenGate(),
                                       ExitCodeOf("update")));
  EXPECT_EQ(ended.out, "0\n") << bench.ReadText("update.err");
  ExpectFlash(ended, bench.New());
  EXPECT_EQ(ended.state, bench.InUse());
}

class EachBoardTest : public testing::TestWithParam<Board> {
 protected:
  std::string InUse() const {
    return bench_.Resting(GetParam().word == std::string(kDax.word) ? "other" : "current");
  }
  Bench bench_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Boards,
                         EachBoardTest,
                         testing::Values(kWend, kDax, kPyx1, kPyx2),
                         program_test::WordOf);

TEST_P(EachBoardTest, TarnwickKilledInThePagesIsStartedAgain) {
  bench_.Fault("spi:PP#2:kill");
  const Ended ended = bench_.Run(bench_.Update());
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, InUse());
}

TEST_P(EachBoardTest, TarnwickThatHangsIsEndedByItsTimeLimit) {
  bench_.BeforeTarnwick("if mkdir \"$folder/passed\" 2>/dev/null; then " + WaitForEver() + "; fi");
  const Ended ended = bench_.Run(bench_.Update("--timeout 1"));
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  ExpectFlash(ended, bench_.New());
  EXPECT_EQ(ended.state, InUse());
}

TEST(TarnwickEndTest, OneThatAlwaysHangsIsNotProven) {
  Bench bench(kDax);
  bench.BeforeTarnwick(WaitForEver());
  const Ended ended = bench.Run(bench.Update("--timeout 1 --attempts 2"));
  EXPECT_EQ(ended.exitCode, 1) << ended.out << ended.err;
  ExpectFlash(ended, bench.Old());
  EXPECT_EQ(ended.state, bench.InUse());
}

}  // namespace
}  // namespace companion_test
