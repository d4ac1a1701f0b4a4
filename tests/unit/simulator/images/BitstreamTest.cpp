#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/images/Bitstream.h"

namespace {

using orvane::HasPlausibleBitstream;
using orvane::MakeBitstream;
using orvane::PackStamp;
using Bytes = std::vector<std::uint8_t>;

Bytes Slice(const Bytes& image, std::size_t from, std::size_t count) {
  const auto begin = image.begin() + static_cast<std::ptrdiff_t>(from);
  return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

std::vector<std::size_t> HeaderOffsets(const Bytes& image) {
  std::vector<std::size_t> offsets;
  for (std::size_t at = 0; at + 4 <= image.size(); at += 4) {
    if (Slice(image, at, 4) == Bytes({0x30, 0x01, 0xA0, 0x01})) {
      offsets.push_back(at);
    }
  }
  return offsets;
}

std::string ErrorOf(const orvane::BitstreamOptions& options) {
  try {
    MakeBitstream(options);
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
  return "";
}

std::string StampErrorOf(const orvane::StampTime& time) {
  try {
    PackStamp(time);
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
  return "";
}

TEST(BitstreamTest, StartsWithDummiesBusWidthAndSyncWord) {
  const Bytes image = MakeBitstream({.bytes = 4096});
  ASSERT_EQ(image.size(), 4096U);
  EXPECT_EQ(Slice(image, 0, 32), Bytes(32, 0xFF));
  EXPECT_EQ(Slice(image, 32, 8), Bytes({0x00, 0x00, 0x00, 0xBB, 0x11, 0x22, 0x00, 0x44}));
  EXPECT_EQ(Slice(image, 40, 8), Bytes(8, 0xFF));
  EXPECT_EQ(Slice(image, 48, 4), Bytes({0xAA, 0x99, 0x55, 0x66}));
  EXPECT_EQ(Slice(image, 52, 8), Bytes({0x20, 0, 0, 0, 0x20, 0, 0, 0}));
}

TEST(BitstreamTest, StampStandsBigEndianBehindItsHeaderAtItsWord) {
  const Bytes image =
      MakeBitstream({.bytes = 4096, .userAccess = 0x5A9E38C5, .stampWordOffset = 100});
  EXPECT_EQ(Slice(image, 400, 8), Bytes({0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5}));
  EXPECT_EQ(HeaderOffsets(image), std::vector<std::size_t>({400}));
}

TEST(BitstreamTest, StampChangesNothingElse) {
  const Bytes plain = MakeBitstream({.bytes = 4096});
  Bytes stamped = MakeBitstream({.bytes = 4096, .userAccess = 1, .stampWordOffset = 100});
  std::copy(plain.begin() + 400, plain.begin() + 408, stamped.begin() + 400);
  EXPECT_EQ(stamped, plain);
}

TEST(BitstreamTest, WithoutStampThereIsNoHeader) {
  EXPECT_TRUE(HeaderOffsets(MakeBitstream({.bytes = 1 << 20})).empty());
}

TEST(BitstreamTest, StampMayStandInTheFirstOrTheLastWords) {
  EXPECT_EQ(HeaderOffsets(MakeBitstream({.bytes = 1024, .userAccess = 1, .stampWordOffset = 0})),
            std::vector<std::size_t>({0}));
  EXPECT_EQ(HeaderOffsets(MakeBitstream({.bytes = 1027, .userAccess = 1, .stampWordOffset = 254})),
            std::vector<std::size_t>({1016}));
}

TEST(BitstreamTest, StampBeyondTheEndIsRefused) {
  EXPECT_EQ(ErrorOf({.bytes = 1027, .userAccess = 1, .stampWordOffset = 255}),
            "a stamp at word offset 255 does not fit: the last offset is 254");
}

TEST(BitstreamTest, StampOnTheSyncWordIsRefused) {
  EXPECT_EQ(ErrorOf({.userAccess = 1, .stampWordOffset = 10}), "");
  EXPECT_EQ(ErrorOf({.userAccess = 1, .stampWordOffset = 11}),
            "a stamp cannot lie at word offset 11: the sync word is at 12");
  EXPECT_EQ(ErrorOf({.userAccess = 1, .stampWordOffset = 12}),
            "a stamp cannot lie at word offset 12: the sync word is at 12");
  EXPECT_EQ(ErrorOf({.userAccess = 1, .stampWordOffset = 13}), "");
}

TEST(BitstreamTest, StampOffsetWithoutStampDoesNotMatter) {
  EXPECT_EQ(ErrorOf({.bytes = 64, .stampWordOffset = 1000}), "");
}

TEST(BitstreamTest, SmallestBitstreamIs64Bytes) {
  EXPECT_EQ(MakeBitstream({.bytes = 64}).size(), 64U);
  EXPECT_EQ(ErrorOf({.bytes = 63}), "a bitstream has at least 64 bytes");
}

TEST(BitstreamTest, SameOptionsGiveTheSameBitstreamAndTheSeedAnother) {
  EXPECT_EQ(MakeBitstream({.bytes = 4096, .seed = 7}), MakeBitstream({.bytes = 4096, .seed = 7}));
  EXPECT_NE(MakeBitstream({.bytes = 4096, .seed = 7}), MakeBitstream({.bytes = 4096, .seed = 8}));
}

TEST(BitstreamTest, EveryBitstreamIsPlausible) {
  EXPECT_TRUE(HasPlausibleBitstream(MakeBitstream({.bytes = 64})));
  EXPECT_TRUE(HasPlausibleBitstream(MakeBitstream({.userAccess = 1})));
}

TEST(BitstreamTest, SyncWordIsFoundOnMultiplesOfFourWithin512Bytes) {
  for (const std::size_t at : {0U, 4U, 508U}) {
    Bytes flash(1024, 0xFF);
    const Bytes sync = {0xAA, 0x99, 0x55, 0x66};
    std::copy(sync.begin(), sync.end(), flash.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_TRUE(HasPlausibleBitstream(flash)) << at;
  }
}

TEST(BitstreamTest, SyncWordElsewhereIsNotFound) {
  for (const std::size_t at : {1U, 2U, 3U, 510U, 512U}) {
    Bytes flash(1024, 0xFF);
    const Bytes sync = {0xAA, 0x99, 0x55, 0x66};
    std::copy(sync.begin(), sync.end(), flash.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_FALSE(HasPlausibleBitstream(flash)) << at;
  }
}

TEST(BitstreamTest, BlankEmptyOrCutFlashIsNotPlausible) {
  EXPECT_FALSE(HasPlausibleBitstream(Bytes(1024, 0xFF)));
  EXPECT_FALSE(HasPlausibleBitstream({}));
  EXPECT_FALSE(HasPlausibleBitstream(Bytes{0xAA, 0x99, 0x55}));
  EXPECT_TRUE(HasPlausibleBitstream(Bytes{0xAA, 0x99, 0x55, 0x66}));
}

TEST(BitstreamTest, StampPacksDayMonthYearHourMinuteSecond) {
  EXPECT_EQ(PackStamp({.year = 2015, .month = 5, .day = 11, .hour = 3, .minute = 35, .second = 5}),
            0x5A9E38C5U);
}

TEST(BitstreamTest, StampPacksTheSmallestAndTheLargestTime) {
  EXPECT_EQ(PackStamp({.year = 2000, .month = 1, .day = 1}), 0x08800000U);
  EXPECT_EQ(
      PackStamp({.year = 2063, .month = 12, .day = 31, .hour = 23, .minute = 59, .second = 59}),
      0xFE7F7EFBU);
}

TEST(BitstreamTest, StampRefusesDatesThatDoNotExist) {
  const char* const kText = "a stamp holds a date from 2000-01-01 to 2063-12-31";
  EXPECT_EQ(StampErrorOf({.year = 1999}), kText);
  EXPECT_EQ(StampErrorOf({.year = 2064}), kText);
  EXPECT_EQ(StampErrorOf({.month = 0}), kText);
  EXPECT_EQ(StampErrorOf({.month = 13}), kText);
  EXPECT_EQ(StampErrorOf({.day = 0}), kText);
  EXPECT_EQ(StampErrorOf({.day = 32}), kText);
  EXPECT_EQ(StampErrorOf({.year = 2023, .month = 2, .day = 29}), kText);
  EXPECT_EQ(StampErrorOf({.year = 2024, .month = 2, .day = 29}), "");
}

TEST(BitstreamTest, StampRefusesTimesThatDoNotExist) {
  const char* const kText = "a stamp holds a time from 00:00:00 to 23:59:59";
  EXPECT_EQ(StampErrorOf({.hour = -1}), kText);
  EXPECT_EQ(StampErrorOf({.hour = 24}), kText);
  EXPECT_EQ(StampErrorOf({.minute = -1}), kText);
  EXPECT_EQ(StampErrorOf({.minute = 60}), kText);
  EXPECT_EQ(StampErrorOf({.second = -1}), kText);
  EXPECT_EQ(StampErrorOf({.second = 60}), kText);
}

}  // namespace
