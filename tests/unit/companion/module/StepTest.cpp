#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "companion/module/Step.h"
#include "companion/process/Worker.h"

namespace companion {
namespace {

constexpr int kNoDescriptor = -1;

std::string Checked(const Interruption& interruption) {
  try {
    interruption.Check();
  } catch (const StepFailed& failed) {
    return failed.what();
  }
  return "goes on";
}

TEST(StepTest, GoesOnUntilItIsStopped) {
  std::atomic<bool> stop = false;
  const WorkerSide side(::getppid(), kNoDescriptor);
  const Interruption interruption(stop, side);
  EXPECT_EQ(Checked(interruption), "goes on");
  stop = true;
  EXPECT_EQ(Checked(interruption), "stopped");
}

TEST(StepTest, EndsWhenTheParentIsGone) {
  const std::atomic<bool> stop = false;
  const WorkerSide side(::getpid(), kNoDescriptor);  // never the parent
  EXPECT_EQ(Checked(Interruption(stop, side)), "the process that waits for the result has ended");
}

}  // namespace
}  // namespace companion
