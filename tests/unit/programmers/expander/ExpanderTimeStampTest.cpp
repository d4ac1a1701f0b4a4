#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <type_traits>

#include "tests/unit/programmers/expander/ExpanderTest.h"

namespace {

using testing::ElementsAre;

const std::string kHeader = "\x30\x01\xA0\x01";  // write one word to USR_ACCESS

/// The scan as it is meant, four bytes a step, on a machine that stores the low byte first.
unsigned int StampByFourByteSteps(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  std::uint32_t word = 0;
  std::uint32_t previous = 0;
  unsigned int stamp = 0;
  while (std::fread(&word, 1, sizeof word, file) > 0) {
    if (previous == 0x01A00130) {
      stamp = __builtin_bswap32(word);
      break;
    }
    previous = word;
  }
  static_cast<void>(std::fclose(file));
  return stamp;
}

template <typename Programmer>
class ExpanderTimeStampTest : public ExpanderTest {
 protected:
  static constexpr bool kIsDax = std::is_same_v<Programmer, DaxFlashProgrammer>;

  unsigned int Find(const std::string& path) {
    auto& programmer = Ready<Programmer>();
    return Record([&] { return programmer.FindTimeStampInFile(path); });
  }

  unsigned int FindIn(const std::string& bytes) {
    WriteFile("image.bit", bytes);
    return Find("image.bit");
  }

  /// The whole log of a search through image.bit that found a stamp; none for "not found".
  void ExpectLog(const std::string& dateAndTime) {
    EXPECT_THAT(
        Recorded(),
        ElementsAre("open image.bit 00 #1",
                    "out| User Access Register found in file image.bit with Time Stamp :  " +
                        dateAndTime + "\n",
                    "close #1"));
  }

  void ExpectNotFoundLog() {
    EXPECT_THAT(Recorded(),
                ElementsAre("open image.bit 00 #1",
                            kIsDax ? "out| No User Access Register found image.bit\n"
                                   : "err| No User Access Register found in file 'image.bit'\n",
                            "close #1"));
  }
};

using Programmers = testing::Types<DaxFlashProgrammer, Pyx1FlashProgrammer>;
TYPED_TEST_SUITE(ExpanderTimeStampTest, Programmers);

TYPED_TEST(ExpanderTimeStampTest, StampInTheSecondWordIsPrintedAndReturned) {
  EXPECT_EQ(this->FindIn(kHeader + "\x5A\x9E\x38\xC5"), 0x5A9E38C5U);
  this->ExpectLog("11/05/2015 03:35:05");
}

TYPED_TEST(ExpanderTimeStampTest, StampBehindOtherWordsIsFound) {
  EXPECT_EQ(this->FindIn("\xAA\x99\x55\x66" + kHeader + "\x5A\x9E\x38\xC5 and so on"), 0x5A9E38C5U);
  this->ExpectLog("11/05/2015 03:35:05");
}

TYPED_TEST(ExpanderTimeStampTest, FirstOfTwoStampsWins) {
  EXPECT_EQ(this->FindIn(kHeader + "\x5A\x9E\x38\xC5" + kHeader + "\x11\x22\x33\x44"), 0x5A9E38C5U);
  this->ExpectLog("11/05/2015 03:35:05");
}

TYPED_TEST(ExpanderTimeStampTest, HeaderBehindAHeaderIsTakenForItsStamp) {
  EXPECT_EQ(this->FindIn(kHeader + kHeader + "\x5A\x9E\x38\xC5"), 0x3001A001U);
  this->ExpectLog("06/00/2000 26:00:01");
}

TYPED_TEST(ExpanderTimeStampTest, StampOfAllOnesShowsTheWidthOfEachField) {
  EXPECT_EQ(this->FindIn(kHeader + "\xFF\xFF\xFF\xFF"), 0xFFFFFFFFU);
  this->ExpectLog("31/15/2063 31:63:63");
}

TYPED_TEST(ExpanderTimeStampTest, StampOfZeroIsPrintedAndReturned) {
  EXPECT_EQ(this->FindIn(kHeader + std::string(4, '\0')), 0U);
  this->ExpectLog("00/00/2000 00:00:00");
}

TYPED_TEST(ExpanderTimeStampTest, EachFieldStandsAlone) {
  const struct {
    const char* stamp;
    const char* text;
  } fields[] = {{"\xF8\x00\x00\x00", "31/00/2000 00:00:00"},
                {"\x07\x80\x00\x00", "00/15/2000 00:00:00"},
                {"\x00\x7E\x00\x00", "00/00/2063 00:00:00"},
                {"\x00\x01\xF0\x00", "00/00/2000 31:00:00"},
                {"\x00\x00\x0F\xC0", "00/00/2000 00:63:00"},
                {"\x00\x00\x00\x3F", "00/00/2000 00:00:63"},
                {"\x08\x82\x10\x41", "01/01/2001 01:01:01"}};
  auto& programmer = this->template Ready<TypeParam>();
  int opened = 0;
  for (const auto& field : fields) {
    WriteFile("image.bit", kHeader + std::string(field.stamp, 4));
    static_cast<void>(this->Record([&] { return programmer.FindTimeStampInFile("image.bit"); }));
    const std::string number = std::to_string(++opened);
    EXPECT_THAT(
        this->Recorded(),
        ElementsAre("open image.bit 00 #" + number,
                    std::string("out| User Access Register found in file image.bit with Time "
                                "Stamp :  ") +
                        field.text + "\n",
                    "close #" + number));
  }
}

TYPED_TEST(ExpanderTimeStampTest, HeaderInReversedByteOrderIsNotFound) {
  EXPECT_EQ(this->FindIn("\x01\xA0\x01\x30\x5A\x9E\x38\xC5"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, HeaderAtOffset1IsNotFound) {
  EXPECT_EQ(this->FindIn("x" + kHeader + "\x5A\x9E\x38\xC5xxx"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, HeaderAtOffset2IsNotFound) {
  EXPECT_EQ(this->FindIn("xx" + kHeader + "\x5A\x9E\x38\xC5xx"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, HeaderAtOffset3IsNotFound) {
  EXPECT_EQ(this->FindIn("xxx" + kHeader + "\x5A\x9E\x38\xC5x"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, HeaderAsLastWordIsNotFound) {
  EXPECT_EQ(this->FindIn("xxxx" + kHeader), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, EmptyFileHasNoStamp) {
  EXPECT_EQ(this->FindIn(""), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, FileShorterThanAWordHasNoStamp) {
  EXPECT_EQ(this->FindIn("\x30\x01\xA0"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, ShortLastWordOf1ByteReplacesTheFirstByteOfTheHeader) {
  EXPECT_EQ(this->FindIn(kHeader + "\x5A"), 0x5A01A001U);
  this->ExpectLog("11/04/2000 26:00:01");
}

TYPED_TEST(ExpanderTimeStampTest, ShortLastWordOf2BytesReplacesTheFirstTwoOfTheHeader) {
  EXPECT_EQ(this->FindIn(kHeader + "\x5A\x9E"), 0x5A9EA001U);
  this->ExpectLog("11/05/2015 10:00:01");
}

TYPED_TEST(ExpanderTimeStampTest, ShortLastWordOf3BytesReplacesTheFirstThreeOfTheHeader) {
  EXPECT_EQ(this->FindIn(kHeader + "\x5A\x9E\x38"), 0x5A9E3801U);
  this->ExpectLog("11/05/2015 03:32:01");
}

TYPED_TEST(ExpanderTimeStampTest, ShortLastWordThatCompletesTheHeaderIsNotASecondWord) {
  EXPECT_EQ(this->FindIn("xx\xA0\x01\x30\x01"), 0U);
  this->ExpectNotFoundLog();
}

TYPED_TEST(ExpanderTimeStampTest, MissingFileIs0WithoutAMessage) {
  EXPECT_EQ(this->Find("missing.bit"), 0U);
  EXPECT_THAT(this->Recorded(), ElementsAre("open missing.bit 00 failed"));
}

TYPED_TEST(ExpanderTimeStampTest, ReadsThatFailAreMadeAgain) {
  this->script_->readLimit = 3;
  this->script_->failingReads = {1, 2, 4, 6};
  EXPECT_EQ(this->FindIn(kHeader + "\x5A\x9E\x38\xC5"), 0x5A9E38C5U);
  this->ExpectLog("11/05/2015 03:35:05");
  EXPECT_EQ(this->script_->reads, 7);
}

TYPED_TEST(ExpanderTimeStampTest, OnlyTheEndOfTheFileEndsTheSearchWithoutAStamp) {
  for (int read = 1; read <= 1000; ++read) {
    this->script_->failingReads.insert(read);
  }
  EXPECT_EQ(this->FindIn("xxxx"), 0U);
  this->ExpectNotFoundLog();
  EXPECT_EQ(this->script_->reads, 1002);
}

TYPED_TEST(ExpanderTimeStampTest, EveryPlaceAroundABlockOfTheFileIsSearched) {
  auto& programmer = this->template Ready<TypeParam>();
  for (const std::size_t block : {512U, 4096U, 65536U, 131072U}) {
    for (std::size_t at = block - 12; at <= block + 8; ++at) {
      std::string bytes(block + 64, 'x');
      bytes.replace(at, 8, kHeader + "\x5A\x9E\x38\xC5");
      WriteFile("image.bit", bytes);
      EXPECT_EQ(this->Record([&] { return programmer.FindTimeStampInFile("image.bit"); }),
                at % 4 == 0 ? 0x5A9E38C5U : 0U)
          << at;
      static_cast<void>(this->Recorded());
    }
  }
}

TYPED_TEST(ExpanderTimeStampTest, ShortLastWordBehindABlockReplacesTheFirstBytesOfTheHeader) {
  EXPECT_EQ(this->FindIn(std::string(65532, 'x') + kHeader + "\x5A\x9E"), 0x5A9EA001U);
  this->ExpectLog("11/05/2015 10:00:01");
}

TYPED_TEST(ExpanderTimeStampTest, RandomFilesGiveWhatFourByteStepsGive) {
  std::mt19937 random(20151105);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  auto& programmer = this->template Ready<TypeParam>();
  int found = 0;
  for (int file = 0; file < 400; ++file) {
    // Bytes of the header in good and bad order, so that it turns up often and at any offset.
    std::string bytes;
    for (std::size_t pieces = below(12); pieces > 0; --pieces) {
      switch (below(4)) {
        case 0:
          bytes += kHeader;
          break;
        case 1:
          bytes += kHeader.substr(below(4));
          break;
        default:
          bytes += std::string(below(6), static_cast<char>(below(256)));
      }
    }
    WriteFile("image.bit", bytes);
    const unsigned int expected = StampByFourByteSteps("image.bit");
    found += expected != 0 ? 1 : 0;
    // Also when the kernel returns less than was asked for, in the middle of the file.
    this->script_->readLimit = below(2) == 0 ? 0 : 1 + below(9);
    EXPECT_EQ(this->Record([&] { return programmer.FindTimeStampInFile("image.bit"); }), expected)
        << testing::PrintToString(bytes);
    static_cast<void>(this->Recorded());
  }
  EXPECT_GT(found, 100);
  EXPECT_LT(found, 300);
}

TYPED_TEST(ExpanderTimeStampTest, ImageOf16MebibytesWithoutAStampTakesFewReads) {
  WriteFile("image.bit", "");
  std::filesystem::resize_file("image.bit", 16U << 20U);
  EXPECT_EQ(this->Find("image.bit"), 0U);
  this->ExpectNotFoundLog();
  EXPECT_GT(this->script_->reads, 1);
  EXPECT_LT(this->script_->reads, 1000);
}

}  // namespace
