#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "programmers/BootHeader.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileCallSeam.h"
#include "tests/doubles/LoggedConsole.h"
#include "tests/doubles/ScratchDirectory.h"

namespace {

/// 76 bytes that are no field, then the field: the text, and `filler` up to 76 bytes.
std::string File(std::string field, char filler = '.') {
  field.resize(76, filler);
  return std::string(76, '#') + field;
}

/// A field of `length` bytes 'n' and then the rest of the text.
std::string Long(std::size_t length, const std::string& rest = "") {
  return std::string(length, 'n') + rest;
}

class BootHeaderTest : public testing::Test {
 protected:
  BootHeaderTest() {
    for (const char* const path : {"dump", "image", "missing", "."}) {
      files_.AllowFile(path);
    }
  }

  /// Every test says which files the searches leave open; none, unless it does.
  ~BootHeaderTest() override { EXPECT_EQ(files_.OpenFiles(), leftOpen_); }

  std::string FileName(const std::string& contents) {
    WriteFile("dump", contents);
    return SearchFilenameInUDFHeader("dump");
  }

  std::string BuildDate(const std::string& contents) {
    WriteFile("dump", contents);
    return SearchBuildDateInUDFHeader("dump");
  }

  static bool UpgradeRequired(const std::string& dump, const std::string& image) {
    WriteFile("dump", dump);
    WriteFile("image", image);
    return IsFlashUpgradeRequired("dump", "image");
  }

  ScratchDirectory directory_;
  EventLog log_;
  LoggedConsole console_{log_};
  FileCallSeam files_{log_};
  std::vector<std::string> leftOpen_;
};

// --- The field and its two texts ----------------------------------------------------------------

TEST_F(BootHeaderTest, NameEndsAtTheFirstDelimiter) {
  EXPECT_EQ(FileName(File("u-boot-vexa.bin#Oct 12 2021 - 10:11:12#filler")), "u-boot-vexa.bin");
}

TEST_F(BootHeaderTest, DateStandsBetweenTheFirstTwoDelimiters) {
  EXPECT_EQ(BuildDate(File("u-boot-vexa.bin#Oct 12 2021 - 10:11:12#filler")),
            "Oct 12 2021 - 10:11:12");
}

TEST_F(BootHeaderTest, WhatFollowsTheSecondDelimiterIsIgnored) {
  EXPECT_EQ(BuildDate(File("n#d#e#f")), "d");
}

TEST_F(BootHeaderTest, DateWithoutASecondDelimiterRunsToTheEndOfTheField) {
  EXPECT_EQ(BuildDate(File("name#date", '-')), "date" + std::string(67, '-'));
}

TEST_F(BootHeaderTest, NulBytesUpToTheEndOfTheFieldBelongToTheDate) {
  EXPECT_EQ(BuildDate(File("name#date", '\0')), "date" + std::string(67, '\0'));
}

TEST_F(BootHeaderTest, DateStopsAtTheEndOfTheFieldWhenTheFileGoesOn) {
  EXPECT_EQ(BuildDate(File("name#date", '-') + "beyond"), "date" + std::string(67, '-'));
}

TEST_F(BootHeaderTest, NulBytesBeforeTheDelimiterBelongToTheName) {
  EXPECT_EQ(FileName(File(std::string("a\0b\0#d", 6))), std::string("a\0b\0", 4));
}

TEST_F(BootHeaderTest, BlanksAreNotTrimmed) {
  EXPECT_EQ(FileName(File(" name # date #")), " name ");
  EXPECT_EQ(BuildDate(File(" name # date #")), " date ");
}

TEST_F(BootHeaderTest, BytesOutsideAsciiAreTakenAsTheyAre) {
  EXPECT_EQ(FileName(File("\xFF\x80#\xC3\x28#")), "\xFF\x80");
  EXPECT_EQ(BuildDate(File("\xFF\x80#\xC3\x28#")), "\xC3\x28");
}

TEST_F(BootHeaderTest, DelimiterAtByte0GivesAnEmptyNameWithoutMessage) {
  EXPECT_EQ(FileName(File("#date#")), "");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, DelimiterAtByte0StillStartsTheDate) {
  EXPECT_EQ(BuildDate(File("#date#")), "date");
}

TEST_F(BootHeaderTest, TwoDelimitersInARowGiveAnEmptyDateWithoutMessage) {
  EXPECT_EQ(BuildDate(File("name##date")), "");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, DelimiterAtByte74LeavesADateOfOneByte) {
  EXPECT_EQ(BuildDate(File(Long(74, "#d"))), "d");
}

TEST_F(BootHeaderTest, DelimiterAtByte75GivesAnEmptyDateWithoutMessage) {
  EXPECT_EQ(BuildDate(File(Long(75, "#")) + "date"), "");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, DelimiterAtByte75EndsANameOf75Bytes) {
  EXPECT_EQ(FileName(File(Long(75, "#"))), Long(75));
}

TEST_F(BootHeaderTest, DelimiterRightBehindTheFieldIsNotSeen) {
  leftOpen_ = {"dump"};
  EXPECT_EQ(FileName(File(Long(76)) + "#date#"), "");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find delimiter # in BOOTHEADER\n");
}

TEST_F(BootHeaderTest, DelimiterRightBeforeTheFieldIsNotSeen) {
  EXPECT_EQ(FileName(File("name#date#")), "name");  // byte 75 of the file is a '#'
}

TEST_F(BootHeaderTest, NoDelimiterGivesAnEmptyNameAMessageAndAnOpenFile) {
  leftOpen_ = {"dump"};
  EXPECT_EQ(FileName(File("name")), "");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find delimiter # in BOOTHEADER\n");
  EXPECT_EQ(console_.Out(), "");
}

TEST_F(BootHeaderTest, NoDelimiterGivesAnEmptyDateAMessageAndAnOpenFile) {
  leftOpen_ = {"dump"};
  EXPECT_EQ(BuildDate(File("name")), "");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find delimiter # in BOOTHEADER\n");
  EXPECT_EQ(console_.Out(), "");
}

TEST_F(BootHeaderTest, SuccessfulSearchesPrintNothing) {
  FileName(File("name#date#"));
  BuildDate(File("name#date#"));
  EXPECT_EQ(console_.Out(), "");
  EXPECT_EQ(console_.Err(), "");
}

// --- The calls on the file ----------------------------------------------------------------------

TEST_F(BootHeaderTest, NameSearchReadsTheFieldInOneCallAndCloses) {
  FileName(File("name#date#"));
  EXPECT_EQ(log_.Text(), R"(open dump O_RDONLY
lseek dump to 76 from the start
read dump 76 bytes, got 76
close dump
)");
}

TEST_F(BootHeaderTest, DateSearchReadsTheFieldInOneCallAndCloses) {
  BuildDate(File("name#date#"));
  EXPECT_EQ(log_.Text(), R"(open dump O_RDONLY
lseek dump to 76 from the start
read dump 76 bytes, got 76
close dump
)");
}

TEST_F(BootHeaderTest, EmptyDateAtTheLastByteClosesTheFile) {
  BuildDate(File(Long(75, "#")));
  EXPECT_EQ(log_.Count("close dump"), 1);
}

// --- Headers that cannot be read ----------------------------------------------------------------

using Search = std::string (*)(std::string);

class UnreadableHeaderTest : public BootHeaderTest, public testing::WithParamInterface<Search> {
 protected:
  static std::string TextThrown(const std::string& path) {
    try {
      GetParam()(path);
    } catch (const std::logic_error& error) {
      // Callers tell by the text: none of the classes derived from std::logic_error will do.
      EXPECT_EQ(typeid(error), typeid(std::logic_error));
      return error.what();
    }
    return "(nothing thrown)";
  }
};

TEST_P(UnreadableHeaderTest, MissingFileThrows) {
  EXPECT_EQ(TextThrown("missing"), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't open file 'missing'\n");
  EXPECT_EQ(console_.Out(), "");
}

TEST_P(UnreadableHeaderTest, FailedSeekThrowsAndLeavesTheFileOpen) {
  leftOpen_ = {"dump"};
  WriteFile("dump", File("name#date#"));
  files_.Fail("lseek", "dump", EIO);
  EXPECT_EQ(TextThrown("dump"), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't seek file\n");
  EXPECT_EQ(console_.Out(), "");
}

TEST_P(UnreadableHeaderTest, PipeCannotBeSoughtInAndThrows) {
  int ends[2] = {};
  ASSERT_EQ(::pipe(ends), 0);
  // As streams, because the seam for close() is for the code under test.
  const std::unique_ptr<FILE, int (*)(FILE*)> readEnd(::fdopen(ends[0], "r"), &std::fclose);
  const std::unique_ptr<FILE, int (*)(FILE*)> writeEnd(::fdopen(ends[1], "w"), &std::fclose);
  const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
  files_.AllowFile(path);
  leftOpen_ = {path};
  EXPECT_EQ(TextThrown(path), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't seek file\n");
}

TEST_P(UnreadableHeaderTest, FileOf151BytesThrowsAndStaysOpen) {
  leftOpen_ = {"dump"};
  WriteFile("dump", File("name#date#").substr(0, 151));
  EXPECT_EQ(TextThrown("dump"), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
  EXPECT_EQ(console_.Out(), "");
}

TEST_P(UnreadableHeaderTest, FileOf152BytesIsEnough) {
  WriteFile("dump", File("name#date#").substr(0, 152));
  EXPECT_EQ(TextThrown("dump"), "(nothing thrown)");
  EXPECT_EQ(console_.Err(), "");
}

TEST_P(UnreadableHeaderTest, EmptyFileThrows) {
  leftOpen_ = {"dump"};
  WriteFile("dump", "");
  EXPECT_EQ(TextThrown("dump"), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
}

TEST_P(UnreadableHeaderTest, FailedReadThrowsAndLeavesTheFileOpen) {
  leftOpen_ = {"dump"};
  WriteFile("dump", File("name#date#"));
  files_.Fail("read", "dump", EIO);
  EXPECT_EQ(TextThrown("dump"), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
}

TEST_P(UnreadableHeaderTest, DirectoryOpensButCannotBeReadAndThrows) {
  leftOpen_ = {"."};
  EXPECT_EQ(TextThrown("."), "basic_string::_M_construct null not valid");
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
}

INSTANTIATE_TEST_SUITE_P(Searches,
                         UnreadableHeaderTest,
                         testing::Values(&SearchFilenameInUDFHeader, &SearchBuildDateInUDFHeader),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "FileName" : "BuildDate");
                         });

// --- The decision -------------------------------------------------------------------------------

TEST_F(BootHeaderTest, EqualDatesNeedNoUpgrade) {
  EXPECT_FALSE(UpgradeRequired(File("a.bin#2021-10-12#"), File("a.bin#2021-10-12#")));
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a.bin
Flash header build date: 2021-10-12
Binary  file build date: 2021-10-12
)");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, DifferentDatesNeedAnUpgrade) {
  EXPECT_TRUE(UpgradeRequired(File("a.bin#2021-10-12#"), File("a.bin#2021-10-13#")));
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a.bin
Flash header build date: 2021-10-12
Binary  file build date: 2021-10-13
)");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, NameTakesNoPartInTheDecision) {
  EXPECT_FALSE(UpgradeRequired(File("a.bin#date#"), File("b.bin#date#")));
}

TEST_F(BootHeaderTest, DateThatIsOnlyTheBeginningOfTheOtherNeedsAnUpgrade) {
  EXPECT_TRUE(UpgradeRequired(File("a#date#"), File("a#dates#")));
}

TEST_F(BootHeaderTest, DatesThatDifferBehindANulByteNeedAnUpgrade) {
  EXPECT_TRUE(UpgradeRequired(File(std::string("a#d\0x#", 6)), File(std::string("a#d\0y#", 6))));
}

TEST_F(BootHeaderTest, DateEndedByTheFieldDiffersFromOneEndedByADelimiter) {
  EXPECT_TRUE(UpgradeRequired(File("a#date", '\0'), File("a#date#", '\0')));
}

TEST_F(BootHeaderTest, NulBytesReachStandardOutput) {
  UpgradeRequired(File(std::string("a\0b#c\0d#", 8)), File("a#e#"));
  EXPECT_EQ(console_.Out(),
            std::string("\nFlash header binary filename: a\0b\n", 35) +
                std::string("Flash header build date: c\0d\n", 29) +
                "Binary  file build date: e\n");
}

TEST_F(BootHeaderTest, EmptyNameIsReportedAndDoesNotMatter) {
  EXPECT_FALSE(UpgradeRequired(File("#date#"), File("a.bin#date#")));
  EXPECT_EQ(console_.Out(), R"(
Flash header build date: date
Binary  file build date: date
)");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find uboot filename in dumpfile\n");
}

TEST_F(BootHeaderTest, EmptyNameOfTheImageIsNotLookedFor) {
  EXPECT_FALSE(UpgradeRequired(File("a.bin#date#"), File("#date#")));
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, DumpWithoutDelimiterNeedsAnUpgrade) {
  leftOpen_ = {"dump", "dump"};
  EXPECT_TRUE(UpgradeRequired(File("blank"), File("a.bin#date#")));
  EXPECT_EQ(console_.Out(), "\nBinary  file build date: date\n");
  EXPECT_EQ(console_.Err(), R"(ERROR: Can't find delimiter # in BOOTHEADER
ERROR: Can't find uboot filename in dumpfile
ERROR: Can't find delimiter # in BOOTHEADER
ERROR: Can't find uboot build date in dumpfile
)");
}

TEST_F(BootHeaderTest, ImageWithoutDelimiterNeedsAnUpgrade) {
  leftOpen_ = {"image"};
  EXPECT_TRUE(UpgradeRequired(File("a.bin#date#"), File("blank")));
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a.bin
Flash header build date: date
)");
  EXPECT_EQ(console_.Err(), R"(ERROR: Can't find delimiter # in BOOTHEADER
ERROR: Can't find uboot build date in BIN file
)");
}

TEST_F(BootHeaderTest, BothDatesMissingNeedAnUpgrade) {
  EXPECT_TRUE(UpgradeRequired(File(Long(75, "#")), File(Long(75, "#"))));
  EXPECT_EQ(console_.Out(), "\nFlash header binary filename: " + Long(75, "\n"));
  EXPECT_EQ(console_.Err(), R"(ERROR: Can't find uboot build date in dumpfile
ERROR: Can't find uboot build date in BIN file
)");
}

TEST_F(BootHeaderTest, MissingDumpDateStandsForTheTextDate1) {
  EXPECT_FALSE(UpgradeRequired(File("a##"), File("a#date1#")));
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a
Binary  file build date: date1
)");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find uboot build date in dumpfile\n");
}

TEST_F(BootHeaderTest, MissingImageDateStandsForTheTextDate2) {
  EXPECT_FALSE(UpgradeRequired(File("a#date2#"), File("a##")));
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a
Flash header build date: date2
)");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find uboot build date in BIN file\n");
}

TEST_F(BootHeaderTest, MissingDumpDateIsNotTheTextDate2) {
  EXPECT_TRUE(UpgradeRequired(File("a##"), File("a#date2#")));
}

TEST_F(BootHeaderTest, DumpIsReadTwiceThenTheImageOnceBetweenTheLines) {
  UpgradeRequired(File("a.bin#old#"), File("b.bin#new#"));
  EXPECT_EQ(log_.Text(), R"(out "\n"
open dump O_RDONLY
lseek dump to 76 from the start
read dump 76 bytes, got 76
close dump
out "Flash header binary filename: a.bin\n"
open dump O_RDONLY
lseek dump to 76 from the start
read dump 76 bytes, got 76
close dump
out "Flash header build date: old\n"
open image O_RDONLY
lseek image to 76 from the start
read image 76 bytes, got 76
close image
out "Binary  file build date: new\n"
)");
}

TEST_F(BootHeaderTest, UnreadableDumpThrowsBeforeTheImageIsOpened) {
  WriteFile("image", File("a#date#"));
  EXPECT_THROW(IsFlashUpgradeRequired("missing", "image"), std::logic_error);
  EXPECT_EQ(log_.Text(), R"(out "\n"
open missing O_RDONLY
err "ERROR: Can't open file 'missing'\n"
)");
}

TEST_F(BootHeaderTest, UnreadableImageThrowsAfterTheDumpIsReported) {
  WriteFile("dump", File("a#date#"));
  EXPECT_THROW(IsFlashUpgradeRequired("dump", "missing"), std::logic_error);
  EXPECT_EQ(console_.Out(), R"(
Flash header binary filename: a
Flash header build date: date
)");
  EXPECT_EQ(console_.Err(), "ERROR: Can't open file 'missing'\n");
}

// --- What other programmers share ---------------------------------------------------------------

TEST_F(BootHeaderTest, FindBuildDateWordsTheMissingDelimiterAsAsked) {
  leftOpen_ = {"dump"};
  WriteFile("dump", File("blank"));
  EXPECT_EQ(boot_header::FindBuildDate("dump", "other words"), "");
  EXPECT_EQ(console_.Err(), "other words\n");
}

TEST_F(BootHeaderTest, BuildDatesDifferAsksForTheDumpThenForTheImage) {
  const auto pathItself = [](std::string file) { return file; };
  EXPECT_TRUE(boot_header::ReportBuildDates("dump", "image", pathItself));
  EXPECT_EQ(console_.Out(), R"(Flash header build date: dump
Binary  file build date: image
)");
  EXPECT_EQ(console_.Err(), "");
}

TEST_F(BootHeaderTest, BuildDatesDifferTakesAnEmptyDateForMissing) {
  const auto dateOfTheImage = [](std::string file) {
    return std::string(file == "image" ? "date1" : "");
  };
  EXPECT_FALSE(boot_header::ReportBuildDates("dump", "image", dateOfTheImage));
  EXPECT_EQ(console_.Out(), "Binary  file build date: date1\n");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find uboot build date in dumpfile\n");
}

}  // namespace
