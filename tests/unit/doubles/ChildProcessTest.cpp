#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/ScratchDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ChildProcessTest : public testing::Test {
 protected:
  /// A shell command with its output in the files out and err.
  static ChildProcess::Start Shell(const std::string& command) {
    return {.words = {"/bin/sh", "-c", command}, .out = "out", .err = "err"};
  }

  static void Run(const ChildProcess::Start& start) {
    EXPECT_EQ(ChildProcess(start).Wait().ExitCode(), 0);
  }

  ScratchDirectory directory_;
};

TEST_F(ChildProcessTest, ExitStatusIsTheExitCode) {
  const ChildProcess::End end = ChildProcess(Shell("exit 11")).Wait();
  EXPECT_FALSE(end.isSignal);
  EXPECT_EQ(end.number, 11);
  EXPECT_EQ(end.ExitCode(), 11);
}

TEST_F(ChildProcessTest, SignalIsAddedTo128) {
  const ChildProcess::End end = ChildProcess(Shell("kill -KILL $$")).Wait();
  EXPECT_TRUE(end.isSignal);
  EXPECT_EQ(end.number, SIGKILL);
  EXPECT_EQ(end.ExitCode(), 137);
}

TEST_F(ChildProcessTest, OutputGoesToItsFiles) {
  Run(Shell("echo o; echo e >&2"));
  EXPECT_EQ(ReadFile("out"), "o\n");
  EXPECT_EQ(ReadFile("err"), "e\n");
}

TEST_F(ChildProcessTest, OutputGoesToADescriptor) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ChildProcess::Start start = Shell("echo o");
  start.out = "";
  start.outEnd = ends[1];
  Run(start);
  ::close(ends[1]);
  std::array<char, 8> text{};
  EXPECT_EQ(::read(ends[0], text.data(), text.size()), 2);
  EXPECT_STREQ(text.data(), "o\n");
  ::close(ends[0]);
}

TEST_F(ChildProcessTest, StandardInputIsEmpty) {
  Run(Shell("cat"));
  EXPECT_EQ(ReadFile("out"), "");
}

TEST_F(ChildProcessTest, VariablesAreSetUnsetAndInherited) {
  const EnvironmentVariable inherited("TEST_INHERITED", "here");
  const EnvironmentVariable removed("TEST_REMOVED", "here");
  ChildProcess::Start start = Shell("echo \"$TEST_INHERITED,$TEST_REMOVED,$TEST_SET\"");
  start.environment = {{"TEST_SET", "once"}, {"TEST_SET", "twice"}};
  start.unset = {"TEST_REMOVED"};
  Run(start);
  EXPECT_EQ(ReadFile("out"), "here,,twice\n");
}

TEST_F(ChildProcessTest, StartsInItsDirectory) {
  ChildProcess::Start start = Shell("pwd");
  start.directory = "/";
  Run(start);
  EXPECT_EQ(ReadFile("out"), "/\n");
}

TEST_F(ChildProcessTest, DescriptorsOfTheTestAreNotInherited) {
  const int descriptor = ::dup(STDERR_FILENO);
  Run(Shell("[ ! -e /proc/$$/fd/" + std::to_string(descriptor) + " ]"));
  ::close(descriptor);
}

TEST_F(ChildProcessTest, DescriptorsAreClosedAndOpened) {
  WriteFile("file", "text");
  ChildProcess::Start start = Shell("[ ! -e /proc/$$/fd/0 ] && cat <&7");
  start.closed = {STDIN_FILENO};
  start.readers = {{7, "file"}};
  Run(start);
  EXPECT_EQ(ReadFile("out"), "text");
}

TEST_F(ChildProcessTest, ProgramThatIsNotThereThrows) {
  try {
    const ChildProcess child({.words = {"./nothing"}});
    FAIL() << "no error";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
    EXPECT_STREQ(error.what(), "./nothing: No such file or directory");
  }
}

TEST_F(ChildProcessTest, OneThatTakesTooLongIsSentSigterm) {
  EXPECT_EQ(ChildProcess(Shell("exec sleep 1000")).Wait(1).ExitCode(), 128 + SIGTERM);
}

TEST_F(ChildProcessTest, OneThatIsNotWaitedForIsKilled) {
  pid_t id = 0;
  {
    const ChildProcess child(Shell("exec sleep 1000"));
    id = child.Id();
  }
  EXPECT_EQ(::kill(id, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(SplitWordsTest, BlanksPartWords) {
  EXPECT_THAT(SplitWords("wend  -sf 1 "), ElementsAre("wend", "-sf", "1"));
  EXPECT_THAT(SplitWords("  "), IsEmpty());
}

TEST(SplitWordsTest, QuotesKeepBlanksAndMakeEmptyWords) {
  EXPECT_THAT(SplitWords("a 'b  c' '' d' 'e"), ElementsAre("a", "b  c", "", "d e"));
}

TEST(SplitWordsTest, MissingQuoteThrows) {
  EXPECT_THROW(SplitWords("a 'b"), std::invalid_argument);
}

}  // namespace
