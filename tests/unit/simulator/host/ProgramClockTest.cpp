#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <system_error>

#include "simulator/host/ProgramClock.h"
#include "tests/doubles/ScratchDirectory.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

/// The clock as a program has it.
class MappedClock {
 public:
  explicit MappedClock(const char* path) {
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    memory_ = ::mmap(nullptr, sizeof(TimePage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
  }
  MappedClock(const MappedClock&) = delete;
  MappedClock& operator=(const MappedClock&) = delete;
  ~MappedClock() { ::munmap(memory_, sizeof(TimePage)); }

  TimePage* operator->() const { return static_cast<TimePage*>(memory_); }

 private:
  void* memory_ = nullptr;
};

class ProgramClockTest : public testing::Test {
 protected:
  const ScratchDirectory directory_;
  ProgramClock clock_{"time"};
  const MappedClock program_{"time"};
};

TEST_F(ProgramClockTest, ShowsTheMachinesClockAtFirst) {
  const nanoseconds machine = std::chrono::steady_clock::now().time_since_epoch();
  EXPECT_LE(program_->Now(), machine.count());
  EXPECT_GT(program_->Now(), (machine - std::chrono::minutes(1)).count());
}

TEST_F(ProgramClockTest, LookMovesItBy200Nanoseconds) {
  const std::int64_t start = program_->Now();
  EXPECT_EQ(program_->Look(), start + 200);
  EXPECT_EQ(program_->Look(), start + 400);
  EXPECT_EQ(clock_.Take().looks, nanoseconds(400));
}

TEST_F(ProgramClockTest, WhatHasPassedIsTakenOnce) {
  program_->Look();
  program_->waited += 7;
  EXPECT_EQ(clock_.Take().waits, nanoseconds(7));
  const ProgramClock::Passed passed = clock_.Take();
  EXPECT_EQ(passed.looks, nanoseconds(0));
  EXPECT_EQ(passed.waits, nanoseconds(0));
}

TEST_F(ProgramClockTest, ShowsInstrumentTimeAndWhatHasPassedSinceItWasTaken) {
  const std::int64_t start = program_->Now();
  program_->Look();
  EXPECT_EQ(clock_.Take().looks, nanoseconds(200));
  program_->Look();  // not taken yet
  clock_.Show(nanoseconds(1'000'200));
  EXPECT_EQ(program_->Now(), start + 1'000'400);
}

TEST_F(ProgramClockTest, FileThatIsThereAlreadyIsRefused) {
  EXPECT_THROW(const ProgramClock second("time"), std::system_error);
}

}  // namespace
}  // namespace orvane
