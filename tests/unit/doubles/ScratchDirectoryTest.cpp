#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

TEST(TemporaryDirectoryTest, IsFreshAndItsOwn) {
  const TemporaryDirectory first;
  const TemporaryDirectory second;
  EXPECT_TRUE(fs::is_empty(first.Path()));
  EXPECT_NE(first.Path(), second.Path());
}

TEST(TemporaryDirectoryTest, LiesWhereItIsWanted) {
  const TemporaryDirectory parent;
  const TemporaryDirectory directory(parent.Path());
  EXPECT_EQ(fs::path(directory.Path()).parent_path(), parent.Path());
}

TEST(TemporaryDirectoryTest, GoesWithItsContents) {
  std::string file;
  {
    const TemporaryDirectory directory;
    file = directory.File("below/file", "text");
    EXPECT_EQ(file, directory.Path() + "/below/file");
    EXPECT_EQ(ReadFile(file), "text");
  }
  EXPECT_FALSE(fs::exists(fs::path(file).parent_path().parent_path()));
}

TEST(TemporaryDirectoryTest, ParentThatIsMissingThrows) {
  EXPECT_THROW(const TemporaryDirectory directory("/nonexistent"), std::system_error);
}

TEST(ScratchDirectoryTest, IsTheWorkingDirectoryUntilItGoes) {
  const fs::path former = fs::current_path();
  {
    const ScratchDirectory directory;
    EXPECT_NE(fs::current_path(), former);
    EXPECT_TRUE(fs::is_empty("."));
    WriteFile("file", "text");
  }
  EXPECT_EQ(fs::current_path(), former);
  EXPECT_FALSE(fs::exists("file"));
}

TEST(ScratchDirectoryTest, FileIsReplacedWhole) {
  const ScratchDirectory directory;
  WriteFile("file", "longer text");
  WriteFile("file", std::string("a\0b", 3));
  EXPECT_EQ(ReadFile("file"), std::string("a\0b", 3));
}

TEST(ScratchDirectoryTest, MissingFileReadsAsSuch) {
  const ScratchDirectory directory;
  EXPECT_EQ(ReadFile("file"), "(cannot be opened)");
}

}  // namespace
