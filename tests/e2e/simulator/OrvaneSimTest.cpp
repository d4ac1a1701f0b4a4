// orvane-sim as a process: status, signals, files, and what is left after it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/simulator/Pipe.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::size_t kFlashBytes = 16U << 20;

TEST(OrvaneSimTest, StatusOfTheCommandIsItsOwn) {
  for (const int status : {0, 1, 11, 255}) {
    SimulatorRun run;
    const SimulatorOutcome outcome = run.Shell("exit " + std::to_string(status));
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.log, "exit " + std::to_string(status) + "\n");
    EXPECT_THAT(outcome.leftovers, IsEmpty());
  }
}

TEST(OrvaneSimTest, SignalOfTheCommandIsAddedTo128) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("kill -KILL $$");
  EXPECT_EQ(outcome.status, 137);
  EXPECT_EQ(outcome.log, "killed SIGKILL\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST(OrvaneSimTest, CommandIsSearchedInPath) {
  SimulatorRun run;
  EXPECT_EQ(run.Words("-- true").status, 0);
}

TEST(OrvaneSimTest, HelpGoesToStandardOutput) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--help");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, StartsWith("Usage: orvane-sim [OPTION]... -- COMMAND [ARG...]\n"));
  EXPECT_EQ(outcome.err, "");
}

TEST(OrvaneSimTest, VersionGoesToStandardOutput) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--version");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "orvane-sim " TARNWICK_VERSION "\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(OrvaneSimTest, UnknownOptionExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--x -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "orvane-sim: unknown option '--x'\nTry 'orvane-sim --help'.\n");
}

TEST(OrvaneSimTest, WrongCommandLineExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--module sprite@1 -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "orvane-sim: --module: 'sprite' is not a type of module (wend, dax, pyx1 or pyx2)\n"
            "Try 'orvane-sim --help'.\n");
}

TEST(OrvaneSimTest, MissingCommandExitsWith127) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("-- ./nothing");
  EXPECT_EQ(outcome.status, 127);
  EXPECT_EQ(outcome.err, "orvane-sim: ./nothing: No such file or directory\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST(OrvaneSimTest, CommandThatIsNoProgramExitsWith126) {
  SimulatorRun run;
  run.WriteFile("data", "");
  const SimulatorOutcome outcome = run.Words("-- ./data");
  EXPECT_EQ(outcome.status, 126);
  EXPECT_EQ(outcome.err, "orvane-sim: ./data: Permission denied\n");
}

TEST(OrvaneSimTest, LogThatCannotBeWrittenExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--log no/such/log -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot write log file 'no/such/log': No such file or directory\n"
            "Try 'orvane-sim --help'.\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST(OrvaneSimTest, FullLogExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--log /dev/full -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err, "orvane-sim: cannot write log file '/dev/full'\n");
}

TEST(OrvaneSimTest, FullTraceFileExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--timing typical --trace /dev/full -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err, "orvane-sim: cannot write trace file '/dev/full'\n");
}

TEST(OrvaneSimTest, FullVcdFileExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      run.Words("--log /dev/full --timing typical --vcd /dev/full -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot write log file '/dev/full'\n"
            "orvane-sim: cannot write VCD file '/dev/full'\n");
}

TEST(OrvaneSimTest, StandardStreamsAreTheCommandsWithoutALog) {
  SimulatorRun run;
  run.WithoutLog();
  const SimulatorOutcome outcome = run.Shell("cat; echo out; echo err >&2");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_EQ(outcome.log, "");
}

TEST(OrvaneSimTest, StandardStreamsAreHandedOnWithALog) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Shell("echo out; echo err >&2; echo more");
  EXPECT_EQ(outcome.out, "out\nmore\n");
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_EQ(outcome.log, "stdout \"out\\n\"\nstderr \"err\\n\"\nstdout \"more\\n\"\nexit 0\n");
}

TEST(OrvaneSimTest, OutputOfManyWritesKeepsItsOrder) {
  SimulatorRun run;
  const SimulatorOutcome outcome =
      run.Shell("i=0; while [ $i -lt 300 ]; do echo $i; echo e$i >&2; i=$((i + 1)); done");
  std::string log;
  for (int i = 0; i < 300; ++i) {
    log += "stdout \"" + std::to_string(i) + "\\n\"\nstderr \"e" + std::to_string(i) + "\\n\"\n";
  }
  EXPECT_EQ(outcome.log, log + "exit 0\n");
}

TEST(OrvaneSimTest, OutputThatNobodyReadsDoesNotStopTheRun) {
  SimulatorRun run;
  Pipe pipe;
  run.StartShell("echo a; echo b; exit 3", pipe.Writer());
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadLine(), "a");
  EXPECT_EQ(run.Wait().status, 3);
}

TEST(OrvaneSimTest, OutputThatDoesNotBlockIsComplete) {
  SimulatorRun run;
  Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.Writer(), F_SETFL, O_WRONLY | O_NONBLOCK), 0);
  run.StartShell("head -c 200000 /dev/zero", pipe.Writer());  // a pipe holds 65536 bytes
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadToTheEnd().size(), 200000U);
  EXPECT_EQ(run.Wait().status, 0);
}

// --- The flash file -----------------------------------------------------------------------------

TEST(OrvaneSimTest, ShortFlashFileIsPaddedAndSaved) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  run.Option("--module wend@1,flash=flash");
  EXPECT_EQ(run.Shell("exit 5").status, 5);
  const std::string saved = run.ReadFile("flash");
  ASSERT_EQ(saved.size(), kFlashBytes);
  EXPECT_EQ(saved.substr(0, 5), "abc\xff\xff");
  EXPECT_EQ(saved.find_first_not_of('\xff', 3), std::string::npos);
}

TEST(OrvaneSimTest, FlashIsSavedAfterACrash) {
  SimulatorRun run;
  run.WriteFile("flash", "");
  run.Option("--module wend@1,flash=flash");
  const SimulatorOutcome outcome = run.Probe({"open /dev/spidev1.0 +",
                                              "ofstream /sys/platform_m1/qspi_prg/value 1",
                                              "spi 0 06 0",
                                              "spi 0 02000010616263 0",
                                              "crash"});
  EXPECT_EQ(outcome.status, 139);
  EXPECT_THAT(outcome.log, HasSubstr("PP 0x000010 +3\nstdout \"7\\n\"\nkilled SIGSEGV\n"));
  EXPECT_EQ(run.ReadFile("flash").substr(0x0F, 5),
            "\xff"
            "abc\xff");
}

TEST(OrvaneSimTest, FlashFileIsLeftAloneWhenTheCommandIsNotFound) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  EXPECT_EQ(run.Words("--module wend@1,flash=flash -- ./nothing").status, 127);
  EXPECT_EQ(run.ReadFile("flash"), "abc");
}

TEST(OrvaneSimTest, MissingFlashFileExitsWith125) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--module wend@1,flash=none -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot open flash file 'none': No such file or directory\n"
            "Try 'orvane-sim --help'.\n");
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST(OrvaneSimTest, DirectoryIsNoFlashFile) {
  SimulatorRun run;
  const SimulatorOutcome outcome = run.Words("--module wend@1,flash=. -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot open flash file '.': Is a directory\n"
            "Try 'orvane-sim --help'.\n");
}

TEST(OrvaneSimTest, LargestFlashFileIsTaken) {
  SimulatorRun run;
  run.WriteFile("flash", std::string(kFlashBytes, 'x'));
  EXPECT_EQ(run.Words("--module wend@1,flash=flash -- true").status, 0);
  EXPECT_EQ(run.ReadFile("flash"), std::string(kFlashBytes, 'x'));
}

TEST(OrvaneSimTest, FlashFileBeyondTheFlashExitsWith125) {
  SimulatorRun run;
  run.WriteFile("flash", std::string(kFlashBytes + 1, 'x'));
  const SimulatorOutcome outcome = run.Words("--module wend@1,flash=flash -- true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: flash file 'flash' is larger than 16 MiB\n"
            "Try 'orvane-sim --help'.\n");
}

// --- Signals ------------------------------------------------------------------------------------

class OrvaneSimSignalTest : public testing::TestWithParam<int> {};

TEST_P(OrvaneSimSignalTest, IsHandedOnAndNothingIsLeft) {
  SimulatorRun run;
  run.WithoutLog();
  run.WithoutFast();
  Pipe pipe;
  run.StartShell("echo ready; exec sleep 1000", pipe.Writer());
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadLine(), "ready");
  ::kill(run.Process(), GetParam());
  const SimulatorOutcome outcome = run.Wait();
  EXPECT_EQ(outcome.status, 128 + GetParam());
  EXPECT_THAT(outcome.leftovers, IsEmpty());
  EXPECT_EQ(pipe.ReadToTheEnd(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals,
                         OrvaneSimSignalTest,
                         testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& row) { return std::string(::sigabbrev_np(row.param)); });

TEST(OrvaneSimTest, CommandMayHandleTheSignal) {
  SimulatorRun run;
  run.WithoutLog();
  run.WithoutFast();
  Pipe pipe;
  run.StartShell("trap 'echo bye; exit 9' TERM; echo ready; while :; do read x </dev/null; done",
                 pipe.Writer());
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadLine(), "ready");
  ::kill(run.Process(), SIGTERM);
  EXPECT_EQ(run.Wait().status, 9);
  EXPECT_EQ(pipe.ReadToTheEnd(), "bye\n");
}

TEST(OrvaneSimTest, SecondSignalEndsACommandThatIgnoresTheFirst) {
  SimulatorRun run;
  run.WithoutLog();
  run.WithoutFast();
  Pipe pipe;
  run.StartShell("trap 'echo no' TERM; echo ready; while :; do :; done", pipe.Writer());
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadLine(), "ready");
  ::kill(run.Process(), SIGTERM);
  EXPECT_EQ(pipe.ReadLine(), "no");
  ::kill(run.Process(), SIGTERM);
  const SimulatorOutcome outcome = run.Wait();
  EXPECT_EQ(outcome.status, 137);
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

TEST(OrvaneSimTest, ProcessesThatTheCommandLeavesAreWaitedFor) {
  SimulatorRun run;
  // The one that is left opens the pipe for writing, and so waits until this test reads from it.
  ASSERT_EQ(::mkfifo(run.File("pipe").c_str(), 0600), 0);
  run.StartShell("setsid sh -c 'echo late >pipe; echo end' & exit 3");
  EXPECT_EQ(run.ReadFile("pipe"), "late\n");
  const SimulatorOutcome outcome = run.Wait();
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.out, "end\n");
  EXPECT_THAT(outcome.log, EndsWith("stdout \"end\\n\"\nexit 3\n"));
}

TEST(OrvaneSimTest, CommandDoesNotOutliveTheInstrument) {
  SimulatorRun run;
  run.WithoutLog();
  run.WithoutFast();
  Pipe pipe;
  run.StartShell("echo ready; exec sleep 1000", pipe.Writer());
  pipe.CloseWriter();
  EXPECT_EQ(pipe.ReadLine(), "ready");
  ::kill(run.Process(), SIGKILL);
  EXPECT_EQ(run.Wait().status, 1000 + SIGKILL);
  EXPECT_EQ(pipe.ReadToTheEnd(), "");
}

// --- Surroundings -------------------------------------------------------------------------------

TEST(OrvaneSimTest, CommandHasItsEnvironment) {
  SimulatorRun run;
  run.Environment("SPI_CLOCK_SPEED", "25");
  const SimulatorOutcome outcome = run.Shell("echo $SPI_CLOCK_SPEED $TMPDIR");
  EXPECT_EQ(outcome.out, "25 " + run.File("../tmp").lexically_normal().string() + "\n");
}

TEST(OrvaneSimTest, CommandHasItsWorkingDirectory) {
  SimulatorRun run;
  EXPECT_EQ(run.Shell("pwd").out, run.File("").parent_path().string() + "\n");
}

TEST(OrvaneSimTest, DirectoryForTemporaryFilesMayBeAwkward) {
  for (const std::string& name : {std::string("a b:c"), std::string(200, 'x')}) {
    SimulatorRun run;
    std::filesystem::create_directory(run.File(name));
    run.Environment("TMPDIR", run.File(name).string());
    const SimulatorOutcome outcome =
        run.Probe({"i2cbus 1", "udev i2c", "open /dev/spidev1.0 +", "mode 0 0"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("name i2c-1\n/sys/devices/platform/soc/i2c-0 "));
    EXPECT_TRUE(std::filesystem::is_empty(run.File(name)));
  }
}

TEST(OrvaneSimTest, UnusableDirectoryForTemporaryFilesExitsWith125) {
  SimulatorRun run;
  run.Environment("TMPDIR", "/proc/nowhere");
  const SimulatorOutcome outcome = run.Shell("true");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot create a directory in /proc/nowhere: No such file or directory\n");
}

}  // namespace
}  // namespace orvane
