#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "simulator/host/FlashFile.h"
#include "tests/doubles/ScratchDirectory.h"
#include "tests/doubles/TemporaryDirectory.h"
#include "tests/unit/simulator/host/FileCalls.h"
#include "tests/unit/simulator/host/ProblemWith.h"

namespace orvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

using Bytes = std::vector<std::uint8_t>;

const Bytes kNew = {0x6E, 0x65, 0x77};

std::string ProblemOfOpen(const std::string& path) {
  return ProblemWith([&] { const FlashFile file(path); });
}

class FlashFileTest : public testing::Test {
 protected:
  FlashFileTest() : path_(folder_.File("flash", "old")) {}

  std::string In(const std::string& name) const { return folder_.Path() + "/" + name; }
  std::string Create(const std::string& name, const std::string& contents) const {
    return folder_.File(name, contents);
  }
  void Replace() const { fs::rename(Create("other", "another's"), path_); }
  std::string Text(const std::string& why) const { return "flash file '" + path_ + "' " + why; }

 private:
  ::TemporaryDirectory folder_;

 protected:
  const std::string path_;
};

TEST_F(FlashFileTest, ContentsAreLoadedAndSaved) {
  const FlashFile file(path_);
  EXPECT_EQ(file.Load(), (Bytes{0x6F, 0x6C, 0x64}));
  file.Save(kNew);
  EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(FlashFileTest, FileIsNotTouchedUntilItIsSaved) {
  const auto before = fs::last_write_time(path_);
  { const FlashFile file(path_); }
  EXPECT_EQ(ReadFile(path_), "old");
  EXPECT_EQ(fs::last_write_time(path_), before);
}

TEST_F(FlashFileTest, FileThatHoldsTheContentsAlreadyIsNotWritten) {
  const FlashFile file(path_);
  FileCalls calls;
  file.Save(Bytes{0x6F, 0x6C, 0x64});
  EXPECT_THAT(calls.names, IsEmpty());
  file.Save(Bytes{0x6F, 0x6C, 0x65});
  EXPECT_EQ(ReadFile(path_), "ole");
}

TEST_F(FlashFileTest, LargeFileThatDiffersInItsLastByteIsWritten) {
  fs::resize_file(path_, 200'000);
  const FlashFile file(path_);
  Bytes contents = file.Load();
  FileCalls calls;
  file.Save(contents);
  EXPECT_THAT(calls.names, IsEmpty());
  contents.back() = 0x01;
  file.Save(contents);
  EXPECT_EQ(ReadFile(path_), std::string(contents.begin(), contents.end()));
}

TEST_F(FlashFileTest, SixteenMebibytesAreTheMost) {
  fs::resize_file(path_, 16U << 20);
  EXPECT_EQ(FlashFile(path_).Load().size(), 16U << 20);
  fs::resize_file(path_, (16U << 20) + 1);
  EXPECT_EQ(ProblemWith([&] { static_cast<void>(FlashFile(path_).Load()); }),
            Text("is larger than 16 MiB"));
}

TEST_F(FlashFileTest, MissingFileIsRefused) {
  EXPECT_EQ(ProblemOfOpen("none"), "cannot open flash file 'none': No such file or directory");
  EXPECT_EQ(ProblemOfOpen("none/file"),
            "cannot open flash file 'none/file': No such file or directory");
}

TEST_F(FlashFileTest, DirectoryIsRefused) {
  EXPECT_EQ(ProblemOfOpen("."), "cannot open flash file '.': Is a directory");
}

TEST_F(FlashFileTest, PipeIsRefusedAtOnce) {
  ASSERT_EQ(::mkfifo(In("pipe").c_str(), 0600), 0);
  EXPECT_EQ(ProblemOfOpen(In("pipe")), "flash file '" + In("pipe") + "' is not a regular file");
}

TEST_F(FlashFileTest, DeviceIsRefused) {
  EXPECT_EQ(ProblemOfOpen("/dev/null"), "flash file '/dev/null' is not a regular file");
}

TEST_F(FlashFileTest, FileThatCannotBeSavedIsRefusedAtTheStart) {
  FileCalls calls;
  calls.unnamedFailure = EROFS;
  EXPECT_EQ(ProblemOfOpen(path_), "cannot write flash file '" + path_ + "': Read-only file system");
}

TEST_F(FlashFileTest, FileIsLockedForAsLongAsItIsOpen) {
  fs::create_symlink("flash", In("symbolic"));
  fs::create_hard_link(path_, In("hard"));
  {
    const FlashFile file(path_);
    EXPECT_EQ(ProblemOfOpen(path_), Text("is in use by another instrument"));
    EXPECT_EQ(ProblemOfOpen(In("symbolic")),
              "flash file '" + In("symbolic") + "' is in use by another instrument");
    EXPECT_EQ(ProblemOfOpen(In("hard")),
              "flash file '" + In("hard") + "' is in use by another instrument");
  }
  EXPECT_EQ(ProblemOfOpen(path_), "");
}

TEST_F(FlashFileTest, LockThatTheFileSystemDoesNotHaveIsAnError) {
  FileCalls calls;
  calls.failingName = "flock";
  calls.failure = ENOLCK;
  EXPECT_EQ(ProblemOfOpen(path_), "cannot lock flash file '" + path_ + "': No locks available");
}

TEST_F(FlashFileTest, FileReplacedBeforeItIsLockedIsOpenedAgain) {
  int locks = 0;
  FileCalls calls;
  calls.before = [&](const std::string& call) {
    if (call == "flock" && ++locks == 1) {
      Replace();
    }
  };
  EXPECT_EQ(FlashFile(path_).Load().size(), 9U);
  EXPECT_EQ(locks, 2);
}

TEST_F(FlashFileTest, LockOnAFileThatHasBeenReplacedDoesNotCount) {
  const FlashFile before(path_);
  int locks = 0;
  FileCalls calls;
  calls.before = [&](const std::string& call) {
    if (call == "flock" && ++locks == 1) {
      Replace();
    }
  };
  EXPECT_EQ(FlashFile(path_).Load().size(), 9U);
}

TEST_F(FlashFileTest, FileThatIsReplacedAgainAndAgainIsRefused) {
  FileCalls calls;
  calls.before = [&](const std::string& call) {
    if (call == "flock") {
      Replace();
    }
  };
  EXPECT_EQ(ProblemOfOpen(path_), Text("is replaced again and again"));
}

TEST_F(FlashFileTest, SavedFileCanBeOpenedByTheNextInstrument) {
  const FlashFile first(path_);
  first.Save(kNew);
  const FlashFile second(path_);
  EXPECT_EQ(second.Load(), kNew);
}

TEST_F(FlashFileTest, FileThatWasReplacedIsLeftAsItIs) {
  const FlashFile file(path_);
  Replace();
  EXPECT_EQ(ProblemWith([&] { file.Save(kNew); }),
            Text("was replaced or removed during the run; what the flash holds is not saved"));
  EXPECT_EQ(ReadFile(path_), "another's");
}

TEST_F(FlashFileTest, FileThatWasReplacedWhileItWasSavedIsLeftAsItIs) {
  const FlashFile file(path_);
  FileCalls calls;
  calls.before = [&](const std::string& call) {
    if (call == "write") {
      Replace();
    }
  };
  EXPECT_EQ(ProblemWith([&] { file.Save(kNew); }),
            Text("was replaced or removed during the run; what the flash holds is not saved"));
  EXPECT_EQ(ReadFile(path_), "another's");
}

TEST_F(FlashFileTest, FileThatWasRemovedIsNotCreatedAgain) {
  const FlashFile file(path_);
  fs::remove(path_);
  EXPECT_EQ(ProblemWith([&] { file.Save(kNew); }),
            Text("was replaced or removed during the run; what the flash holds is not saved"));
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(FlashFileTest, FileThatWasChangedIsLeftAsItIs) {
  const FlashFile file(path_);
  static_cast<void>(Create("flash", "another's"));
  EXPECT_EQ(ProblemWith([&] { file.Save(kNew); }),
            Text("was changed by others during the run; what the flash holds is not saved"));
  EXPECT_EQ(ReadFile(path_), "another's");
}

TEST_F(FlashFileTest, FileWithAnotherTimeIsOneThatWasChanged) {
  const FlashFile file(path_);
  const utimbuf times{.actime = 1, .modtime = 1};
  ASSERT_EQ(::utime(path_.c_str(), &times), 0);
  EXPECT_EQ(ProblemWith([&] { file.Save(kNew); }),
            Text("was changed by others during the run; what the flash holds is not saved"));
}

TEST_F(FlashFileTest, LinkThatChangesMeanwhileHasNoEffect) {
  fs::create_symlink("flash", In("link"));
  const FlashFile file(In("link"));
  fs::remove(In("link"));
  fs::create_symlink(Create("other", "another's"), In("link"));
  file.Save(kNew);
  EXPECT_EQ(ReadFile(path_), "new");
  EXPECT_EQ(ReadFile(In("other")), "another's");
}

TEST_F(FlashFileTest, FolderThatMovesMeanwhileHasNoEffect) {
  const FlashFile file(Create("below/flash", "old"));
  fs::rename(In("below"), In("moved"));
  file.Save(kNew);
  EXPECT_EQ(ReadFile(In("moved/flash")), "new");
}

TEST_F(FlashFileTest, WhatAKilledRunHasLeftIsRemoved) {
  static_cast<void>(Create(".flash.orvane-sim-2147483647", "half"));
  { const FlashFile file(path_); }
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(In(""))) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, ElementsAre("flash"));
}

}  // namespace
}  // namespace orvane
