#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>

#include "base/FileDescriptor.h"
#include "companion/process/SharedMemory.h"
#include "companion/process/SignalWatch.h"
#include "companion/process/Worker.h"
#include "tests/unit/companion/FailingCalls.h"

FAILING_CALL(pid_t, fork, (), ())
FAILING_CALL(int, pipe2, (int* ends, int flags), (ends, flags))
FAILING_CALL(int,
             poll,
             (pollfd * descriptors, nfds_t count, int milliseconds),
             (descriptors, count, milliseconds))

extern "C" {

int __real_fcntl(int file, int command, ...);
int __wrap_fcntl(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const int argument = va_arg(arguments, int);
  va_end(arguments);
  return FailingCalls::Fails("fcntl") ? -1 : __real_fcntl(file, command, argument);
}

void* __real_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset);
void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
  return FailingCalls::Fails("mmap")
             ? MAP_FAILED
             : __real_mmap(address, length, protection, flags, file, offset);
}

}  // extern "C"

namespace companion {
namespace {

constexpr unsigned kLimitSeconds = 60;

class WorkerTest : public testing::Test {
 protected:
  WorkerEnding Run(const Worker::Task& task,
                   unsigned limitSeconds = kLimitSeconds,
                   const std::function<void()>& woken = {}) {
    return Worker::Run(task, limitSeconds, signals_, woken);
  }

  SignalWatch signals_;
  SharedMemory<std::atomic<int>> value_;
};

TEST_F(WorkerTest, TaskThatReturnsHasNoProblem) {
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 7; });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(ending.exitCode, 0);
  EXPECT_EQ(ending.signal, 0);
  EXPECT_EQ(*value_, 7);
}

TEST_F(WorkerTest, WhatItPrintsIsCapturedInTrueOrder) {
  const WorkerEnding ending = Run([](const WorkerSide&) {
    std::cout << "one" << std::endl;
    std::cerr << "two" << std::endl;
    std::printf("three\n");
  });
  EXPECT_EQ(ending.console, "one\ntwo\nthree\n");
}

TEST_F(WorkerTest, WhatWasPrintedBeforeIsNotPrintedAgain) {
  testing::internal::CaptureStdout();
  std::printf("before ");
  const WorkerEnding ending = Run([](const WorkerSide&) { std::printf("in the worker"); });
  EXPECT_EQ(ending.console, "in the worker");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before ");
}

TEST_F(WorkerTest, ConsoleOfMoreThan64KibIsCut) {
  const WorkerEnding ending =
      Run([](const WorkerSide&) { std::cout << std::string(200'000, 'x') << std::endl; });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(ending.console, std::string(65'536, 'x'));
}

TEST_F(WorkerTest, ExceptionIsAProblemAndItsTextIsOnTheConsole) {
  const WorkerEnding ending =
      Run([](const WorkerSide&) { throw std::runtime_error("no such service"); });
  EXPECT_EQ(ending.problem, "its process ended with 1");
  EXPECT_EQ(ending.console, "no such service\n");
}

TEST_F(WorkerTest, ExitOfTheTaskIsAProblem) {
  const WorkerEnding ending = Run([](const WorkerSide&) { std::exit(1); });
  EXPECT_EQ(ending.problem, "its process ended with 1");
  EXPECT_EQ(ending.exitCode, 1);
}

TEST_F(WorkerTest, FailureAfterTheTaskIsAProblem) {
  const WorkerEnding ending =
      Run([](const WorkerSide&) { static_cast<void>(std::atexit([] { ::_exit(3); })); });
  EXPECT_EQ(ending.problem, "its process ended with 3");
  EXPECT_EQ(ending.exitCode, 3);
}

TEST_F(WorkerTest, DeathBySignalIsAProblem) {
  const WorkerEnding ending = Run([](const WorkerSide&) { ::raise(SIGKILL); });
  EXPECT_EQ(ending.problem, "its process was ended by signal 9 (Killed)");
  EXPECT_EQ(ending.exitCode, std::nullopt);
  EXPECT_EQ(ending.signal, SIGKILL);
}

TEST_F(WorkerTest, TaskThatHangsIsEndedAtItsLimit) {
  const WorkerEnding ending = Run(
      [](const WorkerSide&) {
        for (;;) {
          ::pause();
        }
      },
      1);
  EXPECT_EQ(ending.problem, "its process did not end within 1 s");
  EXPECT_EQ(ending.signal, SIGALRM);
}

TEST_F(WorkerTest, TaskThatHangsIsEndedOnceItIsGivenUp) {
  const WorkerEnding ending = Worker::Run(
      [](const WorkerSide& side) {
        side.WakeParent();
        for (;;) {
          ::pause();
        }
      },
      kLimitSeconds,
      signals_,
      {},
      [] { return true; });
  EXPECT_EQ(ending.signal, SIGKILL);
}

TEST_F(WorkerTest, StopSignalsAndBrokenPipesAreIgnoredInTheWorker) {
  const WorkerEnding ending = Run([](const WorkerSide&) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
      ::raise(signal);
    }
  });
  EXPECT_EQ(ending.problem, "");
}

TEST_F(WorkerTest, WorkerIsAProcessGroupOfItsOwn) {
  Run([&](const WorkerSide&) { *value_ = ::getpgrp() == ::getpid() ? 1 : 2; });
  EXPECT_EQ(*value_, 1);
}

TEST_F(WorkerTest, StandardInputIsEmpty) {
  Run([&](const WorkerSide&) {
    char byte = 0;
    *value_ = ::read(STDIN_FILENO, &byte, 1) == 0 ? 1 : 2;
  });
  EXPECT_EQ(*value_, 1);
}

TEST_F(WorkerTest, ParentIsWokenWhileItWaits) {
  int seen = 0;
  SharedMemory<std::atomic<bool>> goOn;
  const WorkerEnding ending = Run(
      [&](const WorkerSide& side) {
        *value_ = 42;
        side.WakeParent();
        while (!*goOn) {
          ::sched_yield();
        }
      },
      kLimitSeconds,
      [&] {
        seen = *value_;
        *goOn = true;
      });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(seen, 42);
}

TEST_F(WorkerTest, WakingAParentThatDoesNotCareIsAllowed) {
  EXPECT_EQ(Run([](const WorkerSide& side) { side.WakeParent(); }).problem, "");
}

TEST_F(WorkerTest, StopSignalIsReadWhileTheParentWaits) {
  int stops = 0;
  SharedMemory<std::atomic<bool>> goOn;
  signals_.OnStop([&](int signal, int count) {
    EXPECT_EQ(signal, SIGTERM);
    stops = count;
    *goOn = true;
  });
  const WorkerEnding ending = Run([&](const WorkerSide&) {
    ::kill(::getppid(), SIGTERM);
    while (!*goOn) {
      ::sched_yield();
    }
  });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(stops, 1);
}

TEST_F(WorkerTest, WorkerThatClosesItsConsoleIsWaitedFor) {
  const WorkerEnding ending = Run([&](const WorkerSide& side) {
    ::close(STDOUT_FILENO);
    ::close(STDERR_FILENO);
    side.WakeParent();
    *value_ = 3;
  });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(*value_, 3);
}

TEST_F(WorkerTest, ParentIsThereWhileItWaits) {
  Run([&](const WorkerSide& side) { *value_ = side.ParentIsGone() ? 1 : 2; });
  EXPECT_EQ(*value_, 2);
}

TEST_F(WorkerTest, WorkerOutlivesItsParentAndIsTold) {
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const FileDescriptor end(pipe[0]);
  FileDescriptor writeEnd(pipe[1]);
  const pid_t parent = ::fork();
  ASSERT_GE(parent, 0);
  if (parent == 0) {
    Run([&](const WorkerSide& side) {
      ::kill(::getppid(), SIGKILL);
      while (!side.ParentIsGone()) {
        ::sched_yield();
      }
      std::cout << "nobody reads this" << std::endl;
      side.WakeParent();
      const char told = 't';
      static_cast<void>(::write(writeEnd.Get(), &told, 1) == 1);
    });
    ::_exit(0);
  }
  static_cast<void>(writeEnd.Close());
  int status = 0;
  ASSERT_EQ(::waitpid(parent, &status, 0), parent);
  EXPECT_TRUE(WIFSIGNALED(status));
  char told = 0;
  EXPECT_EQ(::read(end.Get(), &told, 1), 1);
  EXPECT_EQ(told, 't');
}

/// While it lives, no descriptor can be made.
class NoDescriptorsLeft {
 public:
  explicit NoDescriptorsLeft(rlim_t limit) {
    ::getrlimit(RLIMIT_NOFILE, &former_);
    const rlimit none = {.rlim_cur = limit, .rlim_max = former_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
  NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;
  ~NoDescriptorsLeft() { ::setrlimit(RLIMIT_NOFILE, &former_); }

 private:
  rlimit former_{};
};

TEST_F(WorkerTest, WorkerThatCannotBeStartedIsAProblem) {
  const NoDescriptorsLeft none(0);
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 1; });
  EXPECT_EQ(ending.problem, "cannot start a process for it: Too many open files");
  EXPECT_EQ(ending.exitCode, std::nullopt);
  EXPECT_EQ(*value_, 0);
}

TEST_F(WorkerTest, WorkerWhoseProcessCannotBeMadeIsAProblem) {
  const FailingCalls failing("fork", EAGAIN);
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 1; });
  EXPECT_EQ(ending.problem, "cannot start a process for it: Resource temporarily unavailable");
  EXPECT_EQ(ending.exitCode, std::nullopt);
  EXPECT_EQ(*value_, 0);
}

TEST_F(WorkerTest, WorkerWhoseConsoleCouldBlockItsParentIsNotStarted) {
  const FailingCalls failing("fcntl", EINVAL);
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 1; });
  EXPECT_EQ(ending.problem, "cannot start a process for it: Invalid argument");
  EXPECT_EQ(*value_, 0);
}

TEST_F(WorkerTest, WorkerWithoutSharedMemoryIsNotStarted) {
  const FailingCalls failing("mmap", ENOMEM);
  EXPECT_THROW(Run([&](const WorkerSide&) { *value_ = 1; }), std::bad_alloc);
  EXPECT_EQ(*value_, 0);
}

TEST_F(WorkerTest, WorkerWhoseInputCannotBeEmptiedWorksAllTheSame) {
  const FailingCalls failing("pipe2", EMFILE, FailingCalls::kAll, 1);  // the console has one
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 7; });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(*value_, 7);
}

TEST_F(WorkerTest, WaitThatIsInterruptedGoesOn) {
  const FailingCalls failing("poll", EINTR, 1);
  SharedMemory<std::atomic<bool>> goOn;
  const WorkerEnding ending = Run(
      [&](const WorkerSide& side) {
        side.WakeParent();
        while (!*goOn) {
          ::sched_yield();
        }
      },
      kLimitSeconds,
      [&] { *goOn = true; });
  EXPECT_EQ(ending.problem, "");
  EXPECT_EQ(failing.Failed(), 1);
}

TEST_F(WorkerTest, WorkerThatCannotWakeItsParentIsNotStarted) {
  const FileDescriptor lowest(::dup(STDIN_FILENO));
  const NoDescriptorsLeft none(static_cast<rlim_t>(lowest.Get()) + 3);  // enough for a pipe
  const WorkerEnding ending = Run([&](const WorkerSide&) { *value_ = 1; });
  EXPECT_EQ(ending.problem, "cannot start a process for it: Too many open files");
  EXPECT_EQ(*value_, 0);
}

}  // namespace
}  // namespace companion
