// Links at the names that an update uses. They lead to files of somebody else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/companion/Bench.h"

namespace companion_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kText = "of somebody else\n";

class PlantedLinksTest : public testing::Test {
 protected:
  PlantedLinksTest() {
    fs::create_directory(Victim());
    bench_.WriteText("../victim/file", kText);
    fs::create_directory(bench_.StateFolder());
    fs::permissions(bench_.StateFolder(), fs::perms::owner_all);
  }

  /// The folder was used before: a work folder without a lock would be somebody else's.
  void LeaveLock() const { bench_.WriteText("../state/lock", ""); }

  fs::path Victim() const { return bench_.StateFolder().parent_path() / "victim"; }

  void ExpectVictimUntouched() const {
    EXPECT_THAT(Bench::NamesIn(Victim()), ElementsAre("file"));
    EXPECT_EQ(bench_.ReadText("../victim/file"), kText);
    EXPECT_EQ(fs::status(Victim() / "file").permissions() & fs::perms::owner_all,
              fs::perms::owner_read | fs::perms::owner_write);
  }

  void ExpectUpdated(const Ended& ended) {
    EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
    ExpectFlash(ended, bench_.New());
    EXPECT_EQ(ended.state, bench_.Resting("other"));
    ExpectVictimUntouched();
  }

  void ExpectRefused(const Ended& ended, const std::string& says) {
    EXPECT_EQ(ended.exitCode, 2) << ended.out;
    EXPECT_THAT(ended.out + ended.err, HasSubstr(says));
    EXPECT_EQ(CountStarts(ended.log, "spi "), 0);
    ExpectFlash(ended, bench_.Old());
    ExpectVictimUntouched();
  }

  Bench bench_{kDax};
};

// --- The dump in the working directory

TEST_F(PlantedLinksTest, TarnwickWritesTheFileThatALinkAtItsDumpLeadsTo) {
  fs::create_symlink(Victim() / "file", bench_.File("dumpflash.bin"));
  EXPECT_EQ(bench_.Run(bench_.Tarnwick()).exitCode, 0);
  EXPECT_EQ(fs::file_size(Victim() / "file"), 512U);
}

TEST_F(PlantedLinksTest, LinkAtTheDumpIsNotFollowed) {
  fs::create_symlink(Victim() / "file", bench_.File("dumpflash.bin"));
  ExpectUpdated(bench_.Run(bench_.Update()));
}

// --- The folder of --state

TEST_F(PlantedLinksTest, LinkAtTheLockIsRefused) {
  fs::create_symlink(Victim() / "file", bench_.StateFolder() / "lock");
  ExpectRefused(bench_.Run(bench_.Update()), "lock");
}

TEST_F(PlantedLinksTest, LinkAtTheLockThatLeadsNowhereIsRefused) {
  fs::create_symlink(Victim() / "new", bench_.StateFolder() / "lock");
  ExpectRefused(bench_.Run(bench_.Update()), "lock");
}

TEST_F(PlantedLinksTest, HardLinkAtTheLockIsRefused) {
  fs::create_hard_link(Victim() / "file", bench_.StateFolder() / "lock");
  ExpectRefused(bench_.Run(bench_.Update()), "lock");
}

TEST_F(PlantedLinksTest, PipeAtTheLockIsRefused) {
  const std::string lock = Quoted(bench_.StateFolder() / "lock");
  ExpectRefused(bench_.Run("mkfifo " + lock + "; " + bench_.Update()), "lock");
}

TEST_F(PlantedLinksTest, LinkInPlaceOfTheFolderIsRefused) {
  fs::remove(bench_.StateFolder());
  fs::create_directory_symlink(Victim(), bench_.StateFolder());
  ExpectRefused(bench_.Run(bench_.Update()), bench_.StateFolder());
}

TEST_F(PlantedLinksTest, FolderThatOthersCanWriteIsRefused) {
  fs::permissions(bench_.StateFolder(), fs::perms::all);
  ExpectRefused(bench_.Run(bench_.Update()), bench_.StateFolder());
}

TEST_F(PlantedLinksTest, HardLinkAtTheMarkIsNotWritten) {
  fs::create_hard_link(Victim() / "file", bench_.StateFolder() / "slot-2.unfinished");
  ExpectUpdated(bench_.Run(bench_.Update()));
}

TEST_F(PlantedLinksTest, LinkAtTheMarkIsNotFollowed) {
  fs::create_symlink(Victim() / "file", bench_.StateFolder() / "slot-2.unfinished");
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

TEST_F(PlantedLinksTest, LinkAtTheMarkThatLeadsNowhereIsNotFollowed) {
  fs::create_symlink(Victim() / "new", bench_.StateFolder() / "slot-2.unfinished");
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

TEST_F(PlantedLinksTest, LinkAtTheWorkFolderIsRemovedAndNotFollowed) {
  LeaveLock();
  fs::create_directory_symlink(Victim(), bench_.StateFolder() / "work");
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

TEST_F(PlantedLinksTest, FileInPlaceOfTheWorkFolderIsRemoved) {
  LeaveLock();
  bench_.WriteText("../state/work", "left");
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

TEST_F(PlantedLinksTest, WorkFolderWithoutALockIsSomebodyElsesAndStays) {
  fs::create_directory(bench_.StateFolder() / "work");
  bench_.WriteText("../state/work/file", kText);
  ExpectRefused(bench_.Run(bench_.Update()), "work");
  EXPECT_EQ(bench_.ReadText("../state/work/file"), kText);
}

TEST_F(PlantedLinksTest, LinksInAWorkFolderThatWasLeftAreRemovedAndNotFollowed) {
  LeaveLock();
  const fs::path work = bench_.StateFolder() / "work";
  fs::create_directories(work / "deeper");
  fs::create_directory_symlink(Victim(), work / "link");
  fs::create_directory_symlink(Victim(), work / "deeper" / "link");
  for (const char* const name :
       {"image.bin", "dumpflash.bin", "FlashDevice.bin", "FlashDevice_verif.bin"}) {
    fs::create_symlink(Victim() / "file", work / name);
  }
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

TEST_F(PlantedLinksTest, HardLinksInAWorkFolderThatWasLeftAreNotWritten) {
  LeaveLock();
  const fs::path work = bench_.StateFolder() / "work";
  fs::create_directory(work);
  for (const char* const name : {"image.bin", "dumpflash.bin"}) {
    fs::create_hard_link(Victim() / "file", work / name);
  }
  ExpectUpdated(bench_.Run(bench_.Update()));
}

// --- The files of the user

TEST_F(PlantedLinksTest, LinkAtTheFileOfReadIsRefused) {
  fs::create_symlink(Victim() / "file", bench_.File("read.bin"));
  ExpectRefused(bench_.Run(bench_.Read("--length 512")), "read.bin");
  EXPECT_TRUE(fs::is_symlink(bench_.File("read.bin")));
}

TEST_F(PlantedLinksTest, LinkAtTheFileOfReadThatLeadsNowhereIsRefused) {
  fs::create_symlink(Victim() / "new", bench_.File("read.bin"));
  ExpectRefused(bench_.Run(bench_.Read("--length 512")), "read.bin");
}

TEST_F(PlantedLinksTest, LinkAtTheTemporaryFileOfReadIsNotFollowed) {
  const std::string link = "ln -s " + Quoted(Victim() / "file") + " .tarnwickctl-$$-0; ";
  const Ended ended = bench_.Run(link + "exec " + bench_.Read("--length 512"));
  EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
  ExpectVictimUntouched();
  EXPECT_EQ(fs::file_size(bench_.File("read.bin")), 512U);
}

TEST_F(PlantedLinksTest, ImageThatIsALinkToAFileIsTaken) {
  fs::rename(bench_.File("image.bin"), bench_.File("release.bin"));
  fs::create_symlink("release.bin", bench_.File("image.bin"));
  ExpectUpdated(bench_.Run(bench_.Update()));
}

TEST_F(PlantedLinksTest, ImageThatIsAPipeIsRefused) {
  fs::remove(bench_.File("image.bin"));
  const Ended ended = bench_.Run("mkfifo image.bin; " + bench_.Update());
  ExpectRefused(ended, "image.bin");
}

}  // namespace
}  // namespace companion_test
