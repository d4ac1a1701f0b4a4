#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "programmers/BootHeader.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/EventLog.h"
#include "tests/doubles/FileKernel.h"
#include "tests/doubles/KernelCall.h"

namespace {

using testing::ElementsAreArray;

constexpr const char* kNoDelimiter = "ERROR: Can't find delimiter # in BOOTHEADER\n";

/// 76 bytes that are no field, then the field: the text, and `filler` up to 76 bytes.
std::string File(std::string field, char filler = '.') {
  field.resize(76, filler);
  return std::string(76, '#') + field;
}

/// @return raw bytes, also those after a NUL
template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

/// The calls of one search, on the descriptor that its file gets.
EventLog::Events SearchOf(const std::string& path, int fd) {
  return {kernel::Open(path, O_RDONLY).text,
          kernel::Seek(fd, 76, SEEK_SET).text,
          kernel::Read(fd, kernel::Bytes(76)).text,
          kernel::Close(fd).text};
}

class BootHeaderTest : public testing::Test {
 protected:
  /// Every test says which files the searches leave open; none, unless it does.
  ~BootHeaderTest() override { EXPECT_EQ(kernel_.OpenFiles(), leftOpen_); }

  bool UpgradeRequired(const std::string& dump, const std::string& image) {
    kernel_.files = {{"dump", dump}, {"image", image}};
    return IsFlashUpgradeRequired("dump", "image");
  }

  EventLog log_;
  Console console_{&log_};
  FileKernel kernel_{&log_};
  std::vector<std::string> leftOpen_;
};

// --- The field and its two texts ----------------------------------------------------------------

struct Row {
  const char* name;
  std::string file;
  std::string fileName;
  std::string buildDate;
};

class HeaderFieldTest : public BootHeaderTest, public testing::WithParamInterface<Row> {};

TEST_P(HeaderFieldTest, HoldsTheTextsOfTheRow) {
  kernel_.files["file"] = GetParam().file;
  EXPECT_EQ(SearchFilenameInUDFHeader("file"), GetParam().fileName);
  EXPECT_EQ(SearchBuildDateInUDFHeader("file"), GetParam().buildDate);
  EXPECT_EQ(console_.Out() + console_.Err(), "");
}

TEST_P(HeaderFieldTest, HoldsTheTextsOfTheRowInMemoryToo) {
  const std::string field = GetParam().file.substr(76, 76);
  EXPECT_EQ(boot_header::FileNameIn(field), GetParam().fileName);
  EXPECT_EQ(boot_header::BuildDateIn(field), GetParam().buildDate);
}

INSTANTIATE_TEST_SUITE_P(
    Fields,
    HeaderFieldTest,
    testing::Values(
        Row{"TwoDelimiters", File("u-boot-vexa.bin#Oct 12#filler"), "u-boot-vexa.bin", "Oct 12"},
        Row{"ManyDelimiters", File("n#d#e#f"), "n", "d"},
        Row{"OneDelimiter", File("n#d", '-') + "beyond", "n", "d" + std::string(73, '-')},
        Row{"NulBytes",
            File(Bytes("a\0b\0#d"), '\0'),
            Bytes("a\0b\0"),
            "d" + std::string(70, '\0')},
        Row{"Blanks", File(" name # date #"), " name ", " date "},
        Row{"BytesOutsideAscii", File("\xFF\x80#\xC3\x28#"), "\xFF\x80", "\xC3\x28"},
        Row{"EmptyName", File("#date#"), "", "date"},
        Row{"EmptyDate", File("name##date"), "name", ""},
        Row{"DateOfOneByte", File(std::string(74, 'n') + "#d"), std::string(74, 'n'), "d"},
        Row{"DelimiterAsLastByte",
            File(std::string(75, 'n') + "#") + "d",
            std::string(75, 'n'),
            ""}),
    [](const auto& row) { return std::string(row.param.name); });

using Search = std::string (*)(std::string);

class HeaderSearchTest : public BootHeaderTest, public testing::WithParamInterface<Search> {
 protected:
  /// @return the text of the exception, empty without one
  std::string Thrown(const std::string& contents) {
    kernel_.files["file"] = contents;
    try {
      GetParam()("file");
    } catch (const std::logic_error& error) {
      // The exact class counts: a class derived from std::logic_error is not accepted.
      EXPECT_EQ(typeid(error), typeid(std::logic_error));
      return error.what();
    }
    return "";
  }

  void Fail(const std::string& call, int error) {
    kernel_.decide = [=](const char* made, const std::string&) {
      return FileKernel::Fate{.error = call == made ? error : 0};
    };
  }

  static constexpr const char* kText = "basic_string::_M_construct null not valid";
};

INSTANTIATE_TEST_SUITE_P(Searches,
                         HeaderSearchTest,
                         testing::Values(&SearchFilenameInUDFHeader, &SearchBuildDateInUDFHeader),
                         [](const auto& row) {
                           return std::string(row.index == 0 ? "FileName" : "BuildDate");
                         });

TEST_P(HeaderSearchTest, ReadsTheFieldInOneCallAndCloses) {
  EXPECT_EQ(Thrown(File("name#date#")), "");
  EXPECT_THAT(log_.Take(), ElementsAreArray(SearchOf("file", 100)));
}

TEST_P(HeaderSearchTest, NoDelimiterIsEmptyAMessageAndAnOpenFile) {
  kernel_.files["file"] = File(std::string(76, 'n')) + "#";
  EXPECT_EQ(GetParam()("file"), "");
  EXPECT_EQ(console_.Err(), kNoDelimiter);
  leftOpen_ = {"file"};
}

TEST_P(HeaderSearchTest, MissingFileThrows) {
  Fail("open", ENOENT);
  EXPECT_EQ(Thrown(""), kText);
  EXPECT_EQ(console_.Err(), "ERROR: Can't open file 'file'\n");
}

TEST_P(HeaderSearchTest, FailedSeekThrowsAndLeavesTheFileOpen) {
  Fail("lseek", ESPIPE);
  EXPECT_EQ(Thrown(File("name#date#")), kText);
  EXPECT_EQ(console_.Err(), "ERROR: Can't seek file\n");
  leftOpen_ = {"file"};
}

TEST_P(HeaderSearchTest, FailedReadThrowsAndLeavesTheFileOpen) {
  Fail("read", EIO);
  EXPECT_EQ(Thrown(File("name#date#")), kText);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
  leftOpen_ = {"file"};
}

TEST_P(HeaderSearchTest, FileOf151BytesThrowsAndStaysOpen) {
  EXPECT_EQ(Thrown(File("name#date#").substr(0, 151)), kText);
  EXPECT_EQ(console_.Err(), "ERROR: Can't read file\n");
  leftOpen_ = {"file"};
}

// --- The decision -------------------------------------------------------------------------------

TEST_F(BootHeaderTest, DumpIsReadTwiceThenTheImageOnceBetweenTheLines) {
  EXPECT_TRUE(UpgradeRequired(File("a.bin#old#"), File("b.bin#new#")));
  EventLog::Events expected = {"out| \n"};
  const auto expect = [&](const EventLog::Events& calls, const std::string& line) {
    expected.insert(expected.end(), calls.begin(), calls.end());
    expected.push_back("out| " + line + "\n");
  };
  expect(SearchOf("dump", 100), "Flash header binary filename: a.bin");
  expect(SearchOf("dump", 101), "Flash header build date: old");
  expect(SearchOf("image", 102), "Binary  file build date: new");
  EXPECT_THAT(log_.Take(), ElementsAreArray(expected));
}

TEST_F(BootHeaderTest, DatesAloneDecideByteByByte) {
  EXPECT_FALSE(UpgradeRequired(File("a.bin#date#"), File("b.bin#date#")));
  EXPECT_TRUE(UpgradeRequired(File("a#date#"), File("a#dates#")));
  EXPECT_TRUE(UpgradeRequired(File(Bytes("a#d\0x#")), File(Bytes("a#d\0y#"))));
  EXPECT_TRUE(UpgradeRequired(File("a#date", '\0'), File("a#date#", '\0')));
}

TEST_F(BootHeaderTest, EmptyNameOfTheDumpIsReportedAndThatOfTheImageIsNotLookedFor) {
  EXPECT_FALSE(UpgradeRequired(File("#date#"), File("#date#")));
  EXPECT_EQ(console_.Out(), "\nFlash header build date: date\nBinary  file build date: date\n");
  EXPECT_EQ(console_.Err(), "ERROR: Can't find uboot filename in dumpfile\n");
}

TEST_F(BootHeaderTest, BothDatesMissingNeedAnUpgrade) {
  EXPECT_TRUE(UpgradeRequired(File("a##"), File("a##")));
  EXPECT_EQ(console_.Err(),
            "ERROR: Can't find uboot build date in dumpfile\n"
            "ERROR: Can't find uboot build date in BIN file\n");
}

TEST_F(BootHeaderTest, MissingDumpDateStandsForTheTextDate1) {
  EXPECT_FALSE(UpgradeRequired(File("a##"), File("a#date1#")));
  EXPECT_TRUE(UpgradeRequired(File("a##"), File("a#date2#")));
}

TEST_F(BootHeaderTest, MissingImageDateStandsForTheTextDate2) {
  EXPECT_FALSE(UpgradeRequired(File("a#date2#"), File("a##")));
}

// --- What other callers share -------------------------------------------------------------------

TEST_F(BootHeaderTest, FieldInMemoryWithoutADelimiterHoldsNothingAndIsNotReported) {
  EXPECT_EQ(boot_header::FileNameIn(std::string(76, 'n')), std::nullopt);
  EXPECT_EQ(boot_header::BuildDateIn(std::string(76, 'n')), std::nullopt);
  EXPECT_EQ(console_.Out() + console_.Err(), "");
}

TEST_F(BootHeaderTest, FieldIsTheLast76BytesOfAHeaderOf152) {
  EXPECT_EQ(boot_header::kUserFieldOffset, 76U);
  EXPECT_EQ(boot_header::kUserFieldBytes, 76U);
  EXPECT_EQ(boot_header::kHeaderBytes, 152U);
}

TEST_F(BootHeaderTest, DatesThatDifferOrAreBothMissingRequireAnUpgrade) {
  EXPECT_FALSE(boot_header::IsUpgradeRequired("date", "date"));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("date", "dates"));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("", ""));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("date", ""));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("", "date"));
}

TEST_F(BootHeaderTest, MissingDateIsEqualToTheTextThatStandsForIt) {
  EXPECT_FALSE(boot_header::IsUpgradeRequired("", "date1"));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("date1", ""));
  EXPECT_FALSE(boot_header::IsUpgradeRequired("date2", ""));
  EXPECT_TRUE(boot_header::IsUpgradeRequired("", "date2"));
}

TEST_F(BootHeaderTest, FindBuildDateWordsTheMissingDelimiterAsAsked) {
  kernel_.files["file"] = File("blank");
  EXPECT_EQ(boot_header::FindBuildDate("file", "other words"), "");
  EXPECT_EQ(console_.Err(), "other words\n");
  leftOpen_ = {"file"};
}

TEST_F(BootHeaderTest, ReportOfTheBuildDatesAsksForTheDumpThenForTheImage) {
  std::string asked;
  const auto pathItself = [&](const std::string& file) {
    asked += file + " ";
    return file;
  };
  EXPECT_TRUE(boot_header::ReportBuildDates("dump", "image", pathItself));
  EXPECT_EQ(asked, "dump image ");
}

}  // namespace
