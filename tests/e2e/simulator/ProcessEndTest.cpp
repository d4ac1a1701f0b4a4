// How the processes of a run end: by signals at any moment, with their command, and all together.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tests/e2e/simulator/Pipe.h"
#include "tests/e2e/simulator/Processes.h"
#include "tests/e2e/simulator/SimulatorRun.h"

namespace orvane {
namespace {

using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr int kEndedBySignal = 1000;  // SimulatorOutcome::status
constexpr int kInstrumentFailed = 125;

class ProcessEndTest : public testing::Test {
 public:
  ProcessEndTest(const ProcessEndTest&) = delete;
  ProcessEndTest& operator=(const ProcessEndTest&) = delete;

 protected:
  ProcessEndTest() {
    EXPECT_EQ(::mkfifo(run_.File("fifo").c_str(), 0600), 0);
    fifo_.open(run_.File("fifo"));  // for reading too, so that no end waits for the other
    EXPECT_TRUE(fifo_.is_open());
  }

  ~ProcessEndTest() override { KillAll(); }  // what a failed test has left

  /// Starts a shell command whose output can be read. A "read line <fifo" in it waits for Feed().
  void Start(const std::string& command) {
    run_.StartShell(command, pipe_.Writer());
    pipe_.CloseWriter();
  }

  void Feed() { fifo_ << "on" << std::endl; }

  /// Every process of the run.
  std::vector<Process> Processes() const {
    return ProcessesWith("TMPDIR=" + run_.Temporary().string());
  }

  /// The two processes of orvane-sim: the one that was started, and the other.
  pid_t Upper() const { return run_.Process(); }
  pid_t Lower() const {
    for (const Process& process : Processes()) {
      if (process.name == "orvane-sim" && process.parent == Upper()) {
        return process.id;
      }
    }
    ADD_FAILURE() << "there is one process only: " << Describe(Processes());
    return Upper();
  }

  /// Waits for the end of orvane-sim; one that does not end fails the test and is killed.
  SimulatorOutcome End() {
    const bool ended = Eventually([&] { return StateOf(Upper()) == 'Z'; });
    if (!ended) {
      ADD_FAILURE() << "it does not end: " << Describe(Processes());
      KillAll();
    }
    return run_.Wait();
  }

  /// Everything has ended and no file is left.
  void ExpectNothingLeft() {
    const bool ended = Eventually([&] { return Processes().empty(); });
    EXPECT_TRUE(ended) << Describe(Processes());
    EXPECT_THAT(Folders(), IsEmpty());
    KillAll();
  }

  std::vector<std::string> Folders() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(run_.Temporary())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  void KillAll() const {
    for (const Process& process : Processes()) {
      ::kill(process.id, SIGKILL);
    }
  }

  /// A process number that the command prints.
  pid_t ReadProcess() const { return std::stoi(pipe_.ReadLine()); }

  SimulatorRun run_;
  Pipe pipe_;

 private:
  std::fstream fifo_;
};

// --- A signal ends it at any moment -------------------------------------------------------------

class ProcessEndSignalTest : public ProcessEndTest, public testing::WithParamInterface<int> {
 protected:
  void Send() const { ::kill(Upper(), GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Signals,
                         ProcessEndSignalTest,
                         testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& row) { return std::string(::sigabbrev_np(row.param)); });

/// As a shell shows it.
int ExitCode(const SimulatorOutcome& outcome) {
  return outcome.status >= kEndedBySignal ? 128 + outcome.status - kEndedBySignal : outcome.status;
}

/// How far a start has come.
using Moment = std::function<bool(const std::filesystem::path& folder)>;

bool Holds(const std::filesystem::path& temporary, const Moment& moment) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(temporary, error)) {
    if (moment(entry.path())) {
      return true;
    }
  }
  return false;
}

TEST_P(ProcessEndSignalTest, EndsItAtEachStepOfItsStart) {
  const std::vector<Moment> moments = {
      [](const auto&) { return true; },
      [](const auto& folder) { return std::filesystem::exists(folder / "link"); },
      [](const auto& folder) { return std::filesystem::exists(folder / "bus.conf"); },
      [](const auto& folder) { return std::filesystem::exists(folder / "liborvane-shim.so"); }};
  for (const Moment& moment : moments) {
    run_.StartShell("while :; do :; done");
    ASSERT_TRUE(Eventually([&] { return Holds(run_.Temporary(), moment); }));
    Send();
    const SimulatorOutcome outcome = End();
    EXPECT_EQ(ExitCode(outcome), 128 + GetParam());
    EXPECT_EQ(outcome.err, "");
    ExpectNothingLeft();
  }
}

TEST_P(ProcessEndSignalTest, EndsItAtRandomMomentsOfItsStart) {
  std::mt19937 random(1);
  constexpr int kStarts = 20;
  constexpr std::mt19937::result_type kMostQuestions =
      3000;  // an idle machine is past the start by then
  for (int i = 0; i < kStarts; ++i) {
    const auto questions = random() % kMostQuestions;
    run_.StartShell("while :; do :; done");
    for (auto question = questions; question > 0; --question) {
      static_cast<void>(StateOf(Upper()));  // takes some time
    }
    Send();
    const SimulatorOutcome outcome = End();
    EXPECT_EQ(ExitCode(outcome), 128 + GetParam()) << "after " << questions << " questions";
    EXPECT_EQ(outcome.err, "");
    ExpectNothingLeft();
  }
}

TEST_P(ProcessEndSignalTest, EndsItWhileTheCommandRuns) {
  Start("echo ready; read line <fifo");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  Send();
  EXPECT_EQ(End().status, 128 + GetParam());
  ExpectNothingLeft();
}

TEST_P(ProcessEndSignalTest, EndsItWhileNobodyReadsItsLog) {
  run_.WithoutLog();
  run_.Option("--log fifo");
  const int size = 4096;
  const int reader = ::open(run_.File("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(::fcntl(reader, F_SETPIPE_SZ, size), size);
  Start("while :; do echo a line; done");
  EXPECT_TRUE(Eventually([&] {
    int bytes = 0;
    return ::ioctl(reader, FIONREAD, &bytes) == 0 && bytes > size / 2;
  }));
  Send();
  EXPECT_EQ(End().status, 128 + GetParam());
  ::close(reader);
  ExpectNothingLeft();
}

TEST_P(ProcessEndSignalTest, EndsItWhileNobodyReadsItsOutput) {
  const int size = ::fcntl(pipe_.Writer(), F_SETPIPE_SZ, 4096);
  Start("while :; do echo a line; done");
  EXPECT_TRUE(Eventually([&] {
    int bytes = 0;
    return ::ioctl(pipe_.Reader(), FIONREAD, &bytes) == 0 && bytes > size / 2;
  }));
  Send();
  EXPECT_EQ(End().status, 128 + GetParam());
  ExpectNothingLeft();
}

/// A file whose opening waits for another program is refused, or a signal ends the wait.
TEST_P(ProcessEndSignalTest, EndsItWhileItOpensAFileThatWaits) {
  for (const std::string option : {"--log", "--state"}) {
    ASSERT_EQ(::mkfifo(run_.File(option).c_str(), 0600), 0);
    SimulatorRun run;
    run.WithoutLog();
    run.Option(option + " " + run_.File(option).string());
    run.StartShell("true");
    ::kill(run.Process(), GetParam());
    EXPECT_TRUE(Eventually([&] { return StateOf(run.Process()) == 'Z'; })) << option;
    EXPECT_THAT(ExitCode(run.Wait()), AnyOf(Eq(128 + GetParam()), Eq(kInstrumentFailed)));
  }
}

TEST_P(ProcessEndSignalTest, EndsProcessesThatOutliveTheCommand) {
  Start(
      "(echo ready; read line <fifo; echo no) & setsid sh -c 'read line <fifo; echo no' & exit 3");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  Send();
  EXPECT_THAT(End().status, AnyOf(Eq(128 + GetParam()), Eq(3)));
  EXPECT_EQ(pipe_.ReadToTheEnd(), "");
  ExpectNothingLeft();
}

// --- Signals that were ignored ------------------------------------------------------------------

constexpr const char* kShowIgnored = "sed -n 's/^SigIgn:.//p' /proc/self/status";

// 1 to 31. Of the others the C library ignores some when it starts a process.
constexpr std::uint64_t kStandardSignals = 0x7FFFFFFF;

/// The signals that a process ignores, bit 0 for signal 1.
std::uint64_t IgnoredBy(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  for (std::string word; status >> word;) {
    if (word == "SigIgn:" && status >> word) {
      return std::stoull(word, nullptr, 16) & kStandardSignals;
    }
  }
  return 0;
}

std::uint64_t Bit(int signal) { return std::uint64_t{1} << static_cast<unsigned>(signal - 1); }

class IgnoredSignalTest : public ProcessEndTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Signals,
                         IgnoredSignalTest,
                         testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGUSR1),
                         [](const auto& row) { return std::string(::sigabbrev_np(row.param)); });

TEST_P(IgnoredSignalTest, IsIgnoredByTheCommand) {
  run_.Launcher({"/bin/sh",
                 "-c",
                 std::string("trap '' ") + ::sigabbrev_np(GetParam()) + R"(; exec "$0" "$@")"});
  Start(kShowIgnored);
  EXPECT_EQ(std::stoull(pipe_.ReadLine(), nullptr, 16) & kStandardSignals,
            IgnoredBy("self") | Bit(GetParam()));
  EXPECT_EQ(End().status, 0);
}

TEST_P(ProcessEndSignalTest, ThatWasIgnoredAtTheStartStaysIgnored) {
  run_.Launcher({"/bin/sh",
                 "-c",
                 std::string("trap '' ") + ::sigabbrev_np(GetParam()) + R"(; exec "$0" "$@")"});
  Start("echo ready; read line <fifo; exit 4");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  EXPECT_NE(IgnoredBy(std::to_string(Upper())) & Bit(GetParam()), 0U);
  Send();
  Feed();
  EXPECT_EQ(End().status, 4);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, SignalsThatWereNotIgnoredAreNotIgnoredByTheCommand) {
  Start(kShowIgnored);
  EXPECT_EQ(std::stoull(pipe_.ReadLine(), nullptr, 16) & kStandardSignals, IgnoredBy("self"));
  EXPECT_EQ(End().status, 0);
}

TEST_F(ProcessEndTest, StatusIsThatOfTheCommandAlsoWhenEndsOfChildrenAreIgnored) {
  run_.Launcher({"/bin/bash", "-c", R"(trap '' CHLD; exec "$0" "$@")"});
  Start("exit 5");
  EXPECT_EQ(End().status, 5);
  ExpectNothingLeft();
}

// --- It lives until the last process has ended --------------------------------------------------

TEST_F(ProcessEndTest, LivesUntilABackgroundProcessHasEnded) {
  Start("(read line <fifo; echo late) & echo $$; exit 3");
  const pid_t command = ReadProcess();
  ASSERT_TRUE(Eventually([&] { return StateOf(command) == '\0'; }));
  EXPECT_NE(StateOf(Upper()), 'Z');
  Feed();
  EXPECT_EQ(pipe_.ReadToTheEnd(), "late\n");
  const SimulatorOutcome outcome = End();
  EXPECT_EQ(outcome.status, 3);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, LivesUntilADaemonHasEnded) {
  Start("setsid sh -c '(read line <fifo; echo late) &' & echo $$; exit 3");
  const pid_t command = ReadProcess();
  ASSERT_TRUE(Eventually([&] { return StateOf(command) == '\0'; }));
  EXPECT_NE(StateOf(Upper()), 'Z');
  Feed();
  EXPECT_EQ(pipe_.ReadToTheEnd(), "late\n");
  EXPECT_EQ(End().status, 3);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, LastLineOfTheLogStaysTheLast) {
  Start(R"((read line <fifo; "$PROBE" open /dev/spidev1.0 + >/dev/null; echo late) & exit 3)");
  Feed();
  const SimulatorOutcome outcome = End();
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.log, HasSubstr("open /dev/spidev1.0 "));
  EXPECT_TRUE(outcome.log.ends_with("stdout \"late\\n\"\nexit 3\n")) << outcome.log;
  EXPECT_EQ(outcome.log.find("exit 3\n"), outcome.log.rfind("exit 3\n"));
}

TEST_F(ProcessEndTest, FlashHoldsWhatTheLastProcessWrote) {
  run_.WriteFile("flash", "");
  run_.Option("--module wend@1,flash=flash");
  Start(
      R"((read line <fifo; "$PROBE" open /dev/spidev1.0 + )"
      R"(ofstream /sys/platform_m1/qspi_prg/value 1 spi 0 06 0 spi 0 02000010616263 0) & exit 3)");
  Feed();
  EXPECT_EQ(End().status, 3);
  EXPECT_EQ(run_.ReadFile("flash").substr(0x10, 3), "abc");
}

// --- Power cuts ---------------------------------------------------------------------------------

TEST_F(ProcessEndTest, KillKillsTheProcessOfTheEventAlone) {
  run_.Option("--fault open:/dev/spidev1.0:kill");
  Start(R"("$PROBE" open /dev/spidev1.0 +; echo after $?)");
  EXPECT_EQ(pipe_.ReadToTheEnd(), "after 137\n");
  EXPECT_EQ(End().status, 0);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, KillAllKillsEveryProcessAtOnce) {
  run_.Option("--fault open:/dev/spidev1.0:kill-all");
  Start(R"(setsid sh -c 'echo ready; while :; do :; done' & (while :; do :; done) & )"
        R"(read line <fifo; "$PROBE" open /dev/spidev1.0 +; echo after $?)");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  Feed();
  EXPECT_EQ(pipe_.ReadToTheEnd(), "");
  EXPECT_EQ(End().status, 137);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, FlashIsAsItStandsAfterKillAll) {
  run_.WriteFile("flash", "");
  run_.Option("--module wend@1,flash=flash --fault spi:PP#2:kill-all");
  Start(
      R"("$PROBE" open /dev/spidev1.0 + ofstream /sys/platform_m1/qspi_prg/value 1 )"
      R"(spi 0 06 0 spi 0 02000010616263 0 spi 0 05 4 spi 0 06 0 spi 0 02000013646566 0; echo on)");
  const SimulatorOutcome outcome = End();
  EXPECT_EQ(outcome.status, 137);
  EXPECT_TRUE(outcome.log.ends_with("killed SIGKILL\n")) << outcome.log;
  EXPECT_EQ(run_.ReadFile("flash").substr(0x10, 4), "abc\xff");
}

// --- SIGKILL of the instrument ------------------------------------------------------------------

class InstrumentKilledTest : public ProcessEndTest {
 protected:
  /// Starts a command with a process in its group, one in a session of its own and a daemon.
  void StartSeveral() {
    Start(
        "(read line <fifo; echo no) & setsid sh -c 'read line <fifo; echo no' & "
        "setsid sh -c '(echo ready; while :; do :; done) &' & while :; do :; done");
    ASSERT_EQ(pipe_.ReadLine(), "ready");
  }
};

TEST_F(InstrumentKilledTest, NothingRunsOnWhenTheUpperProcessIsKilled) {
  StartSeveral();
  ::kill(Upper(), SIGKILL);
  EXPECT_EQ(End().status, kEndedBySignal + SIGKILL);
  EXPECT_EQ(pipe_.ReadToTheEnd(), "");
  EXPECT_TRUE(Eventually([&] { return Folders().empty(); }));
  ExpectNothingLeft();
}

TEST_F(InstrumentKilledTest, NothingRunsOnWhenTheLowerProcessIsKilled) {
  StartSeveral();
  ::kill(Lower(), SIGKILL);
  const SimulatorOutcome outcome = End();
  EXPECT_EQ(outcome.status, kInstrumentFailed);
  EXPECT_THAT(outcome.err, MatchesRegex("orvane-sim: [^\n]+\n"));
  EXPECT_EQ(pipe_.ReadToTheEnd(), "");
  ExpectNothingLeft();
}

TEST_F(InstrumentKilledTest, ProcessesEndAtTheirNextEventWhenBothAreKilled) {
  Start(
      R"(echo ready; read line <fifo; "$PROBE" open /dev/spidev1.0 +; read line </dev/spidev1.0; )"
      "echo no");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  const pid_t lower = Lower();
  // Neither sees the end of the other.
  ::kill(lower, SIGSTOP);
  ::kill(Upper(), SIGSTOP);
  ASSERT_TRUE(Eventually([&] { return StateOf(lower) == 'T' && StateOf(Upper()) == 'T'; }));
  ::kill(Upper(), SIGKILL);
  ::kill(lower, SIGKILL);
  EXPECT_EQ(End().status, kEndedBySignal + SIGKILL);
  Feed();
  EXPECT_EQ(pipe_.ReadToTheEnd(), "");
  EXPECT_TRUE(Eventually([&] { return Processes().empty(); })) << Describe(Processes());
  KillAll();
}

/// Whether a process is gone but for its number. It is not as long as one of its threads is ending:
/// then it still has its locks.
bool HasOnlyItsNumber(pid_t process) {
  namespace fs = std::filesystem;
  std::error_code error;  // the folder vanishes with the process
  const fs::directory_iterator threads("/proc/" + std::to_string(process) + "/task", error);
  const auto count = error ? 0 : std::distance(fs::begin(threads), fs::end(threads));
  return count <= 1 && StateOf(process) == 'Z';
}

class SweepTest : public InstrumentKilledTest {
 protected:
  /// Leaves the folder of a run whose processes were all killed.
  void LeaveAFolder() {
    Start("echo ready; read line <fifo");
    ASSERT_EQ(pipe_.ReadLine(), "ready");
    ASSERT_EQ(Folders().size(), 1U);
    const std::vector<Process> processes = Processes();
    for (const Process& process : processes) {
      ::kill(process.id, SIGSTOP);
    }
    KillAll();
    static_cast<void>(End());
    // Until a process has ended wholly, it has its locks.
    ASSERT_TRUE(Eventually([&] {
      return std::all_of(processes.begin(), processes.end(), [](const Process& process) {
        return StateOf(process.id) == '\0' || HasOnlyItsNumber(process.id);
      });
    }));
    ASSERT_EQ(Folders().size(), 1U);
  }
};

TEST_F(SweepTest, NextStartRemovesTheFolderOfAKilledRun) {
  LeaveAFolder();
  run_.Launcher({});
  EXPECT_EQ(run_.Shell("exit 6").status, 6);
  ExpectNothingLeft();
}

TEST_F(SweepTest, FolderInUseStays) {
  Start("echo ready; read line <fifo; \"$PROBE\" open /dev/spidev1.0 +; exit 4");
  ASSERT_EQ(pipe_.ReadLine(), "ready");
  const std::vector<std::string> folders = Folders();
  SimulatorRun other;
  other.Environment("TMPDIR", run_.Temporary());
  EXPECT_EQ(other.Shell("exit 6").status, 6);
  EXPECT_EQ(Folders(), folders);
  Feed();
  EXPECT_EQ(End().status, 4);
  ExpectNothingLeft();
}

TEST_F(SweepTest, FolderOfAnotherUserStays) {
  constexpr uid_t kOther = 12345;
  LeaveAFolder();
  const std::filesystem::path folder = run_.Temporary() / Folders().at(0);
  if (::chown(folder.c_str(), kOther, kOther) != 0) {
    GTEST_SKIP() << "only root can give a folder to another user";
  }
  EXPECT_EQ(run_.Shell("exit 6").status, 6);
  EXPECT_THAT(Folders(), testing::ElementsAre(folder.filename().string()));
}

TEST_F(SweepTest, WhatOnlyHasTheNameOfAFolderStays) {
  ASSERT_TRUE(std::filesystem::create_directory(run_.Temporary() / "orvane-sim.abcdef"));
  std::ofstream(run_.Temporary() / "orvane-sim.ABCDEF") << "a file\n";
  std::filesystem::create_directory_symlink(run_.File(""), run_.Temporary() / "orvane-sim.123456");
  run_.WriteFile("kept", "kept");
  EXPECT_EQ(run_.Shell("exit 6").status, 6);
  EXPECT_EQ(run_.ReadFile("kept"), "kept");
  EXPECT_TRUE(std::filesystem::exists(run_.Temporary() / "orvane-sim.ABCDEF"));
}

// --- What the machine lacks ---------------------------------------------------------------------

/// One line on standard error, and nothing else but the status.
void ExpectRefused(const SimulatorOutcome& outcome) {
  EXPECT_EQ(outcome.status, kInstrumentFailed);
  EXPECT_THAT(outcome.err, MatchesRegex("orvane-sim: [^\n]+\n"));
  EXPECT_EQ(outcome.out, "");
}

TEST_F(ProcessEndTest, TooFewDescriptorsAreRefused) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers need them too";
  }
  // The loader takes one beside the standard ones.
  for (int limit = 4; limit < 40; ++limit) {
    SCOPED_TRACE("limit " + std::to_string(limit));
    run_.Launcher({"/bin/sh", "-c", "ulimit -n " + std::to_string(limit) + R"(; exec "$0" "$@")"});
    const SimulatorOutcome outcome = run_.Shell("exit 6");
    if (outcome.status == 6) {
      EXPECT_EQ(outcome.err, "");
    } else {
      ExpectRefused(outcome);
    }
    ExpectNothingLeft();
  }
}

/// Starts orvane-sim where file systems of its own are mounted.
/// @param mounts  shell commands
std::vector<std::string> Mounting(const std::string& mounts) {
  return {"/usr/bin/unshare", "-rm", "/bin/sh", "-c", mounts + R"( && exec "$0" "$@")"};
}

bool CanMount() {
  ChildProcess process(
      {.words = {"/usr/bin/unshare", "-rm", "/bin/mount", "-t", "tmpfs", "none", "/mnt"},
       .err = "/dev/null"});
  return process.Wait().ExitCode() == 0;
}

TEST_F(ProcessEndTest, MissingProcIsRefused) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers need them too";
  }
  if (!CanMount()) {
    GTEST_SKIP() << "this user may not mount file systems";
  }
  run_.Launcher(Mounting("mount -t tmpfs none /proc"));
  ExpectRefused(run_.Shell("exit 6"));
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, ProcOfAnotherPidNamespaceIsRefused) {
  if (!CanMount()) {
    GTEST_SKIP() << "this user may have no namespaces";
  }
  run_.Launcher({"/usr/bin/unshare", "-rpf"});
  const SimulatorOutcome outcome = run_.Shell("exit 6");
  EXPECT_EQ(outcome.err, "orvane-sim: /proc cannot be read, or is that of another PID namespace\n");
  ExpectRefused(outcome);
  ExpectNothingLeft();
}

TEST_F(ProcessEndTest, MissingInodesAreRefused) {
  if (!CanMount()) {
    GTEST_SKIP() << "this user may not mount file systems";
  }
  // One is that of the root.
  for (int inodes = 1; inodes < 60; ++inodes) {
    SCOPED_TRACE("inodes " + std::to_string(inodes));
    run_.Launcher(
        Mounting("mount -t tmpfs -o nr_inodes=" + std::to_string(inodes) + " none \"$TMPDIR\""));
    const SimulatorOutcome outcome = run_.Shell("exit 6");
    if (outcome.status == 6) {
      EXPECT_EQ(outcome.err, "");
    } else {
      ExpectRefused(outcome);
    }
  }
}

TEST_F(ProcessEndTest, MissingSpaceIsRefused) {
  if (!CanMount()) {
    GTEST_SKIP() << "this user may not mount file systems";
  }
  for (int pages = 1; pages < 30; ++pages) {
    SCOPED_TRACE("pages " + std::to_string(pages));
    run_.Launcher(
        Mounting("mount -t tmpfs -o nr_blocks=" + std::to_string(pages) + " none \"$TMPDIR\""));
    const SimulatorOutcome outcome = run_.Shell("exit 6");
    if (outcome.status == 6) {
      EXPECT_EQ(outcome.err, "");
    } else {
      ExpectRefused(outcome);
    }
  }
}

}  // namespace
}  // namespace orvane
