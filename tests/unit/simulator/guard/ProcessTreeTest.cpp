#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

#include "simulator/guard/ProcessTree.h"
#include "tests/doubles/ChildProcess.h"

namespace orvane {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;

/// A child that waits until it is killed, with a child of its own that does the same.
class Family {
 public:
  Family() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    parent_ = ::fork();
    if (parent_ == 0) {
      const pid_t child = ::fork();
      if (child != 0) {
        static_cast<void>(!::write(ends[1], &child, sizeof child));
      }
      for (;;) {
        ::pause();
      }
    }
    EXPECT_EQ(::read(ends[0], &child_, sizeof child_), ssize_t{sizeof child_});
    ::close(ends[0]);
    ::close(ends[1]);
  }
  Family(const Family&) = delete;
  Family& operator=(const Family&) = delete;
  ~Family() {
    ::kill(child_, SIGKILL);
    ::kill(parent_, SIGKILL);
    ::waitpid(parent_, nullptr, 0);
  }
  pid_t Parent() const { return parent_; }
  pid_t Child() const { return child_; }

 private:
  pid_t parent_ = -1;
  pid_t child_ = -1;
};

TEST(ProcessTreeTest, ProcIsReadable) { EXPECT_TRUE(process_tree::IsReadable()); }

TEST(ProcessTreeTest, ChildrenAndTheirChildrenAreBelow) {
  const Family family;
  const std::vector<pid_t> below = process_tree::Below(::getpid(), 0);
  EXPECT_THAT(below, Contains(family.Parent()));
  EXPECT_THAT(below, Contains(family.Child()));
  EXPECT_THAT(below, Not(Contains(::getpid())));
}

TEST(ProcessTreeTest, ExceptedProcessIsLeftOutWithItsChildren) {
  const Family family;
  EXPECT_THAT(process_tree::Below(::getpid(), family.Parent()), IsEmpty());
}

TEST(ProcessTreeTest, EndedProcessIsNotBelowButIsAChild) {
  const Family family;
  ASSERT_TRUE(process_tree::Kill(::getpid(), 0));
  EXPECT_THAT(process_tree::Below(::getpid(), 0), IsEmpty());
  EXPECT_TRUE(process_tree::HasChildrenBut(0));
  EXPECT_FALSE(process_tree::HasChildrenBut(family.Parent()));
}

TEST(ProcessTreeTest, SignalReachesAll) {
  const Family family;
  process_tree::Signal(::getpid(), 0, SIGTERM);
  siginfo_t info{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(family.Parent()), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(info.si_status, SIGTERM);
}

/// A child that waits until it is killed, in a session of its own.
class SessionLeader {
 public:
  SessionLeader() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    process_ = ::fork();
    if (process_ == 0) {
      ::setsid();
      static_cast<void>(!::write(ends[1], "", 1));
      for (;;) {
        ::pause();
      }
    }
    char byte = '\0';
    EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    ::close(ends[0]);
    ::close(ends[1]);
  }
  SessionLeader(const SessionLeader&) = delete;
  SessionLeader& operator=(const SessionLeader&) = delete;
  ~SessionLeader() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  pid_t Process() const { return process_; }

 private:
  pid_t process_ = -1;
};

TEST(ProcessTreeTest, SessionIsKilledAndNoOther) {
  const SessionLeader leader;
  const SessionLeader other;
  const Family family;
  EXPECT_FALSE(process_tree::HasEnded(leader.Process()));
  EXPECT_TRUE(process_tree::KillSession(::getpid(), 0, leader.Process()));
  EXPECT_TRUE(process_tree::HasEnded(leader.Process()));
  EXPECT_FALSE(process_tree::HasEnded(other.Process()));
  EXPECT_FALSE(process_tree::HasEnded(family.Child()));
}

TEST(ProcessTreeTest, NoSessionIsThatOfAProcessThatDoesNotExist) {
  const Family family;
  EXPECT_TRUE(process_tree::KillSession(::getpid(), 0, -1));
  EXPECT_FALSE(process_tree::HasEnded(family.Parent()));
}

TEST(ProcessTreeTest, ProcessWithTheVariableIsKilledAndNoOther) {
  ChildProcess marked({.words = {"/bin/sleep", "1000"}, .environment = {{"MARK", "of this test"}}});
  const Family family;
  // Until it executes its program, its environment is that of this process.
  siginfo_t info{};
  while (info.si_pid == 0) {
    ASSERT_TRUE(process_tree::KillWith("MARK=of this test"));
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(marked.Id()), &info, WEXITED | WNOWAIT | WNOHANG),
              0);
  }
  EXPECT_EQ(marked.Wait().number, SIGKILL);
  EXPECT_THAT(process_tree::Below(::getpid(), 0), Contains(family.Parent()));
}

}  // namespace
}  // namespace orvane
