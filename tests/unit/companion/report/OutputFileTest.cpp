#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "companion/report/OutputFile.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/unit/companion/FailingCalls.h"

FAILING_CALL(int, fchown, (int file, uid_t owner, gid_t group), (file, owner, group))
FAILING_CALL(int,
             fstatat,
             (int folder, const char* name, struct stat* status, int flags),
             (folder, name, status, flags))
FAILING_CALL(int, fsync, (int file), (file))
FAILING_CALL(off_t, lseek, (int file, off_t offset, int from), (file, offset, from))
FAILING_CALL(int,
             renameat,
             (int from, const char* old, int to, const char* name),
             (from, old, to, name))
FAILING_CALL(ssize_t, write, (int file, const void* bytes, std::size_t count), (file, bytes, count))

// These two take a mode when they create a file.
extern "C" int __real_openat(int folder, const char* name, int flags, mode_t mode);
extern "C" int __wrap_openat(int folder, const char* name, int flags, mode_t mode) {
  return FailingCalls::Fails("openat") ? -1 : __real_openat(folder, name, flags, mode);
}

namespace companion {
namespace {

namespace fs = std::filesystem;

const std::vector<std::uint8_t> kContents = {'n', 'e', 'w', 0, 'x'};
const std::string kText("new\0x", 5);

class OutputFileTest : public testing::Test {
 protected:
  /// @return the problem of the operation that failed
  static std::string Make(const std::string& path) {
    OutputFile file(path);
    const std::string problem = file.Prepare();
    return problem.empty() ? file.Store(kContents) : problem;
  }

  static std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(".")) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  ScratchDirectory directory_;
};

TEST_F(OutputFileTest, ContentsAreStoredAndNothingElseIsLeft) {
  EXPECT_EQ(Make("f"), "");
  EXPECT_EQ(ReadFile("f"), kText);
  EXPECT_EQ(Names(), std::vector<std::string>{"f"});
}

TEST_F(OutputFileTest, FormerFileIsReplaced) {
  WriteFile("f", "a longer former text");
  EXPECT_EQ(Make("./f"), "");
  EXPECT_EQ(ReadFile("f"), kText);
}

unsigned Mode(const char* path) {
  struct stat status {};
  EXPECT_EQ(::stat(path, &status), 0);
  return status.st_mode & 07777U;
}

TEST_F(OutputFileTest, NewFileHasTheModeThatTheUmaskLeaves) {
  const mode_t before = ::umask(026);
  EXPECT_EQ(Make("f"), "");
  ::umask(before);
  EXPECT_EQ(Mode("f"), 0640U);
}

TEST_F(OutputFileTest, ModeOfTheFormerFileIsKept) {
  WriteFile("f", "former");
  for (const mode_t mode : {0600U, 0640U, 0664U}) {
    ASSERT_EQ(::chmod("f", mode), 0);
    EXPECT_EQ(Make("f"), "");
    EXPECT_EQ(Mode("f"), mode);
  }
}

TEST_F(OutputFileTest, AnotherGroupMayNotReadWhatTheFormerCould) {
  WriteFile("f", "former");
  ASSERT_EQ(::chmod("f", 0640), 0);
  const FailingCalls failing("fchown", EPERM);
  EXPECT_EQ(Make("f"), "");
  EXPECT_EQ(Mode("f"), 0600U);
}

TEST_F(OutputFileTest, FormerFileStaysWhenNothingIsStored) {
  WriteFile("f", "former");
  {
    OutputFile file("f");
    EXPECT_EQ(file.Prepare(), "");
    EXPECT_EQ(Names().size(), 2U);
  }
  EXPECT_EQ(ReadFile("f"), "former");
  EXPECT_EQ(Names(), std::vector<std::string>{"f"});
}

TEST_F(OutputFileTest, LinkIsNeitherFollowedNorReplaced) {
  WriteFile("target", "former");
  fs::create_symlink("target", "f");
  EXPECT_EQ(Make("f"), "\"f\" is not a regular file.");
  EXPECT_EQ(ReadFile("target"), "former");
  EXPECT_TRUE(fs::is_symlink("f"));
}

TEST_F(OutputFileTest, LinkUnderTheNameOfTheTemporaryIsNotFollowed) {
  const std::string planted = ".tarnwickctl-" + std::to_string(::getpid()) + "-0";
  WriteFile("target", "former");
  fs::create_symlink("target", planted);
  EXPECT_EQ(Make("f"), "");
  EXPECT_EQ(ReadFile("f"), kText);
  EXPECT_EQ(ReadFile("target"), "former");
  EXPECT_TRUE(fs::is_symlink(planted));
}

TEST_F(OutputFileTest, WhatIsNoFileIsRefused) {
  fs::create_directory("d");
  ASSERT_EQ(::mkfifo("p", 0600), 0);
  EXPECT_EQ(Make("d"), "\"d\" is not a regular file.");
  EXPECT_EQ(Make("p"), "\"p\" is not a regular file.");
  EXPECT_EQ(Make("d/"), "cannot write \"d/\": Is a directory.");
  EXPECT_EQ(Make("."), "cannot write \".\": Is a directory.");
  EXPECT_EQ(Make(".."), "cannot write \"..\": Is a directory.");
  EXPECT_EQ(Make("no/f"), "cannot write \"no/f\": No such file or directory.");
}

TEST_F(OutputFileTest, NamesThatAreAllTakenAreRefused) {
  for (int i = 0; i < 100; ++i) {
    WriteFile(".tarnwickctl-" + std::to_string(::getpid()) + "-" + std::to_string(i), "");
  }
  EXPECT_EQ(Make("f"), "cannot write \"f\": File exists.");
}

TEST_F(OutputFileTest, FailureThatDoesNotLastIsNotSeen) {
  for (const std::string function : {"fstatat", "fsync", "lseek", "openat", "renameat", "write"}) {
    const FailingCalls failing(function, EIO, 2);
    EXPECT_EQ(Make("f"), "") << function;
    EXPECT_EQ(failing.Failed(), 2) << function;
    EXPECT_EQ(ReadFile("f"), kText);
  }
  EXPECT_EQ(Names(), std::vector<std::string>{"f"});
}

TEST_F(OutputFileTest, FullDiskLeavesTheFormerFile) {
  WriteFile("f", "former");
  for (const std::string function : {"fsync", "lseek", "openat", "renameat", "write"}) {
    const FailingCalls failing(function, ENOSPC);
    EXPECT_EQ(Make("f"), "cannot write \"f\": No space left on device.") << function;
    EXPECT_EQ(ReadFile("f"), "former");
    EXPECT_EQ(Names(), std::vector<std::string>{"f"});
  }
}

TEST_F(OutputFileTest, PlaceThatCannotBeLookedAtIsRefused) {
  const FailingCalls failing("fstatat", EIO);
  EXPECT_EQ(Make("f"), "cannot look at \"f\": Input/output error.");
}

TEST_F(OutputFileTest, FolderThatCannotBeSynchronisedIsReported) {
  const FailingCalls failing("fsync", EIO, FailingCalls::kAll, 1);
  EXPECT_EQ(Make("f"), "cannot synchronise the folder of \"f\": Input/output error.");
}

}  // namespace
}  // namespace companion
