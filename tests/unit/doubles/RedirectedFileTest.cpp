#include <gtest/gtest.h>

#include <cerrno>
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

TEST(RedirectedFileTest, EachOpeningReadsTheContentsFromTheStart) {
  const RedirectedFile file("/no/such/file", "first\nsecond\n");
  const RedirectedFile other("/no/other/file", "other");
  EXPECT_EQ(FirstLine("/no/such/file"), "first");
  EXPECT_EQ(FirstLine("/no/such/file"), "first");
  EXPECT_EQ(FirstLine("/no/other/file"), "other");
  EXPECT_EQ(file.Openings(), 2);
}

TEST(RedirectedFileTest, WritingReplacesTheContentsWhenItIsFlushed) {
  const RedirectedFile file("/no/such/file", "a longer text");
  std::ofstream stream("/no/such/file");
  stream << "text";
  EXPECT_EQ(file.Contents(), "");
  stream.close();
  EXPECT_EQ(file.Contents(), "text");
}

TEST(RedirectedFileTest, RemovedFileCannotBeOpened) {
  RedirectedFile file("/proc/self/stat", "text");
  file.Remove();
  EXPECT_EQ(FirstLine("/proc/self/stat"), "cannot open");
  EXPECT_EQ(file.Openings(), 1);
}

TEST(RedirectedFileTest, OpeningCanBeDecidedEachTime) {
  const RedirectedFile file("/no/such/file", [](const char* mode) -> std::FILE* {
    if (*mode == 'w') {
      return OpenFullDevice();
    }
    errno = EACCES;
    return nullptr;
  });
  EXPECT_EQ(FirstLine("/no/such/file"), "cannot open");
  std::ofstream stream("/no/such/file");
  EXPECT_TRUE(stream.is_open());
  stream << "text" << std::flush;
  EXPECT_TRUE(stream.bad());
}

TEST(RedirectedFileTest, OtherPathsAreNotAffected) {
  const RedirectedFile file("/no/such/file", "text");
  EXPECT_EQ(FirstLine("/proc/sys/kernel/ostype"), "Linux");
  EXPECT_EQ(file.Openings(), 0);
}

}  // namespace
