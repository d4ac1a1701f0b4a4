#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include "base/FileDescriptor.h"
#include "simulator/host/FilePlace.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;

class FilePlaceTest : public testing::Test {
 protected:
  std::string In(const std::string& name) const { return folder_.Path() + "/" + name; }
  std::string Create(const std::string& name) const { return folder_.File(name, ""); }
  bool AreOne(const std::string& one, const std::string& other) const {
    return FilePlace(one, "").IsSameAs(FilePlace(other, ""));
  }

 private:
  ::TemporaryDirectory folder_;
};

TEST_F(FilePlaceTest, NameIsThatBehindAllLinks) {
  const std::string file = Create("below/file");
  fs::create_symlink("below/second", In("first"));
  fs::create_symlink(file, In("below/second"));
  const FilePlace place(In("first"), "");
  EXPECT_EQ(place.Name(), "file");
  EXPECT_TRUE(place.Status());
}

TEST_F(FilePlaceTest, LinkToNoFileHasThePlaceOfItsTarget) {
  fs::create_directory(In("below"));
  fs::create_symlink("below/none", In("link"));
  const FilePlace place(In("link"), "");
  EXPECT_EQ(place.Name(), "none");
  EXPECT_FALSE(place.Status());
}

TEST_F(FilePlaceTest, FolderHasNoNameOfItsOwn) { EXPECT_EQ(FilePlace(In(""), "").Name(), "."); }

TEST_F(FilePlaceTest, MissingFolderIsAnError) {
  try {
    const FilePlace place(In("none/file"), "cannot write 'x'");
    FAIL() << place.Name();
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "cannot write 'x': No such file or directory");
  }
}

TEST_F(FilePlaceTest, LinkToItselfIsAnError) {
  fs::create_symlink("loop", In("loop"));
  try {
    const FilePlace place(In("loop"), "cannot write 'x'");
    FAIL() << place.Name();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ELOOP);
  }
}

TEST_F(FilePlaceTest, FilesAreComparedByDeviceAndInode) {
  const std::string file = Create("file");
  Create("other");
  fs::create_symlink("file", In("symbolic"));
  fs::create_hard_link(file, In("hard"));
  EXPECT_TRUE(AreOne(file, In("symbolic")));
  EXPECT_TRUE(AreOne(file, In("hard")));
  EXPECT_TRUE(AreOne(file, In("./file")));
  EXPECT_FALSE(AreOne(file, In("other")));
  EXPECT_FALSE(AreOne(file, In("none")));
}

TEST_F(FilePlaceTest, FilesThatDoNotExistAreComparedByFolderAndName) {
  fs::create_directory(In("below"));
  fs::create_directory_symlink("below", In("again"));
  fs::create_symlink("below/none", In("link"));
  EXPECT_TRUE(AreOne(In("below/none"), In("again/none")));
  EXPECT_TRUE(AreOne(In("below/none"), In("link")));
  EXPECT_FALSE(AreOne(In("below/none"), In("none")));
  EXPECT_FALSE(AreOne(In("below/none"), In("below/no")));
}

TEST_F(FilePlaceTest, DescriptorIsRecognisedBehindLinks) {
  const std::string file = Create("file");
  const FileDescriptor open(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  fs::create_symlink("/dev/fd/" + std::to_string(open.Get()), In("link"));
  EXPECT_EQ(FilePlace(In("link"), "").OwnDescriptor(), std::optional(open.Get()));
  EXPECT_EQ(FilePlace("/dev/stderr", "").OwnDescriptor(), std::optional(2));
  EXPECT_EQ(FilePlace(file, "").OwnDescriptor(), std::nullopt);
  EXPECT_TRUE(AreOne(In("link"), file));
}

TEST_F(FilePlaceTest, DescriptorOfAFileWithoutAFolderIsStillKnown) {
  const std::string file = Create("below/file");
  const FileDescriptor open(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  fs::remove_all(In("below"));
  const FilePlace place("/proc/self/fd/" + std::to_string(open.Get()), "");
  EXPECT_EQ(place.OwnDescriptor(), std::optional(open.Get()));
  EXPECT_TRUE(place.StatusOfFile());
}

}  // namespace
}  // namespace orvane
