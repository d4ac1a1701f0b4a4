#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>

#include "app/StandardDescriptors.h"

namespace {

constexpr int kHighestDescriptor = 1023;

/// The target of every open descriptor, and its flags.
struct Descriptor {
  dev_t device;
  ino_t node;
  int statusFlags;
  int descriptorFlags;
  bool operator==(const Descriptor&) const = default;
};

struct Table {
  std::array<Descriptor, kHighestDescriptor + 1> rows;
  std::array<bool, kHighestDescriptor + 1> open;
};

Table CurrentTable() {
  Table table = {};
  for (int fd = 0; fd <= kHighestDescriptor; ++fd) {
    struct stat status = {};
    const auto row = static_cast<std::size_t>(fd);
    table.open[row] = ::fstat(fd, &status) == 0;
    if (table.open[row]) {
      table.rows[row] = {status.st_dev, status.st_ino, ::fcntl(fd, F_GETFL), ::fcntl(fd, F_GETFD)};
    }
  }
  return table;
}

bool IsDevNull(int fd) {
  struct stat status = {};
  struct stat devNull = {};
  return ::fstat(fd, &status) == 0 && ::stat("/dev/null", &devNull) == 0 &&
         status.st_rdev == devNull.st_rdev && S_ISCHR(status.st_mode);
}

// What a child process found, as its exit code.
enum Finding : int {
  kAsWanted = 0,
  kMissing,
  kNotDevNull,
  kNotReadWrite,
  kClosedOnExec,
  kChanged,
  kMoreOpened,
};

/// Closes `closed`, lets the gaps be filled and checks every descriptor.
Finding Look(const std::set<int>& closed) {
  for (const int fd : closed) {
    ::close(fd);
  }
  const Table before = CurrentTable();
  openMissingStandardDescriptors();
  const Table after = CurrentTable();
  for (int fd = 0; fd <= kHighestDescriptor; ++fd) {
    const auto row = static_cast<std::size_t>(fd);
    if (closed.contains(fd)) {
      if (!after.open[row]) {
        return kMissing;
      }
      if (!IsDevNull(fd)) {
        return kNotDevNull;
      }
      if ((after.rows[row].statusFlags & O_ACCMODE) != O_RDWR) {
        return kNotReadWrite;
      }
      if (after.rows[row].descriptorFlags != 0) {
        return kClosedOnExec;
      }
    } else if (before.open[row] != after.open[row]) {
      return kMoreOpened;
    } else if (before.open[row] && before.rows[row] != after.rows[row]) {
      return kChanged;
    }
  }
  return kAsWanted;
}

class StandardDescriptorsTest : public testing::TestWithParam<std::set<int>> {};

TEST_P(StandardDescriptorsTest, DevNullTakesThePlaceOfTheClosedOnesAndNothingElseChanges) {
  // Pipes, so that none of the three is /dev/null by chance.
  std::array<int, 2> ends = {};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::dup2(ends[0], STDIN_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::_exit(Look(GetParam()));
  }
  ::close(ends[0]);
  ::close(ends[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kAsWanted);
}

INSTANTIATE_TEST_SUITE_P(Closed,
                         StandardDescriptorsTest,
                         testing::Values(std::set<int>{},
                                         std::set<int>{0},
                                         std::set<int>{1},
                                         std::set<int>{2},
                                         std::set<int>{0, 1},
                                         std::set<int>{0, 2},
                                         std::set<int>{1, 2},
                                         std::set<int>{0, 1, 2}),
                         [](const auto& row) {
                           std::string name;
                           for (const int fd : row.param) {
                             name += std::to_string(fd);
                           }
                           return name.empty() ? "None" : name;
                         });

}  // namespace
