#include <stdexcept>
#include <string>

#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;

/// A file whose 76 bytes from 0x4C on are `field`, filled up with dots.
std::string WithField(std::string field) {
  field.resize(76, '.');
  return std::string(76, '#') + field + "#behind#";
}

class ExpanderPyx2BootHeaderTest : public ExpanderTest {
 protected:
  /// The build date of a file `image` with these bytes.
  std::string DateOf(const std::string& bytes) {
    WriteFile("image", bytes);
    auto& programmer = Ready<Pyx2FlashProgrammer>();
    return Record([&] { return programmer.SearchBuildDateInUDFHeader("image"); });
  }

  bool IsUpgradeRequired(const std::string& dump, const std::string& image) {
    WriteFile("dump", dump);
    WriteFile("image", image);
    auto& programmer = Ready<Pyx2FlashProgrammer>();
    return Record([&] { return programmer.IsFlashUpgradeRequired("dump", "image"); });
  }

  /// What the exception of a search of `image` says.
  std::string ErrorOf(const std::string& path) {
    auto& programmer = Ready<Pyx2FlashProgrammer>();
    return Record([&]() -> std::string {
      try {
        static_cast<void>(programmer.SearchBuildDateInUDFHeader(path));
      } catch (const std::logic_error& error) {
        return error.what();
      }
      return "no exception";
    });
  }
};

TEST_F(ExpanderPyx2BootHeaderTest, DateIsTheTextBetweenTheFirstTwoDelimiters) {
  EXPECT_EQ(DateOf(WithField("u-boot-vexa.bin#Nov 05 2015 - 03:35:05#x#y")),
            "Nov 05 2015 - 03:35:05");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, DateWithoutASecondDelimiterRunsToTheEndOfTheFieldWithItsNuls) {
  EXPECT_EQ(DateOf(WithField(Bytes("#a\0b"))), Bytes("a\0b") + std::string(72, '.'));
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, FieldWithoutDelimiterIsReportedWithoutThePrefixAndStaysOpen) {
  EXPECT_EQ(DateOf(WithField("u-boot-vexa.bin")), "");
  EXPECT_THAT(Recorded(),
              ElementsAre("open image 00 #1", "err| Can't find delimiter # in BOOTHEADER\n"));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2BootHeaderTest, DelimiterAsTheLastByteIsAnEmptyDate) {
  EXPECT_EQ(DateOf(WithField(std::string(75, 'n') + "#")), "");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, DelimiterAsTheLastByteButOneIsADateOfOneByte) {
  EXPECT_EQ(DateOf(WithField(std::string(74, 'n') + "#d")), "d");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, TwoDelimitersSideBySideAreAnEmptyDate) {
  EXPECT_EQ(DateOf(WithField("name##date#")), "");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, FileOf151BytesThrowsAndStaysOpen) {
  WriteFile("image", WithField("name#date#").substr(0, 151));
  EXPECT_EQ(ErrorOf("image"), "basic_string::_M_construct null not valid");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "err| ERROR: Can't read file\n"));
  ExpectLeftOpen({1});
}

TEST_F(ExpanderPyx2BootHeaderTest, FileOf152BytesIsEnough) {
  EXPECT_EQ(DateOf(WithField("name#date#").substr(0, 152)), "date");
  EXPECT_THAT(Recorded(), ElementsAre("open image 00 #1", "close #1"));
}

TEST_F(ExpanderPyx2BootHeaderTest, MissingFileThrows) {
  EXPECT_EQ(ErrorOf("missing"), "basic_string::_M_construct null not valid");
  EXPECT_THAT(Recorded(),
              ElementsAre("open missing 00 failed", "err| ERROR: Can't open file 'missing'\n"));
}

TEST_F(ExpanderPyx2BootHeaderTest, EqualDatesNeedNoUpgradeWhateverTheNames) {
  EXPECT_FALSE(IsUpgradeRequired(WithField("one#date#"), WithField("other#date#")));
  EXPECT_THAT(Recorded(),
              ElementsAre("out| \n",
                          "open dump 00 #1",
                          "close #1",
                          "out| Flash header build date: date\n",
                          "open image 00 #2",
                          "close #2",
                          "out| Binary  file build date: date\n"));
}

TEST_F(ExpanderPyx2BootHeaderTest, DatesThatDifferInLengthNeedAnUpgrade) {
  EXPECT_TRUE(IsUpgradeRequired(WithField("name#date#"), WithField("name#dates#")));
  EXPECT_THAT(Recorded(),
              ElementsAre("out| \n",
                          "open dump 00 #1",
                          "close #1",
                          "out| Flash header build date: date\n",
                          "open image 00 #2",
                          "close #2",
                          "out| Binary  file build date: dates\n"));
}

TEST_F(ExpanderPyx2BootHeaderTest, NoDelimiterOnEitherSideNeedsAnUpgrade) {
  EXPECT_TRUE(IsUpgradeRequired(WithField("dump"), WithField("image")));
  EXPECT_THAT(Recorded(),
              ElementsAre("out| \n",
                          "open dump 00 #1",
                          "err| Can't find delimiter # in BOOTHEADER\n"
                          "ERROR: Can't find uboot build date in dumpfile\n",
                          "open image 00 #2",
                          "err| Can't find delimiter # in BOOTHEADER\n"
                          "ERROR: Can't find uboot build date in BIN file\n"));
  ExpectLeftOpen({1, 2});
}

TEST_F(ExpanderPyx2BootHeaderTest, ImageDateThatEqualsTheFallbackOfTheDumpNeedsNoUpgrade) {
  EXPECT_FALSE(IsUpgradeRequired(WithField("name##"), WithField("name#date1#")));
  EXPECT_THAT(Recorded(),
              ElementsAre("out| \n",
                          "open dump 00 #1",
                          "close #1",
                          "err| ERROR: Can't find uboot build date in dumpfile\n",
                          "open image 00 #2",
                          "close #2",
                          "out| Binary  file build date: date1\n"));
}

TEST_F(ExpanderPyx2BootHeaderTest, DumpDateThatEqualsTheFallbackOfTheImageNeedsNoUpgrade) {
  EXPECT_FALSE(IsUpgradeRequired(WithField("name#date2#"), WithField("name##")));
  EXPECT_THAT(Recorded(),
              ElementsAre("out| \n",
                          "open dump 00 #1",
                          "close #1",
                          "out| Flash header build date: date2\n",
                          "open image 00 #2",
                          "close #2",
                          "err| ERROR: Can't find uboot build date in BIN file\n"));
}

}  // namespace
