// The search in memory, the decision and the text. The search in a file, also in one that cannot be
// read, is shown by BitstreamFlashProgrammerTest.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "programmers/UserAccess.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Row {
  const char* name;
  Bytes bytes;
  std::optional<std::uint32_t> stamp;
};

class StampInMemoryTest : public testing::TestWithParam<Row> {};

TEST_P(StampInMemoryTest, IsThatOfTheRow) {
  EXPECT_EQ(user_access::Find(GetParam().bytes), GetParam().stamp);
}

INSTANTIATE_TEST_SUITE_P(
    Bytes,
    StampInMemoryTest,
    testing::Values(
        Row{"None", {}, std::nullopt},
        Row{"AtTheStart", {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5}, 0x5A9E38C5},
        Row{"BehindAWord",
            {0x78, 0x78, 0x78, 0x78, 0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5},
            0x5A9E38C5},
        Row{"OfZeroIsFound", {0x30, 0x01, 0xA0, 0x01, 0x00, 0x00, 0x00, 0x00}, 0},
        Row{"HeaderAtOffset1",
            {0x78, 0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5, 0x78, 0x78, 0x78},
            std::nullopt},
        Row{"HeaderAsLastWord", {0x30, 0x01, 0xA0, 0x01}, std::nullopt},
        Row{"LastWordOf1Byte", {0x30, 0x01, 0xA0, 0x01, 0x5A}, 0x5A01A001},
        Row{"LastWordOf2Bytes", {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E}, 0x5A9EA001},
        Row{"LastWordOf3Bytes", {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38}, 0x5A9E3801},
        Row{"LastWordThatCompletesTheHeader", {0x78, 0x78, 0xA0, 0x01, 0x30, 0x01}, std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

/// @return the time stamp in a file with these bytes
std::optional<std::uint32_t> FindInFile(const Bytes& bytes) {
  const FileDescriptor file(::memfd_create("image", 0));
  EXPECT_EQ(::pwrite(file.Get(), bytes.data(), bytes.size(), 0),
            static_cast<ssize_t>(bytes.size()));
  return user_access::Find(file.Get());
}

TEST(UserAccessTest, MemoryAndFileOfTheSameRandomBytesGiveTheSame) {
  constexpr std::array<std::uint8_t, 4> kHeader = {0x30, 0x01, 0xA0, 0x01};
  std::mt19937 random(20260111);
  int found = 0;
  for (int file = 0; file < 400; ++file) {
    Bytes bytes(random() % 24, 0x78);
    const std::size_t at = random() % 24;
    for (std::size_t i = 0; i < kHeader.size() && at + i < bytes.size(); ++i) {
      bytes[at + i] = kHeader[i];
    }
    const std::optional<std::uint32_t> stamp = user_access::Find(bytes);
    found += stamp ? 1 : 0;
    EXPECT_EQ(stamp, FindInFile(bytes)) << testing::PrintToString(bytes);
  }
  EXPECT_GT(found, 10);
  EXPECT_LT(found, 390);
}

TEST(UserAccessTest, StampIsFoundWhereverItStandsInThreeBlocks) {
  const Bytes stamp = {0x30, 0x01, 0xA0, 0x01, 0x5A, 0x9E, 0x38, 0xC5};
  const std::size_t size = 3 * 64;
  for (std::size_t at = 0; at + stamp.size() <= size; at += 4) {
    Bytes bytes(size, 0x78);
    std::copy(stamp.begin(), stamp.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_EQ(user_access::Find(bytes), 0x5A9E38C5) << "at " << at;
    EXPECT_EQ(FindInFile(bytes), 0x5A9E38C5) << "at " << at;
  }
}

TEST(UserAccessTest, EqualStampsAreTheSameBuild) {
  EXPECT_TRUE(user_access::IsSameBuild(0x5A9E38C5, 0x5A9E38C5));
  EXPECT_FALSE(user_access::IsSameBuild(0x5A9E38C5, 0x5A9E38C6));
}

TEST(UserAccessTest, TwoMissingStampsAreTheSameBuildAndOneIsNot) {
  EXPECT_TRUE(user_access::IsSameBuild(0, 0));
  EXPECT_FALSE(user_access::IsSameBuild(0x5A9E38C5, 0));
  EXPECT_FALSE(user_access::IsSameBuild(0, 0x5A9E38C5));
}

TEST(UserAccessTest, FieldsAreDescribedWithLeadingZerosAndUncheckedRanges) {
  EXPECT_EQ(user_access::Describe(0x5A9E38C5), "11/05/2015 03:35:05");
  EXPECT_EQ(user_access::Describe(0x00000000), "00/00/2000 00:00:00");
  EXPECT_EQ(user_access::Describe(0xFFFFFFFF), "31/15/2063 31:63:63");
}

}  // namespace
