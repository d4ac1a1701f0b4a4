#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/FileDescriptor.h"
#include "companion/process/TarnwickProgram.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/companion/FailingCalls.h"

namespace fs = std::filesystem;

namespace {

/// Shared with the children, which set the time limit.
struct Limit {
  itimerval wanted;
  bool isShort;     // a hundredth of a second in its place
  bool endsParent;  // with SIGKILL, when it has been set
};

Limit& SharedLimit() {
  static void* const memory =
      ::mmap(nullptr, sizeof(Limit), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *static_cast<Limit*>(memory);
}

}  // namespace

FAILING_CALL(int, dup2, (int from, int to), (from, to))
FAILING_CALL(pid_t, fork, (), ())
FAILING_CALL(int, pipe2, (int* ends, int flags), (ends, flags))

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return FailingCalls::Fails("open") ? -1 : __real_open(path, flags, mode);
}

int __real_setitimer(__itimer_which_t which, const itimerval* wanted, itimerval* former);
int __wrap_setitimer(__itimer_which_t which, const itimerval* wanted, itimerval* former) {
  if (FailingCalls::Fails("setitimer")) {
    return -1;
  }
  SharedLimit().wanted = *wanted;
  const itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 10'000}};
  const int result = __real_setitimer(which, SharedLimit().isShort ? &soon : wanted, former);
  if (SharedLimit().endsParent) {
    ::kill(::getppid(), SIGKILL);
  }
  return result;
}

}  // extern "C"

namespace {

using companion::ProgramRun;
using companion::SignalWatch;
using companion::TarnwickProgram;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kShowHelp =
    R"(printf '\033[1mNAME\033[0m\n\ttarnwick - FPGA Download Utility for the Orvane\n')";

class TarnwickProgramTest : public testing::Test {
 protected:
  TarnwickProgramTest() {
    SharedLimit() = {};
    fs::create_directory(InScratch("work"));
  }

  [[nodiscard]] std::string InScratch(const std::string& name) const {
    return scratch_.Path() + "/" + name;
  }

  /// @return the path of a program that runs these lines
  [[nodiscard]] std::string Script(const std::string& lines,
                                   const std::string& name = "script") const {
    std::string path = scratch_.File(name, "#!/bin/sh\n" + lines + "\n");
    EXPECT_EQ(::chmod(path.c_str(), 0700), 0);
    return path;
  }

  [[nodiscard]] TarnwickProgram::Settings Settings(const std::string& path) {
    return {.path = path,
            .timeout = seconds(100),
            .workFolder = [this] { return work_.Get(); },
            .output = [this](std::string_view bytes,
                             bool isError) { (isError ? err_ : out_).append(bytes); }};
  }

  std::string Check(const std::string& path) {
    TarnwickProgram program(watch_, Settings(path));
    return program.Check();
  }

  ProgramRun Update(const TarnwickProgram::Settings& settings) {
    TarnwickProgram program(watch_, settings);
    return program.Update("dax", 2, "image");
  }
  ProgramRun Update(const std::string& lines) { return Update(Settings(Script(lines))); }

  const TemporaryDirectory scratch_;
  const FileDescriptor work_{(fs::create_directory(InScratch("work")),
                              ::open(InScratch("work").c_str(), O_RDONLY | O_CLOEXEC))};
  SignalWatch watch_;
  std::string out_;  // what has been passed on
  std::string err_;
};

// --- Where it is --------------------------------------------------------------------------------

TEST_F(TarnwickProgramTest, PathIsMadeAbsolute) {
  const TarnwickProgram program(watch_, Settings("folder/program"));
  EXPECT_EQ(program.Path(), fs::current_path() / "folder/program");
}

TEST_F(TarnwickProgramTest, WithoutAPathItIsSearchedInPATH) {
  const std::string path = scratch_.File("bin/tarnwick", "");
  fs::create_directories(InScratch("other/tarnwick"));  // a folder is none
  const EnvironmentVariable search(
      "PATH", InScratch("none") + ":" + InScratch("other") + ":" + InScratch("bin") + ":/usr/bin");
  const TarnwickProgram program(watch_, {});
  EXPECT_EQ(program.Path(), path);
}

TEST_F(TarnwickProgramTest, RelativeFoldersOfPATHArePassedOver) {
  const ScratchDirectory directory;
  WriteFile("tarnwick", "");
  const EnvironmentVariable search("PATH", ":.");
  const TarnwickProgram program(watch_, {});
  EXPECT_EQ(program.Path(), "");
}

TEST_F(TarnwickProgramTest, ProgramThatIsNotFoundIsReportedAndNotStarted) {
  const ScratchDirectory directory;
  WriteFile("tarnwick", "");
  const EnvironmentVariable search("PATH", "");
  EXPECT_EQ(Check(""), "tarnwick is neither beside this program nor in PATH");
  EXPECT_EQ(Update(Settings("")).problem, "cannot start '': No such file or directory");
}

TEST_F(TarnwickProgramTest, WithoutPATHItIsNotFound) {
  const std::string former = std::getenv("PATH");
  ::unsetenv("PATH");
  const TarnwickProgram program(watch_, {});
  ::setenv("PATH", former.c_str(), 1);
  EXPECT_EQ(program.Path(), "");
}

TEST_F(TarnwickProgramTest, TheOneBesideThisExecutableComesFirst) {
  const std::string beside = scratch_.File("tarnwick", "");
  ASSERT_NE(scratch_.File("bin/tarnwick", ""), beside);
  fs::copy_file(PATH_PRINTER, InScratch("printer"));
  ChildProcess printer({.words = {InScratch("printer")},
                        .environment = {{"PATH", InScratch("bin")}},
                        .out = InScratch("path")});
  ASSERT_EQ(printer.Wait().ExitCode(), 0);
  EXPECT_EQ(ReadFile(InScratch("path")), beside);
}

// --- The check ----------------------------------------------------------------------------------

TEST_F(TarnwickProgramTest, ProgramThatShowsTheHelpOfTarnwickIsAccepted) {
  EXPECT_EQ(Check(Script(kShowHelp)), "");
  EXPECT_EQ(out_, "");  // not passed on
}

TEST_F(TarnwickProgramTest, CheckStartsItWithoutWordsAndInput) {
  EXPECT_EQ(Check(Script(std::string("echo $# >>words; readlink /proc/self/fd/0 >>words; ")
                             .replace(0, 0, "cd " + scratch_.Path() + "; ")
                             .append(kShowHelp))),
            "");
  EXPECT_EQ(ReadFile(InScratch("words")), "0\n/dev/null\n");
}

TEST_F(TarnwickProgramTest, CheckHasATimeLimit) {
  EXPECT_EQ(Check(Script(kShowHelp)), "");
  EXPECT_EQ(SharedLimit().wanted.it_value.tv_sec, 20);
}

TEST_F(TarnwickProgramTest, MissingProgramIsReported) {
  EXPECT_EQ(Check(InScratch("none")),
            "cannot start '" + InScratch("none") + "': No such file or directory");
}

TEST_F(TarnwickProgramTest, FolderIsReported) {
  EXPECT_EQ(Check(scratch_.Path()), "'" + scratch_.Path() + "' is a folder, not a program");
}

TEST_F(TarnwickProgramTest, FileThatIsNoProgramIsReported) {
  const std::string path = scratch_.File("text", "no program\n");
  ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
  EXPECT_EQ(Check(path), "cannot start '" + path + "': Exec format error");
}

TEST_F(TarnwickProgramTest, FileThatIsNotExecutableIsReported) {
  const std::string path = scratch_.File("text", "#!/bin/sh\n");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(Check(path), "cannot start '" + path + "': Permission denied");
}

TEST_F(TarnwickProgramTest, AnotherProgramIsReported) {
  EXPECT_EQ(Check("/bin/true"), "'/bin/true' is not tarnwick");
}

TEST_F(TarnwickProgramTest, ProgramThatFailsIsReportedWithItsFirstLine) {
  const std::string path = Script(R"(printf 'no \033library\177\nmore\n' >&2; exit 127)");
  EXPECT_EQ(Check(path), "'" + path + "', started for its help, ended with 127: no ?library?");
}

TEST_F(TarnwickProgramTest, ProgramThatFailsWithoutALineIsReported) {
  const std::string path = Script(std::string(kShowHelp) + "; exit 1");
  EXPECT_EQ(Check(path), "'" + path + "', started for its help, ended with 1");
}

TEST_F(TarnwickProgramTest, ProgramThatASignalEndsIsReported) {
  const std::string path = Script("kill -KILL $$");
  EXPECT_EQ(Check(path), "'" + path + "', started for its help, was ended by signal 9");
}

TEST_F(TarnwickProgramTest, ProgramThatDoesNotEndIsReported) {
  SharedLimit().isShort = true;
  const std::string path = Script("exec sleep 1000");
  EXPECT_EQ(Check(path), "'" + path + "' does not end when it is started for its help");
}

TEST_F(TarnwickProgramTest, CheckThatFailsTwiceSucceedsTheThirdTime) {
  const std::string starts = InScratch("starts");
  EXPECT_EQ(Check(Script("echo x >>" + starts + "; [ $(wc -l <" + starts + ") = 3 ] || exit 1; " +
                         kShowHelp)),
            "");
  EXPECT_EQ(ReadFile(starts), "x\nx\nx\n");
}

TEST_F(TarnwickProgramTest, CheckThatFailsThreeTimesIsNotTriedAgain) {
  const std::string path = Script("echo x >>" + InScratch("starts"));
  EXPECT_EQ(Check(path), "'" + path + "' is not tarnwick");
  EXPECT_EQ(ReadFile(InScratch("starts")), "x\nx\nx\n");
}

TEST_F(TarnwickProgramTest, KilledCheckIsNotTriedAgain) {
  TarnwickProgram program(
      watch_,
      Settings(Script("echo x >>" + InScratch("starts") + "; kill $PPID; exec sleep 1000")));
  watch_.OnStop([&](int /*signal*/, int /*count*/) { program.Kill(); });
  EXPECT_NE(program.Check(), "");
  EXPECT_EQ(ReadFile(InScratch("starts")), "x\n");
}

// --- Starting an update -------------------------------------------------------------------------

TEST_F(TarnwickProgramTest, UpdatePassesTargetModuleAndImage) {
  EXPECT_EQ(Update(R"(printf '%s|' "$@")").out, "dax|-sf|2|image|");
}

TEST_F(TarnwickProgramTest, UpdateNamesTheProgramAsItsCommand) {
  const std::string complaint = Update(Settings("/bin/cat")).err;
  EXPECT_EQ(complaint.substr(0, 10), "tarnwick: ") << complaint;
}

TEST_F(TarnwickProgramTest, UpdateRunsInTheWorkFolder) {
  EXPECT_EQ(Update("pwd").out, InScratch("work") + "\n");
}

TEST_F(TarnwickProgramTest, UpdateReadsNothing) {
  EXPECT_EQ(Update("readlink /proc/self/fd/0").out, "/dev/null\n");
}

TEST_F(TarnwickProgramTest, UpdateGetsTheEnvironment) {
  const EnvironmentVariable clock("SPI_CLOCK_SPEED", "7");
  EXPECT_EQ(Update("echo $SPI_CLOCK_SPEED").out, "7\n");
}

TEST_F(TarnwickProgramTest, UpdateRunsInAProcessGroupOfItsOwn) {
  EXPECT_EQ(Update("[ $(cut -d ' ' -f 5 /proc/$$/stat) = $$ ] && echo own").out, "own\n");
}

TEST_F(TarnwickProgramTest, UpdateIgnoresStopSignalsAndAClosedConsole) {
  EXPECT_EQ(Update("kill -INT $$; kill -TERM $$; kill -HUP $$; kill -PIPE $$; echo runs").out,
            "runs\n");
}

TEST_F(TarnwickProgramTest, UpdateHasNoSignalBlocked) {
  EXPECT_EQ(Update("grep SigBlk /proc/self/status").out, "SigBlk:\t0000000000000000\n");
}

TEST_F(TarnwickProgramTest, UpdateInheritsWhatExecDoesNotClose) {
  const FileDescriptor lock(::open(InScratch("lock").c_str(), O_RDWR | O_CREAT, 0600));
  const std::string link = "/proc/self/fd/" + std::to_string(lock.Get());
  EXPECT_EQ(Update("readlink " + link).out, InScratch("lock") + "\n");
}

TEST_F(TarnwickProgramTest, UpdateInheritsNothingElse) {
  std::istringstream list(Update("exec ls /proc/self/fd").out);
  std::vector<int> others;  // neither standard descriptors nor inherited from who started the test
  for (int descriptor = 0; list >> descriptor;) {
    const int flags = ::fcntl(descriptor, F_GETFD);
    if (descriptor > STDERR_FILENO && (flags < 0 || (flags & FD_CLOEXEC) != 0)) {
      others.push_back(descriptor);
    }
  }
  EXPECT_EQ(others.size(), 1U);  // the folder that it lists
}

TEST_F(TarnwickProgramTest, UpdateHasTheTimeLimitThatIsGiven) {
  Update("exit 0");
  EXPECT_EQ(SharedLimit().wanted.it_value.tv_sec, 100);
  EXPECT_EQ(SharedLimit().wanted.it_interval.tv_sec, 0);
}

TEST_F(TarnwickProgramTest, WithoutALimitUpdateHasThatOfItsImage) {
  WriteFile(InScratch("work/image"), std::string(65'537, 'x'));
  TarnwickProgram::Settings settings = Settings("/bin/true");
  settings.timeout.reset();
  settings.spiClockMHz = 19;
  Update(settings);
  EXPECT_EQ(SharedLimit().wanted.it_value.tv_sec, 299);
}

TEST_F(TarnwickProgramTest, UpdateThatCannotBeStartedIsReported) {
  const ProgramRun run = Update(Settings(InScratch("none")));
  EXPECT_EQ(run.problem, "cannot start '" + InScratch("none") + "': No such file or directory");
  EXPECT_FALSE(run.exitCode);
}

TEST_F(TarnwickProgramTest, UpdateWithoutAWorkFolderIsNotStarted) {
  TarnwickProgram::Settings settings = Settings("/bin/true");
  settings.workFolder = [] { return -1; };
  EXPECT_EQ(Update(settings).problem, "cannot start '/bin/true': Bad file descriptor");
}

struct StartFault {
  const char* function;
  int error;
  const char* text;
};

class StartFaultTest : public TarnwickProgramTest,
                       public testing::WithParamInterface<StartFault> {};

TEST_P(StartFaultTest, ThatLastsIsReportedAndNoDescriptorIsLeft) {
  const FailingCalls failing(GetParam().function, GetParam().error);
  EXPECT_EQ(Update(Settings("/bin/true")).problem,
            std::string("cannot start '/bin/true': ") + GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Calls,
    StartFaultTest,
    testing::Values(StartFault{"pipe2", EMFILE, "Too many open files"},
                    StartFault{"open", ENFILE, "Too many open files in system"},
                    StartFault{"fork", EAGAIN, "Resource temporarily unavailable"},
                    StartFault{"dup2", EBUSY, "Device or resource busy"},
                    StartFault{"setitimer", EINVAL, "Invalid argument"}),
    [](const auto& row) { return std::string(row.param.function); });

TEST_F(TarnwickProgramTest, StartThatFailsTwiceIsTriedAThirdTime) {
  const FailingCalls failing("fork", EAGAIN, 2);
  const ProgramRun run = Update(Settings("/bin/true"));
  EXPECT_EQ(run.problem, "");
  EXPECT_EQ(run.exitCode, 0);
}

TEST_F(TarnwickProgramTest, UpdateThatHasRunIsNotStartedAgain) {
  EXPECT_EQ(Update("echo x >>" + InScratch("starts") + "; exit 6").exitCode, 6);
  EXPECT_EQ(ReadFile(InScratch("starts")), "x\n");
}

// --- Its console --------------------------------------------------------------------------------

TEST_F(TarnwickProgramTest, BothStreamsArePassedOnAndKept) {
  const ProgramRun run = Update("echo out; echo err >&2");
  EXPECT_EQ(run.out, "out\n");
  EXPECT_EQ(run.err, "err\n");
  EXPECT_EQ(out_, "out\n");
  EXPECT_EQ(err_, "err\n");
}

TEST_F(TarnwickProgramTest, BytesArePassedOnAsTheyCome) {
  ASSERT_EQ(::mkfifo(InScratch("pipe").c_str(), 0600), 0);
  TarnwickProgram::Settings settings =
      Settings(Script("echo one; read word <" + InScratch("pipe") + "; echo $word"));
  settings.output = [this](std::string_view bytes, bool /*isError*/) {
    if (bytes == "one\n") {
      std::ofstream(InScratch("pipe")) << "two\n";  // it goes on only now
    }
  };
  EXPECT_EQ(Update(settings).out, "one\ntwo\n");
}

TEST_F(TarnwickProgramTest, ClosedStreamsDoNotEndIt) {
  EXPECT_EQ(Update("exec >&- 2>&-; exit 5").exitCode, 5);
}

TEST_F(TarnwickProgramTest, WithoutAnOutputTheConsoleIsKept) {
  TarnwickProgram::Settings settings = Settings(Script("echo out"));
  settings.output = nullptr;
  EXPECT_EQ(Update(settings).out, "out\n");
}

TEST_F(TarnwickProgramTest, FourMebibytesOfEachStreamAreKeptAndAllArePassedOn) {
  EXPECT_EQ(Update("head -c 5000000 /dev/zero").out.size(), 4'194'304U);
  EXPECT_EQ(out_.size(), 5'000'000U);
}

TEST_F(TarnwickProgramTest, ConsoleThatIsClosedMeanwhileDoesNotEndIt) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  ::close(ends[0]);
  TarnwickProgram::Settings settings = Settings(Script("echo one; echo two; exit 5"));
  int refused = 0;
  settings.output = [&](std::string_view bytes, bool /*isError*/) {
    refused += ::write(ends[1], bytes.data(), bytes.size()) < 0 ? 1 : 0;
  };
  EXPECT_EQ(Update(settings).exitCode, 5);
  EXPECT_GE(refused, 1);
  ::close(ends[1]);
}

// --- How it ends --------------------------------------------------------------------------------

TEST_F(TarnwickProgramTest, ExitCodeIsReported) {
  const ProgramRun run = Update("exit 11");
  EXPECT_EQ(run.problem, "");
  EXPECT_EQ(run.exitCode, 11);
  EXPECT_EQ(run.signal, 0);
  EXPECT_FALSE(run.timedOut);
  EXPECT_FALSE(run.killed);
}

TEST_F(TarnwickProgramTest, SignalFromOutsideIsReported) {
  const ProgramRun run = Update("kill -KILL $$");
  EXPECT_FALSE(run.exitCode);
  EXPECT_EQ(run.signal, SIGKILL);
  EXPECT_FALSE(run.timedOut);
  EXPECT_FALSE(run.killed);
}

TEST_F(TarnwickProgramTest, TimeLimitEndsIt) {
  SharedLimit().isShort = true;
  const ProgramRun run = Update("echo out; exec sleep 1000");
  EXPECT_TRUE(run.timedOut);
  EXPECT_EQ(run.signal, SIGALRM);
  EXPECT_FALSE(run.exitCode);
  EXPECT_GE(run.took, milliseconds(10));
}

TEST_F(TarnwickProgramTest, KillEndsIt) {
  TarnwickProgram program(watch_, Settings(Script("kill $PPID; exec sleep 1000")));
  watch_.OnStop([&](int /*signal*/, int /*count*/) { program.Kill(); });
  const ProgramRun run = program.Update("dax", 2, "image");
  EXPECT_TRUE(run.killed);
  EXPECT_EQ(run.signal, SIGKILL);
  EXPECT_FALSE(run.timedOut);
}

TEST_F(TarnwickProgramTest, KillWithoutARunDoesNothing) {
  TarnwickProgram program(watch_, Settings(Script("exit 0")));
  program.Kill();
  EXPECT_FALSE(program.Update("dax", 2, "image").killed);
  program.Kill();
  EXPECT_EQ(program.Update("dax", 2, "image").exitCode, 0);
}

TEST_F(TarnwickProgramTest, StopSignalDoesNotEndIt) {
  const ProgramRun run = Update("kill $PPID; exit 5");
  EXPECT_EQ(run.exitCode, 5);
  watch_.Read();
  EXPECT_EQ(watch_.StopSignals(), 1);
}

TEST_F(TarnwickProgramTest, WhatIsLeftOfItsGroupIsEnded) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);  // inherited
  EXPECT_EQ(Update("sleep 1000 & exit 5").exitCode, 5);
  ::close(ends[1]);
  char byte = '\0';
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);  // nobody has the other end
  ::close(ends[0]);
}

/// Ends what has left the group of the program, and has said its number.
void EndProcess(const std::string& number) { ::kill(std::stoi(number), SIGKILL); }

/// What a process that holds both streams does, after it has left the group.
class LeftGroupTest : public TarnwickProgramTest,
                      public testing::WithParamInterface<const char*> {};

TEST_P(LeftGroupTest, IsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(InScratch("pipe").c_str(), 0600), 0);
  const std::string pipe = InScratch("pipe");
  const std::string number = InScratch("number");
  const ProgramRun run = Update("setsid sh -c 'echo $$ >" + number + "; echo >" + pipe + "; exec " +
                                GetParam() + "' &\nread word <" + pipe + "; exit 5");
  EXPECT_EQ(run.exitCode, 5);
  EndProcess(ReadFile(number));
}

INSTANTIATE_TEST_SUITE_P(Processes, LeftGroupTest, testing::Values("sleep 1000", "cat /dev/zero"));

/// The time limit is its own, and goes on when this process has ended.
TEST_F(TarnwickProgramTest, TimeLimitEndsAnOrphan) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);  // inherited
  SharedLimit() = {.isShort = true, .endsParent = true};
  const pid_t companion = ::fork();
  if (companion == 0) {
    static_cast<void>(Update("exec sleep 1000"));
    ::_exit(1);
  }
  int status = 0;
  ::waitpid(companion, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  ::close(ends[1]);
  char byte = '\0';
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);  // the orphan has ended too
  ::close(ends[0]);
}

}  // namespace
