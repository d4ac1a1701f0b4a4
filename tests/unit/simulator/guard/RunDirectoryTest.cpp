#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "simulator/guard/RunDirectory.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;

class RunDirectoryTest : public testing::Test {
 protected:
  fs::path Below(const std::string& name) const { return fs::path(parent_.Path()) / name; }

  const ::TemporaryDirectory parent_{"/tmp"};
  const EnvironmentVariable variable_{"TMPDIR", std::string(parent_.Path())};
};

TEST_F(RunDirectoryTest, IsInTheDirectoryForTemporaryFilesAndDeletedWithItsContents) {
  std::optional<RunDirectory> directory(std::in_place);
  const fs::path path = directory->Path();
  EXPECT_EQ(path.parent_path(), parent_.Path());
  EXPECT_FALSE(fs::exists(path));
  const RunDirectory::Contents contents(*directory);
  EXPECT_TRUE(fs::is_directory(path));
  std::ofstream(path / "file") << "contents";
  directory.reset();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(RunDirectoryTest, DirectoryThatAnotherRunHasFailedToDeleteIsTaken) {
  const RunDirectory directory;
  fs::create_directory(directory.Path());
  const RunDirectory::Contents contents(directory);
  const RunDirectory other;
  EXPECT_TRUE(fs::exists(directory.Path()));
}

TEST_F(RunDirectoryTest, AbandonedDirectoryIsDeleted) {
  fs::create_directories(Below("orvane-sim.abcdef/sub"));
  std::ofstream(Below("orvane-sim.abcdef/sub/file")) << "contents";
  const RunDirectory directory;
  EXPECT_FALSE(fs::exists(Below("orvane-sim.abcdef")));
}

TEST_F(RunDirectoryTest, DirectoryInUseIsLeftAlone) {
  const RunDirectory first;
  const RunDirectory::Contents contents(first);
  const RunDirectory second;
  EXPECT_NE(first.Path(), second.Path());
  EXPECT_TRUE(fs::exists(first.Path()));
}

TEST_F(RunDirectoryTest, DirectoryIsDeletedByTheProcessThatCreatedItToo) {
  const RunDirectory directory;
  {
    const RunDirectory::Contents contents(directory);
    EXPECT_TRUE(fs::exists(directory.Path()));
  }
  EXPECT_FALSE(fs::exists(directory.Path()));
}

TEST_F(RunDirectoryTest, OtherDirectoriesFilesAndLinksAreLeftAlone) {
  fs::create_directory(Below("orvane-simulation"));
  fs::create_directory(Below("target"));
  fs::create_directory_symlink(Below("target"), Below("orvane-sim.linked"));
  std::ofstream(Below("orvane-sim.file")) << "contents";
  const RunDirectory directory;
  EXPECT_TRUE(fs::exists(Below("orvane-simulation")));
  EXPECT_TRUE(fs::exists(Below("target")));
  EXPECT_TRUE(fs::is_symlink(Below("orvane-sim.linked")));
  EXPECT_TRUE(fs::exists(Below("orvane-sim.file")));
}

}  // namespace
}  // namespace orvane
