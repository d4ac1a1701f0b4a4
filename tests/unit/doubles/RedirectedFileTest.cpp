#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "tests/doubles/RedirectedFile.h"

namespace {

std::string FirstLine(const std::string& path) {
  std::ifstream file(path);
  std::string line = "cannot open";
  if (file.is_open()) {
    std::getline(file, line);
  }
  return line;
}

TEST(RedirectedFileTest, StreamReadsTheContents) {
  const RedirectedFile file("/no/such/file", "first\nsecond\n");
  EXPECT_EQ(FirstLine("/no/such/file"), "first");
  EXPECT_EQ(FirstLine("/no/such/file"), "first");
  EXPECT_EQ(RedirectedFile::Openings(), 2);
}

TEST(RedirectedFileTest, RemovedFileCannotBeOpened) {
  const RedirectedFile file("/proc/self/stat", "text");
  RedirectedFile::Remove();
  EXPECT_EQ(FirstLine("/proc/self/stat"), "cannot open");
  EXPECT_EQ(RedirectedFile::Openings(), 1);
}

TEST(RedirectedFileTest, WritingIsRefused) {
  const RedirectedFile file("/no/such/file", "text");
  EXPECT_FALSE(std::ofstream("/no/such/file").is_open());
}

TEST(RedirectedFileTest, OtherPathsAreNotAffected) {
  const RedirectedFile file("/no/such/file", "text");
  EXPECT_EQ(FirstLine("/proc/self/comm").substr(0, 5), "unit_");
  EXPECT_EQ(RedirectedFile::Openings(), 0);
}

}  // namespace
