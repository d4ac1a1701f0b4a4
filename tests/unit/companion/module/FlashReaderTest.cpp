#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "companion/module/FlashReader.h"
#include "tests/unit/companion/module/FlashMessages.h"

namespace companion {
namespace {

using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kRead = 0x03;

/// No two neighbours are the same.
Bytes Pattern(std::size_t bytes) {
  Bytes pattern(bytes);
  for (std::size_t i = 0; i < bytes; ++i) {
    pattern[i] = static_cast<std::uint8_t>(1 + i % 251);
  }
  return pattern;
}

class FlashReaderTest : public FlashMessagesTest {
 protected:
  explicit FlashReaderTest(std::size_t bufsiz = 4096)
      : FlashMessagesTest(orvane::Chip::kMicron, bufsiz) {}

  FlashReader::Result Read(std::size_t bytes, const Bytes& expected) {
    contents_.assign(bytes, 0xEE);
    FlashReader reader(*spi_, interruption_, [this](std::size_t read) { advanced_ += read; });
    return reader.Read(contents_, expected);
  }

  /// What happens to the messages with these numbers; the others are carried out.
  void Spoil(Fate fate, std::vector<int> numbers) {
    kernel_.decide = [fate, numbers = std::move(numbers)](std::uint8_t, int number) {
      return std::find(numbers.begin(), numbers.end(), number) == numbers.end() ? Fate::kCarriedOut
                                                                                : fate;
    };
  }

  void SpoilFrom(Fate fate, int first) {
    kernel_.decide = [=](std::uint8_t, int number) {
      return number < first ? Fate::kCarriedOut : fate;
    };
  }

  Bytes contents_;
  std::size_t advanced_ = 0;
};

TEST_F(FlashReaderTest, MessagesLeaveRoomForTheCommandAndAPlaceIsReadAgainInTheEnd) {
  const Bytes image = Pattern(8000);
  chip_.Load(image);
  const FlashReader::Result result = Read(8000, image);
  EXPECT_EQ(contents_, image);
  EXPECT_EQ(result.unsteadyAddress, std::nullopt);
  EXPECT_EQ(result.blocksReadAgain, 0U);
  EXPECT_THAT(kernel_.Messages(kRead),
              ElementsAre("03 00 00 00", "03 00 0f 00", "03 00 1e 00", "03 00 00 00"));
  EXPECT_EQ(kernel_.Sent().size(), 4U);  // and nothing else
  EXPECT_EQ(advanced_, 8016U);
}

TEST_F(FlashReaderTest, NothingIsReadOfALengthOfZero) {
  Read(0, {});
  EXPECT_TRUE(kernel_.Sent().empty());
}

TEST_F(FlashReaderTest, BlockThatDiffersIsReadAgainTwice) {
  Bytes image = Pattern(20'000);
  chip_.Load(image);
  image[9000] ^= 1;  // in the third block of 4 KiB
  const FlashReader::Result result = Read(20'000, image);
  EXPECT_EQ(contents_, Pattern(20'000));
  EXPECT_EQ(result.unsteadyAddress, std::nullopt);
  EXPECT_EQ(result.blocksReadAgain, 1U);
  const std::vector<std::string> messages = kernel_.Messages(kRead);
  ASSERT_EQ(messages.size(), 11U);
  EXPECT_THAT(
      std::vector(messages.begin() + 6, messages.end()),
      ElementsAre("03 00 20 00", "03 00 2f 00", "03 00 20 00", "03 00 27 80", "03 00 00 00"));
}

TEST_F(FlashReaderTest, ReadingThatWasWrongOnceIsPutRight) {
  const Bytes image = Pattern(8000);
  chip_.Load(image);
  Spoil(Fate::kInverted, {2});
  const FlashReader::Result result = Read(8000, image);
  EXPECT_EQ(contents_, image);
  EXPECT_EQ(result.unsteadyAddress, std::nullopt);
  EXPECT_EQ(result.blocksReadAgain, 1U);
}

TEST_F(FlashReaderTest, BlockIsReadUntilThreeReadingsInARowAgree) {
  Bytes image = Pattern(20'000);
  chip_.Load(image);
  image[9000] ^= 1;
  Spoil(Fate::kLost, {7});  // the first of those that read the third block again
  const FlashReader::Result result = Read(20'000, image);
  EXPECT_EQ(contents_, Pattern(20'000));
  EXPECT_EQ(result.unsteadyAddress, std::nullopt);
  EXPECT_EQ(kernel_.Messages(kRead).size(), 14U);  // a lost one is not counted
}

TEST_F(FlashReaderTest, BlockWhoseReadingsDoNotAgreeIsUnsteady) {
  Bytes image = Pattern(20'000);
  chip_.Load(image);
  image[9000] ^= 1;
  Spoil(Fate::kInverted, {7, 11});  // in the first reading and in the third of those that follow
  EXPECT_EQ(Read(20'000, image).unsteadyAddress, 0x2000U);
}

TEST_F(FlashReaderTest, NoOtherBlockIsReadAgainOnceOneIsCertainToDiffer) {
  Bytes image = Pattern(20'000);
  chip_.Load(image);
  image[0] ^= 1;
  image[9000] ^= 1;
  const FlashReader::Result result = Read(20'000, image);
  EXPECT_EQ(contents_, Pattern(20'000));
  EXPECT_EQ(result.blocksReadAgain, 1U);
}

TEST_F(FlashReaderTest, BlockBehindOneThatWasPutRightIsReadAgainToo) {
  Bytes image = Pattern(20'000);
  chip_.Load(image);
  image[9000] ^= 1;
  Spoil(Fate::kInverted, {1});
  const FlashReader::Result result = Read(20'000, image);
  EXPECT_EQ(contents_, Pattern(20'000));
  EXPECT_EQ(result.blocksReadAgain, 2U);
}

TEST_F(FlashReaderTest, MessageThatFailsIsRepeated) {
  const Bytes image = Pattern(8000);
  chip_.Load(image);
  Spoil(Fate::kFails, {1, 2});
  Read(8000, image);
  EXPECT_EQ(contents_, image);
  EXPECT_EQ(console_.TakeErr(),
            "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n"
            "SpiDev::Read() SPI_IOC_MESSAGE error, errno = 5\n");
}

TEST_F(FlashReaderTest, MessageThatFailsThreeTimesIsAFailure) {
  Spoil(Fate::kFails, {2, 3, 4});
  EXPECT_EQ(FailureOf([&] { Read(8000, Pattern(8000)); }),
            "cannot read the flash at address 0x000f00");
}

TEST_F(FlashReaderTest, LostMessageIsNotTakenForTheZerosThatAreExpected) {
  const Bytes flash = Pattern(20'000);
  chip_.Load(flash);
  Bytes image = flash;
  std::fill(image.begin() + 3840, image.begin() + 7680, std::uint8_t{0});
  Spoil(Fate::kLost, {2});
  Read(20'000, image);
  EXPECT_NE(contents_, image);
  EXPECT_TRUE(std::equal(flash.begin(), flash.begin() + 4096, contents_.begin()));
}

TEST_F(FlashReaderTest, MessageThatIsLostTwiceIsNotTakenForTheZerosThatAreExpected) {
  const Bytes flash = Pattern(20'000);
  chip_.Load(flash);
  Bytes image = flash;
  std::fill(image.begin() + 3840, image.begin() + 7680, std::uint8_t{0});
  for (const int second : {7, 8, 9}) {  // those that read the zeros again, one after the other
    kernel_.decide = [second, number = 0](std::uint8_t, int) mutable {
      ++number;
      return number == 2 || number == second ? Fate::kLost : Fate::kCarriedOut;
    };
    Read(20'000, image);
    EXPECT_NE(contents_, image) << second;
  }
}

TEST_F(FlashReaderTest, LongRunOfZerosIsReadThreeTimes) {
  Bytes flash = Pattern(20'000);
  std::fill(flash.begin() + 3840, flash.begin() + 11520, std::uint8_t{0});
  chip_.Load(flash);
  Read(20'000, flash);
  EXPECT_EQ(contents_, flash);
  const std::vector<std::string> messages = kernel_.Messages(kRead);
  EXPECT_THAT(std::vector(messages.begin() + 6, messages.end()),
              ElementsAre("03 00 0e 00",
                          "03 00 15 80",
                          "03 00 24 80",
                          "03 00 0e 00",
                          "03 00 1d 00",
                          "03 00 2c 00",
                          "03 00 00 00"));
}

TEST_F(FlashReaderTest, ZerosThatAreThereAreReadTwiceWithOtherBorders) {
  Bytes image = Pattern(20'000);
  std::fill(image.begin() + 3840, image.begin() + 7680, std::uint8_t{0});
  chip_.Load(image);
  const FlashReader::Result result = Read(20'000, image);
  EXPECT_EQ(contents_, image);
  EXPECT_EQ(result.blocksReadAgain, 0U);
  const std::vector<std::string> messages = kernel_.Messages(kRead);
  EXPECT_THAT(std::vector(messages.begin() + 6, messages.end()),
              ElementsAre("03 00 0e 00", "03 00 15 80", "03 00 00 00"));
}

TEST_F(FlashReaderTest, ZerosAtTheBeginAreReadTwiceToo) {
  Bytes image = Pattern(20'000);
  std::fill(image.begin(), image.begin() + 3840, std::uint8_t{0});
  chip_.Load(image);
  Read(20'000, image);
  EXPECT_EQ(contents_, image);
  const std::vector<std::string> messages = kernel_.Messages(kRead);
  EXPECT_THAT(std::vector(messages.begin() + 6, messages.end()),
              ElementsAre("03 00 00 00", "03 00 07 80", "03 00 0e f7"));
}

TEST_F(FlashReaderTest, FlashThatStopsAnsweringIsAFailureAlsoWhereZerosAreExpected) {
  const Bytes flash = Pattern(20'000);
  chip_.Load(flash);
  Bytes image = flash;
  std::fill(image.begin() + 7680, image.end(), std::uint8_t{0});
  SpoilFrom(Fate::kLost, 3);
  EXPECT_EQ(FailureOf([&] { Read(20'000, image); }),
            "the flash no longer reads at address 0x000000 as it did before");
}

TEST_F(FlashReaderTest, PlaceThatReadsWronglyOnceInTheEndIsReadAgain) {
  const Bytes image = Pattern(3000);
  chip_.Load(image);
  Spoil(Fate::kLost, {2});
  Read(3000, image);
  EXPECT_EQ(contents_, image);
  EXPECT_EQ(kernel_.Messages(kRead).size(), 2U);  // the lost one is not counted
}

TEST_F(FlashReaderTest, ZerosEverywhereAreBelievedWhenAnotherSectorHoldsOtherBytes) {
  Bytes flash(200'000, 0);
  flash[131'080] = 0x01;
  chip_.Load(flash);
  EXPECT_FALSE(Read(3000, Bytes(3000, 0)).looksSilent);
  EXPECT_EQ(contents_, Bytes(3000, 0));
  EXPECT_THAT(kernel_.Messages(kRead),
              ElementsAre("03 00 00 00",
                          "03 00 00 00",
                          "03 00 07 80",
                          "03 00 00 00",
                          "03 01 00 00",
                          "03 02 00 00"));
}

TEST_F(FlashReaderTest, FlashThatReadsAsZerosEverywhereLooksSilent) {
  chip_.Load(Pattern(20'000));
  SpoilFrom(Fate::kLost, 1);
  EXPECT_TRUE(Read(3000, Pattern(3000)).looksSilent);
}

TEST_F(FlashReaderTest, FlashThatHoldsOtherBytesDoesNotLookSilent) {
  chip_.Load(Pattern(20'000));
  EXPECT_FALSE(Read(3000, Bytes(3000, 0)).looksSilent);
}

TEST_F(FlashReaderTest, BlankFlashIsRead) {
  const FlashReader::Result result = Read(3000, Pattern(3000));
  EXPECT_EQ(contents_, Bytes(3000, 0xFF));
  EXPECT_EQ(result.unsteadyAddress, std::nullopt);
  EXPECT_EQ(result.blocksReadAgain, 1U);
}

TEST_F(FlashReaderTest, WithoutAnImageEverythingIsReadTwice) {
  const Bytes flash = Pattern(8000);
  chip_.Load(flash);
  const FlashReader::Result result = Read(8000, {});
  EXPECT_EQ(contents_, flash);
  EXPECT_EQ(result.blocksReadAgain, 0U);
  EXPECT_THAT(kernel_.Messages(kRead),
              ElementsAre("03 00 00 00",
                          "03 00 0f 00",
                          "03 00 1e 00",
                          "03 00 00 00",
                          "03 00 07 80",
                          "03 00 16 80",
                          "03 00 00 00"));
}

TEST_F(FlashReaderTest, WithoutAnImageWhatDiffersBetweenBothReadingsIsReadAgain) {
  const Bytes flash = Pattern(8000);
  chip_.Load(flash);
  Spoil(Fate::kInverted, {2});
  const FlashReader::Result result = Read(8000, {});
  EXPECT_EQ(contents_, flash);
  EXPECT_EQ(result.blocksReadAgain, 1U);
}

TEST_F(FlashReaderTest, StopEndsTheReading) {
  stop_ = true;
  EXPECT_EQ(FailureOf([&] { Read(3000, {}); }), "stopped");
  EXPECT_TRUE(kernel_.Sent().empty());
}

template <std::size_t bufsiz>
class FlashReaderWithLimitTest : public FlashReaderTest {
 protected:
  FlashReaderWithLimitTest() : FlashReaderTest(bufsiz) {}

  /// @return the length of the first message of many
  std::size_t FirstMessageBytes() {
    const Bytes image = Pattern(200'000);
    chip_.Load(image);
    Spoil(Fate::kFails, {2, 3, 4});
    EXPECT_NE(FailureOf([&] { Read(200'000, image); }), "");
    return advanced_;
  }
};

using FlashReaderOf511Test = FlashReaderWithLimitTest<511>;
TEST_F(FlashReaderOf511Test, LimitBelow512IsAFailure) {
  EXPECT_EQ(FailureOf([&] { Read(3000, {}); }),
            "the SPI driver's buffer of 511 bytes is too small");
}

using FlashReaderOf512Test = FlashReaderWithLimitTest<512>;
TEST_F(FlashReaderOf512Test, LimitOf512GivesMessagesOf256) { EXPECT_EQ(FirstMessageBytes(), 256U); }

using FlashReaderOf4352Test = FlashReaderWithLimitTest<4352>;
TEST_F(FlashReaderOf4352Test, LimitOf4352GivesWholeBlocks) {
  EXPECT_EQ(FirstMessageBytes(), 4096U);
}

using FlashReaderOf65536Test = FlashReaderWithLimitTest<65'536>;
TEST_F(FlashReaderOf65536Test, LimitOf65536GivesWholeBlocks) {
  EXPECT_EQ(FirstMessageBytes(), 61'440U);
}

using FlashReaderWithoutALimitTest =
    FlashReaderWithLimitTest<std::numeric_limits<std::size_t>::max()>;
TEST_F(FlashReaderWithoutALimitTest, NoMessageIsLongerThan64Kib) {
  EXPECT_EQ(FirstMessageBytes(), 65'536U);
}

}  // namespace
}  // namespace companion
