#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "base/FileDescriptor.h"
#include "simulator/host/FileWatch.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FileWatchTest : public testing::Test {
 protected:
  FileDescriptor Open(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  }
  static void Write(const FileDescriptor& file) { EXPECT_EQ(::write(file.Get(), "x", 1), 1); }

  ::TemporaryDirectory directory_;
  const std::string first_ = directory_.File("first", "");
  const std::string second_ = directory_.File("second", "");
  FileWatch watch_;
};

TEST_F(FileWatchTest, TellsNothingWithoutAWrite) {
  watch_.Add(first_);
  const FileDescriptor file = Open(first_);
  EXPECT_THAT(watch_.Read(), IsEmpty());
}

TEST_F(FileWatchTest, TellsFilesInTheOrderOfTheirWrites) {
  const int first = watch_.Add(first_);
  const int second = watch_.Add(second_);
  const FileDescriptor fileA = Open(first_);
  const FileDescriptor fileB = Open(second_);
  Write(fileB);
  Write(fileA);
  Write(fileB);
  EXPECT_THAT(watch_.Read(), ElementsAre(second, first, second));
}

TEST_F(FileWatchTest, TellsAWriteOnce) {
  const int first = watch_.Add(first_);
  const FileDescriptor file = Open(first_);
  Write(file);
  EXPECT_THAT(watch_.Read(), ElementsAre(first));
  EXPECT_THAT(watch_.Read(), IsEmpty());
}

TEST_F(FileWatchTest, TellsMoreWritesThanOneReadHolds) {
  constexpr std::size_t kPairs = 300;
  watch_.Add(first_);
  watch_.Add(second_);
  const FileDescriptor fileA = Open(first_);
  const FileDescriptor fileB = Open(second_);
  for (std::size_t i = 0; i < kPairs; ++i) {
    Write(fileA);
    Write(fileB);
  }
  EXPECT_EQ(watch_.Read().size(), 2 * kPairs);
}

TEST_F(FileWatchTest, TellsNothingOfAWatchThatIsRemoved) {
  const int first = watch_.Add(first_);
  const FileDescriptor file = Open(first_);
  watch_.Remove(first);
  Write(file);
  EXPECT_THAT(watch_.Read(), IsEmpty());
}

TEST_F(FileWatchTest, ThrowsForAFileThatDoesNotExist) {
  EXPECT_THROW(watch_.Add(directory_.Path() + "/none"), std::system_error);
}

TEST_F(FileWatchTest, ThrowsWhenTheKernelHasLostWrites) {
  watch_.Add(first_);
  watch_.Add(second_);
  const FileDescriptor fileA = Open(first_);
  const FileDescriptor fileB = Open(second_);
  std::size_t most = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
  ASSERT_GT(most, 0U);
  for (std::size_t i = 0; i < most; ++i) {
    Write(fileA);
    Write(fileB);
  }
  EXPECT_THROW(watch_.Read(), std::runtime_error);
}

TEST_F(FileWatchTest, ThrowsWhenNoDescriptorIsLeft) {
  if (HAS_SANITIZERS) {
    GTEST_SKIP() << "the sanitizers need descriptors too";
  }
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {.rlim_cur = 3, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_THROW(FileWatch(), std::system_error);
  EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

}  // namespace
}  // namespace orvane
