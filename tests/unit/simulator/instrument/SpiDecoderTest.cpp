#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/instrument/SpiDecoder.h"

namespace orvane {
namespace {

struct Row {
  const char* name;
  std::vector<std::uint8_t> sent;
  std::size_t receivedBytes;
  std::string command;
  bool answersShown;
};

class SpiDecoderTest : public testing::TestWithParam<Row> {};

TEST_P(SpiDecoderTest, Describes) {
  const SpiDescription description = DescribeSpi(GetParam().sent, GetParam().receivedBytes);
  EXPECT_EQ(description.command, GetParam().command);
  EXPECT_EQ(description.answersShown, GetParam().answersShown);
}

std::vector<std::uint8_t> WithBytes(std::vector<std::uint8_t> head, std::size_t count) {
  head.resize(head.size() + count, 0xAB);
  return head;
}

INSTANTIATE_TEST_SUITE_P(
    Messages,
    SpiDecoderTest,
    testing::Values(
        Row{"WriteEnable", {0x06}, 0, "WREN", false},
        Row{"WriteDisable", {0x04}, 0, "WRDI", false},
        Row{"ReadStatus", {0x05}, 1, "RDSR", true},
        Row{"ReadConfiguration", {0x15}, 1, "RDCR", true},
        Row{"ReadIdentification", {0x9F}, 3, "RDID", true},
        Row{"Read", {0x03, 0x12, 0x34, 0x56}, 4096, "READ 0x123456 +4096", false},
        Row{"PageProgram", WithBytes({0x02, 0x00, 0x10, 0x00}, 256), 0, "PP 0x001000 +256", false},
        Row{"PageProgramWithoutData", {0x02, 0x00, 0x10, 0x00}, 0, "PP 0x001000 +0", false},
        Row{"SubsectorErase", {0x20, 0x00, 0x10, 0x00}, 0, "SSE 0x001000", false},
        Row{"SectorErase", {0xD8, 0xFF, 0x00, 0x00}, 0, "SE 0xff0000", false},
        Row{"ChipErase60", {0x60}, 0, "CE", false},
        Row{"ChipEraseC7", {0xC7}, 0, "CE", false},
        Row{"WriteStatus", {0x01, 0x24, 0x08}, 0, "WRSR 24 08", false},
        Row{"WriteStatusAlone", {0x01}, 0, "01", true},
        Row{"CommandThatLeadsToMore", {0x06, 0x00}, 0, "06 00", true},
        Row{"WriteEnableThatReads", {0x06}, 1, "06", true},
        Row{"CutAddress", {0x02, 0x00, 0x10}, 0, "02 00 10", true},
        Row{"CutReadAddress", {0x03, 0x00, 0x10}, 4, "03 00 10", true},
        Row{"Unknown", {0xAB, 0xCD}, 2, "ab cd", true},
        Row{"LongUnknown",
            WithBytes({}, 34),
            0,
            "ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab ab "
            "ab "
            "ab ab ab ... +2",
            true},
        Row{"NothingSent", {}, 16, "-", true}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace orvane
