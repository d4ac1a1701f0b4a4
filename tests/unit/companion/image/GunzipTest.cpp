#include <gtest/gtest.h>

#include "companion/image/Gunzip.h"
#include "tests/unit/companion/image/Images.h"

namespace {

using companion::Gunzip;
using companion::Gunzipped;
using companion::IsGzip;
using companion::Packing;
using images::Bytes;
using images::Gzip;
using images::Joined;

constexpr std::size_t kPlenty = 1U << 20;

/// 1000 times 'A', compressed.
const Bytes kCompressed = {0x1F, 0x8B, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03,
                           0x73, 0x74, 0x1C, 0x05, 0xA3, 0x60, 0x14, 0x0C, 0x77, 0x00,
                           0x00, 0x01, 0x2E, 0xA0, 0x51, 0xE8, 0x03, 0x00, 0x00};

TEST(GunzipTest, TwoBytesTellGzip) {
  EXPECT_TRUE(IsGzip(Bytes{0x1F, 0x8B}));
  EXPECT_FALSE(IsGzip(Bytes{0x1F}));
  EXPECT_FALSE(IsGzip(Bytes{0x1F, 0x8C}));
  EXPECT_FALSE(IsGzip(Bytes{0x8B, 0x1F}));
  EXPECT_FALSE(IsGzip(Bytes{}));
}

TEST(GunzipTest, CompleteMemberIsDecompressed) {
  const Gunzipped result = Gunzip(kCompressed, kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzip);
  EXPECT_EQ(result.end, std::nullopt);
  EXPECT_EQ(result.bytes, Bytes(1000, 'A'));
  EXPECT_FALSE(result.tooLarge);
}

TEST(GunzipTest, MembersArePutTogether) {
  const Gunzipped result = Gunzip(Joined(Joined(Gzip({'a'}), Gzip({})), Gzip({'b'})), kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzip);
  EXPECT_EQ(images::Text(result.bytes), "ab");
}

TEST(GunzipTest, OtherBytesBehindAreTold) {
  const Gunzipped result = Gunzip(Joined(kCompressed, {0, 0}), kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzipAndOtherBytes);
  EXPECT_EQ(result.end, kCompressed.size());
  EXPECT_EQ(result.bytes.size(), 1000U);
}

TEST(GunzipTest, OneByteOfAMemberBehindIsAnotherByte) {
  const Gunzipped result = Gunzip(Joined(kCompressed, {0x1F}), kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzipAndOtherBytes);
}

TEST(GunzipTest, TwoBytesOfAMemberBehindAreOneThatIsCutShort) {
  const Gunzipped result = Gunzip(Joined(kCompressed, {0x1F, 0x8B}), kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzipCutShort);
  EXPECT_EQ(result.end, std::nullopt);
  EXPECT_EQ(result.bytes.size(), 1000U);
}

TEST(GunzipTest, EveryCutIsTold) {
  for (std::size_t count = 2; count < kCompressed.size(); ++count) {
    EXPECT_EQ(Gunzip(images::CutTo(count, kCompressed), kPlenty).packing, Packing::kGzipCutShort)
        << count;
  }
}

TEST(GunzipTest, WhatIsBeforeACutIsDecompressed) {
  const Bytes file = Gzip(Bytes(100, 'A'));
  EXPECT_EQ(Gunzip(images::CutTo(file.size() - 58, file), kPlenty).bytes, Bytes(50, 'A'));
}

TEST(GunzipTest, WrongCheckSumIsDamageBehindIt) {
  Bytes file = kCompressed;
  file[21] ^= 1;  // the first byte of the check sum
  const Gunzipped result = Gunzip(file, kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzipDamaged);
  ASSERT_TRUE(result.end);
  EXPECT_GE(*result.end, 21U);
  EXPECT_LE(*result.end, 25U);
}

TEST(GunzipTest, WrongLengthIsDamage) {
  Bytes file = kCompressed;
  file.back() ^= 1;
  EXPECT_EQ(Gunzip(file, kPlenty).packing, Packing::kGzipDamaged);
}

TEST(GunzipTest, UnknownMethodIsDamage) {
  Bytes file = kCompressed;
  file[2] = 9;
  EXPECT_EQ(Gunzip(file, kPlenty).packing, Packing::kGzipDamaged);
}

TEST(GunzipTest, DamageInTheSecondMemberIsFound) {
  Bytes second = kCompressed;
  second[10] = 0xFF;  // no such type of block
  const Gunzipped result = Gunzip(Joined(kCompressed, second), kPlenty);
  EXPECT_EQ(result.packing, Packing::kGzipDamaged);
  ASSERT_TRUE(result.end);
  EXPECT_GE(*result.end, kCompressed.size());
  EXPECT_EQ(result.bytes.size(), 1000U);
}

TEST(GunzipTest, AsManyBytesAsTheLimitAreTaken) {
  EXPECT_FALSE(Gunzip(kCompressed, 1000).tooLarge);
  EXPECT_EQ(Gunzip(kCompressed, 1000).bytes.size(), 1000U);
}

TEST(GunzipTest, OneByteMoreThanTheLimitIsTooLarge) {
  const Gunzipped result = Gunzip(kCompressed, 999);
  EXPECT_TRUE(result.tooLarge);
  EXPECT_EQ(result.bytes, Bytes(999, 'A'));
}

TEST(GunzipTest, DamageBehindTheLimitIsNotLookedFor) {
  Bytes damaged = kCompressed;
  damaged[2] = 9;
  EXPECT_TRUE(Gunzip(Joined(kCompressed, damaged), 999).tooLarge);
}

}  // namespace
