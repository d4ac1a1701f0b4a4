#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "simulator/instrument/SpiMessage.h"

namespace orvane {
namespace {

using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

TEST(SpiMessageTest, TotalsCountWhatIsSentAndReceivedApart) {
  const std::vector<SpiTransfer> transfers = {{.length = 4, .sends = true},
                                              {.length = 16, .receives = true},
                                              {.length = 2, .sends = true, .receives = true},
                                              {.length = 1}};
  const SpiTotals totals = Total(transfers);
  EXPECT_EQ(totals.all, 23U);
  EXPECT_EQ(totals.sent, 6U);
  EXPECT_EQ(totals.received, 18U);
}

TEST(SpiMessageTest, TotalsDoNotWrapAt32Bits) {
  const std::vector<SpiTransfer> transfers(2, {.length = 0xFFFFFFFF, .sends = true});
  EXPECT_EQ(Total(transfers).sent, 0x1FFFFFFFEU);
}

TEST(SpiMessageTest, SentBytesOfTheBufferFitAndOneMoreDoesNot) {
  for (const auto& [length, fits] : {std::pair{260U, true}, {261U, false}}) {
    const std::vector<SpiTransfer> transfers = {{.length = length, .sends = true}};
    EXPECT_EQ(FitsInto({.bytes = 260}, {.transfers = transfers}), fits) << length;
  }
}

TEST(SpiMessageTest, ReceivedBytesOfTheBufferFitAndOneMoreDoesNot) {
  for (const auto& [length, fits] : {std::pair{4096U, true}, {4097U, false}}) {
    const std::vector<SpiTransfer> transfers = {{.length = 4, .sends = true},
                                                {.length = length, .receives = true}};
    EXPECT_EQ(FitsInto({.bytes = 4096}, {.transfers = transfers}), fits) << length;
  }
}

TEST(SpiMessageTest, EachTransferTakesAMultipleOfTheAlignment) {
  const std::vector<SpiTransfer> one = {{.length = 260, .sends = true}};
  EXPECT_FALSE(FitsInto({.bytes = 319, .alignment = 64}, {.transfers = one}));
  EXPECT_TRUE(FitsInto({.bytes = 320, .alignment = 64}, {.transfers = one}));
  const std::vector<SpiTransfer> two = {{.length = 1, .receives = true},
                                        {.length = 64, .receives = true}};
  EXPECT_FALSE(FitsInto({.bytes = 127, .alignment = 64}, {.transfers = two}));
  EXPECT_TRUE(FitsInto({.bytes = 128, .alignment = 64}, {.transfers = two}));
}

TEST(SpiMessageTest, EmptyTransferTakesNothing) {
  const std::vector<SpiTransfer> transfers = {{.length = 0, .sends = true},
                                              {.length = 64, .sends = true}};
  EXPECT_TRUE(FitsInto({.bytes = 64, .alignment = 64}, {.transfers = transfers}));
}

TEST(SpiMessageTest, LongestTransferDoesNotWrapAsItIsRounded) {
  const std::vector<SpiTransfer> transfers = {{.length = 0xFFFFFFFF, .sends = true}};
  EXPECT_FALSE(FitsInto({.bytes = 0xFFFFFFFF, .alignment = 64}, {.transfers = transfers}));
  EXPECT_TRUE(FitsInto({.bytes = 0x100000000, .alignment = 64}, {.transfers = transfers}));
}

TEST(SpiMessageTest, PlainReadAndWriteAreNotRounded) {
  const std::vector<SpiTransfer> transfers = {{.length = 260, .sends = true}};
  EXPECT_TRUE(FitsInto({.bytes = 260, .alignment = 64}, {.transfers = transfers, .isPlain = true}));
  EXPECT_FALSE(
      FitsInto({.bytes = 259, .alignment = 64}, {.transfers = transfers, .isPlain = true}));
}

TEST(SpiMessageTest, TransfersShareAChipSelect) {
  const std::vector<SpiTransfer> transfers = {{.length = 2, .sends = true},
                                              {.length = 3, .receives = true}};
  const std::vector<ChipSelect> selects = ChipSelects(transfers, Bytes{0x9F, 0x01});
  ASSERT_THAT(selects, SizeIs(1));
  EXPECT_EQ(selects[0].mosi, (Bytes{0x9F, 0x01, 0x00, 0x00, 0x00}));
  EXPECT_EQ(selects[0].sentBytes, 2U);
  ASSERT_THAT(selects[0].received, SizeIs(1));
  EXPECT_EQ(selects[0].received[0].at, 2U);
  EXPECT_EQ(selects[0].received[0].length, 3U);
}

TEST(SpiMessageTest, ChangeOfChipSelectStartsAnother) {
  const std::vector<SpiTransfer> transfers = {
      {.length = 1, .changesChipSelect = true, .sends = true}, {.length = 2, .sends = true}};
  const std::vector<ChipSelect> selects = ChipSelects(transfers, Bytes{0x06, 0x05, 0x00});
  ASSERT_THAT(selects, SizeIs(2));
  EXPECT_EQ(selects[0].mosi, (Bytes{0x06}));
  EXPECT_EQ(selects[1].mosi, (Bytes{0x05, 0x00}));
}

TEST(SpiMessageTest, ChangeOfChipSelectAfterTheLastTransferStartsNone) {
  const std::vector<SpiTransfer> transfers = {
      {.length = 1, .changesChipSelect = true, .sends = true}};
  EXPECT_THAT(ChipSelects(transfers, Bytes{0x06}), SizeIs(1));
}

TEST(SpiMessageTest, EachChipSelectIsDescribed) {
  const std::vector<ChipSelect> selects = {{.mosi = {0x06}, .sentBytes = 1},
                                           {.mosi = {0x05, 0x00}, .sentBytes = 1}};
  const SpiDescription description = Describe(selects);
  EXPECT_EQ(description.command, "WREN / RDSR");
  EXPECT_TRUE(description.answersShown);
}

TEST(SpiMessageTest, AnswersOfCommandsWithoutAnyAreNotShown) {
  const std::vector<ChipSelect> selects = {{.mosi = {0x06}, .sentBytes = 1}};
  EXPECT_FALSE(Describe(selects).answersShown);
}

TEST(SpiMessageTest, MessageThatIsTooLongIsDescribedByItsLength) {
  EXPECT_EQ(DescribeLength({.all = 67108865}).command, "message of 67108865 bytes");
}

}  // namespace
}  // namespace orvane
