#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include "base/FileDescriptor.h"

namespace {

static_assert(!std::is_copy_constructible_v<FileDescriptor>);
static_assert(!std::is_copy_assignable_v<FileDescriptor>);
static_assert(!std::is_move_assignable_v<FileDescriptor>);

int OpenAny() { return ::open("/dev/null", O_RDONLY); }

bool IsOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

TEST(FileDescriptorTest, HoldsNothingUnlessGivenADescriptor) {
  const FileDescriptor descriptor;
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_EQ(descriptor.Get(), -1);
}

TEST(FileDescriptorTest, TakesAFailedOpenForNothing) {
  const FileDescriptor descriptor(::open("/nonexistent", O_RDONLY));
  EXPECT_FALSE(descriptor.IsOpen());
}

TEST(FileDescriptorTest, ClosesAtItsEnd) {
  const int fd = OpenAny();
  ASSERT_GE(fd, 0);
  {
    const FileDescriptor descriptor(fd);
    EXPECT_TRUE(descriptor.IsOpen());
    EXPECT_EQ(descriptor.Get(), fd);
  }
  EXPECT_FALSE(IsOpen(fd));
}

TEST(FileDescriptorTest, ReleasedDescriptorStaysOpen) {
  const int fd = OpenAny();
  ASSERT_GE(fd, 0);
  {
    FileDescriptor descriptor(fd);
    EXPECT_EQ(descriptor.Release(), fd);
    EXPECT_FALSE(descriptor.IsOpen());
  }
  EXPECT_TRUE(IsOpen(fd));
  ::close(fd);
}

TEST(FileDescriptorTest, CloseClosesAtOnceAndOnlyOnce) {
  const int fd = OpenAny();
  ASSERT_GE(fd, 0);
  FileDescriptor descriptor(fd);
  EXPECT_EQ(descriptor.Close(), 0);
  EXPECT_FALSE(descriptor.IsOpen());
  EXPECT_FALSE(IsOpen(fd));
}

TEST(FileDescriptorTest, CloseOfNothingFailsWithTheSystemsError) {
  FileDescriptor descriptor;
  errno = 0;
  EXPECT_EQ(descriptor.Close(), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(FileDescriptorTest, MovedFromGivesItsDescriptorUp) {
  const int fd = OpenAny();
  ASSERT_GE(fd, 0);
  FileDescriptor first(fd);
  {
    const FileDescriptor second(std::move(first));
    EXPECT_EQ(second.Get(), fd);
    EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move): what is left is the test
  }
  EXPECT_FALSE(IsOpen(fd));
}

}  // namespace
