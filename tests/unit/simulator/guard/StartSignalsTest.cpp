#include <gtest/gtest.h>

#include "simulator/guard/StartSignals.h"

namespace orvane {
namespace {

bool IsIgnored(int signal) {
  struct sigaction action {};
  EXPECT_EQ(::sigaction(signal, nullptr, &action), 0);
  return action.sa_handler == SIG_IGN;
}

bool IsBlocked(int signal) {
  sigset_t blocked;
  EXPECT_EQ(::sigprocmask(SIG_SETMASK, nullptr, &blocked), 0);
  return ::sigismember(&blocked, signal) == 1;
}

void Block(int signal, int how) {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  EXPECT_EQ(::sigprocmask(how, &set, nullptr), 0);
}

TEST(StartSignalsTest, TellsWhichSignalsAreIgnored) {
  ASSERT_NE(::signal(SIGUSR1, SIG_IGN), SIG_ERR);
  ASSERT_NE(::signal(SIGUSR2, SIG_DFL), SIG_ERR);
  const StartSignals start;
  EXPECT_TRUE(start.Ignores(SIGUSR1));
  EXPECT_FALSE(start.Ignores(SIGUSR2));
}

TEST(StartSignalsTest, RestoreIgnoresWhatWasIgnored) {
  ASSERT_NE(::signal(SIGUSR1, SIG_IGN), SIG_ERR);
  const StartSignals start;
  ASSERT_NE(::signal(SIGUSR1, SIG_DFL), SIG_ERR);
  start.Restore();
  EXPECT_TRUE(IsIgnored(SIGUSR1));
}

TEST(StartSignalsTest, RestoreTakesBackWhatWasNotIgnored) {
  ASSERT_NE(::signal(SIGUSR2, SIG_DFL), SIG_ERR);
  const StartSignals start;
  ASSERT_NE(::signal(SIGUSR2, SIG_IGN), SIG_ERR);
  start.Restore();
  EXPECT_FALSE(IsIgnored(SIGUSR2));
}

TEST(StartSignalsTest, RestoreBlocksWhatWasBlockedAndNothingElse) {
  Block(SIGUSR1, SIG_BLOCK);
  Block(SIGUSR2, SIG_UNBLOCK);
  const StartSignals start;
  Block(SIGUSR1, SIG_UNBLOCK);
  Block(SIGUSR2, SIG_BLOCK);
  start.Restore();
  EXPECT_TRUE(IsBlocked(SIGUSR1));
  EXPECT_FALSE(IsBlocked(SIGUSR2));
}

}  // namespace
}  // namespace orvane
