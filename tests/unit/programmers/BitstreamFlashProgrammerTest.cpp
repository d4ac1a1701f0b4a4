// The search for the time stamp. The whole-program tables show where a stamp may stand and how it
// is printed; these tests show its limits, and reads that fail or return less.
#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "programmers/BitstreamFlashProgrammer.h"
#include "programmers/DaxFlashProgrammer.h"
#include "tests/unit/programmers/ProgrammerTest.h"

namespace {

const std::string kHeader = "\x30\x01\xA0\x01";  // write one word to USR_ACCESS
const std::string kStamp = "\x5A\x9E\x38\xC5";

/// The expected search: four bytes a step; a short last step replaces only the first bytes.
std::uint32_t StampByFourByteSteps(const std::string& file) {
  std::string word(4, '\0');
  std::string previous;
  for (std::size_t at = 0; at < file.size(); at += 4) {
    const std::string step = file.substr(at, 4);
    word.replace(0, step.size(), step);
    if (previous == kHeader) {
      std::uint32_t stamp = 0;
      for (const char byte : word) {
        stamp = stamp * 0x100 + static_cast<unsigned char>(byte);
      }
      return stamp;
    }
    previous = word;
  }
  return 0;
}

class BitstreamFlashProgrammerTest : public ProgrammerTest {
 protected:
  /// @return the stamp found in a file with these bytes; `out_` is what was printed
  unsigned FindIn(const std::string& bytes) {
    kernel_.files["image"] = bytes;
    const Console console(nullptr, Console::Takes::kStreamsAndStdio);
    const unsigned stamp = programmer_.FindTimeStampInFile("image");
    out_ = console.Out();
    return stamp;
  }

  [[nodiscard]] int Reads() const { return log_.Count("read(100, 65536)"); }

  DaxFlashProgrammer programmer_{&expander_, spi_.Get(), &lines_, 3};
  std::string out_;
};

struct Row {
  const char* name;
  std::string bytes;
  unsigned stamp;
  std::optional<std::string> date;
};

class StampTest : public BitstreamFlashProgrammerTest, public testing::WithParamInterface<Row> {};

TEST_P(StampTest, IsFoundAndPrintedAsInTheRow) {
  EXPECT_EQ(FindIn(GetParam().bytes), GetParam().stamp);
  EXPECT_EQ(
      out_,
      GetParam().date
          ? "User Access Register found in file image with Time Stamp :  " + *GetParam().date + "\n"
          : "No User Access Register found image\n");
}

INSTANTIATE_TEST_SUITE_P(
    Files,
    StampTest,
    testing::Values(
        Row{"AllOnes", kHeader + "\xFF\xFF\xFF\xFF", 0xFFFFFFFF, "31/15/2063 31:63:63"},
        Row{"Zero", kHeader + std::string(4, '\0'), 0, "00/00/2000 00:00:00"},
        Row{"Day", kHeader + std::string("\xF8\0\0\0", 4), 0xF8000000, "31/00/2000 00:00:00"},
        Row{"Month", kHeader + std::string("\x07\x80\0\0", 4), 0x07800000, "00/15/2000 00:00:00"},
        Row{"Year", kHeader + std::string("\0\x7E\0\0", 4), 0x007E0000, "00/00/2063 00:00:00"},
        Row{"Hour", kHeader + std::string("\0\x01\xF0\0", 4), 0x0001F000, "00/00/2000 31:00:00"},
        Row{"Minute", kHeader + std::string("\0\0\x0F\xC0", 4), 0x00000FC0, "00/00/2000 00:63:00"},
        Row{"Second", kHeader + std::string("\0\0\0\x3F", 4), 0x0000003F, "00/00/2000 00:00:63"},
        Row{"FirstOfTwo", kHeader + kStamp + kHeader + "abcd", 0x5A9E38C5, "11/05/2015 03:35:05"},
        Row{"HeaderBehindAHeader", kHeader + kHeader + kStamp, 0x3001A001, "06/00/2000 26:00:01"},
        Row{"ReversedHeader", "\x01\xA0\x01\x30" + kStamp, 0, std::nullopt},
        Row{"HeaderAtOffset1", "x" + kHeader + kStamp + "xxx", 0, std::nullopt},
        Row{"HeaderAtOffset2", "xx" + kHeader + kStamp + "xx", 0, std::nullopt},
        Row{"HeaderAtOffset3", "xxx" + kHeader + kStamp + "x", 0, std::nullopt},
        Row{"HeaderAsLastWord", "xxxx" + kHeader, 0, std::nullopt},
        Row{"EmptyFile", "", 0, std::nullopt},
        Row{"LessThanAWord", kHeader.substr(0, 3), 0, std::nullopt},
        Row{"LastWordOf1Byte", kHeader + "\x5A", 0x5A01A001, "11/04/2000 26:00:01"},
        Row{"LastWordOf2Bytes", kHeader + "\x5A\x9E", 0x5A9EA001, "11/05/2015 10:00:01"},
        Row{"LastWordOf3Bytes", kHeader + "\x5A\x9E\x38", 0x5A9E3801, "11/05/2015 03:32:01"},
        Row{"LastWordThatCompletesTheHeader", "xx\xA0\x01\x30\x01", 0, std::nullopt},
        Row{"LastWordBehindABlock",
            std::string(65532, 'x') + kHeader + "\x5A\x9E",
            0x5A9EA001,
            "11/05/2015 10:00:01"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(BitstreamFlashProgrammerTest, ReadsThatFailAreMadeAgain) {
  int reads = 0;
  kernel_.decide = [&](const char* call, const std::string&) {
    const bool fails = std::string(call) == "read" && (++reads < 3 || reads == 4 || reads == 6);
    return FileKernel::Fate{.error = fails ? EIO : 0, .most = 3};
  };
  EXPECT_EQ(FindIn(kHeader + kStamp), 0x5A9E38C5U);
  EXPECT_EQ(reads, 7);
}

TEST_F(BitstreamFlashProgrammerTest, OnlyTheEndOfTheFileEndsTheSearchWithoutAStamp) {
  int reads = 0;
  kernel_.decide = [&](const char* call, const std::string&) {
    return FileKernel::Fate{.error = std::string(call) == "read" && ++reads <= 1000 ? EIO : 0};
  };
  EXPECT_EQ(FindIn("xxxx"), 0U);
  EXPECT_EQ(reads, 1002);
}

TEST_F(BitstreamFlashProgrammerTest, EveryPlaceAroundABlockOfTheFileIsSearched) {
  for (const std::size_t block : {512U, 4096U, 65536U, 131072U}) {
    for (std::size_t at = block - 12; at <= block + 8; ++at) {
      std::string bytes(block + 64, 'x');
      bytes.replace(at, 8, kHeader + kStamp);
      EXPECT_EQ(FindIn(bytes), at % 4 == 0 ? 0x5A9E38C5U : 0U) << at;
    }
  }
}

TEST_F(BitstreamFlashProgrammerTest, RandomFilesGiveWhatFourByteStepsGive) {
  std::mt19937 random(20151105);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  int found = 0;
  for (int file = 0; file < 400; ++file) {
    // Bytes of the header in good and bad order, so that it occurs often and at any offset.
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
    const std::uint32_t expected = StampByFourByteSteps(bytes);
    found += expected != 0 ? 1 : 0;
    // Also when the kernel returns less than was asked for, in the middle of the file.
    const std::size_t most = below(2) == 0 ? bytes.size() : 1 + below(9);
    kernel_.decide = [most](const char*, const std::string&) {
      return FileKernel::Fate{.most = most};
    };
    EXPECT_EQ(FindIn(bytes), expected) << testing::PrintToString(bytes);
  }
  EXPECT_GT(found, 100);
  EXPECT_LT(found, 300);
}

TEST_F(BitstreamFlashProgrammerTest, ImageOf16MebibytesTakesFewReads) {
  EXPECT_EQ(FindIn(std::string(std::size_t{16} << 20U, '\0')), 0U);
  EXPECT_GT(Reads(), 1);
  EXPECT_LT(Reads(), 1000);
}

TEST_F(BitstreamFlashProgrammerTest, MissingFileIs0WithoutAMessage) {
  Forget();
  EXPECT_EQ(programmer_.FindTimeStampInFile("missing"), 0U);
  EXPECT_EQ(console_.TakeErr(), "");
}

}  // namespace
