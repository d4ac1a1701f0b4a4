#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <vector>

#include "simulator/images/Gzip.h"

namespace {

using orvane::Gzip;
using Bytes = std::vector<std::uint8_t>;

/// What zlib reads from one gzip member; empty if it refuses it.
Bytes Unpack(const Bytes& packed, std::size_t room) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  Bytes input = packed;
  Bytes output(room + 1);
  stream.next_in = input.data();
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = output.data();
  stream.avail_out = static_cast<uInt>(output.size());
  const int result = inflate(&stream, Z_FINISH);
  output.resize(result == Z_STREAM_END ? stream.total_out : 0);
  EXPECT_EQ(stream.avail_in, 0U);
  inflateEnd(&stream);
  return output;
}

TEST(GzipTest, UnpacksToTheSameBytes) {
  Bytes data(100000);
  for (std::size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<std::uint8_t>(i * i >> 3);
  }
  EXPECT_EQ(Unpack(Gzip(data), data.size()), data);
}

TEST(GzipTest, HeaderHasNoTimeAndNoName) {
  const Bytes packed = Gzip(Bytes{1, 2, 3});
  ASSERT_GE(packed.size(), 10U);
  EXPECT_EQ(Bytes(packed.begin(), packed.begin() + 8), Bytes({0x1F, 0x8B, 0x08, 0, 0, 0, 0, 0}));
}

TEST(GzipTest, NothingPacksIntoAnEmptyMember) {
  const Bytes packed = Gzip({});
  EXPECT_EQ(packed.size(), 20U);  // header 10, empty block 2, checksum 4, length 4
  EXPECT_EQ(Unpack(packed, 0), Bytes());
}

TEST(GzipTest, MonotonousDataShrinks) {
  const Bytes data(1 << 20, 0xFF);
  const Bytes packed = Gzip(data);
  EXPECT_LT(packed.size(), 4096U);
  EXPECT_EQ(Unpack(packed, data.size()), data);
}

TEST(GzipTest, SameDataGivesTheSameBytes) {
  const Bytes data(5000, 0x42);
  EXPECT_EQ(Gzip(data), Gzip(data));
}

}  // namespace
