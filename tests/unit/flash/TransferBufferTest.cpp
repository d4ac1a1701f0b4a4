#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "flash/TransferBuffer.h"

namespace {

/// Whether the buffer's bytes lie within the object itself.
bool IsInline(TransferBuffer& buffer) {
  const auto* const object = reinterpret_cast<const std::uint8_t*>(&buffer);
  return std::greater_equal<>()(buffer.Data(), object) &&
         std::less<>()(buffer.Data(), object + sizeof buffer);
}

TEST(TransferBufferTest, OrdinarySizesLieInTheObject) {
  TransferBuffer none(0);
  TransferBuffer largest(65536);
  EXPECT_TRUE(IsInline(none));
  EXPECT_TRUE(IsInline(largest));
  EXPECT_NE(none.Data(), nullptr);
  std::fill_n(largest.Data(), 65536, std::uint8_t{0xA5});
  EXPECT_EQ(largest.Data()[65535], 0xA5);
}

TEST(TransferBufferTest, LargerSizesLieOnTheHeap) {
  TransferBuffer buffer(65537);
  EXPECT_FALSE(IsInline(buffer));
  std::fill_n(buffer.Data(), 65537, std::uint8_t{0xA5});
  EXPECT_EQ(buffer.Data()[65536], 0xA5);
}

}  // namespace
