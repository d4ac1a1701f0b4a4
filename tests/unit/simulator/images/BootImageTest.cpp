#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/images/BootImage.h"

namespace {

using orvane::HasPlausibleBootHeader;
using orvane::MakeZynqImage;
using Bytes = std::vector<std::uint8_t>;

Bytes Slice(const Bytes& image, std::size_t from, std::size_t count) {
  const auto begin = image.begin() + static_cast<std::ptrdiff_t>(from);
  return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

std::string Text(const Bytes& image) { return {image.begin() + 76, image.begin() + 152}; }

std::string ErrorOf(const orvane::ZynqImageOptions& options) {
  try {
    MakeZynqImage(options);
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
  return "";
}

TEST(BootImageTest, HeaderHoldsItsMarksAndChecksum) {
  const Bytes image = MakeZynqImage({.bytes = 0x1098});
  ASSERT_EQ(image.size(), 0x1098U);
  EXPECT_EQ(Slice(image, 0x20, 8), Bytes({0x66, 0x55, 0x99, 0xAA, 'X', 'N', 'L', 'X'}));
  EXPECT_EQ(Slice(image, 0x28, 8), Bytes({0, 0, 0, 0, 0x00, 0x00, 0x01, 0x01}));
  EXPECT_EQ(Slice(image, 0x30, 8), Bytes({0x98, 0, 0, 0, 0x00, 0x10, 0, 0}));
  EXPECT_EQ(Slice(image, 0x38, 8), Bytes({0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Slice(image, 0x40, 8), Bytes({0x00, 0x10, 0, 0, 0x01, 0, 0, 0}));
  // AA995566 + 584C4E58 + 01010000 + 98 + 1000 + 1000 + 1 = 1_03E6C457; inverted FC193BA8
  EXPECT_EQ(Slice(image, 0x48, 4), Bytes({0xA8, 0x3B, 0x19, 0xFC}));
}

TEST(BootImageTest, TextFieldHoldsNameAndDateEachWithADelimiter) {
  const Bytes image = MakeZynqImage({.fileName = "u-boot-vexa.bin", .buildDate = "Jan 2 2024"});
  EXPECT_EQ(Text(image), "u-boot-vexa.bin#Jan 2 2024#" + std::string(49, '\0'));
}

TEST(BootImageTest, NameAndDateMayBeEmpty) {
  EXPECT_EQ(Text(MakeZynqImage({.fileName = "", .buildDate = ""})), "##" + std::string(74, '\0'));
}

TEST(BootImageTest, NameAndDateOf74BytesFillTheField) {
  const std::string date(59, 'd');
  EXPECT_EQ(Text(MakeZynqImage({.fileName = "u-boot-vexa.bin", .buildDate = date})),
            "u-boot-vexa.bin#" + date + "#");
}

TEST(BootImageTest, NameAndDateOf75BytesAreRefused) {
  EXPECT_EQ(ErrorOf({.fileName = "u-boot-vexa.bin", .buildDate = std::string(60, 'd')}),
            "the file name and the build date have 75 bytes together, 74 at most fit");
}

TEST(BootImageTest, DelimiterInNameOrDateIsRefused) {
  EXPECT_EQ(ErrorOf({.fileName = "a#b"}),
            "'a#b' contains a '#', which ends a file name and a build date");
  EXPECT_EQ(ErrorOf({.buildDate = "#"}),
            "'#' contains a '#', which ends a file name and a build date");
}

TEST(BootImageTest, SmallestImageIsTheHeader) {
  const Bytes image = MakeZynqImage({.bytes = 152});
  EXPECT_EQ(image.size(), 152U);
  EXPECT_TRUE(HasPlausibleBootHeader(image));
}

TEST(BootImageTest, SmallerImageIsRefused) {
  EXPECT_EQ(ErrorOf({.bytes = 151}), "a Zynq image has at least 152 bytes");
  EXPECT_EQ(ErrorOf({.bytes = 0}), "a Zynq image has at least 152 bytes");
}

TEST(BootImageTest, SizeNeedNotBeAMultipleOfAnything) {
  EXPECT_EQ(MakeZynqImage({.bytes = 65537}).size(), 65537U);
}

TEST(BootImageTest, SameOptionsGiveTheSameImage) {
  EXPECT_EQ(MakeZynqImage({.bytes = 4096, .seed = 7}), MakeZynqImage({.bytes = 4096, .seed = 7}));
}

TEST(BootImageTest, SeedChangesThePayloadOnly) {
  const Bytes one = MakeZynqImage({.bytes = 4096, .seed = 1});
  const Bytes two = MakeZynqImage({.bytes = 4096, .seed = 2});
  EXPECT_EQ(Slice(one, 0, 152), Slice(two, 0, 152));
  EXPECT_NE(Slice(one, 152, 16), Slice(two, 152, 16));
}

TEST(BootImageTest, PayloadIsNotMonotonous) {
  const Bytes image = MakeZynqImage({.bytes = 152 + 65536});
  for (int value = 0; value < 256; ++value) {
    const auto count = std::count(image.begin() + 152, image.end(), value);
    EXPECT_GT(count, 128) << value;  // 256 is expected
    EXPECT_LT(count, 512) << value;
  }
}

TEST(BootImageTest, HeaderIsPlausibleUntilOneOfItsMarksChanges) {
  const Bytes image = MakeZynqImage({.bytes = 4096});
  EXPECT_TRUE(HasPlausibleBootHeader(image));
  for (std::size_t at = 0x20; at < 0x4C; ++at) {
    Bytes damaged = image;
    damaged[at] ^= 0x10;
    EXPECT_FALSE(HasPlausibleBootHeader(damaged)) << at;
  }
}

TEST(BootImageTest, RightChecksumDoesNotExcuseAWrongMark) {
  Bytes image = MakeZynqImage({.bytes = 4096});
  ++image[0x24];
  --image[0x48];  // one more in the sum, one less in its inversion
  EXPECT_FALSE(HasPlausibleBootHeader(image));
}

TEST(BootImageTest, BytesOutsideTheChecksumDoNotMatter) {
  Bytes image = MakeZynqImage({.bytes = 4096});
  image[0x1F] ^= 0xFF;
  image[0x4C] ^= 0xFF;
  EXPECT_TRUE(HasPlausibleBootHeader(image));
}

TEST(BootImageTest, CutHeaderIsNotPlausible) {
  const Bytes image = MakeZynqImage({.bytes = 152});
  EXPECT_TRUE(HasPlausibleBootHeader(Slice(image, 0, 0x4C)));
  EXPECT_FALSE(HasPlausibleBootHeader(Slice(image, 0, 0x4B)));
  EXPECT_FALSE(HasPlausibleBootHeader({}));
}

TEST(BootImageTest, BlankFlashIsNotPlausible) {
  EXPECT_FALSE(HasPlausibleBootHeader(Bytes(4096, 0xFF)));
  EXPECT_FALSE(HasPlausibleBootHeader(Bytes(4096, 0x00)));
}

}  // namespace
