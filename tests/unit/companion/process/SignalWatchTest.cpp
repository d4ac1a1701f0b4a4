#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <system_error>
#include <utility>
#include <vector>

#include "companion/process/SignalWatch.h"
#include "tests/unit/companion/FailingCalls.h"

FAILING_CALL(int, signalfd, (int file, const sigset_t* mask, int flags), (file, mask, flags))

namespace {

using companion::SignalWatch;
using Stops = std::vector<std::pair<int, int>>;

/// Every test begins with the default actions and an empty mask.
class SignalWatchTest : public testing::Test {
 protected:
  SignalWatchTest() { Reset(); }
  ~SignalWatchTest() override { Reset(); }

  static void Reset() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ, SIGALRM, SIGCHLD}) {
      ::signal(signal, SIG_DFL);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
  }

  static bool IsReadable(const SignalWatch& watch, int milliseconds = 0) {
    pollfd descriptor = {.fd = watch.Descriptor(), .events = POLLIN, .revents = 0};
    return ::poll(&descriptor, 1, milliseconds) == 1;
  }

  static auto Action(int signal) {
    struct sigaction action {};
    ::sigaction(signal, nullptr, &action);
    return action.sa_handler;
  }

  static bool IsBlocked(int signal) {
    sigset_t mask;
    ::sigprocmask(SIG_BLOCK, nullptr, &mask);
    return ::sigismember(&mask, signal) == 1;
  }

  /// @return the exit code of a child that runs `check` after ResetInChild(); 128 + the signal
  static int InChild(const std::function<int()>& check) {
    const pid_t id = ::fork();
    if (id == 0) {
      SignalWatch::ResetInChild();
      ::_exit(check());
    }
    int status = 0;
    ::waitpid(id, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
};

TEST_F(SignalWatchTest, NothingIsReadWhereNothingHasArrived) {
  SignalWatch watch;
  EXPECT_FALSE(IsReadable(watch));
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 0);
}

TEST_F(SignalWatchTest, StopSignalsAreCountedTogether) {
  SignalWatch watch;
  Stops stops;
  watch.OnStop([&](int signal, int count) { stops.emplace_back(signal, count); });
  ::kill(::getpid(), SIGINT);
  EXPECT_TRUE(IsReadable(watch));
  watch.Read();
  ::kill(::getpid(), SIGTERM);
  watch.Read();
  ::kill(::getpid(), SIGHUP);
  watch.Read();
  EXPECT_EQ(stops, (Stops{{SIGINT, 1}, {SIGTERM, 2}, {SIGHUP, 3}}));
  EXPECT_EQ(watch.StopSignals(), 3);
  EXPECT_FALSE(IsReadable(watch));
}

TEST_F(SignalWatchTest, StopSignalsThatArriveAtOnceAreReadAtOnce) {
  SignalWatch watch;
  ::kill(::getpid(), SIGINT);
  ::kill(::getpid(), SIGTERM);
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 2);
}

TEST_F(SignalWatchTest, StopSignalsAreCountedWithoutACallback) {
  SignalWatch watch;
  ::kill(::getpid(), SIGTERM);
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 1);
}

TEST_F(SignalWatchTest, SignalIgnoredAtTheStartStaysIgnoredAndIsNotCounted) {
  ::signal(SIGHUP, SIG_IGN);
  SignalWatch watch;
  ::kill(::getpid(), SIGHUP);
  EXPECT_FALSE(IsReadable(watch));
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 0);
  EXPECT_EQ(Action(SIGHUP), SIG_IGN);
  ::kill(::getpid(), SIGINT);
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 1);
}

TEST_F(SignalWatchTest, EndOfAChildMakesTheDescriptorReadableAndIsNoStopSignal) {
  SignalWatch watch;
  const pid_t id = ::fork();
  if (id == 0) {
    ::_exit(7);
  }
  EXPECT_TRUE(IsReadable(watch, -1));
  watch.Read();
  EXPECT_EQ(watch.StopSignals(), 0);
  int status = 0;
  EXPECT_EQ(::waitpid(id, &status, 0), id);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(SignalWatchTest, ChildCanBeWaitedForWhereSIGCHLDWasIgnoredAtTheStart) {
  ::signal(SIGCHLD, SIG_IGN);
  SignalWatch watch;
  const pid_t id = ::fork();
  if (id == 0) {
    ::_exit(7);
  }
  EXPECT_TRUE(IsReadable(watch, -1));
  int status = 0;
  EXPECT_EQ(::waitpid(id, &status, 0), id);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(SignalWatchTest, WriteToAClosedPipeFailsInsteadOfEndingTheProcess) {
  const SignalWatch watch;
  int ends[2] = {};
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  EXPECT_EQ(::write(ends[1], "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  ::close(ends[1]);
}

TEST_F(SignalWatchTest, DescriptorIsClosedByExec) {
  const SignalWatch watch;
  EXPECT_EQ(::fcntl(watch.Descriptor(), F_GETFD), FD_CLOEXEC);
}

TEST_F(SignalWatchTest, EndRestoresWhatWasSetBefore) {
  ::signal(SIGCHLD, SIG_IGN);
  {
    const SignalWatch watch;
    EXPECT_TRUE(IsBlocked(SIGINT));
    EXPECT_EQ(Action(SIGPIPE), SIG_IGN);
    EXPECT_EQ(Action(SIGXFSZ), SIG_IGN);
    EXPECT_EQ(Action(SIGCHLD), SIG_DFL);
  }
  EXPECT_FALSE(IsBlocked(SIGINT));
  EXPECT_EQ(Action(SIGPIPE), SIG_DFL);
  EXPECT_EQ(Action(SIGXFSZ), SIG_DFL);
  EXPECT_EQ(Action(SIGCHLD), SIG_IGN);
}

TEST_F(SignalWatchTest, StopSignalThatNobodyHasReadIsForgottenAtTheEnd) {
  int stops = 0;
  {
    SignalWatch watch;
    watch.OnStop([&](int /*signal*/, int count) { stops = count; });
    ::kill(::getpid(), SIGTERM);
  }
  EXPECT_EQ(stops, 0);  // and this process still runs
}

TEST_F(SignalWatchTest, WithoutADescriptorItCannotBeMade) {
  const FailingCalls failing("signalfd", EMFILE);
  EXPECT_THROW(const SignalWatch watch, std::system_error);
  EXPECT_FALSE(IsBlocked(SIGINT));
}

TEST_F(SignalWatchTest, ChildIgnoresStopSignalsAndAClosedConsole) {
  const SignalWatch watch;
  EXPECT_EQ(InChild([] {
              for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) {
                ::kill(::getpid(), signal);
              }
              return 7;
            }),
            7);
}

TEST_F(SignalWatchTest, ChildIsEndedByAnAlarmThatWasIgnoredAndBlockedBefore) {
  ::signal(SIGALRM, SIG_IGN);
  sigset_t alarm;
  ::sigemptyset(&alarm);
  ::sigaddset(&alarm, SIGALRM);
  ::sigprocmask(SIG_BLOCK, &alarm, nullptr);
  const SignalWatch watch;
  EXPECT_EQ(InChild([] {
              ::kill(::getpid(), SIGALRM);
              return 7;
            }),
            128 + SIGALRM);
}

TEST_F(SignalWatchTest, ChildHasNoSignalBlocked) {
  const SignalWatch watch;
  EXPECT_EQ(InChild([] {
              int blocked = 0;
              for (int signal = 1; signal < SIGRTMAX; ++signal) {
                blocked += IsBlocked(signal) ? 1 : 0;
              }
              return blocked;
            }),
            0);
}

}  // namespace
