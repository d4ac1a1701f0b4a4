#include <gtest/gtest.h>

#include "companion/image/Decision.h"
#include "tests/unit/companion/image/Images.h"

namespace {

using namespace companion;
using images::Bytes;

constexpr const char* kTargets[] = {"wend", "dax", "pyx1", "pyx2"};

/// What a flash that was blank holds from address 0 on.
Bytes Head(const Bytes& written, std::size_t count) {
  Bytes head(count, 0xFF);
  std::copy_n(written.begin(), std::min(written.size(), count), head.begin());
  return head;
}

TEST(DecisionTest, WendDumps4096BytesAndTheOthers512) {
  EXPECT_EQ(DumpedHeadBytes("wend"), 4096U);
  EXPECT_EQ(DumpedHeadBytes("dax"), 512U);
  EXPECT_EQ(DumpedHeadBytes("pyx1"), 512U);
  EXPECT_EQ(DumpedHeadBytes("pyx2"), 512U);
}

TEST(DecisionTest, EqualStampsAreUpToDate) {
  const Bytes image = images::StampedBitstream();
  for (const char* const target : {"dax", "pyx1"}) {
    EXPECT_TRUE(FindsUpToDate(target, Head(image, 512), image));
  }
}

TEST(DecisionTest, DifferentStampsAreNotUpToDate) {
  const Bytes image = images::StampedBitstream();
  const Bytes other = images::StampedBitstream(64, 600, {0x5A, 0x9E, 0x38, 0xC6});
  EXPECT_FALSE(FindsUpToDate("dax", Head(other, 512), image));
}

TEST(DecisionTest, TwoMissingStampsAreUpToDate) {
  EXPECT_TRUE(FindsUpToDate("pyx1", Bytes(512, 0xFF), images::Bitstream()));
}

TEST(DecisionTest, StampOfZeroIsNone) {
  EXPECT_TRUE(
      FindsUpToDate("dax", Bytes(512, 0xFF), images::StampedBitstream(64, 600, {0, 0, 0, 0})));
}

TEST(DecisionTest, StampAtTheEndOfTheDumpedHeadIsFound) {
  const Bytes image = images::StampedBitstream(504, 600);
  EXPECT_TRUE(FindsUpToDate("dax", Head(image, 512), image));
}

TEST(DecisionTest, StampBehindTheDumpedHeadIsNotFound) {
  const Bytes image = images::StampedBitstream(508, 600);
  EXPECT_FALSE(FindsUpToDate("dax", Head(image, 600), image));  // more than is dumped
}

TEST(DecisionTest, EqualDatesAreUpToDateWhateverTheName) {
  const Bytes image = images::BootImage("name#2024-05-06#");
  const Bytes other = images::BootImage("other#2024-05-06#");
  EXPECT_TRUE(FindsUpToDate("wend", Head(other, 4096), image));
  EXPECT_TRUE(FindsUpToDate("pyx2", Head(other, 512), image));
}

TEST(DecisionTest, DifferentDatesAreNotUpToDate) {
  const Bytes image = images::BootImage("name#2024-05-06#");
  const Bytes other = images::BootImage("name#2024-05-07#");
  EXPECT_FALSE(FindsUpToDate("wend", Head(other, 4096), image));
}

TEST(DecisionTest, TwoMissingDatesAreNotUpToDate) {
  EXPECT_FALSE(FindsUpToDate("pyx2", Bytes(512, 0xFF), images::BootImage("no delimiter")));
}

TEST(DecisionTest, Date1StandsForAMissingDateOfTheFlash) {
  EXPECT_TRUE(FindsUpToDate("wend", Bytes(4096, 0xFF), images::BootImage("n#date1#")));
  EXPECT_FALSE(FindsUpToDate("wend", Bytes(4096, 0xFF), images::BootImage("n#date2#")));
}

TEST(DecisionTest, Date2StandsForAMissingDateOfTheImage) {
  EXPECT_TRUE(
      FindsUpToDate("pyx2", Head(images::BootImage("n#date2#"), 512), images::BootImage("n##")));
}

TEST(DecisionTest, ImageShorterThanABootHeaderHasNoDate) {
  EXPECT_FALSE(FindsUpToDate("wend", Bytes(4096, 0xFF), Bytes(151, '#')));
}

// --- The page that differs ----------------------------------------------------------------------

class PageThatDiffersTest : public testing::TestWithParam<const char*> {
 protected:
  static void ExpectDiffers(const Bytes& image) {
    const char* const target = GetParam();
    const Bytes page = PageThatDiffers(target, image);
    EXPECT_EQ(page.size(), 256U);
    EXPECT_FALSE(FindsUpToDate(target, Head(page, DumpedHeadBytes(target)), image));
  }
};

INSTANTIATE_TEST_SUITE_P(Targets,
                         PageThatDiffersTest,
                         testing::ValuesIn(kTargets),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(PageThatDiffersTest, DiffersFromAnImageWithoutStampOrDate) {
  ExpectDiffers(images::Bitstream());
  ExpectDiffers(images::BootImage(""));
}

TEST_P(PageThatDiffersTest, DiffersFromAnImageWithAStampOrDate) {
  ExpectDiffers(images::StampedBitstream());
  ExpectDiffers(images::BootImage("n#2024-05-06#"));
}

TEST_P(PageThatDiffersTest, DiffersFromDatesThatStandForMissingOnes) {
  ExpectDiffers(images::BootImage("n#date1#"));
  ExpectDiffers(images::BootImage("n#date2#"));
}

TEST_P(PageThatDiffersTest, DiffersFromAnImageThatHoldsThatVeryPage) {
  for (const Bytes& other : {images::Bitstream(), images::BootImage("")}) {
    const Bytes page = PageThatDiffers(GetParam(), other);
    ExpectDiffers(page);
    ExpectDiffers(PageThatDiffers(GetParam(), page));
  }
}

TEST_P(PageThatDiffersTest, DiffersFromAnEmptyImage) { ExpectDiffers({}); }

TEST(PageThatDiffersTextTest, SaysWhatItIsInBytesThatAreSpelledOut) {
  Bytes stamp = {0x30, 0x01, 0xA0, 0x01, 0x08, 0x80, 0x00, 0x00};
  stamp.resize(256, 0xFF);
  EXPECT_EQ(PageThatDiffers("dax", images::Bitstream()), stamp);
  Bytes date(256, 0xFF);
  images::PutText(date, 76, "tarnwickctl#unfinished update#");
  EXPECT_EQ(PageThatDiffers("wend", images::BootImage("")), date);
}

// --- Text ---------------------------------------------------------------------------------------

TEST(StampTextTest, StampIsShownAsDateAndTime) {
  EXPECT_EQ(StampText("dax", images::StampedBitstream()), "11/05/2015 03:35:05");
  EXPECT_EQ(StampText("pyx1", images::StampedBitstream(0)), "11/05/2015 03:35:05");
}

TEST(StampTextTest, DateIsShownAsItIs) {
  EXPECT_EQ(StampText("wend", images::BootImage("n#2024-05-06\xFF#")), "2024-05-06\xFF");
  EXPECT_EQ(StampText("pyx2", images::BootImage("n#2024-05-06#rest")), "2024-05-06");
}

TEST(StampTextTest, NothingIsShownForNone) {
  EXPECT_EQ(StampText("dax", images::Bitstream()), std::nullopt);
  EXPECT_EQ(StampText("wend", images::BootImage("none")), std::nullopt);
  EXPECT_EQ(StampText("wend", images::BootImage("n##")), std::nullopt);
  EXPECT_EQ(StampText("pyx2", Bytes(151, '#')), std::nullopt);
}

}  // namespace
