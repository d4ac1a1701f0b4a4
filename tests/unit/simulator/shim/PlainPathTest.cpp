#include <gtest/gtest.h>

#include <string>

#include "simulator/shim/PlainPath.h"

namespace orvane {
namespace {

std::string Plain(const std::string& path) {
  char buffer[kMaxPathBytes];
  return PlainPath(path.c_str(), buffer);
}

TEST(PlainPathTest, PlainPathIsItself) {
  const std::string path = "/sys/platform_m1/qspi_prg/value";
  char buffer[kMaxPathBytes];
  EXPECT_EQ(PlainPath(path.c_str(), buffer), path.c_str());
  EXPECT_EQ(Plain("/"), "/");
  EXPECT_EQ(Plain("/dev/"), "/dev/");
  EXPECT_EQ(Plain("/dev/.hidden/..x/..."), "/dev/.hidden/..x/...");
}

TEST(PlainPathTest, RelativePathIsItself) {
  EXPECT_EQ(Plain(""), "");
  EXPECT_EQ(Plain("./a//b/../c"), "./a//b/../c");
}

TEST(PlainPathTest, RepeatedSlashesAreOne) {
  EXPECT_EQ(Plain("//dev/spidev1.0"), "/dev/spidev1.0");
  EXPECT_EQ(Plain("/sys//platform_m1///qspi_prg/value"), "/sys/platform_m1/qspi_prg/value");
  EXPECT_EQ(Plain("//"), "/");
}

TEST(PlainPathTest, ComponentsOfOneDotAreLeftOut) {
  EXPECT_EQ(Plain("/dev/./spidev1.0"), "/dev/spidev1.0");
  EXPECT_EQ(Plain("/./dev/././spidev1.0"), "/dev/spidev1.0");
}

TEST(PlainPathTest, ComponentsOfTwoDotsTakeTheOneBeforeAway) {
  EXPECT_EQ(Plain("/sys/../dev/spidev1.0"), "/dev/spidev1.0");
  EXPECT_EQ(Plain("/a/b/../../dev/spidev1.0"), "/dev/spidev1.0");
  EXPECT_EQ(Plain("/../../dev/spidev1.0"), "/dev/spidev1.0");
}

TEST(PlainPathTest, NameOfADirectoryKeepsItsSlash) {
  EXPECT_EQ(Plain("/dev//spidev1.0/"), "/dev/spidev1.0/");
  EXPECT_EQ(Plain("/dev/spidev1.0/."), "/dev/spidev1.0/");
  EXPECT_EQ(Plain("/dev/spidev1.0/x/.."), "/dev/spidev1.0/");
  EXPECT_EQ(Plain("/dev/.."), "/");
}

TEST(PlainPathTest, LongPathIsMadePlainWhenTheResultFits) {
  std::string path = "/dev";
  while (path.size() < 3 * kMaxPathBytes) {
    path += "/.";
  }
  EXPECT_EQ(Plain(path + "/spidev1.0"), "/dev/spidev1.0");
}

TEST(PlainPathTest, PathThatIsTooLongIsItself) {
  const std::string path = "//" + std::string(kMaxPathBytes, 'x');
  EXPECT_EQ(Plain(path), path);
  const std::string fits = "/" + std::string(kMaxPathBytes - 3, 'x');
  EXPECT_EQ(Plain("/" + fits), fits);
}

}  // namespace
}  // namespace orvane
