#include <gtest/gtest.h>

#include "companion/image/Hex.h"

namespace companion {
namespace {

TEST(HexTest, NumbersAreFilledUpWithZeros) {
  EXPECT_EQ(Hex(0x0A, 2), "0x0a");
  EXPECT_EQ(Hex(0, 2), "0x00");
}

TEST(HexTest, LongNumbersAreNotCut) { EXPECT_EQ(Hex(0x12345678, 2), "0x12345678"); }

TEST(HexTest, AddressHasSixDigits) {
  EXPECT_EQ(HexAddress(0x01A300), "0x01a300");
  EXPECT_EQ(HexAddress(0xFFFFFF), "0xffffff");
}

}  // namespace
}  // namespace companion
