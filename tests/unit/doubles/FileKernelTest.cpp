#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "tests/doubles/FakeClock.h"
#include "tests/doubles/FileKernel.h"

namespace {

using testing::ElementsAre;

TEST(FileKernelTest, FilesAreReadAndWrittenInMemoryAndEachCallIsLogged) {
  EventLog log;
  FileKernel kernel(&log);
  kernel.files["old"] = "0123456789";
  char bytes[4] = {};

  EXPECT_EQ(::open("old", O_RDONLY), 100);
  EXPECT_EQ(::open("new", O_WRONLY | O_CREAT, 0600), 101);
  EXPECT_EQ(::lseek(100, 8, SEEK_SET), 8);
  EXPECT_EQ(::read(100, bytes, 4), 2);
  EXPECT_EQ(bytes[0], '8');
  EXPECT_EQ(::read(100, bytes, 4), 0);
  EXPECT_EQ(::write(101, "ab", 2), 2);
  EXPECT_EQ(::write(101, "c", 1), 1);
  EXPECT_THAT(kernel.OpenFiles(), ElementsAre("old", "new"));
  EXPECT_EQ(::close(100), 0);
  EXPECT_EQ(kernel.OpenCount("old"), 0U);
  EXPECT_EQ(kernel.files["new"], "abc");
  EXPECT_FALSE(kernel.Disturbed());
  EXPECT_THAT(log.Take(),
              ElementsAre("open(\"old\", 0)",
                          "open(\"new\", 65, 384)",
                          "lseek(100, 8, 0)",
                          "read(100, 4)",
                          "read(100, 4)",
                          "write(101, [61 62])",
                          "write(101, [63])",
                          "close(100)"));
}

TEST(FileKernelTest, MissingFileOrDescriptorFails) {
  const FileKernel kernel;
  EXPECT_EQ(::open("missing", O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(::close(-1), -1);
  EXPECT_EQ(errno, EBADF);
  errno = 0;
  EXPECT_EQ(::ioctl(-1, 0, nullptr), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(FileKernelTest, DescriptorsOfTheSystemReachTheSystem) {
  int ends[2] = {};
  ASSERT_EQ(::pipe(ends), 0);
  const FileKernel kernel;
  char byte = '\0';
  EXPECT_EQ(::write(ends[1], "x", 1), 1);
  EXPECT_EQ(::read(ends[0], &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(::close(ends[0]), 0);
  EXPECT_EQ(::close(ends[1]), 0);
}

TEST(FileKernelDeathTest, DescriptorThatIsNotOpenEndsTheProcess) {
  const FileKernel kernel;
  EXPECT_DEATH(static_cast<void>(::close(100)), "only open descriptors are used");
}

TEST(FileKernelTest, FateFailsACallOrCutsIt) {
  FileKernel kernel;
  kernel.files["file"] = "0123456789";
  std::string asked;
  FileKernel::Fate fate;
  kernel.decide = [&](const char* call, const std::string& path) {
    asked += std::string(call) + " " + path + "\n";
    return fate;
  };
  const int fd = ::open("file", O_RDWR);
  char bytes[4] = {};
  fate = {.most = 3};
  EXPECT_EQ(::read(fd, bytes, 3), 3);
  EXPECT_FALSE(kernel.Disturbed());
  EXPECT_EQ(::read(fd, bytes, 4), 3);
  EXPECT_TRUE(kernel.Disturbed());
  EXPECT_EQ(::write(fd, "abcd", 4), 3);
  EXPECT_EQ(kernel.files["file"], "012345abc9");
  fate = {.error = EIO};
  EXPECT_EQ(::lseek(fd, 0, SEEK_SET), -1);
  EXPECT_EQ(::read(fd, bytes, 4), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(::close(fd), -1);
  EXPECT_TRUE(kernel.OpenFiles().empty());
  EXPECT_EQ(asked,
            "open file\nread file\nread file\nwrite file\nlseek file\nread file\nclose file\n");
}

TEST(FileKernelTest, SleepsTakeTimeOnTheFakeClockAlone) {
  const FakeClock clock;
  FileKernel kernel;
  timespec time = {.tv_sec = 3, .tv_nsec = 0};
  EXPECT_EQ(::usleep(250'000), 0);
  EXPECT_EQ(::sleep(2), 0U);
  EXPECT_EQ(::nanosleep(&time, nullptr), 0);
  EXPECT_EQ(FakeClock::Passed(), std::chrono::milliseconds(5250));
}

TEST(FileKernelTest, InterruptedNanosleepLeavesHalf) {
  const FakeClock clock;
  FileKernel kernel(
      nullptr, [](const char*, const std::string&) { return FileKernel::Fate{.error = EINTR}; });
  timespec time = {.tv_sec = 3, .tv_nsec = 0};
  EXPECT_EQ(::nanosleep(&time, &time), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(time.tv_sec, 1);
  EXPECT_EQ(time.tv_nsec, 500'000'000);
  EXPECT_FALSE(kernel.Disturbed());
}

}  // namespace
