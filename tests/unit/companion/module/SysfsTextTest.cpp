#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "companion/module/SysfsText.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace companion {
namespace {

class SysfsTextTest : public testing::Test {
 protected:
  SysfsText ReadFileWith(const std::string& contents) {
    const std::string path = folder_.Path() + "/file";
    std::ofstream(path) << contents;
    return ReadSysfsText(path);
  }

  TemporaryDirectory folder_;
};

TEST_F(SysfsTextTest, NewlineAtTheEndIsLeftOut) {
  const SysfsText read = ReadFileWith("SPILVDS\n");
  EXPECT_EQ(read.text, "SPILVDS");
  EXPECT_EQ(read.error, 0);
}

TEST_F(SysfsTextTest, EmptyFileIsAnEmptyText) {
  const SysfsText read = ReadFileWith("");
  EXPECT_EQ(read.text, "");
  EXPECT_EQ(read.error, 0);
}

TEST_F(SysfsTextTest, AtMost64BytesAreRead) {
  EXPECT_EQ(ReadFileWith(std::string(65, 'x')).text, std::string(64, 'x'));
}

TEST_F(SysfsTextTest, FileThatIsNotThere) {
  EXPECT_EQ(ReadSysfsText(folder_.Path() + "/file").error, ENOENT);
}

TEST_F(SysfsTextTest, FileThatCannotBeRead) {
  EXPECT_EQ(ReadSysfsText(folder_.Path()).error, EISDIR);
}

}  // namespace
}  // namespace companion
