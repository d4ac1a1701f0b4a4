// The files that orvane-sim reads and writes: flash files, --log and --state.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kUsageStatus = 125;
constexpr std::size_t kFlashBytes = 16U << 20;
constexpr const char* kTryHelp = "Try 'orvane-sim --help'.\n";

/// What a flash file that held this holds after a run that changes nothing.
std::string Padded(std::string contents) {
  contents.resize(kFlashBytes, '\xff');
  return contents;
}

/// Not the contents themselves: a message with 16 MiB helps nobody.
std::string Kind(const std::string& contents, const std::string& old) {
  if (contents == old) {
    return "old";
  }
  return contents == Padded(old) ? "new" : std::to_string(contents.size()) + " bytes";
}

/// A pipe that a running command prints to.
class Pipe {
 public:
  Pipe() : Pipe(Ends()) {}
  int Writer() const { return writer_.Get(); }
  std::string ReadLine() const {
    std::string line;
    char letter = '\0';
    while (::read(reader_.Get(), &letter, 1) == 1 && letter != '\n') {
      line += letter;
    }
    return line;
  }

 private:
  explicit Pipe(const std::array<int, 2>& ends) : reader_(ends[0]), writer_(ends[1]) {}
  static std::array<int, 2> Ends() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    return ends;
  }

  FileDescriptor reader_;
  FileDescriptor writer_;
};

// --- Saved whole or not at all ------------------------------------------------------------------

/// Runs a command on a flash file that holds "abc", and kills the instrument so long after the
/// command's last words.
/// @return what the file holds then
std::string KilledAfter(std::chrono::nanoseconds delay) {
  SimulatorRun run;
  run.WithoutLog();
  run.WriteFile("flash", "abc");
  run.Option("--module wend@1,flash=flash");
  const Pipe pipe;
  run.StartShell("echo done", pipe.Writer());
  EXPECT_EQ(pipe.ReadLine(), "done");
  const Clock::time_point until = Clock::now() + delay;
  while (Clock::now() < until) {
  }
  ::kill(run.Process(), SIGKILL);
  static_cast<void>(run.Wait());
  return Kind(run.ReadFile("flash"), "abc");
}

/// @return how long a run takes after its command's last words
std::chrono::nanoseconds TimeOfTheEnd() {
  SimulatorRun run;
  run.WithoutLog();
  run.WriteFile("flash", "abc");
  run.Option("--module wend@1,flash=flash");
  const Pipe pipe;
  run.StartShell("echo done", pipe.Writer());
  EXPECT_EQ(pipe.ReadLine(), "done");
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(run.Wait().status, 0);
  return Clock::now() - start;
}

TEST(FlashFileTest, KillAtAnyMomentLeavesOldOrNewContents) {
  constexpr int kKills = 40;
  constexpr unsigned kSeed = 10;
  const std::chrono::nanoseconds end = TimeOfTheEnd();
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<double> part(0, 1.1);
  int withOld = 0;
  for (int i = 0; i < kKills; ++i) {
    const auto delay = std::chrono::nanoseconds(
        static_cast<long>(static_cast<double>(end.count()) * part(random)));
    const std::string kind = KilledAfter(delay);
    EXPECT_THAT(kind, AnyOf("old", "new")) << "killed after " << delay.count() << " ns";
    withOld += kind == "old" ? 1 : 0;
  }
  RecordProperty("WithOldContents", withOld);
}

TEST(FlashFileTest, LinkAndModeAreKept) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  ASSERT_EQ(::chmod(run.File("flash").c_str(), 0640), 0);
  fs::create_symlink("flash", run.File("link"));
  EXPECT_EQ(run.Words("--module wend@1,flash=link -- true").status, 0);
  EXPECT_TRUE(fs::is_symlink(run.File("link")));
  EXPECT_EQ(Kind(run.ReadFile("flash"), "abc"), "new");
  EXPECT_EQ(fs::status(run.File("flash")).permissions(), fs::perms(0640));
}

TEST(FlashFileTest, NothingIsLeftBesideTheFlashFile) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  run.WriteFile(".flash.orvane-sim-2147483647", "of a run that was killed");
  EXPECT_EQ(run.Words("--module wend@1,flash=flash -- true").status, 0);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(run.File(""))) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, ElementsAre("flash"));
}

TEST(FlashFileTest, LimitOnTheSizeOfFilesKeepsTheOldContents) {
  SimulatorRun run;
  run.WithoutLog();
  run.WriteFile("flash", "abc");
  run.Option("--state state --module wend@1,flash=flash");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit{.rlim_cur = 1U << 20, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  run.StartShell("true");
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  const SimulatorOutcome outcome = run.Wait();
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err, "orvane-sim: cannot write flash file 'flash': File too large\n");
  EXPECT_EQ(Kind(run.ReadFile("flash"), "abc"), "old");
  EXPECT_EQ(run.ModuleStates(), "1 done=0 qspi_prg=0 loaded=none\n");
}

TEST(FlashFileTest, FlashThatCannotBeSavedKeepsNeitherOthersNorStateFromIt) {
  SimulatorRun run;
  run.WriteFile("first", "abc");
  run.WriteFile("second", "abc");
  run.WriteFile("third", "abc");
  run.WriteFile("other", "another's");
  run.Option("--state state --module wend@1,flash=first --module wend@2,flash=second");
  run.Option("--module wend@3,flash=third");
  const SimulatorOutcome outcome = run.Shell("mv other first; echo more >>third; exit 5");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: flash file 'first' was replaced or removed during the run; "
            "what the flash holds is not saved\n"
            "orvane-sim: flash file 'third' was changed by others during the run; "
            "what the flash holds is not saved\n");
  EXPECT_EQ(run.ReadFile("first"), "another's");
  EXPECT_EQ(Kind(run.ReadFile("second"), "abc"), "new");
  EXPECT_EQ(run.ReadFile("third"), "abcmore\n");
  EXPECT_EQ(run.ModuleStates(),
            "1 done=0 qspi_prg=0 loaded=none\n2 done=0 qspi_prg=0 loaded=none\n3 done=0 qspi_prg=0 "
            "loaded=none\n");
}

TEST(FlashFileTest, StateThatCannotBeWrittenKeepsNoFlashFromBeingSaved) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  run.Option("--state /dev/full --module wend@1,flash=flash");
  const SimulatorOutcome outcome = run.Shell("exit 5");
  EXPECT_EQ(outcome.status, 125);
  EXPECT_EQ(outcome.err,
            "orvane-sim: cannot write state file '/dev/full': No space left on device\n");
  EXPECT_EQ(Kind(run.ReadFile("flash"), "abc"), "new");
}

// --- One file twice -----------------------------------------------------------------------------

/// Two names of files, which are made first: "flash" and "log" hold a text, "none" is not there.
struct Shared {
  const char* name;
  const char* options;
  const char* why;
};

class SharedFileTest : public testing::TestWithParam<Shared> {};

TEST_P(SharedFileTest, IsRefusedAndTruncatesNothing) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  run.WriteFile("log", "old log\n");
  fs::create_symlink("flash", run.File("flash-link"));
  fs::create_hard_link(run.File("flash"), run.File("flash-hard"));
  fs::create_symlink("none", run.File("none-link"));
  const SimulatorOutcome outcome = run.Words(std::string(GetParam().options) + " -- true");
  EXPECT_EQ(outcome.status, kUsageStatus);
  EXPECT_EQ(outcome.err, std::string("orvane-sim: ") + GetParam().why + "\n" + kTryHelp);
  EXPECT_EQ(run.ReadFile("flash"), "abc");
  EXPECT_EQ(run.ReadFile("log"), "old log\n");
  EXPECT_FALSE(fs::exists(run.File("none")));
  EXPECT_THAT(outcome.leftovers, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Files,
    SharedFileTest,
    testing::Values(Shared{"TwoModulesByPath",
                           "--module wend@1,flash=flash --module wend@2,flash=./flash",
                           "flash file 'flash' and flash file './flash' are one file"},
                    Shared{"TwoModulesByLink",
                           "--module wend@1,flash=flash --module wend@2,flash=flash-link",
                           "flash file 'flash' and flash file 'flash-link' are one file"},
                    Shared{"TwoModulesByHardLink",
                           "--module wend@1,flash=flash --module wend@2,flash=flash-hard",
                           "flash file 'flash' and flash file 'flash-hard' are one file"},
                    Shared{"LogOnFlash",
                           "--log flash --module wend@1,flash=flash",
                           "flash file 'flash' and log file 'flash' are one file"},
                    Shared{"LogOnFlashByLink",
                           "--log flash-link --module wend@1,flash=flash",
                           "flash file 'flash' and log file 'flash-link' are one file"},
                    Shared{"StateOnFlashByHardLink",
                           "--state flash-hard --module wend@1,flash=flash",
                           "flash file 'flash' and state file 'flash-hard' are one file"},
                    Shared{"StateOnLog",
                           "--state ./log --log log",
                           "log file 'log' and state file './log' are one file"},
                    Shared{"StateOnLogThatDoNotExist",
                           "--state ./none --log none",
                           "log file 'none' and state file './none' are one file"},
                    Shared{"StateOnLogBehindALinkToNoFile",
                           "--state none-link --log none",
                           "log file 'none' and state file 'none-link' are one file"},
                    Shared{"TraceOnFlash",
                           "--timing typical --trace flash --module wend@1,flash=flash",
                           "flash file 'flash' and trace file 'flash' are one file"},
                    Shared{"TraceOnVcd",
                           "--timing typical --trace none --vcd ./none",
                           "trace file 'none' and VCD file './none' are one file"},
                    Shared{"VcdOnFlash",
                           "--timing typical --vcd flash --module wend@1,flash=flash",
                           "flash file 'flash' and VCD file 'flash' are one file"},
                    Shared{"VcdOnLogByLink",
                           "--timing typical --vcd none-link --log none",
                           "log file 'none' and VCD file 'none-link' are one file"},
                    Shared{"VcdOnState",
                           "--timing typical --vcd none --state ./none",
                           "VCD file 'none' and state file './none' are one file"},
                    Shared{"LoadedOnFlash",
                           "--module wend@1,flash=flash,loaded=flash-link",
                           "flash file 'flash' and loaded file 'flash-link' are one file"},
                    Shared{"LoadedOfTwoModules",
                           "--module wend@1,loaded=none --module wend@2,loaded=./none",
                           "loaded file 'none' and loaded file './none' are one file"}),
    [](const auto& row) { return row.param.name; });

TEST(FlashFileTest, OneFileInTwoInstrumentsAtOnceIsRefused) {
  SimulatorRun first;
  first.WithoutLog();
  first.WithoutFast();
  first.WriteFile("flash", "abc");
  first.Option("--module wend@1,flash=flash");
  const std::string path = first.File("flash").string();
  const Pipe pipe;
  first.StartShell("echo ready; exec sleep 1000", pipe.Writer());
  ASSERT_EQ(pipe.ReadLine(), "ready");

  SimulatorRun second;
  const SimulatorOutcome refused = second.Words("--module dax@2,flash=" + path + " -- true");
  EXPECT_EQ(refused.status, kUsageStatus);
  EXPECT_EQ(refused.err,
            "orvane-sim: flash file '" + path + "' is in use by another instrument\n" + kTryHelp);
  EXPECT_EQ(Kind(first.ReadFile("flash"), "abc"), "old");

  ::kill(first.Process(), SIGTERM);
  EXPECT_EQ(first.Wait().status, 128 + SIGTERM);
  EXPECT_EQ(Kind(first.ReadFile("flash"), "abc"), "new");
  EXPECT_EQ(second.Words("--module dax@2,flash=" + path + " -- true").status, 0);
}

TEST(FlashFileTest, OutputOnTheFlashFileOfAnotherInstrumentIsRefusedAndTruncatesNothing) {
  SimulatorRun first;
  first.WithoutLog();
  first.WriteFile("flash", "abc");
  first.Option("--module wend@1,flash=flash");
  ASSERT_EQ(::mkfifo(first.File("pipe").c_str(), 0600), 0);
  first.StartShell("echo ready >pipe; read line <pipe; exit 3");
  ASSERT_EQ(first.ReadFile("pipe"), "ready\n");
  const std::string flash = first.File("flash").string();
  const std::string rows[][2] = {{"log file", "--log " + flash},
                                 {"trace file", "--timing typical --trace " + flash},
                                 {"VCD file", "--timing typical --vcd " + flash},
                                 {"state file", "--state " + flash},
                                 {"loaded file", "--module wend@1,loaded=" + flash}};
  for (const auto& [name, options] : rows) {
    SimulatorRun second;
    const SimulatorOutcome outcome = second.Words(options + " -- true");
    EXPECT_EQ(outcome.status, kUsageStatus);
    EXPECT_EQ(outcome.err,
              "orvane-sim: " + name + " '" + flash + "' is a flash file of another instrument\n" +
                  kTryHelp);
    EXPECT_EQ(first.ReadFile("flash"), "abc");
  }
  first.WriteFile("pipe", "end\n");
  EXPECT_EQ(first.Wait().status, 3);
}

TEST(FlashFileTest, DevicesMayBeSharedByLogAndState) {
  SimulatorRun run;
  EXPECT_EQ(run.Words("--log /dev/null --state /dev/null -- true").status, 0);
}

// --- Checked at the start -----------------------------------------------------------------------

/// A command line that is refused because of a file.
class UnusableFileTest : public testing::TestWithParam<Shared> {};

TEST_P(UnusableFileTest, IsRefusedAndTheLogIsLeftAsItIs) {
  SimulatorRun run;
  run.WriteFile("flash", "abc");
  run.WriteFile("large", std::string(kFlashBytes + 1, 'x'));
  run.WriteFile("log", "old log\n");
  fs::create_symlink("loop", run.File("loop"));
  ASSERT_EQ(::mkfifo(run.File("pipe").c_str(), 0600), 0);
  const std::string options = GetParam().options;
  const std::string log = options.find("--log") == std::string::npos ? "--log log " : "";
  const SimulatorOutcome outcome =
      run.Words(log + "--module wend@1,flash=flash " + options + " -- touch ran");
  EXPECT_EQ(outcome.status, kUsageStatus);
  EXPECT_EQ(outcome.err, std::string("orvane-sim: ") + GetParam().why + "\n" + kTryHelp);
  EXPECT_EQ(run.ReadFile("flash"), "abc");
  EXPECT_EQ(run.ReadFile("log"), "old log\n");
  EXPECT_FALSE(fs::exists(run.File("ran")));
}

INSTANTIATE_TEST_SUITE_P(
    Files,
    UnusableFileTest,
    testing::Values(
        Shared{"FlashIsMissing",
               "--module wend@2,flash=none",
               "cannot open flash file 'none': No such file or directory"},
        Shared{"FlashIsAPipe",
               "--module wend@2,flash=pipe",
               "flash file 'pipe' is not a regular file"},
        Shared{"FlashIsADevice",
               "--module wend@2,flash=/dev/null",
               "flash file '/dev/null' is not a regular file"},
        Shared{"FlashIsTooLarge",
               "--module wend@2,flash=large",
               "flash file 'large' is larger than 16 MiB"},
        Shared{"FlashIsALoopOfLinks",
               "--module wend@2,flash=loop",
               "cannot open flash file 'loop': Too many levels of symbolic links"},
        Shared{"StateHasNoFolder",
               "--state no/such/state",
               "cannot write state file 'no/such/state': No such file or directory"},
        Shared{"StateIsADirectory", "--state .", "cannot write state file '.': Is a directory"},
        Shared{"StateIsAPipeThatNobodyReads",
               "--state pipe",
               "cannot write state file 'pipe': No such device or address"},
        Shared{"TraceHasNoFolder",
               "--timing typical --trace no/such/trace",
               "cannot write trace file 'no/such/trace': No such file or directory"},
        Shared{"VcdHasNoFolder",
               "--timing typical --vcd no/such/vcd",
               "cannot write VCD file 'no/such/vcd': No such file or directory"},
        Shared{"VcdIsAPipeThatNobodyReads",
               "--timing typical --vcd pipe",
               "cannot write VCD file 'pipe': No such device or address"},
        Shared{"LogIsAPipeThatNobodyReads",
               "--log pipe",
               "cannot write log file 'pipe': No such device or address"},
        Shared{"LogHasNoFolder",
               "--log no/such/log",
               "cannot write log file 'no/such/log': No such file or directory"}),
    [](const auto& row) { return row.param.name; });

TEST(FlashFileTest, LogIsNotCreatedWhenAnotherFileIsRefused) {
  SimulatorRun run;
  EXPECT_EQ(run.Words("--log log --module wend@1,flash=none -- true").status, kUsageStatus);
  EXPECT_EQ(run.Words("--log log --timing typical --vcd no/vcd -- true").status, kUsageStatus);
  EXPECT_FALSE(fs::exists(run.File("log")));
}

// --- Devices, pipes, descriptors ----------------------------------------------------------------

TEST(FlashFileTest, LogAndStateCanBePipes) {
  SimulatorRun run;
  run.WithoutLog();
  ASSERT_EQ(::mkfifo(run.File("log-pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(run.File("state-pipe").c_str(), 0600), 0);
  const FileDescriptor log(::open(run.File("log-pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  const FileDescriptor state(
      ::open(run.File("state-pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  run.Option("--log log-pipe --state state-pipe --module wend@1");
  EXPECT_EQ(run.Shell("exit 5").status, 5);
  std::array<char, 100> text{};
  EXPECT_EQ(std::string(text.data(),
                        static_cast<std::size_t>(::read(log.Get(), text.data(), text.size()))),
            "exit 5\n");
  EXPECT_EQ(std::string(text.data(),
                        static_cast<std::size_t>(::read(state.Get(), text.data(), text.size()))),
            "1 done=0 qspi_prg=0 loaded=none\ninstrument estimate=0.000000000\n");
}

TEST(FlashFileTest, LogAndStateOnStandardErrorKeepWhatWasPrinted) {
  for (const std::string option : {"--log", "--state"}) {
    SimulatorRun run;
    run.WithoutLog();
    run.Option(option + " /dev/stderr --module wend@1");
    const SimulatorOutcome outcome = run.Shell("echo first >&2");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err,
              option == "--log"
                  ? "first\nstderr \"first\\n\"\nexit 0\n"
                  : "first\n1 done=0 qspi_prg=0 loaded=none\ninstrument estimate=0.000000000\n");
  }
}

TEST(FlashFileTest, StateReplacesTheOldOneAtTheEnd) {
  SimulatorRun run;
  run.WriteFile("state", "old\n");
  run.Option("--state state --module wend@1");
  EXPECT_EQ(run.Shell("cat state").out, "old\n");
  EXPECT_EQ(run.ModuleStates(), "1 done=0 qspi_prg=0 loaded=none\n");
}

}  // namespace
}  // namespace orvane
