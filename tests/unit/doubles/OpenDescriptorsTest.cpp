#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/doubles/OpenDescriptors.h"

namespace {

TEST(OpenDescriptorsTest, OneMoreDescriptorIsOneMoreEntry) {
  const auto count = [] {
    const std::vector<std::string> targets = OpenDescriptors();
    EXPECT_TRUE(std::is_sorted(targets.begin(), targets.end()));
    return std::count(targets.begin(), targets.end(), "/dev/zero");
  };
  const auto before = count();
  const int fd = ::open("/dev/zero", O_RDONLY);
  EXPECT_EQ(count(), before + 1);
  ::close(fd);
  EXPECT_EQ(count(), before);
}

}  // namespace
