// What `tarnwickctl` finds beside the module: its own folder, the disk, the image, `tarnwick`, and
// names from the bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/companion/Bench.h"
#include "tests/e2e/companion/Gate.h"

namespace companion_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class OwnFilesTest : public testing::Test {
 protected:
  /// Refused with a line, and the module was not touched.
  void ExpectRefused(const Ended& ended, const std::string& says) {
    EXPECT_EQ(ended.exitCode, 2) << ended.out;
    EXPECT_THAT(ended.out + ended.err, HasSubstr(says));
    EXPECT_EQ(CountStarts(ended.log, "spi "), 0);
    EXPECT_EQ(CountStarts(ended.log, "i2c "), 0);
    EXPECT_EQ(CountStarts(ended.log, "write /sys/"), 0);
    ExpectFlash(ended, bench_.Old());
    EXPECT_EQ(ended.state, bench_.InUse());
  }

  void ExpectUpdated(const Ended& ended) {
    EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
    ExpectFlash(ended, bench_.New());
    EXPECT_EQ(ended.state, bench_.InUse());
  }

  std::string UpdateWith(const std::string& state, const std::string& program) const {
    return Bench::Companion("update pyx1 4 image.bin --state ") + Quoted(state) + " --program " +
           Quoted(program);
  }

  Bench bench_{kPyx1};
};

// --- The folder of --state

TEST_F(OwnFilesTest, FolderThatIsNotThereIsMadeForItsOwnerAlone) {
  ExpectUpdated(bench_.Run("umask 0; " + bench_.Update()));
  EXPECT_EQ(fs::status(bench_.StateFolder()).permissions(), fs::perms::owner_all);
}

TEST_F(OwnFilesTest, FolderWithoutAParentIsRefused) {
  const std::string state = bench_.StateFolder() / "a" / "b";
  ExpectRefused(bench_.Run(UpdateWith(state, Bench::TarnwickPath())), state);
}

TEST_F(OwnFilesTest, FolderBelowAFileIsRefused) {
  const std::string state = bench_.File("image.bin") / "state";
  ExpectRefused(bench_.Run(UpdateWith(state, Bench::TarnwickPath())), state);
}

TEST_F(OwnFilesTest, FileInPlaceOfTheFolderIsRefused) {
  const std::string state = bench_.File("image.bin");
  ExpectRefused(bench_.Run(UpdateWith(state, Bench::TarnwickPath())), state);
}

TEST_F(OwnFilesTest, FolderThatCannotBeWrittenIsRefused) {
  ExpectRefused(bench_.Run(UpdateWith("/proc/tarnwick", Bench::TarnwickPath())), "/proc/tarnwick");
}

TEST_F(OwnFilesTest, RelativeFolderAndProgramAreFoundFromTheWorkingDirectory) {
  fs::create_symlink(Bench::TarnwickPath(), bench_.File("program"));
  ExpectUpdated(bench_.Run(UpdateWith("state", "./program")));
  EXPECT_TRUE(fs::exists(bench_.File("state/lock")));
}

TEST_F(OwnFilesTest, NothingIsLeftInTheFolderButTheLock) {
  ExpectUpdated(bench_.Run(bench_.Update()));
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
  EXPECT_THAT(Bench::NamesIn(bench_.File("")), ElementsAre("image.bin"));
}

// --- A disk without room

/// Files can grow to so many bytes; what does not fit is an error, as on a full disk. The counts of a
/// coverage build go elsewhere: cut short, they would spoil those of all other processes.
std::string WithRoomFor(const std::string& blocks, const std::string& command) {
  const std::string limit = "export GCOV_PREFIX=$PWD/../counts; trap '' XFSZ; ulimit -f " + blocks;
  return limit + "; exec " + command;
}

TEST_F(OwnFilesTest, DiskWithoutRoomForTheImageIsRefused) {
  bench_.StoreImage(bench_.Build(2024, 5000));
  ExpectRefused(bench_.Run(WithRoomFor("4", bench_.Update())), bench_.StateFolder());
}

TEST_F(OwnFilesTest, DiskWithoutAnyRoomIsRefused) {
  ExpectRefused(bench_.Run(WithRoomFor("0", bench_.Update())), bench_.StateFolder());
}

TEST_F(OwnFilesTest, DiskWithoutRoomForAReadingLeavesTheOldFile) {
  bench_.WriteText("read.bin", "old");
  const Ended ended = bench_.Run(WithRoomFor("4", bench_.Read()));
  EXPECT_EQ(ended.exitCode, 2) << ended.out << ended.err;
  EXPECT_THAT(ended.out + ended.err, HasSubstr("read.bin"));
  EXPECT_EQ(bench_.ReadText("read.bin"), "old");
  EXPECT_THAT(Bench::NamesIn(bench_.File("")), ElementsAre("image.bin", "read.bin"));
  EXPECT_EQ(ended.state, bench_.InUse());
}

// --- tarnwick

TEST_F(OwnFilesTest, MissingProgramIsRefused) {
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "./none")), "./none");
}

TEST_F(OwnFilesTest, ProgramThatIsAFolderIsRefused) {
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "/")), "/");
}

TEST_F(OwnFilesTest, ProgramThatIsNoneIsRefused) {
  bench_.WriteText("program", "no program");
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "./program")), "./program");
  fs::permissions(bench_.File("program"), fs::perms::owner_all);
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "./program")), "./program");
}

TEST_F(OwnFilesTest, ProgramThatIsAnotherIsRefused) {
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "/bin/true")), "/bin/true");
  ExpectRefused(bench_.Run(UpdateWith(bench_.StateFolder(), "/bin/cat")), "/bin/cat");
}

TEST_F(OwnFilesTest, ProgramThatIsRemovedAfterItsCheckChangesNothing) {
  bench_.WriteText("program",
                   "#!/bin/sh\nrm \"$0\"\nexec " + Quoted(Bench::TarnwickPath()) + " \"$@\"\n");
  fs::permissions(bench_.File("program"), fs::perms::owner_all);
  const Ended ended = bench_.Run(UpdateWith(bench_.StateFolder(), bench_.File("program").string()));
  EXPECT_EQ(ended.exitCode, 2) << ended.out << ended.err;
  EXPECT_THAT(ended.out, HasSubstr("tarnwick could not be started: cannot start '"));
  ExpectFlash(ended, bench_.Old());
  EXPECT_EQ(ended.state, bench_.InUse());
  EXPECT_THAT(Bench::NamesIn(bench_.StateFolder()), ElementsAre("lock"));
}

// --- The image changes meanwhile

struct Change {
  const char* what;
  const char* commands;
};

class ChangedImageTest : public OwnFilesTest, public testing::WithParamInterface<Change> {};

INSTANTIATE_TEST_SUITE_P(Changes,
                         ChangedImageTest,
                         testing::Values(Change{"Cut", ": >\"$cwd/image.bin\""},
                                         Change{"Removed", "rm -f \"$cwd/image.bin\""},
                                         Change{"Replaced",
                                                "echo other >\"$cwd/other\"\n"
                                                "mv \"$cwd/other\" \"$cwd/image.bin\""}),
                         [](const auto& row) { return std::string(row.param.what); });

TEST_P(ChangedImageTest, UpdateGoesOnWithWhatItHasExamined) {
  bench_.BeforeTarnwick(GetParam().commands);
  ExpectUpdated(bench_.Run(bench_.Update()));
}

TEST_F(OwnFilesTest, ImageThatIsNotTheOneOfTheHashIsRefused) {
  ExpectRefused(bench_.Run(bench_.Update("--sha256 " + std::string(64, '0'))), "image.bin");
}

// --- Names from the bus

struct Name {
  const char* what;
  std::string text;
};

class HostileNameTest : public OwnFilesTest, public testing::WithParamInterface<Name> {};

INSTANTIATE_TEST_SUITE_P(Names,
                         HostileNameTest,
                         testing::Values(Name{"LeadsUpwards", "../x"},
                                         Name{"LeadsDownwards", "x/y"},
                                         Name{"HasANewline", R"(spidev4.0\n)"},
                                         Name{"HasAnEscape", R"(\x1b[2Jspidev4.0)"},
                                         Name{"IsTooLong", std::string(256, 'x')}),
                         [](const auto& row) { return std::string(row.param.what); });

TEST_P(HostileNameTest, OfTheSpiDeviceIsRefused) {
  bench_.Fault("dbus:GetSPIDev:data:" + GetParam().text);
  const Ended ended = bench_.Run(bench_.Update());
  ExpectRefused(ended, "");
  EXPECT_THAT(ended.err, Not(HasSubstr("\x1b")));
  EXPECT_THAT(ended.out, Not(HasSubstr("\x1b")));
}

TEST_P(HostileNameTest, OfTheI2cBusIsRefused) {
  bench_.Fault("dbus:GetI2CBus:data:" + GetParam().text);
  const Ended ended = bench_.Run(bench_.Update());
  ExpectRefused(ended, "");
  EXPECT_THAT(ended.err, Not(HasSubstr("\x1b")));
  EXPECT_THAT(ended.out, Not(HasSubstr("\x1b")));
}

TEST_F(OwnFilesTest, SlotThatIsNotInTheInventoryIsRefused) {
  bench_.Fault("dbus:GetModuleLocations:data:1 2");
  ExpectRefused(bench_.Run(bench_.Update()), "4");
}

}  // namespace
}  // namespace companion_test
